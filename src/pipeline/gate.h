// A binary semaphore: starts free; whoever acquires it need not be the one who releases it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace Tessel {

class Gate
{
public:
    // False, without the gate, once `patience` has passed.
    bool acquireFor(std::chrono::milliseconds patience)
    {
        std::unique_lock lock(mutex);
        if (!freed.wait_for(lock, patience, [this] { return isFree; })) return false;
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
