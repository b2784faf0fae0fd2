// The instruction sets that a loop is measured with: the best of this machine, and AVX2 where that isn't it.
#pragma once

#include <hwy/targets.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Bench {

struct Target
{
    std::string Suffix; // of the case's name
    int64_t Targets;    // of Highway; 0: all
};

inline std::vector<Target> targets()
{
    std::vector<Target> found{{"", 0}};
    const int64_t supported = hwy::SupportedTargets();
    const int64_t best = supported & -supported;
    if ((supported & HWY_AVX2) != 0 && best != HWY_AVX2) found.push_back({"/AVX2", HWY_AVX2});
    return found;
}

// For as long as it lives.
class WithTarget
{
public:
    explicit WithTarget(const Target &target) { hwy::SetSupportedTargetsForTest(target.Targets); }
    ~WithTarget() { hwy::SetSupportedTargetsForTest(0); }
    WithTarget(const WithTarget &) = delete;
    WithTarget &operator=(const WithTarget &) = delete;
};

} // namespace Bench
