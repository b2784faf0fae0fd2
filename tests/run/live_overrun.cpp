// Live data that nobody takes in time: what is full is cleared, and the stream goes on with what is newer.
#include "manipulators/store.h"
#include "measurements/measurement.h"
#include "run/live_read.h"
#include "run/process_thread.h"
#include "settings/system_ini.h"
#include "stream/event_store.h"
#include "support/words.h"
#include "threads/losses.h"
#include "threads/run_control.h"

#include <gtest/gtest.h>

#include <numeric>

using namespace Tessel;
using namespace TestSupport;

namespace {

std::shared_ptr<Run> liveRunOf(const RunRequest &request)
{
    return std::shared_ptr<Run>(new Run{.Request = request,
                                        .Facts = {.Mode = MeasMode::T2, .NumChans = 4, .IsLive = true},
                                        .Result = resultOf(request)});
}

uint64_t lostAt(Run &run, LossPlace place)
{
    return lossesOf(run).Places[static_cast<size_t>(place)].Lost;
}

} // namespace

TEST(LiveOverrun, TheDecodedStreamClearsAFullStoreAndGoesOn)
{
    const std::vector<uint32_t> words = {t2Event(0, 7), t2Event(1, 8), t2Event(2, 9)};
    for (const bool isFull : {false, true}) {
        SCOPED_TRACE(isFull);
        const DeviceRef target = std::make_shared<DeviceEntry>();
        const auto run = liveRunOf({.Kind = MeasKind::Histogram});
        target->context.CurrentRun = run;
        EventStore &store = addManisStore(target, *run)->Events;
        ASSERT_TRUE(allocateFinalStore(target, *run));
        const uint64_t held = streamRecords() / 2 - words.size() - (isFull ? 1 : 2);
        store.Count = held;
        ASSERT_TRUE(allocatePages(run->ReadBuffer, words.size()) &&
                    allocatePages(run->ProcessBuffer, words.size()));
        std::copy(words.begin(), words.end(), run->ReadBuffer.get());
        run->ReadCount = words.size();
        run->Control.Phase = RunPhase::InputDone;
        ProcessThread({target, run});
        const uint64_t first = isFull ? 0 : held;
        EXPECT_EQ(store.Count, first + words.size());
        EXPECT_EQ(store.Times[first], 7u);
        EXPECT_EQ(store.Channels[first + 2], 3u);
        EXPECT_EQ(lostAt(*run, LossPlace::Store), isFull ? held : 0);
    }
}

TEST(LiveOverrun, ARawBlockIsClearedForWhatIsNewer)
{
    const struct
    {
        const char *name;
        uint64_t held, words, heldAfter;
        uint32_t first; // of the block: words that it holds are held0, held0 + 1, ..., new ones 0, 1, ...
        Verdict verdict;
        uint32_t held0 = 100;
    } rows[] = {{"fits", 2, 3, 5, 100, Verdict::Clean},
                {"no room", 3, 3, 3, 0, Verdict::Lossy},
                {"full", 5, 1, 1, 0, Verdict::Lossy},
                {"larger than the block", 2, 6, 0, 100, Verdict::Lossy},
                {"full of overflows", 5, 1, 1, 0, Verdict::Invalid, t2Overflow(1)}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<uint32_t> block(5), words(row.words);
        std::iota(block.begin(), block.end(), row.held0);
        std::iota(words.begin(), words.end(), 0u);
        uint64_t count = row.held;
        RunRef ref{std::make_shared<DeviceEntry>(), liveRunOf({.Kind = MeasKind::Raw,
                                                               .RawBlock = block.data(),
                                                               .RawCapacity = block.size(),
                                                               .RawCount = &count})};
        EXPECT_EQ(appendToRawBlock(ref, words), row.words); // live data never waits
        EXPECT_EQ(count, row.heldAfter);
        EXPECT_EQ(block[0], row.first);
        EXPECT_EQ(row.held + row.words, count + lostAt(*ref.run, LossPlace::RawBlock));
        EXPECT_EQ(lossesOf(*ref.run).Verdict, row.verdict);
        if (count > row.held) {
            EXPECT_EQ(block[count - 1], row.words - 1);
        }
    }
}

// What is dropped undecoded may hold overflows: the times of what comes after are right all the same, but a
// recording can't have them.
TEST(LiveOverrun, WordsThatAreDroppedUndecodedMoveTimeOn)
{
    const struct
    {
        const char *name;
        std::vector<uint32_t> dropped;
        uint64_t nextTime;
        Verdict recording;
    } rows[] = {{"events alone", {t2Event(0, 1), t2Event(1, 2)}, 7, Verdict::Lossy},
                {"overflows",
                 {t2Overflow(3), t2Event(0, 1), t2Overflow(1)},
                 (uint64_t{4} << 25) + 7,
                 Verdict::Invalid}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const DeviceRef target = std::make_shared<DeviceEntry>();
        RunRef ref{target, liveRunOf({.Kind = MeasKind::Histogram})};
        Tessel::Run &run = *ref.run;
        target->context.CurrentRun = ref.run;
        EventStore &store = addManisStore(target, run)->Events;
        ASSERT_TRUE(allocateFinalStore(target, run) && allocatePages(run.ReadBuffer, 10) &&
                    allocatePages(run.ProcessBuffer, 10));
        store.Count = 5;
        std::copy(row.dropped.begin(), row.dropped.end(), run.ReadBuffer.get());
        run.ReadCount = row.dropped.size();
        dropWaiting(ref);
        EXPECT_EQ(lostAt(run, LossPlace::ReadBuffer), row.dropped.size());
        EXPECT_EQ(lostAt(run, LossPlace::Store), 5u);
        EXPECT_EQ(lossesOf(run).Verdict, Verdict::Lossy);
        EXPECT_EQ(lossesOfRecording(run).Verdict, row.recording);

        run.ReadBuffer[0] = t2Event(0, 7);
        run.ReadCount = 1;
        run.Control.Phase = RunPhase::InputDone;
        ProcessThread(ref);
        ASSERT_EQ(store.Count, 1u);
        EXPECT_EQ(store.Times[0], row.nextTime);
    }
}
