#include "columns/source_file.h"

#include "program/console.h"
#include "program/exit_codes.h"
#include "program/interrupt.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Tessel::Cli {

namespace {

[[noreturn]] void failOn(const std::string &shown, int error, Exit code = Exit::Failed)
{
    throw Failure(code, fmt::format("{}: {}", shown, std::strerror(error)));
}

// A pipe is opened without waiting for its writer: readSome() does, and a signal ends that.
int openSource(const std::string &path, const std::string &shown)
{
    const int file = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                                 : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (file < 0) failOn(shown, errno, Exit::NoDevice);
    return file;
}

// It is gone when it is closed.
int fileWithoutName(const std::string &folder)
{
    const int file = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (file >= 0) return file;
    std::string name = folder + "/.tessel-XXXXXX.part";
    const int named = mkostemps(name.data(), 5, O_CLOEXEC);
    if (named >= 0) unlink(name.c_str());
    return named;
}

// Waits for bytes; false: there are no more.
bool readSome(int from, const std::string &shown, std::vector<char> &buffer, size_t &count)
{
    for (;;) {
        pollfd waiting{.fd = from, .events = POLLIN, .revents = 0};
        if (poll(&waiting, 1, 200) < 0 && errno != EINTR) failOn(shown, errno);
        if (interruptSignal() != 0) throw Interrupted();
        if (waiting.revents == 0) continue;
        const ssize_t got = read(from, buffer.data(), buffer.size());
        if (got < 0 && errno != EINTR && errno != EAGAIN) failOn(shown, errno);
        if (got < 0) continue;
        count = static_cast<size_t>(got);
        return count > 0;
    }
}

int kept(int from, const std::string &shown, const std::string &folder)
{
    Descriptor into(fileWithoutName(folder));
    if (into.Number < 0) failOn(visibleText(folder), errno);
    std::vector<char> buffer(size_t(1) << 20);
    for (size_t count = 0; readSome(from, shown, buffer, count);)
        if (!writeAll(into.Number, {buffer.data(), count}))
            throw Failure(Exit::Failed, fmt::format("{}: what {} gives can't be kept there: {}",
                                                    visibleText(folder), shown, std::strerror(errno)));
    return std::exchange(into.Number, -1);
}

} // namespace

SourceFile::SourceFile(const std::string &path, const std::string &folder)
    : Shown(path == "-" ? "standard input" : visibleText(path)), File(openSource(path, Shown))
{
    struct stat status = {};
    if (fstat(File.Number, &status) != 0) failOn(Shown, errno);
    if (S_ISDIR(status.st_mode)) failOn(Shown, EISDIR, Exit::NoDevice);
    if (!S_ISREG(status.st_mode)) {
        const Descriptor pipe(std::exchange(File.Number, -1));
        File.Number = kept(pipe.Number, Shown, folder);
        if (fstat(File.Number, &status) != 0) failOn(Shown, errno);
    } else if (path == "-") {
        Start = static_cast<uint64_t>(std::max<off_t>(0, lseek(File.Number, 0, SEEK_CUR)));
    }
    const auto end = static_cast<uint64_t>(status.st_size);
    Bytes = end - std::min(end, Start);
}

size_t readAt(const SourceFile &file, uint64_t offset, char *to, size_t most)
{
    size_t done = 0;
    while (done < most) {
        const ssize_t got =
            pread(file.File.Number, to + done, most - done, static_cast<off_t>(file.Start + offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) failOn(file.Shown, errno);
        if (got == 0) break;
        done += static_cast<size_t>(got);
    }
    return done;
}

} // namespace Tessel::Cli
