// How long an import stage waits for its source, and what it does where it holds too much.
#include "manipulators/import_stream.h"
#include "settings/system_ini.h"
#include "stage_run.h"
#include "threads/losses.h"

using namespace Tessel;
using namespace TestSupport;

namespace {

const StreamForm t2{};

std::shared_ptr<Run> sourceRun()
{
    return std::shared_ptr<Run>(
        new Run{.Request = {.Kind = MeasKind::ImportSource}, .Facts = {.Mode = MeasMode::T2}});
}

} // namespace

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
        noteLoss(*run, LossPlace::ReadBuffer, 5); // the source itself couldn't follow
        run->MeasurementDone = true;
        stage.record->SourceChanged = true;
        beforeTurn(import, stage);
        const bool holds = type == DeviceType::File;
        EXPECT_EQ(offered.Count, holds ? 1u : 0u);
        EXPECT_EQ(import.Imported.Count - import.Cursor, holds ? streamRecords() : 1u);
        EXPECT_EQ(import.SourceOver, !holds);
        const Loss loss = lossesOf(*stage.run).Places[static_cast<size_t>(LossPlace::Import)];
        EXPECT_EQ(loss.Lost, 5 + (holds ? 0 : streamRecords()));
    }
}
