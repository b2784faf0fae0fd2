// The work of each kind of stage on a batch in memory: 20 million events per second as they arrive at random on
// four inputs, one in a hundred on a fifth, in T2 with a sync in eight events, in T3 on a laser of 80 MHz. The
// plain form looks at event after event, with all that it needs in locals; the copy beside it moves the bytes
// of the batch.
#include "interleaved.h"
#include "manipulators/coincidence.h"
#include "manipulators/count_rate.h"
#include "manipulators/delay.h"
#include "manipulators/herald.h"
#include "manipulators/merge.h"
#include "manipulators/sub_stream.h"
#include "plain/stages.h"
#include "stream/event_store.h"

#include <cmath>
#include <cstring>
#include <random>
#include <string>

using namespace Tessel;
using Plain::EventSink;
using Plain::StreamForm;

namespace {

constexpr uint64_t BatchEvents = 1 << 20, PieceEvents = 1 << 14;
constexpr double MeanDistancePs = 50'000;

struct Batch
{
    StreamForm Form;
    std::vector<uint64_t> Times = std::vector<uint64_t>(BatchEvents);
    std::vector<uint8_t> Channels = std::vector<uint8_t>(BatchEvents);
};

uint8_t channelOf(std::mt19937 &random, bool t3)
{
    const uint32_t kind = random() % 1000;
    if (kind < 2) return ChannelCode::Overflow;
    if (kind < 12) return 5;
    if (!t3 && kind < 137) return ChannelCode::Sync;
    return static_cast<uint8_t>(1 + random() % 4);
}

Batch batchOf(bool t3)
{
    Batch batch;
    if (t3) batch.Form = {true, 12'500, 5.0};
    std::mt19937 random(7);
    std::exponential_distribution<> distance(1 / MeanDistancePs);
    double ps = 1e9;
    for (uint64_t i = 0; i < BatchEvents; ++i) {
        ps += distance(random);
        batch.Times[i] = batch.Form.raw(static_cast<uint64_t>(ps));
        batch.Channels[i] = channelOf(random, t3);
    }
    return batch;
}

StageRef stageOf(const Batch &batch, std::vector<uint8_t> inputs, std::vector<uint8_t> outputs)
{
    const StreamFacts facts{.Mode = batch.Form.t3 ? MeasMode::T3 : MeasMode::T2,
                            .SyncPeriodPs = static_cast<int64_t>(batch.Form.period),
                            .Resolution = batch.Form.resolution,
                            .NumChans = 5};
    StageRef stage{std::make_shared<DeviceEntry>(), std::make_shared<Manipulator>(),
                   std::shared_ptr<Run>(new Run{.Facts = facts})};
    stage.record->InChans = std::move(inputs);
    stage.record->OutChans = std::move(outputs);
    return stage;
}

// The batch goes through both forms piece by piece, each to the front of a store of the same size: what one
// stage hands to the next stays in the cache.
template <class State, class Plain>
void compareStage(benchmark::State &bench, const Batch &batch, const StageRef &stage, const State &state,
                  const Plain &plain)
{
    EventStore out, plainOut;
    for (EventStore *store : {&out, &plainOut}) {
        allocate(*store, 3 * PieceEvents);
        std::memset(store->Times.get(), 1, store->Capacity * sizeof(uint64_t));
        std::memset(store->Channels.get(), 1, store->Capacity);
    }
    const auto fast = [&](State &now, uint64_t at) {
        out.Count = 0;
        benchmark::DoNotOptimize(
            work(now, stage, {batch.Times.data() + at, batch.Channels.data() + at, PieceEvents}, out));
    };
    const auto slow = [&](Plain &now, uint64_t at) {
        EventSink sink{plainOut.Times.get(), plainOut.Channels.get()};
        now.piece(batch.Form, {batch.Times.data() + at, batch.Channels.data() + at, PieceEvents}, sink);
        plainOut.Count = sink.count;
    };
    const auto copy = [&](uint64_t at) {
        std::memcpy(plainOut.Times.get(), batch.Times.data() + at, PieceEvents * sizeof(uint64_t));
        std::memcpy(plainOut.Channels.get(), batch.Channels.data() + at, PieceEvents);
        benchmark::ClobberMemory();
    };
    const auto everyPiece = [](const auto &work) {
        for (uint64_t at = 0; at < BatchEvents; at += PieceEvents) work(at);
    };
    State fastState = state;
    Plain slowState = plain;
    if constexpr (uses<State, Hook::StartPass>) startPass(fastState, stage);
    everyPiece([&](uint64_t at) {
        fast(fastState, at);
        slow(slowState, at);
        if (out.Count != plainOut.Count ||
            std::memcmp(out.Times.get(), plainOut.Times.get(), out.Count * sizeof(uint64_t)) != 0 ||
            std::memcmp(out.Channels.get(), plainOut.Channels.get(), out.Count) != 0)
            bench.SkipWithError("the two forms differ");
    });
    Bench::compare(
        bench, BatchEvents,
        [&] {
            State now = state;
            if constexpr (uses<State, Hook::StartPass>) startPass(now, stage);
            everyPiece([&](uint64_t at) { fast(now, at); });
        },
        [&] {
            Plain now = plain;
            everyPiece([&](uint64_t at) { slow(now, at); });
        },
        [&] { everyPiece(copy); });
}

void mergeCase(benchmark::State &bench, const Batch &batch, bool keep)
{
    compareStage(bench, batch, stageOf(batch, {1, 2}, {6}), MergeState{keep},
                 Plain::ReferenceMerge{{1, 2}, 6, keep});
}

// The middle half of the batch.
void subStreamCase(benchmark::State &bench, const Batch &batch, bool)
{
    const uint64_t from = batch.Form.ps(batch.Times[BatchEvents / 4]);
    const uint64_t to = batch.Form.ps(batch.Times[BatchEvents / 4 * 3]);
    compareStage(bench, batch, stageOf(batch, {}, {}), SubStreamState{from, to},
                 Plain::ReferenceSubStream{from, to});
}

void heraldCase(benchmark::State &bench, const Batch &batch, bool keep)
{
    HeraldState state;
    state.Delay = 1000;
    state.Window = 100'000;
    state.Keep = keep;
    const std::vector<uint8_t> outputs = keep ? std::vector<uint8_t>{6, 7} : std::vector<uint8_t>{2, 3};
    compareStage(bench, batch, stageOf(batch, {1, 2, 3}, outputs), state,
                 Plain::ReferenceHerald{1, {2, 3}, outputs, 1000, 100'000, false, keep});
}

void delayCase(benchmark::State &bench, const Batch &batch, bool keep, uint8_t input)
{
    constexpr uint64_t delay = 1'000'000;
    DelayState state;
    state.Delay = delay;
    state.Keep = keep;
    compareStage(bench, batch, stageOf(batch, {input}, {6}), state,
                 Plain::ReferenceDelay{input, 6, delay, keep});
}

void countRateCase(benchmark::State &bench, const Batch &batch, bool)
{
    CountRateState state;
    state.Window = 1'000'000'000;
    compareStage(bench, batch, stageOf(batch, {}, {}), state, Plain::ReferenceCountRate{state.Window, 6});
}

void coincidenceCase(benchmark::State &bench, const Batch &batch, bool keep, TimeMode timeMode,
                     std::vector<uint8_t> members)
{
    CoincidenceState state;
    state.Window = 1000;
    state.TimeMode = timeMode;
    state.Keep = keep;
    compareStage(
        bench, batch, stageOf(batch, members, {6}), state,
        Plain::ReferenceCoincidence{members, 6, state.Window, 0, static_cast<uint32_t>(timeMode), keep});
}

template <class Case, class... Args>
void add(const std::string &name, Case stageCase, bool keep, Args... args)
{
    for (const bool t3 : {false, true}) {
        static const Batch t2Batch = batchOf(false), t3Batch = batchOf(true);
        const Batch &batch = t3 ? t3Batch : t2Batch;
        benchmark::RegisterBenchmark(
            ("stage/" + name + (keep ? "/keep/" : "/") + (t3 ? "T3" : "T2")).c_str(),
            [=, &batch](benchmark::State &bench) { stageCase(bench, batch, keep, args...); })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond)
            ->Iterations(41);
    }
}

const int registered = [] {
    for (const bool keep : {true, false}) {
        add("merge", mergeCase, keep);
        add("herald", heraldCase, keep);
        add("delay", delayCase, keep, uint8_t{5});
        add("delay/busy", delayCase, keep, uint8_t{1}); // a quarter of the events
        for (const uint8_t count : {uint8_t{2}, uint8_t{4}}) {
            const std::vector<uint8_t> members =
                count == 2 ? std::vector<uint8_t>{1, 2} : std::vector<uint8_t>{1, 2, 3, 4};
            const std::string of = "coincidence/" + std::to_string(count);
            add(of + "/last", coincidenceCase, keep, TimeMode::Last, members);
            add(of + "/average", coincidenceCase, keep, TimeMode::Average, members);
        }
    }
    add("subStream", subStreamCase, false);
    add("countRate", countRateCase, false);
    return 0;
}();

} // namespace
