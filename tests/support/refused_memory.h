// Refuses allocations of the whole process, for tests of what happens without memory. A program that uses it
// has an operator new of its own, which counts.
#pragma once

#include <cstdint>

namespace TestSupport {

class RefusedMemory
{
public:
    // From the `first` allocation of this moment on (1: the next one), `count` of them.
    explicit RefusedMemory(uint64_t first = 1, uint64_t count = UINT64_MAX);
    ~RefusedMemory();
    RefusedMemory(const RefusedMemory &) = delete;
    RefusedMemory &operator=(const RefusedMemory &) = delete;

    bool hasRefused() const;
};

} // namespace TestSupport
