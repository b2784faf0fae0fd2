#include "jobs/file_mark.h"

#include "program/exit_codes.h"
#include "program/files.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>
#include <zlib.h>

namespace Tessel::Cli {

namespace {

[[noreturn]] void failToRead(const std::string &path, int error)
{
    throw Failure(Exit::NoDevice, fmt::format("{}: {}", visibleText(path), std::strerror(error)));
}

void addBytes(uint32_t &crc, int file, uint64_t from, uint64_t to, const std::string &path)
{
    if (from == to) return; // zlib begins again without bytes
    std::vector<char> bytes(to - from);
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t got = pread(file, bytes.data() + done, bytes.size() - done, off_t(from + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) failToRead(path, got < 0 ? errno : EIO); // it became shorter
        done += size_t(got);
    }
    crc = static_cast<uint32_t>(crc32_z(crc, reinterpret_cast<const Bytef *>(bytes.data()), bytes.size()));
}

} // namespace

FileMark markOf(const std::string &path)
{
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status = {};
    if (file.Number < 0 || fstat(file.Number, &status) != 0) failToRead(path, errno);
    FileMark mark{.Bytes = uint64_t(status.st_size)};
    mark.ChangedNs = int64_t(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec;
    const uint64_t head = std::min(mark.Bytes, markedEnd);
    addBytes(mark.Crc32, file.Number, 0, head, path);
    addBytes(mark.Crc32, file.Number, std::max(head, mark.Bytes - head), mark.Bytes, path);
    return mark;
}

} // namespace Tessel::Cli
