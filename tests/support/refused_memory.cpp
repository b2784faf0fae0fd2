#include "support/refused_memory.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> asked{0}, firstRefused{UINT64_MAX}, afterLast{UINT64_MAX};

void *allocate(std::size_t size, std::size_t alignment = 0)
{
    const uint64_t number = ++asked;
    const bool refused = number >= firstRefused && number < afterLast;
    void *memory = nullptr;
    if (!refused) {
        const std::size_t whole = std::max<std::size_t>(size, 1);
        memory = alignment ? std::aligned_alloc(alignment, (whole + alignment - 1) / alignment * alignment)
                           : std::malloc(whole);
    }
    if (!memory) throw std::bad_alloc();
    return memory;
}

} // namespace

void *operator new(std::size_t size)
{
    return allocate(size);
}
void *operator new(std::size_t size, std::align_val_t alignment)
{
    return allocate(size, static_cast<std::size_t>(alignment));
}
void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    try {
        return allocate(size);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}
void operator delete(void *memory) noexcept
{
    std::free(memory);
}
void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete(void *memory, std::align_val_t) noexcept
{
    std::free(memory);
}
void operator delete(void *memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}

namespace TestSupport {

RefusedMemory::RefusedMemory(uint64_t first, uint64_t count)
{
    const uint64_t before = asked;
    afterLast = count > UINT64_MAX - before - first ? UINT64_MAX : before + first + count;
    firstRefused = before + first;
}

RefusedMemory::~RefusedMemory()
{
    firstRefused = UINT64_MAX;
}

bool RefusedMemory::hasRefused() const
{
    return asked >= firstRefused;
}

} // namespace TestSupport
