// Who has nothing to do sleeps: an open device between its runs, and a run that waits for its host.
#include "runs/kinds.h"
#include "support/host.h"
#include "support/random_words.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>

using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

constexpr int channels = 4;

std::chrono::nanoseconds clockTime(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// What the threads of this process but the calling one have done so far.
struct Activity
{
    std::chrono::nanoseconds processorTime =
        clockTime(CLOCK_PROCESS_CPUTIME_ID) - clockTime(CLOCK_THREAD_CPUTIME_ID);
    int64_t wakeUps = 0;

    Activity()
    {
        const std::string own = std::to_string(gettid());
        for (const auto &thread : std::filesystem::directory_iterator("/proc/self/task")) {
            if (thread.path().filename() == own) continue;
            std::ifstream status(thread.path() / "status");
            for (std::string key; status >> key;)
                if (int64_t switches = 0; key == "voluntary_ctxt_switches:" && status >> switches)
                    wakeUps += switches;
        }
    }
};

#ifdef __SANITIZE_THREAD__
constexpr bool isAlone = false; // the sanitizer has a thread of its own
#else
constexpr bool isAlone = true;
#endif

// From the moment at which all is done; TESSEL_TEST_SECONDS sets how long it is watched.
void expectIdle(int64_t wakeUpsASecond = 0)
{
    if (!isAlone) return;
    const char *given = getenv("TESSEL_TEST_SECONDS");
    const int seconds = given ? std::atoi(given) : 1;
    ASSERT_TRUE(eventually([wakeUpsASecond] {
        const Activity before;
        std::this_thread::sleep_for(200ms);
        return Activity().wakeUps - before.wakeUps <= wakeUpsASecond;
    }));
    const Activity before;
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const Activity after;
    EXPECT_LE(after.wakeUps - before.wakeUps, wakeUpsASecond * seconds);
    EXPECT_LE(after.processorTime - before.processorTime, wakeUpsASecond * seconds * 100us + 10us);
}

} // namespace

TEST(Idle, AnOpenDeviceWithStagesOfAllKindsMakesNoWakeUps)
{
    Host host;
    ASSERT_FALSE(host.open(TgxFile::t2(channels), randomWords({.count = 1000, .t3 = false})).empty());
    addEightStages();
    const int32_t wanted[] = {1, 2};
    addMImportStream(nullptr, u"no such device", 1, wanted, 2, 0);
    expectIdle();

    Counts counts(static_cast<size_t>(getNumAllChans(nullptr)), 65536);
    Finished finished;
    deleteMani(nullptr, 8); // without it a run would wait for the device that it names
    getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get());
    expectIdle();
}

TEST(Idle, ARunWhoseHostIsAwaySleeps)
{
    const struct
    {
        std::string_view name;
        int64_t wakeUpsASecond; // a count of the host's is looked at each millisecond
    } cases[] = {{"raw block", 0}, {"raw", 1100}, {"unfold block", 0}, {"unfold", 1100}, {"histogram", 0}};
    static Arrays memory;
    memory.capacity = 1000;
    const auto words = randomWords({.count = 3'000'000, .t3 = false}); // more than the run reads ahead
    for (const auto &given : cases) {
        SCOPED_TRACE(given.name);
        Host host;
        ASSERT_FALSE(host.open(TgxFile::t2(channels), words).empty());
        const int32_t member[] = {1};
        addMMerge(nullptr, member, 1, 1);
        Finished finished;
        if (given.name == "histogram") setSequenceMode(2, 1, 1);
        std::ranges::find(runKinds, given.name, &RunKind::name)->start(memory, finished.get());
        std::this_thread::sleep_for(400ms); // its stages and hosts settle
        expectIdle(given.wakeUpsASecond);
        EXPECT_FALSE(finished.isSet());
        exitAPI();
        EXPECT_TRUE(finished.isSet());
    }
}
