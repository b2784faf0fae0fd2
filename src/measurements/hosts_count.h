// The wait for a host that may set its count back without a call, so that nobody tells the run of it.
#pragma once

#include "threads/paces.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace Tessel {

// Each look is as late after the one before as all have taken together, up to longestHostsCount: a host that is
// slow is seen a little later, and one that never fetches costs no processor time.
template <class Condition>
void waitForHostsCount(std::condition_variable &changed, std::unique_lock<std::mutex> &lock, Condition goesOn)
{
    auto pause = Pace::hostsCount;
    while (!changed.wait_for(lock, pause, goesOn)) pause = std::min(2 * pause, Pace::longestHostsCount);
}

} // namespace Tessel
