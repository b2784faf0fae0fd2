// The fake library of one instrument family (fakes/), as a test sees it. A program that uses it looks for
// instruments in the folder of the fakes.
#pragma once

#include "fakes/control.h"

#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

class Fake
{
public:
    // `library`: "ZPLib64.so". There are instruments on its first ports while it lives.
    explicit Fake(std::string_view library, int32_t instruments = 1);
    ~Fake() { told->reset(0); }
    Fake(const Fake &) = delete;
    Fake &operator=(const Fake &) = delete;

    const FakeControl *operator->() const { return told; }

    // The calls so far, and those since the last time they were asked for.
    std::vector<std::string> journal() const;
    std::string newCalls(); // "SetSyncDiv 0 5; SetOffset 0 0"

private:
    const FakeControl *told;
    size_t seen = 0;
};

} // namespace TestSupport
