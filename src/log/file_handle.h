// Open files, each with one owner that closes it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

namespace Tessel {

class FileHandle
{
public:
    FileHandle() = default;
    explicit FileHandle(int descriptor) : number(descriptor) {}
    FileHandle(FileHandle &&other) noexcept : number(std::exchange(other.number, -1)) {}
    FileHandle &operator=(FileHandle &&other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    ~FileHandle() { close(); }

    bool isOpen() const { return number >= 0; }
    int descriptor() const { return number; } // -1: none
    void close();                             // leaves errno as it is
    int release() { return std::exchange(number, -1); }

private:
    int number = -1;
};

// None, with errno, if it can't be opened. Doesn't wait for a writer, as the plain open of a pipe would.
FileHandle openToRead(std::string_view path);

// A file that wasn't there. None, with errno, if it can't be made; EEXIST if there is one.
FileHandle createToWrite(std::string_view path);

// Bytes of a regular file. Nothing, with errno, if it is another kind.
std::optional<uint64_t> sizeOf(const FileHandle &file);

// Bytes that could be read at `offset`; fewer than asked only at the file's end. -1, with errno: error.
int64_t readAt(const FileHandle &file, char *bytes, uint64_t count, uint64_t offset);

// Bytes that could be written at `offset`; fewer than given, with errno: error.
uint64_t writeAt(const FileHandle &file, const char *bytes, uint64_t count, uint64_t offset);

// The file's length from now on. False, with errno, if the system refuses it.
bool setSize(const FileHandle &file, uint64_t size);

// False, with errno, if the last of what was written didn't go out.
bool close(FileHandle file);

struct CloseStream
{
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using FileStream = std::unique_ptr<std::FILE, CloseStream>;

// `mode` as fopen takes it. Null, with errno, if it can't be opened.
FileStream openStream(std::string_view path, const char *mode);

// False, with errno, if the last of what was written didn't go out.
bool close(FileStream file);

} // namespace Tessel
