#include "threads/team.h"

#include <system_error>
#include <utility>

namespace Tessel {

Team::~Team()
{
    {
        std::lock_guard guard(lock);
        ends = true;
    }
    called.notify_all();
    for (std::thread &helper : helpers) helper.join();
}

void Team::start()
{
    isStarted = true;
    try {
        helpers.reserve(wanted);
        while (helpers.size() < wanted) helpers.emplace_back([this] { help(); });
    } catch (const std::exception &) {
        return; // those that there are do
    }
}

void Team::takeParts(Job &of) noexcept
{
    for (uint64_t part = of.Next++; part < of.Parts; part = of.Next++) {
        try {
            of.Do(of.Work, part);
        } catch (...) {
            std::lock_guard guard(lock);
            if (!failure) failure = std::current_exception();
        }
    }
}

void Team::help()
{
    std::unique_lock guard(lock);
    for (uint64_t seen = 0;;) {
        called.wait(guard, [&] { return ends || (job && jobs != seen); });
        if (ends) return;
        seen = jobs;
        Job &mine = *job;
        ++atWork;
        guard.unlock();
        takeParts(mine);
        guard.lock();
        if (--atWork == 0) left.notify_one();
    }
}

void Team::run(Job &&given)
{
    if (!isStarted) start();
    if (!helpers.empty()) {
        std::lock_guard guard(lock);
        job = &given;
        ++jobs;
    }
    if (!helpers.empty()) called.notify_all();
    takeParts(given);
    std::unique_lock guard(lock);
    job = nullptr; // who comes late finds none
    left.wait(guard, [this] { return atWork == 0; });
    if (failure) std::rethrow_exception(std::exchange(failure, nullptr));
}

} // namespace Tessel
