// Calls and runs that get no memory: each ends, says so by its finished byte, changes all or nothing, and the
// next good call works.
#include "support/host.h"
#include "support/refused_memory.h"
#include "support/tgx_file.h"
#include "support/words.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <functional>

using namespace TestSupport;

namespace {

const int32_t members[] = {1, 2};

class WithoutMemory : public testing::Test
{
protected:
    void SetUp() override
    {
        std::vector<uint32_t> words(1000);
        for (uint32_t i = 0; i < 1000; ++i) words[i] = t3Event(i % 2, i, i);
        ASSERT_FALSE(host.open(TgxFile::t3(), words).empty());
    }

    // Events of a whole run.
    uint64_t measured()
    {
        uint64_t count = 0;
        ufMeasure(nullptr, 0, 1, 0, times.data(), channels.data(), &count, times.size(), nullptr);
        return count;
    }

    // Calls `call` with allocation k refused, for k from 1 until it isn't touched; once, and for good.
    static void refuseEach(const std::function<void()> &call, const std::function<void()> &check)
    {
        for (const uint64_t refusals : {uint64_t{1}, UINT64_MAX})
            for (uint64_t k = 1, isTouched = 1; isTouched; ++k) {
                SCOPED_TRACE(testing::Message() << refusals << " refused from " << k);
                {
                    const RefusedMemory refused(k, refusals);
                    call();
                    isTouched = refused.hasRefused();
                }
                check();
                if (testing::Test::HasFailure()) return;
            }
    }

    Host host{"[LogLevel]\nManipulators=false\n"};
    std::vector<uint64_t> times = std::vector<uint64_t>(10'000);
    std::vector<uint8_t> channels = std::vector<uint8_t>(10'000);
};

} // namespace

TEST_F(WithoutMemory, EveryStartLeavesTheFinishedByteAtOne)
{
    Counts counts(3, 65536);
    std::vector<double> curve(100'000);
    uint64_t filled = 0;
    const std::function<bool(uint8_t *)> starts[] = {
        [&](auto end) { return getHistogram(nullptr, 0, 1, 0, counts.data.data(), end); },
        [&](auto end) { return get2dHistogram(nullptr, 0, 1, 0, counts.data.data(), end); },
        [&](auto end) { return getTimeTrace(nullptr, 0, 1, 0, counts.data.data(), nullptr, end); },
        [&](auto end) { return getCorrelation(nullptr, 0, 1, 0, curve.data(), curve.data(), end); },
        [&](auto end) { return rawMeasure(nullptr, 0, 1, 0, counts.data.data(), &filled, 1000, end); },
        [&](auto end) { return rawStartBlock(nullptr, 0, 0, counts.data.data(), 1000, end); },
        [&](auto end) {
            return ufMeasure(nullptr, 0, 1, 0, times.data(), channels.data(), &filled, 1000, end);
        },
        [&](auto end) { return ufStartBlock(nullptr, 0, 0, times.data(), channels.data(), 1000, end); },
        [&](auto end) { return exportStreamMeasure(nullptr, 0, 1, 0, end); },
        [&](auto end) { return exportStreamMeasure(u"an id that is longer than a string", 0, 1, 0, end); },
    };
    for (const auto &start : starts)
        for (const uint64_t first : {1, 2, 3}) {
            Finished finished;
            const RefusedMemory refused(first);
            EXPECT_TRUE(start(finished.get()));
            EXPECT_TRUE(finished.wait());
        }
}

TEST_F(WithoutMemory, ARunEndsAndTheNextIsWhole)
{
    addMMerge(nullptr, members, 2, 1);
    addMCountRate(nullptr, 1000);
    Finished finished;
    auto run = [&] {
        uint64_t count = 0;
        *finished.get() = 0;
        ufMeasure(nullptr, 0, 1, 0, times.data(), channels.data(), &count, times.size(), finished.get());
    };
    refuseEach(run, [&] {
        ASSERT_TRUE(finished.isSet());
        ASSERT_EQ(measured(), 2000u);
    });
}

TEST_F(WithoutMemory, AStageIsAddedOrNot)
{
    int32_t made = 0;
    uint64_t stages = 0;
    const std::function<void()> adders[] = {
        [&] { made = addMMerge(nullptr, members, 2, 1); },
        [&] { made = addMCoincidence(nullptr, members, 2, 1e3, 0, 0, 1); },
        [&] { made = addMHerald(nullptr, 1, members, 2, 0, 1000, 0, 1); },
        [&] { made = addMImportStream(nullptr, u"a source with a long name", 0, members, 2, 0); },
    };
    addMCountRate(nullptr, 1000);
    for (const auto &add : adders) {
        int64_t rows = getNumAllChans(nullptr);
        refuseEach(add, [&] {
            const int64_t now = getNumAllChans(nullptr);
            if (made < 0) {
                ASSERT_EQ(now, rows);
            } else {
                ASSERT_EQ(made, rows);
                ASSERT_GT(now, rows);
                ++stages;
            }
            rows = now;
        });
    }
    EXPECT_GE(stages, 8u); // at least the untouched ones
    {
        const RefusedMemory refused;
        clearManis(nullptr);
    }
    EXPECT_EQ(measured(), 1000u);
}

TEST_F(WithoutMemory, TheEndClosesEveryFile)
{
    Finished finished;
    addMMerge(nullptr, members, 2, 1);
    ufStartBlock(nullptr, 0, 0, times.data(), channels.data(), 10, finished.get()); // stands still
    ASSERT_TRUE(eventually([] { return described("NumRecs") > 0; }));
    const std::string last = host.open(TgxFile::t2(), {t2Event(0, 1)});
    {
        const RefusedMemory refused;
        exitAPI();
    }
    EXPECT_TRUE(finished.isSet());
    char ids[8192] = "";
    getDeviceIDs(ids);
    EXPECT_FALSE(std::string_view(ids).find(last) != std::string_view::npos) << ids;
}
