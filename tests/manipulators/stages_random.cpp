// Random streams through every kind of stage, against the plain form: in random pieces, with a next stage that
// is full again and again, in order and out of order; and what stages hold.
#include "manipulators/coincidence.h"
#include "manipulators/count_rate.h"
#include "manipulators/delay.h"
#include "manipulators/herald.h"
#include "manipulators/merge.h"
#include "manipulators/sort.h"
#include "manipulators/sub_stream.h"
#include "stage_run.h"
#include "support/simd_targets.h"

#include <fmt/ranges.h>

#include <random>

using namespace Tessel;
using namespace TestSupport;

namespace {

constexpr int rounds = 1000;

class Random
{
public:
    explicit Random(uint32_t seed) : engine(seed) {}

    uint64_t below(uint64_t end) { return engine() % end; }
    bool chance(double share) { return std::uniform_real_distribution<>(0, 1)(engine) < share; }
    template <class T>
    T oneOf(std::initializer_list<T> values)
    {
        return values.begin()[below(values.size())];
    }
    std::vector<uint8_t> channels(size_t most)
    {
        std::vector<uint8_t> list(below(most + 1));
        for (uint8_t &channel : list) channel = static_cast<uint8_t>(below(6));
        return list;
    }

    StreamForm form()
    {
        if (chance(0.5)) return {};
        return {true, oneOf<uint64_t>({1, 7, 1000, 12500, 40000}), oneOf({1.0, 1.5, 4.0, 25.9})};
    }

    // Times whose distances are around `scale`; some equal, in a tenth of the streams some out of order.
    std::vector<Events> pieces(const StreamForm &form, uint64_t scale)
    {
        const bool disorder = chance(0.1);
        uint64_t ps = oneOf<uint64_t>({0, 0, scale, 1'000'000'000'000});
        std::vector<Events> result(1 + below(4));
        for (Events &piece : result)
            for (uint64_t left = below(200); left > 0; --left) {
                ps += chance(0.2) ? 0 : below(chance(0.5) ? 2 * scale + 1 : 20 * scale + 1);
                if (disorder && chance(0.1)) ps -= std::min(ps, below(5 * scale + 1));
                const uint8_t channel =
                    chance(0.05) ? oneOf<uint8_t>({129, 255}) : static_cast<uint8_t>(below(6));
                piece.push_back({form.raw(ps), channel});
            }
        return result;
    }

    uint64_t capacity() { return chance(0.5) ? 100000 : 400 + below(1000); }

private:
    std::mt19937 engine;
};

template <class State>
void compare(int round, State state, const StageRef &stage, const ReferenceStage &plain, const StreamForm &form,
             const std::vector<Events> &pieces, uint64_t capacity)
{
    const Events expected = reference(plain, form, pieces);
    forEachSimdTarget([&] {
        const Events got = workPass(state, stage, pieces, capacity);
        ASSERT_EQ(difference(got, expected, form.t3), "") << "round " << round;
    });
}

void compareCoincidence(int round, const CoincidenceState &state, const StageRef &stage, const StreamForm &form,
                        const std::vector<Events> &pieces, uint64_t capacity)
{
    const ReferenceCoincidence plain{stage.record->InChans,
                                     stage.record->OutChans[0],
                                     state.Window,
                                     static_cast<uint32_t>(state.CoincMode),
                                     static_cast<uint32_t>(state.TimeMode),
                                     state.Keep};
    SCOPED_TRACE(fmt::format("members {} output {} window {} coincMode {} timeMode {} keep {} period {}",
                             fmt::join(plain.members, ","), plain.output, plain.window, plain.coincMode,
                             plain.timeMode, plain.keep, form.period));
    compare(round, state, stage, plain, form, pieces, capacity);
}

} // namespace

TEST(RandomStreams, Merge)
{
    Random random(1);
    for (int round = 0; round < rounds && !testing::Test::HasFatalFailure(); ++round) {
        const StreamForm form = random.form();
        StageRef stage = stageOf(form);
        stage.record->InChans = random.channels(4);
        stage.record->OutChans = {9};
        const bool keep = random.chance(0.5);
        compare(round, MergeState{keep}, stage, ReferenceMerge{stage.record->InChans, 9, keep}, form,
                random.pieces(form, 100), 2 + random.below(random.oneOf<uint64_t>({50, 500})));
    }
}

