// What a host does to the chain at the wrong moment: the run goes on to its end, and the next one is whole.
#include "support/host.h"
#include "support/tgx_file.h"
#include "support/words.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <array>
#include <pthread.h>
#include <string>
#include <thread>

using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

constexpr size_t records = 10'000, columns = 32768;
const int32_t members[] = {1};

std::string writeT3(const Host &host, size_t count = records)
{
    std::vector<uint32_t> words(count);
    for (size_t i = 0; i < count; ++i) words[i] = t3Event(i % 2, 0, static_cast<uint32_t>(i % 50));
    return TgxFile::t3().tag("HW_SerialNo", "7").records(words).write(host.folder().file("run.tgx"));
}

std::string chainText()
{
    std::array<char, 65535> text{};
    getManisConfig(text.data());
    return text.data();
}

// Every new thread asks for a stack that no machine has.
class NoThreads
{
public:
    NoThreads()
    {
        pthread_getattr_default_np(&before);
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        pthread_attr_setstacksize(&huge, size_t{1} << 46);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    ~NoThreads() { pthread_setattr_default_np(&before); }

private:
    pthread_attr_t before;
};

} // namespace

TEST(ChainChanges, DuringARunLetItEndAndTheNextOneBeWhole)
{
    struct Case
    {
        const char *name;
        void (*change)();
        int64_t channels;    // rows of a result afterwards
        uint64_t mergedOnce; // stages that copy channel 1 in the next run
    };
    const Case cases[] = {
        {"clearManis", [] { clearManis(nullptr); }, 3, 0},
        {"deleteMani of the final record", [] { deleteMani(nullptr, 1); }, 4, 1},
        {"addMMerge", [] { addMMerge(nullptr, members, 1, 1); }, 5, 2},
        {"initDevice", [] { initDevice(2, 0); }, 4, 1},
    };
    for (const Case &given : cases) {
        SCOPED_TRACE(given.name);
        Host host;
        ASSERT_FALSE(host.open(writeT3(host)).empty());
        addMMerge(nullptr, members, 1, 1);
        Counts counts(4, columns), next(5, columns);
        Finished finished;
        setSequenceMode(2, 1, 5); // the run stands still at its first step
        getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
        ASSERT_EQ(waitNewData(nullptr), 1);
        given.change();
        EXPECT_EQ(getNumAllChans(nullptr), given.channels);
        setSequenceMode(0, 0, 0);
        gotNewData(nullptr);
        ASSERT_TRUE(finished.wait());

        getHistogram(nullptr, 0, 1, 0, next.data.data(), finished.get());
        EXPECT_EQ(next.rowSum(1), records / 2);
        EXPECT_EQ(next.rowSum(2), records / 2);
        for (uint64_t row = 3; row < 3 + given.mergedOnce; ++row) EXPECT_EQ(next.rowSum(row), records / 2);
    }
}

// The file is larger than all stores before it.
TEST(ChainChanges, AStageThatIsEndedDuringARunHoldsNothingUp)
{
    for (const uint32_t index : {0u, 1u}) {
        SCOPED_TRACE(index);
        Host host;
        ASSERT_FALSE(host.open(writeT3(host, 20'000'000)).empty());
        addMMerge(nullptr, members, 1, 1);
        addMMerge(nullptr, members, 1, 1);
        Counts counts(5, columns);
        Finished finished;
        setSequenceMode(2, 1, 5); // the run stands still at its first step
        getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
        ASSERT_EQ(waitNewData(nullptr), 1);
        deleteMani(nullptr, index);
        setSequenceMode(0, 0, 0);
        gotNewData(nullptr);
        EXPECT_TRUE(finished.wait());
    }
}

TEST(ChainChanges, AStageThatGetsNoThreadIsNotAdded)
{
    Host host;
    ASSERT_FALSE(host.open(writeT3(host)).empty());
    Counts counts(3, columns);
    Finished finished;
    {
        NoThreads refused;
        EXPECT_EQ(addMMerge(nullptr, members, 1, 1), -1);
        EXPECT_TRUE(getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get()));
        EXPECT_TRUE(finished.isSet());
    }
    EXPECT_EQ(chainText(), R"({"ManisCfg":[]})");
    EXPECT_EQ(host.logged("ERR API addMMerge failed: "), 1u);
    EXPECT_EQ(host.logged("ERR API getHistogram failed: "), 1u);
    getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get());
    EXPECT_EQ(counts.sum(), records);
}

TEST(ChainChanges, AnImportSourceThatGetsNoThreadEndsTheRun)
{
    Host host;
    ASSERT_FALSE(host.open(writeT3(host)).empty());
    std::string other = TgxFile::t3().tag("HW_SerialNo", "8").write(host.folder().file("other.tgx"));
    getFileDevice(other.data());
    ASSERT_EQ(addMImportStream(u"8@other.tgx", u"7@run.tgx", 1, members, 1, 0), 3);
    Counts counts(4, columns);
    Finished finished;
    NoThreads refused;
    EXPECT_TRUE(getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get()));
    EXPECT_TRUE(finished.isSet());
}

TEST(ChainChanges, AnEndedStageFailsTheRunAtOnce)
{
    Host host;
    ASSERT_FALSE(host.open(writeT3(host)).empty());
    addMMerge(nullptr, members, 1, 1);
    deleteMani(nullptr, 0);
    Counts counts(4, columns);
    Finished finished;
    getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
    EXPECT_TRUE(finished.wait(5s)); // it isn't waited for
    EXPECT_EQ(host.logged("ERR Device: Could not start manipulator: Merge_3 @7@run.tgx"), 1u);
}

TEST(ChainChanges, StagesThatNeverRanAreClearedQuicklyAlsoByTwoThreads)
{
    Host host;
    ASSERT_FALSE(host.open(writeT3(host)).empty());
    const auto start = std::chrono::steady_clock::now();
    for (int turn = 0; turn < 5; ++turn) {
        for (int stage = 0; stage < 4; ++stage) addMMerge(nullptr, members, 1, 1);
        std::thread other([] { clearManis(nullptr); });
        clearManis(nullptr);
        other.join();
        EXPECT_EQ(chainText(), R"({"ManisCfg":[]})");
        EXPECT_EQ(getNumAllChans(nullptr), 3);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

// The coincidence takes two seconds to go, in which the import's thread is gone already.
TEST(ChainChanges, AChainThatIsClearedBeforeARunHasItsStagesIsMissedByNobody)
{
    Host host;
    ASSERT_FALSE(host.open(writeT3(host)).empty());
    addMImportStream(nullptr, u"no such device", 1, members, 1, 0);
    addMCoincidence(nullptr, members, 1, 1000, 0, 0, 1);
    Counts counts(5, columns);
    Finished finished;
    getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
    ASSERT_TRUE(eventually([&] { return host.logged("CopyStoreThread started") == 1; })); // it waits for them
    clearManis(nullptr);
    ASSERT_TRUE(finished.wait());
    EXPECT_EQ(counts.sum(), records);
    EXPECT_EQ(host.logged("Could not start manipulator"), 0u);
}
