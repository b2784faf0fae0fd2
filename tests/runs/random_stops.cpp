// Runs of every measurement, ended at random moments in every way, on recordings of 10 to 1,000,000 records
// with 0 to 8 stages: each end takes no longer than the waits that are told and the counting of what was
// read, and nothing is left behind.
// TESSEL_TEST_RUNS sets how many; then the machine is to have nothing else to do.
#include "runs/kinds.h"
#include "support/host.h"
#include "support/random_words.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <ctime>
#include <malloc.h>
#include <map>
#include <random>
#include <thread>

using namespace TestSupport;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

namespace {

constexpr int channels = 3;
constexpr size_t sizes[] = {10, 1000, 100'000, 1'000'000};
constexpr auto settle = 300ms;        // before data flow
constexpr auto consumerTakes = 5s;    // a stopped run waits so long for its reader
constexpr auto draining = 2s + 500ms; // a run that is in the way
constexpr auto coincidenceGoes = 2s;  // the thread of a coincidence

constexpr int slowness = isSanitized ? 20 : 1;

bool isSoak()
{
    return getenv("TESSEL_TEST_RUNS") != nullptr;
}

// What an end may take beside the waits that are told: more where other tests run beside this one.
std::chrono::milliseconds grace()
{
    return slowness * (isSoak() ? 50ms : 1000ms);
}

// Of all threads of this process.
Milliseconds processorTime()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

class Hosts
{
public:
    explicit Hosts(uint32_t seed) : random(seed)
    {
        for (const size_t size : sizes)
            for (const bool t3 : {false, true})
                files.push_back(
                    (t3 ? TgxFile::t3(channels) : TgxFile::t2(channels))
                        .records(
                            randomWords({.count = size, .t3 = t3, .overflowShare = 0.01, .channels = channels}))
                        .write(host.folder().file(fmt::format("{}{}.tgx", t3 ? "t3_" : "t2_", size))));
    }

    // A run and its end.
    void run()
    {
        if (!isOpen || oneIn(8)) open();
        const RunKind &chosen = runKinds[random() % std::size(runKinds)];
        const bool isLeftAlone = isSoak() && oneIn(50); // its host takes nothing
        memory.capacity = isLeftAlone ? 5 : memory.times.size();
        if (isLeftAlone && !chosen.isBlock) setSequenceMode(2, 1, 1);
        Finished finished;
        const auto start = Clock::now();
        chosen.start(memory, finished.get());
        sleepUpTo(chosen.settles ? 450ms : 60ms);
        if (oneIn(3)) disturb();
        const auto told = (chosen.settles ? settle : 0s) + (isLeftAlone ? consumerTakes + draining : 0s);
        end(finished, told,
            fmt::format("{} of {} with {} stages, {} ms after its start", chosen.name,
                        files[file].substr(files[file].rfind('/') + 1), stages, (Clock::now() - start) / 1ms));
        setSequenceMode(0, 0, 0);
    }

    // KiB, with no device open.
    size_t residentWhenClosed()
    {
        closeDevice(1);
        isOpen = false;
        malloc_trim(0); // what is free isn't used
        return residentKiB();
    }

    // The next run is whole.
    void expectToWork()
    {
        open(std::size(files) - 2);
        clearManis(nullptr);
        Finished finished;
        uint64_t events = 0;
        ufMeasure(nullptr, 0, 1, 0, memory.times.data(), memory.codes.data(), &events, memory.times.size(),
                  finished.get());
        EXPECT_EQ(events, 1'000'000u);
    }

    std::string ends() const
    {
        std::string text;
        for (const auto &[name, end] : longest)
            text +=
                fmt::format("{:5} {:4} times, at most {:.1f} ms beyond what is told, {:.1f} ms of work: {}\n",
                            name, end.count, end.beyond.count(), end.work.count(), end.story);
        return text;
    }

private:
    struct End
    {
        int count = 0;
        Milliseconds beyond{-1e9}, work{}; // of the longest
        std::string story;
    };

    bool oneIn(uint32_t chances) { return random() % chances == 0; }
    void sleepUpTo(std::chrono::microseconds most)
    {
        std::this_thread::sleep_for(most * (random() % 1000) / 1000);
    }

    void open() { open(random() % files.size()); }
    void open(size_t chosen)
    {
        ASSERT_FALSE(host.open(files[file = chosen]).empty());
        isOpen = true;
        stages = coincidences = 0;
        for (uint32_t wanted = random() % 9; stages < wanted;) addStage();
    }

    void addStage()
    {
        const int32_t two[] = {1, 2};
        const bool keep = ++stages == 1; // what each stage adds to would come to ten times the events
        switch (random() % 12) {
        case 0:
            ++coincidences;
            addMCoincidence(nullptr, two, 2, 1000, 0, random() % 2 * 2, keep);
            break;
        case 1:
        case 2: addMDelay(nullptr, 1, 500, keep); break;
        case 3:
        case 4: addMHerald(nullptr, 1, two, 2, 0, 1000, 0, keep); break;
        case 5:
        case 6: addMSubStream(nullptr, 0, ~uint64_t{0}); break;
        case 7:
        case 8: addMCountRate(nullptr, 1e9); break;
        default: addMMerge(nullptr, two, 2, keep);
        }
    }

    // What a host may do meanwhile.
    void disturb()
    {
        switch (random() % 5) {
        case 0: clearMeasure(nullptr); break;
        case 1:
            addStage();
            clearManis(nullptr);
            stages = coincidences = 0;
            break;
        case 2:
            deleteMani(nullptr, static_cast<uint32_t>(random() % 9));
            isOpen = false; // the chain is broken
            break;
        case 3: setSequenceMode(static_cast<int32_t>(random() % 3), 0, 10'000); break;
        default: gotNewData(nullptr);
        }
    }

    // Nobody waits while a processor counts what was read; on more than one the rest may hide behind that.
    void end(Finished &finished, Milliseconds told, const std::string &story)
    {
        const auto start = Clock::now();
        const Milliseconds workBefore = processorTime();
        const char *name = "";
        switch (random() % 6) {
        case 0:
            name = "close";
            closeDevice(0);
            isOpen = false;
            if (coincidences > 0) told += coincidenceGoes;
            EXPECT_TRUE(finished.isSet());
            break;
        case 1: {
            name = "start";
            Finished second;
            exportStreamMeasure(nullptr, 0, 0, 0, second.get());
            EXPECT_TRUE(finished.isSet());
            stopMeasure(nullptr);
            EXPECT_TRUE(second.wait());
            break;
        }
        default:
            name = "stop";
            stopMeasure(nullptr);
            EXPECT_LT(Clock::now() - start, grace()) << story;
            EXPECT_EQ(describedText("StopReason"), "Manual");
        }
        ASSERT_TRUE(finished.wait()) << story;
        const Milliseconds beyond = Clock::now() - start - told, work = processorTime() - workBefore;
        EXPECT_LT(beyond - work, grace()) << name << ": " << story;
        End &sofar = longest[name];
        ++sofar.count;
        if (beyond > sofar.beyond) sofar.beyond = beyond, sofar.work = work, sofar.story = story;
    }

    Host host;
    std::mt19937 random;
    std::vector<std::string> files;
    Arrays memory;
    size_t file = 0;
    bool isOpen = false;
    uint32_t stages = 0, coincidences = 0;
    std::map<std::string, End> longest;
};

} // namespace

TEST(Lifecycle, RunsStoppedAtRandomMomentsLeaveNothingBehind)
{
    const int runs = isSoak() ? std::atoi(getenv("TESSEL_TEST_RUNS")) : 25;
    const std::unique_ptr<Hosts> hosts(new Hosts(5));
    const size_t threads = threadCount(), descriptors = descriptorCount();
    size_t resident = 0;
    for (int i = 0; i < runs && !testing::Test::HasFatalFailure(); ++i) {
        hosts->run();
        if (i == runs / 2) resident = hosts->residentWhenClosed();
    }
    hosts->expectToWork();
    EXPECT_LT(hosts->residentWhenClosed(), resident + 128 * 1024);
    EXPECT_TRUE(eventually([&] { return threadCount() <= threads; })) << threadCount();
    EXPECT_TRUE(eventually([&] { return descriptorCount() <= descriptors; })) << descriptorCount();
    if (isSoak()) std::cout << hosts->ends();
}