TEST(RandomStreams, Coincidence)
{
    Random random(2);
    for (int round = 0; round < 4 * rounds && !testing::Test::HasFatalFailure(); ++round) {
        const StreamForm form = random.form();
        StageRef stage = stageOf(form);
        const auto output = random.oneOf<uint8_t>({3, 9});
        stage.record->InChans = random.channels(4);
        stage.record->OutChans = {output};
        CoincidenceState state;
        state.Window = random.oneOf<uint64_t>({0, 1, 100, 100, 1000, 5000, ~uint64_t{0}});
        state.CoincMode = static_cast<CoincMode>(random.below(3));
        state.TimeMode = static_cast<TimeMode>(random.chance(0.02) ? 7 : random.below(3));
        state.Keep = random.chance(0.6);
        const auto pieces = random.pieces(form, random.oneOf<uint64_t>({10, 100, 2000}));
        // What is pending has to fit twice; smaller stores are for a test of their own.
        compareCoincidence(round, state, stage, form, pieces,
                           random.chance(0.5) ? 100000 : 3300 + random.below(99));
    }
}

// Short windows, few pending, and a next stage with room for a few events only.
TEST(RandomStreams, CoincidenceCutShort)
{
    Random random(3);
    for (int round = 0; round < rounds && !testing::Test::HasFatalFailure(); ++round) {
        const StreamForm form = random.chance(0.5) ? StreamForm{} : StreamForm{true, 12500, 4.0};
        StageRef stage = stageOf(form);
        stage.record->InChans = random.channels(3);
        stage.record->OutChans = {9};
        CoincidenceState state;
        state.Window = 300;
        state.CoincMode = static_cast<CoincMode>(random.below(2));
        state.TimeMode = static_cast<TimeMode>(random.below(3));
        state.Keep = random.chance(0.8);
        const auto pieces = random.pieces(form, 200);
        compareCoincidence(round, state, stage, form, pieces, 60 + random.below(60));
    }
}

TEST(RandomStreams, Delay)
{
    Random random(4);
    for (int round = 0; round < rounds && !testing::Test::HasFatalFailure(); ++round) {
        const StreamForm form = random.form();
        StageRef stage = stageOf(form);
        stage.record->InChans = {static_cast<uint8_t>(random.below(6))};
        stage.record->OutChans = {9};
        DelayState state;
        state.Delay = random.oneOf<uint64_t>({0, 1, 100, 30000, uint64_t(0) - 50});
        state.Keep = random.chance(0.5);
        compare(round, state, stage, ReferenceDelay{stage.record->InChans[0], 9, state.Delay, state.Keep}, form,
                random.pieces(form, 100), random.oneOf<uint64_t>({20, 400, 100000}) + random.below(50));
    }
}

TEST(RandomStreams, Herald)
{
    Random random(5);
    for (int round = 0; round < 2 * rounds && !testing::Test::HasFatalFailure(); ++round) {
        const StreamForm form = random.form();
        StageRef stage = stageOf(form);
        HeraldState state;
        state.Delay = random.oneOf<uint64_t>({0, 10, 300, uint64_t(0) - 20});
        state.Window = random.oneOf<uint64_t>({0, 100, 5000});
        state.Inverted = random.chance(0.5);
        state.Keep = random.chance(0.5);
        const auto herald = static_cast<uint8_t>(random.below(6));
        const auto gated = random.channels(3);
        std::vector<uint8_t> outputs = gated;
        if (state.Keep)
            for (size_t i = 0; i < gated.size(); ++i) outputs[i] = static_cast<uint8_t>(9 + i);
        stage.record->InChans = {herald};
        stage.record->InChans.insert(stage.record->InChans.end(), gated.begin(), gated.end());
        stage.record->OutChans = outputs;
        compare(round, state, stage,
                ReferenceHerald{herald, gated, outputs, state.Delay, state.Window, state.Inverted, state.Keep},
                form, random.pieces(form, 100), 2 + random.below(random.oneOf<uint64_t>({50, 500})));
    }
}

TEST(RandomStreams, SubStream)
{
    Random random(6);
    for (int round = 0; round < rounds && !testing::Test::HasFatalFailure(); ++round) {
        const StreamForm form = random.form();
        const auto pieces = random.pieces(form, 100);
        const auto edge = [&] {
            if (pieces[0].empty() || random.chance(0.1)) return random.oneOf<uint64_t>({0, ~uint64_t{0}});
            return form.ps(pieces[0][random.below(pieces[0].size())].time);
        };
        const uint64_t from = edge(), to = edge();
        compare(round, SubStreamState{from, to}, stageOf(form), ReferenceSubStream{from, to}, form, pieces,
                1 + random.below(50));
    }
}

