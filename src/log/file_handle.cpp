#include "log/file_handle.h"

#include "log/text.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessel {

void FileHandle::close()
{
    const int errorBefore = errno;
    if (number >= 0) ::close(number);
    number = -1;
    errno = errorBefore;
}

FileHandle openToRead(std::string_view path)
{
    return FileHandle(open(nativePath(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
}

FileHandle createToWrite(std::string_view path)
{
    return FileHandle(open(nativePath(path).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
}

std::optional<uint64_t> sizeOf(const FileHandle &file)
{
    struct stat status = {};
    if (fstat(file.descriptor(), &status) != 0) return std::nullopt;
    if (S_ISREG(status.st_mode)) return static_cast<uint64_t>(status.st_size);
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return std::nullopt;
}

int64_t readAt(const FileHandle &file, char *bytes, uint64_t count, uint64_t offset)
{
    uint64_t got = 0;
    while (got < count) {
        const ssize_t part =
            pread(file.descriptor(), bytes + got, count - got, static_cast<off_t>(offset + got));
        if (part < 0 && errno == EINTR) continue;
        if (part < 0) return -1;
        if (part == 0) break;
        got += static_cast<uint64_t>(part);
    }
    return static_cast<int64_t>(got);
}

uint64_t writeAt(const FileHandle &file, const char *bytes, uint64_t count, uint64_t offset)
{
    uint64_t done = 0;
    while (done < count) {
        const ssize_t part =
            pwrite(file.descriptor(), bytes + done, count - done, static_cast<off_t>(offset + done));
        if (part < 0 && errno == EINTR) continue;
        if (part == 0) errno = ENOSPC;
        if (part <= 0) break;
        done += static_cast<uint64_t>(part);
    }
    return done;
}

bool setSize(const FileHandle &file, uint64_t size)
{
    return ftruncate(file.descriptor(), static_cast<off_t>(size)) == 0;
}

bool close(FileHandle file)
{
    return ::close(file.release()) == 0;
}

FileStream openStream(std::string_view path, const char *mode)
{
    return FileStream(std::fopen(nativePath(path).c_str(), mode));
}

bool close(FileStream file)
{
    return std::fclose(file.release()) == 0;
}

} // namespace Tessel
