// Measures a loop against others in one run: all of them are timed turn by turn, so that whatever slows the
// machine down slows each of them, and the medians are compared.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

namespace Bench {

inline double median(std::vector<double> seconds)
{
    const auto middle = seconds.begin() + static_cast<std::ptrdiff_t>(seconds.size() / 2);
    std::nth_element(seconds.begin(), middle, seconds.end());
    return *middle;
}

template <class Work>
double secondsOf(const Work &work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// How each figure is made: the plain loop, the measured one and the copy take turns on the same items. `ns` is
// the median time of the measured turns, for an item, `plain_ns` that of the plain ones; `x_plain` is plain_ns
// / ns, and `x_memcpy` the same with the copy. `items_per_second` is 1 / ns.
template <class Measured, class Plain, class Copy>
void compare(benchmark::State &state, uint64_t items, const Measured &measured, const Plain &plain,
             const Copy &copy)
{
    std::vector<double> measuredSeconds, plainSeconds, copySeconds;
    bool plainFirst = false; // in turn, as the second finds the items in the cache
    for (auto _ : state) {
        plainFirst = !plainFirst;
        if (plainFirst) plainSeconds.push_back(secondsOf(plain));
        measuredSeconds.push_back(secondsOf(measured));
        if (!plainFirst) plainSeconds.push_back(secondsOf(plain));
        copySeconds.push_back(secondsOf(copy));
        state.SetIterationTime(measuredSeconds.back());
    }
    const double best = median(measuredSeconds), nsOfItem = 1e9 / static_cast<double>(items);
    state.counters["items_per_second"] = static_cast<double>(items) / best;
    state.counters["ns"] = best * nsOfItem;
    state.counters["plain_ns"] = median(plainSeconds) * nsOfItem;
    state.counters["x_plain"] = median(plainSeconds) / best;
    state.counters["x_memcpy"] = median(copySeconds) / best;
}

} // namespace Bench
