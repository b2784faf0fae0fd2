// An array that the library counts into while a run goes on, and copies of it for this side to read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Tessel::Cli {

// Each number is read whole, but the numbers are not of one moment: tessel.h allows no more before the end of
// the run. The library writes them plainly and means it so; the thread sanitizer, which can't know that, isn't
// asked.
#define TESSEL_READS_GROWING __attribute__((no_sanitize("thread"), noinline))

template <class Number>
TESSEL_READS_GROWING Number readGrowing(const Number &number)
{
    Number value;
    __atomic_load(&number, &value, __ATOMIC_RELAXED);
    return value;
}

template <class Number>
TESSEL_READS_GROWING void copyGrowing(const Number *from, Number *to, size_t count)
{
    for (size_t i = 0; i < count; ++i) __atomic_load(from + i, to + i, __ATOMIC_RELAXED);
}

template <class Number>
struct Growing
{
    std::vector<Number> Numbers; // the library's until the run has ended

    // Takes over what the array is at the start, and returns where the library finds it.
    Number *begin(std::vector<Number> &initial)
    {
        Numbers = std::move(initial);
        return Numbers.data();
    }

    // The present numbers; those at the end of the run without a copy.
    void take(std::vector<Number> &shown, bool hasEnded)
    {
        if (hasEnded) {
            shown = std::move(Numbers);
        } else {
            shown.resize(Numbers.size());
            copyGrowing(Numbers.data(), shown.data(), shown.size());
        }
    }
};

} // namespace Tessel::Cli
