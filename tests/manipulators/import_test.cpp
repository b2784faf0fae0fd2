// What an import stage makes of its own events and of those that it holds from its source.
#include "manipulators/import_stream.h"
#include "settings/system_ini.h"
#include "stage_run.h"

using namespace Tessel;
using namespace TestSupport;

namespace {

struct ImportCase
{
    const char *name;
    StreamForm form;
    const char *held; // source channel @ ps
    bool sourceOver;
    const char *own;
    const char *expected;
    uint64_t done; // own events
    bool waits;
};

const StreamForm t2{}, t3{true, 1000, 4.0};

// Channels 1 and 2 of the source come as 5 and 6.
const ImportCase cases[] = {
    {"byTime", t2, "1@5 2@15 1@40", false, "3@10 4@20 3@30", "5@5 3@10 6@15 4@20 3@30", 3, false},
    {"ownFirstAtEqualTimes", t2, "1@10 1@11", false, "3@10", "3@10", 1, false},
    {"waitsForLaterOnes", t2, "1@5 2@15", false, "3@10 4@20 3@30", "5@5 3@10 6@15", 1, true},
    {"waitsForTheFirst", t2, "", false, "3@10", "", 0, true},
    {"dropsWhatComesBehindTheLast", t2, "1@5 2@15", true, "3@10 4@20 3@30", "5@5 3@10 6@15", 3, false},
    {"passesOverOtherChannels", t2, "3@5 255@15", true, "3@10 4@20", "3@10", 2, false},
    {"dropsWhatIsTooLate", t2, "1@20 1@5 1@40", false, "3@30", "5@20 3@30", 1, false},
    // An imported event stands with its sync number alone: 2500 ps is sync 2.
    {"t3BySyncNumber", t3, "1@2500 2@3008 1@9000", false, "3@2:100 4@3:3", "3@65636 5@2 6@3 4@98307", 2, false},
};

std::shared_ptr<Run> sourceRun()
{
    return std::shared_ptr<Run>(
        new Run{.Request = {.Kind = MeasKind::ImportSource}, .Facts = {.Mode = MeasMode::T2}});
}

void give(ImportState &import, const char *held)
{
    const Events given = events(held);
    allocate(import.Imported, given.size());
    for (const Event &event : given) append(import.Imported, event.time, event.channel);
}

} // namespace

TEST(ImportWork, MergesWhatItHolds)
{
    for (const ImportCase &given : cases) {
        SCOPED_TRACE(given.name);
        StageRef stage = stageOf(given.form);
        stage.run->Facts.MayWait = true;
        stage.record->InChans = {1, 2};
        stage.record->OutChans = {5, 6};
        ImportState import;
        startPass(import, stage);
        give(import, given.held);
        import.SourceOver = given.sourceOver;
        const Events own = events(given.own);
        const EventArrays arrays(own);
        NextStage next(100);
        EXPECT_EQ(work(import, stage, {arrays.times.data(), arrays.channels.data(), own.size()}, next.store),
                  given.done);
        EXPECT_EQ(waits(import, stage), given.waits);
        next.take();
        EXPECT_EQ(show(next.taken), given.expected);
    }
}

// An instrument's stage ends its wait with the acquisition, a recorded file's with the source or the host.
TEST(ImportWork, WaitsAsLongAsThereIsAReason)
{
    const struct
    {
        Tessel::DeviceType device;
        bool inputDone, stopByHost, abort, waits;
    } ends[] = {
        {DeviceType::Instrument, false, false, false, true},
        {DeviceType::Instrument, true, false, false, false},
        {DeviceType::File, true, false, false, true},
        {DeviceType::File, true, true, false, false},
        {DeviceType::File, false, false, true, false},
    };
    for (const auto &given : ends) {
        StageRef stage = stageOf(t2);
        stage.run->Facts.MayWait = given.device == DeviceType::File;
        stage.run->Control.Phase = given.inputDone ? RunPhase::InputDone : RunPhase::Measuring;
        stage.run->Control.StopByHost = given.stopByHost;
        stage.run->Control.Aborted = given.abort;
        ImportState import;
        const uint64_t time = 10;
        const uint8_t channel = 1;
        NextStage next(10);
        EXPECT_EQ(work(import, stage, {&time, &channel, 1}, next.store), given.waits ? 0u : 1u);
        EXPECT_EQ(waits(import, stage), given.waits);
        EXPECT_EQ(next.store.Count, 0u);
    }
}

EventBlock blockOn(EventStore &store)
{
    return {store.Times.get(), store.Channels.get(), store.Capacity, &store.Count};
}

// With as many held as a store has: a recorded file takes no more, an instrument drops what it holds.
TEST(ImportWork, HoldsOrClearsWhereItHoldsTooMuch)
{
    for (const DeviceType type : {DeviceType::File, DeviceType::Instrument}) {
        StageRef stage = stageOf(t2);
        stage.run->Facts.MayWait = type == DeviceType::File;
        auto run = sourceRun();
        EventStore offered;
        allocate(offered, streamRecords());
        offered.Count = streamRecords();
        run->Offered = blockOn(offered);
        ImportState import;
        import.Source = std::make_shared<DeviceEntry>();
        import.Source->context.CurrentRun = run;
        startPass(import, stage);
        import.Waits = true;
        beforeTurn(import, stage);
        EXPECT_FALSE(waits(import, stage)); // nor if the next store is full: the source may not move again
        EXPECT_EQ(import.Imported.Count, streamRecords());
        EXPECT_EQ(offered.Count, 0u);

        append(offered, 7, 1);
        run->MeasurementDone = true;
        stage.record->SourceChanged = true;
        beforeTurn(import, stage);
        const bool holds = type == DeviceType::File;
        EXPECT_EQ(offered.Count, holds ? 1u : 0u);
        EXPECT_EQ(import.Imported.Count - import.Cursor, holds ? streamRecords() : 1u);
        EXPECT_EQ(import.SourceOver, !holds);
    }
}

TEST(ImportWork, TakesTheOffsetAlong)
{
    const struct
    {
        int64_t offset;
        const char *expected;
    } offsets[] = {
        {0, "1@100 2@50 1@18446744073709551615"}, {20, "1@120 2@70"}, {-60, "1@40 1@18446744073709551555"}};
    for (const auto &given : offsets) {
        auto run = sourceRun();
        EventStore offered;
        allocate(offered, 10);
        run->Offered = blockOn(offered);
        for (const Event &event : events("1@100 2@50 1@18446744073709551615"))
            append(offered, event.time, event.channel);
        ImportState import;
        import.Offset = given.offset;
        import.Source = std::make_shared<DeviceEntry>();
        import.Source->context.CurrentRun = run;
        const StageRef stage = stageOf(t2);
        startPass(import, stage);
        beforeTurn(import, stage);
        Events held;
        for (uint64_t i = 0; i < import.Imported.Count; ++i)
            held.push_back({import.Imported.Times[i], import.Imported.Channels[i]});
        EXPECT_EQ(show(held), given.expected);
    }
}
