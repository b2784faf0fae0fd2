// Calls and runs that get no memory: each ends, says so by its finished byte, changes all or nothing, and the
// next good call works.
#include "runs/kinds.h"
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
    Arrays memory;
    memory.capacity = 1000;
    const auto onNoDevice = [](Arrays &, uint8_t *end) {
        return exportStreamMeasure(u"an id that is longer than a string", 0, 1, 0, end);
    };
    std::vector<RunKind> kinds(std::begin(runKinds), std::end(runKinds));
    kinds.push_back({"no device", false, false, onNoDevice});
    for (const RunKind &kind : kinds)
        for (const uint64_t first : {1, 2, 3}) {
            SCOPED_TRACE(kind.name);
            Finished finished;
            const RefusedMemory refused(first);
            EXPECT_TRUE(kind.start(memory, finished.get()));
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
