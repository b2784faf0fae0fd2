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

// `x_plain` and `x_memcpy` tell how many times as fast as the plain loop and as the copy the measured loop is.
// `items_per_second` is of its median.
template <class Measured, class Plain, class Copy>
void compare(benchmark::State &state, uint64_t items, const Measured &measured, const Plain &plain,
             const Copy &copy)
{
    std::vector<double> measuredSeconds, plainSeconds, copySeconds;
    for (auto _ : state) {
        plainSeconds.push_back(secondsOf(plain));
        measuredSeconds.push_back(secondsOf(measured));
        copySeconds.push_back(secondsOf(copy));
        state.SetIterationTime(measuredSeconds.back());
    }
    const double best = median(measuredSeconds);
    state.counters["items_per_second"] = static_cast<double>(items) / best;
    state.counters["x_plain"] = median(plainSeconds) / best;
    state.counters["x_memcpy"] = median(copySeconds) / best;
}

} // namespace Bench
