// Runs a check once for each instruction set of this machine that the library has a loop for.
#pragma once

#include <gtest/gtest.h>
#include <hwy/highway.h>

#include <cstdint>

namespace TestSupport {

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

} // namespace TestSupport
