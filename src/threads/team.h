// A few threads that help one other with jobs of several parts. Their owner gives a job, takes parts itself,
// and goes on when every part is done; between two jobs they sleep.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace Tessel {

class Team
{
public:
    // Started with the first job that is shared. Where the system refuses a thread, there are fewer.
    explicit Team(unsigned helperCount) : wanted(helperCount) {}
    ~Team(); // waits for the helpers, which have no job then
    Team(const Team &) = delete;
    Team &operator=(const Team &) = delete;

    // Calls work(part) once for each part below `parts`, in any order, on any of the threads. What a part
    // throws is thrown here, when none is at work any more. Called by the owner alone; nothing is allocated.
    template <class Work>
    void share(uint64_t parts, const Work &work)
    {
        run({[](const void *of, uint64_t part) { (*static_cast<const Work *>(of))(part); }, &work, parts});
    }

private:
    struct Job
    {
        void (*Do)(const void *work, uint64_t part);
        const void *Work;
        uint64_t Parts;
        std::atomic<uint64_t> Next{0};
    };

    void run(Job &&job);
    void start();
    void help();
    void takeParts(Job &job) noexcept;

    const unsigned wanted;
    std::vector<std::thread> helpers; // the owner's
    bool isStarted = false;           // the owner's

    std::mutex lock;                // held for a look or a change; nothing is taken under it
    std::condition_variable called; // a job came, or the team ends
    std::condition_variable left;   // the last helper left the job
    Job *job = nullptr;         // guarded by lock; the owner's memory, as long as it is here or atWork isn't 0
    uint64_t jobs = 0;          // guarded by lock; given so far
    unsigned atWork = 0;        // guarded by lock; helpers in the job
    bool ends = false;          // guarded by lock
    std::exception_ptr failure; // guarded by lock; the first of the job
};

} // namespace Tessel
