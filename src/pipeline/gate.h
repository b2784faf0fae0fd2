// A binary semaphore: starts free; whoever acquires it need not be the one who releases it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace Tessel {

class Gate
{
public:
    void acquire()
    {
        std::unique_lock lock(mutex);
        freed.wait(lock, [this] { return isFree; });
        isFree = false;
    }
    // False, without the gate, as soon as `giveUp` is set.
    bool acquireUnless(const std::atomic<bool> &giveUp)
    {
        using namespace std::chrono_literals;
        std::unique_lock lock(mutex);
        while (!freed.wait_for(lock, 10ms, [this] { return isFree; }))
            if (giveUp) return false;
        isFree = false;
        return true;
    }
    // Releasing a free gate leaves it free.
    void release()
    {
        {
            std::lock_guard lock(mutex);
            isFree = true;
        }
        freed.notify_one();
    }

private:
    std::mutex mutex;
    std::condition_variable freed;
    bool isFree = true; // guarded by mutex
};

} // namespace Tessel
