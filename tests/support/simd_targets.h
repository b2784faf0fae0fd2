// Runs a check with the instruction sets of this machine that the library has a loop for.
#pragma once

#include <gtest/gtest.h>
#include <hwy/highway.h>

#include <cstdint>

namespace TestSupport {

// With each of them.
template <class Check>
void forEachSimdTarget(const Check &check)
{
    for (int64_t left = hwy::SupportedTargets() & HWY_TARGETS; left != 0; left &= left - 1) {
        const int64_t target = left & -left;
        SCOPED_TRACE(hwy::TargetName(target));
        hwy::SetSupportedTargetsForTest(target);
        check();
        hwy::SetSupportedTargetsForTest(0);
    }
}

// With one, chosen by the number of the check.
template <class Check>
void withSimdTarget(size_t number, const Check &check)
{
    size_t targets = 0, at = 0;
    forEachSimdTarget([&] { ++targets; });
    forEachSimdTarget([&] {
        if (at++ == number % targets) check();
    });
}

} // namespace TestSupport
