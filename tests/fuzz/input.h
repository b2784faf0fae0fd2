// What fuzz targets share: an input taken apart, a file that is in memory only, and how a fault is reported.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace Fuzz {

// What must hold for every input.
inline void require(bool holds, const char *what)
{
    if (holds) return;
    std::fprintf(stderr, "doesn't hold: %s\n", what);
    std::abort();
}

// Numbers and texts from the front of the input; zeros where nothing is left.
struct Input
{
    std::string_view Left;

    template <class T>
    T take()
    {
        T value{};
        const size_t count = std::min(sizeof value, Left.size());
        std::memcpy(&value, Left.data(), count);
        Left.remove_prefix(count);
        return value;
    }
    size_t below(size_t end) { return take<uint8_t>() % end; }
    bool chance() { return take<uint8_t>() & 1; }
    template <class T>
    T oneOf(std::initializer_list<T> values)
    {
        return values.begin()[below(values.size())];
    }
    std::string_view text()
    {
        const size_t most = below(64);
        const std::string_view taken = Left.substr(0, most);
        Left.remove_prefix(taken.size());
        return taken;
    }
};

class MemoryFile
{
public:
    explicit MemoryFile(std::string_view bytes) : descriptor(memfd_create("fuzz", MFD_CLOEXEC))
    {
        require(write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "a file");
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

private:
    int descriptor;
};

} // namespace Fuzz