// With a window that spans every step back the result is that of a stable sort; with half of it events come
// late, but all come.
TEST(RandomStreams, Sort)
{
    Random random(9);
    uint64_t late = 0;
    for (int round = 0; round < rounds && !testing::Test::HasFatalFailure(); ++round) {
        const StreamForm form = random.form();
        const auto pieces = random.pieces(form, 100);
        Events expected;
        for (const Events &piece : pieces) expected.insert(expected.end(), piece.begin(), piece.end());
        uint64_t latest = 0, step = 0;
        for (const Event &event : expected) {
            const uint64_t time = form.t3 ? event.time >> 15 : event.time;
            latest = std::max(latest, time);
            step = std::max(step, latest - time);
        }
        const auto byTime = [](const Event &one, const Event &other) { return one.time < other.time; };
        std::stable_sort(expected.begin(), expected.end(), byTime);
        const StageRef stage = stageOf(form);
        SortState sort;
        sort.WindowPs = step * (form.t3 ? form.period : 1);
        Events got = workPass(sort, stage, pieces, 1 + random.below(50));
        ASSERT_EQ(difference(got, expected, form.t3), "") << "round " << round;
        EXPECT_EQ(stage.run->Unsorted, 0u);
        sort.WindowPs /= 2;
        got = workPass(sort, stage, pieces, 1 + random.below(50));
        late += stage.run->Unsorted;
        std::stable_sort(got.begin(), got.end(), byTime);
        ASSERT_EQ(got.size(), expected.size());
    }
    EXPECT_GT(late, 100u);
}

TEST(RandomStreams, CountRate)
{
    Random random(7);
    for (int round = 0; round < rounds && !testing::Test::HasFatalFailure(); ++round) {
        const StreamForm form = random.form();
        StageRef stage = stageOf(form);
        stage.record->Params2 = {static_cast<int32_t>(random.below(3))};
        const size_t rows = 5 + static_cast<size_t>(stage.record->Params2[0]);
        const auto pieces = random.pieces(form, 10000);
        const uint64_t window = random.oneOf<uint64_t>({0, 1000, 3'000'000});

        ReferenceCountRate plain{window, rows};
        plain.rates.resize(rows);
        ReferenceStage one = plain;
        Events expected;
        for (const Events &piece : pieces)
            for (const Event &event : passPiece(one, form, piece, false)) expected.push_back(event);
        CountRateState state;
        state.Window = window;
        EXPECT_EQ(show(workPass(state, stage, pieces, 1000)), show(expected));
        ASSERT_EQ(stage.record->Rates, std::get<ReferenceCountRate>(one).rates) << "round " << round;
    }
}

// Where time stands still nothing becomes due and nothing old; what is held stays bounded.
TEST(HeldEvents, GoBeforeTheirTimeWhereThereAreTooMany)
{
    const Events still(1000, Event{5000, 1});
    StageRef stage = stageOf({});
    stage.record->InChans = {1};
    stage.record->OutChans = {5};

    DelayState delayed;
    delayed.Delay = 10;
    delayed.MostHeld = 50;
    EXPECT_EQ(workPass(delayed, stage, {still}, 100), Events(1000 - 50, Event{5010, 1}));
    EXPECT_EQ(delayed.Held.size(), 50u);

    stage.record->InChans = {2};
    CoincidenceState pending;
    pending.Window = 10;
    pending.Keep = true;
    pending.MostPending = 50;
    EXPECT_EQ(workPass(pending, stage, {still}, 100), still);
}

TEST(Clear, DropsWhatIsHeld)
{
    StageRef stage = stageOf({});
    stage.record->InChans = {1};
    stage.record->OutChans = {5};
    DelayState delayed;
    delayed.Delay = 10;
    workPass(delayed, stage, {{{100, 1}}}, 100);
    EXPECT_FALSE(delayed.Held.empty());
    clear(delayed);
    EXPECT_TRUE(delayed.Held.empty());

    CoincidenceState pending;
    pending.Window = 10;
    pending.TimeMode = TimeMode::Average;
    workPass(pending, stage, {{{100, 2}, {101, 2}}}, 100);
    EXPECT_FALSE(pending.Pending.empty());
    clear(pending);
    EXPECT_TRUE(pending.Pending.empty());
}
