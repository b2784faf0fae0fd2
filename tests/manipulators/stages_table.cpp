// What each kind of stage makes of a few events; random streams say the rest. Channels 1 to 4 are inputs; times
// in T3 are sync:dtime.
#include "manipulators/coincidence.h"
#include "manipulators/count_rate.h"
#include "manipulators/delay.h"
#include "manipulators/herald.h"
#include "manipulators/merge.h"
#include "manipulators/sub_stream.h"
#include "stage_run.h"

#include <cmath>
#include <functional>

using namespace Tessel;
using namespace TestSupport;

namespace {

const StreamForm t2{};
const StreamForm t3{true, 1000, 4.0}; // syncs 1 ns apart, dtime in 4 ps

struct StageCase
{
    const char *name;
    std::function<Events(const StageRef &, const std::vector<Events> &)> pass;
    const char *pieces, *expected;
    const char *channels = "1,2>5"; // inputs and outputs
    StreamForm form = t2;
};

void PrintTo(const StageCase &given, std::ostream *out)
{
    *out << given.name;
}

std::vector<uint8_t> channelList(std::string_view text) // "1,2"
{
    std::vector<uint8_t> list;
    std::istringstream numbers{std::string(text)};
    for (uint64_t number = 0; numbers >> number; numbers.ignore()) list.push_back(static_cast<uint8_t>(number));
    return list;
}

std::vector<Events> piecesOf(std::string_view text) // "1@100 | 2@250"
{
    std::vector<Events> pieces;
    for (;;) {
        const size_t bar = text.find('|');
        pieces.push_back(events(text.substr(0, bar)));
        if (bar == text.npos) return pieces;
        text.remove_prefix(bar + 1);
    }
}

template <class State>
auto passOf(const State &state)
{
    return [state](const StageRef &stage, const std::vector<Events> &pieces) {
        State now = state;
        return workPass(now, stage, pieces, 1000);
    };
}

auto coinc(uint64_t window, uint32_t coincMode, uint32_t timeMode, bool keep)
{
    CoincidenceState state;
    state.Window = window;
    state.CoincMode = static_cast<CoincMode>(coincMode);
    state.TimeMode = static_cast<TimeMode>(timeMode);
    state.Keep = keep;
    return passOf(state);
}

auto merge(bool keep)
{
    return passOf(MergeState{keep});
}

auto delay(int64_t ps, bool keep)
{
    DelayState state;
    state.Delay = static_cast<uint64_t>(ps);
    state.Keep = keep;
    return passOf(state);
}

auto herald(int64_t delayPs, int64_t window, bool inverted, bool keep)
{
    HeraldState state;
    state.Delay = static_cast<uint64_t>(delayPs);
    state.Window = static_cast<uint64_t>(window);
    state.Inverted = inverted;
    state.Keep = keep;
    return passOf(state);
}

auto span(uint64_t from, uint64_t to)
{
    return passOf(SubStreamState{from, to});
}

class Stage : public testing::TestWithParam<StageCase>
{
};

constexpr auto first = 0u, last = 1u, average = 2u, sliding = 0u, once = 1u;
constexpr bool keep = true, alone = false;

// clang-format off
const StageCase coincidences[] = {
    {"last", coinc(10, sliding, last, keep), "1@100 2@105 3@106 1@120", "1@100 2@105 5@105 3@106 1@120"},
    {"atTheWindow", coinc(10, sliding, last, alone), "1@100 2@110 1@200 2@211", "5@110"},
    {"windowZero", coinc(0, sliding, last, alone), "1@100 2@100 1@101", "5@100"},
    {"threeMembers", coinc(10, sliding, last, alone), "1@100 2@105 1@107 3@110 3@116 1@117 3@118", "5@110", "1,2,3>5"},
    // A member that wasn't seen again counts as time 0.
    {"onceCountsFromZero", coinc(200, once, last, alone), "1@100 2@105 1@150 1@400", "5@105 5@150"},
    {"noneAcrossPieces", coinc(10, sliding, last, keep), "1@100 | 2@105", "1@100 2@105"},
    {"first", coinc(10, sliding, first, keep), "1@100 2@105 3@200", "1@100 5@100 2@105 3@200"},
    {"firstBetweenEqualTimes", coinc(10, sliding, first, keep), "1@100 3@100 4@300", "1@100 2@100 3@100 4@300", "1,3>2"},
    // Members that another channel ages pass without keep, the coincidence doesn't.
    {"firstAloneAgedByAnother", coinc(10, sliding, first, alone), "1@100 2@105 3@200", "1@100 2@105"},
    {"firstAloneAgedByMember", coinc(10, sliding, first, alone), "1@100 2@105 1@300", ""},
    // Before the first window everything counts as old.
    {"firstBeforeTheWindow", coinc(10, sliding, first, keep), "1@3 2@8", "1@3 2@8"},
    {"firstOnceAlone", coinc(10, once, first, alone), "3@99 1@100 2@105 3@106", "5@100"},
    {"average", coinc(10, sliding, average, keep), "1@100 2@105 3@200", "1@100 5@102 2@105 3@200"},
    {"averageOfAListedTwice", coinc(10, sliding, average, keep), "1@100 2@106 3@200", "1@100 5@102 2@106 3@200", "1,1,2>5"},
    {"averageBehindAllIsLost", coinc(10, sliding, average, keep), "1@100 2@100 3@200", "1@100 2@100 3@200"},
    {"averageStaysBehindAtTheEnd", coinc(10, sliding, average, keep), "1@100 2@105", ""},
    {"averageOnceAloneAtOneTime", coinc(10, once, average, alone), "1@100 3@100", "1@100 2@100 3@100", "1,3>2"},
    {"averageOnceOnItsOwnChannel", coinc(10, once, average, keep), "1@100 2@100", "1@100 2@100", "1,2>2"},
    {"averageTakesTheNonMemberAlong", coinc(10, sliding, average, keep), "3@100 3@200 3@300 1@400", "3@100 3@200 3@300"},
    {"unknownTimeMode", coinc(10, sliding, 3, keep), "1@100 2@105 3@200", ""},
    {"t3", coinc(50, sliding, last, alone), "1@10:5 2@10:17 1@10:240 2@11:2 1@12:0", "5@10:17 5@11:2", "1,2>5", t3},
    {"t3SyncFirst", coinc(48, sliding, last, alone), "1@10:12 1@11:13 1@12:0", "5@10:12 5@12:0", "0,1>5", t3},
    {"t3SyncNotFirst", coinc(48, sliding, last, alone), "1@10:12 1@11:13", "", "1,0>5", t3},
    {"t3AverageInRawForm", coinc(50, sliding, average, keep), "1@10:5 2@10:8 3@20:0", "1@10:5 5@10:6 2@10:8 3@20:0", "1,2>5", t3},
};

const StageCase others[] = {
    {"mergeKeep", merge(keep), "1@1 3@2 2@3 255@4", "1@1 5@1 3@2 2@3 5@3 255@4"},
    {"mergeAlone", merge(alone), "1@1 3@2 2@3 255@4", "1@1 5@1 2@3 5@3"},
    {"delayKeep", delay(20, keep), "1@100 2@110 2@120 2@121", "1@100 2@110 5@120 2@120 2@121", "1>5"},
    {"delayAlone", delay(20, alone), "1@100 2@110 2@120 2@121", "2@110 1@120 2@120 2@121", "1>5"},
    {"delayItself", delay(10, alone), "1@100 1@105 1@110 1@115", "1@110 1@115", "1>5"},
    {"delayBack", delay(-50, alone), "1@100 2@101", "1@50 2@101", "1>5"},
    {"delayLostAtTheEnd", delay(20, keep), "1@100 2@110", "1@100 2@110", "1>5"},
    {"delayT3", delay(1502, alone), "1@10:5 2@11:131 2@11:130 2@12:0", "1@11:130 2@11:131 2@11:130 2@12:0", "1>5", t3},
    {"heraldAlone", herald(10, 20, false, alone), "2@5 1@100 2@109 2@110 2@130 2@131 3@131", "1@100 2@110 2@130 3@131", "1,2>2"},
    {"heraldKeep", herald(10, 20, false, keep), "2@5 1@100 2@110 3@130 2@131", "2@5 1@100 2@110 5@110 3@130 6@130 2@131", "1,2,3>5,6"},
    {"heraldKeptIsComparedWithTheOneBefore", herald(0, 50, false, keep), "1@100 1@140 1@200", "1@100 1@140 5@140 1@200", "1,1>5"},
    {"heraldAloneIsComparedWithItself", herald(0, 50, false, alone), "1@100 1@240", "1@100 1@240", "1,1>1"},
    {"heraldGatesNothing", herald(0, 50, false, alone), "1@100 2@300", "1@100 2@300", "1>"},
    {"heraldBeforeItself", herald(-10, 20, false, alone), "1@100 2@100 2@110 2@111", "1@100 2@100 2@110", "1,2>2"},
    {"heraldT3Sync", herald(40, 80, false, alone), "2@10:9 2@10:10 2@11:30 2@11:31", "2@10:10 2@11:30", "0,2>2", t3},
    {"span", span(10, 20), "1@9 1@10 255@15 129@20 1@21 2@12", "1@10 255@15 129@20 2@12", ">"},
    {"spanT3", span(10'020, 11'008), "1@10:4 1@10:5 1@11:2 1@11:3 1@12:0 1@10:6", "1@10:5 1@11:2 1@10:6", ">", t3},
};
// clang-format on

} // namespace

TEST_P(Stage, GivesTheseEvents)
{
    const StageCase &given = GetParam();
    const std::string_view channels = given.channels;
    StageRef stage = stageOf(given.form);
    stage.record->InChans = channelList(channels.substr(0, channels.find('>')));
    stage.record->OutChans = channelList(channels.substr(channels.find('>') + 1));
    EXPECT_EQ(show(given.pass(stage, piecesOf(given.pieces)), given.form.t3), given.expected);
}

INSTANTIATE_TEST_SUITE_P(Coincidence, Stage, testing::ValuesIn(coincidences),
                         [](const auto &given) { return given.param.name; });
INSTANTIATE_TEST_SUITE_P(Others, Stage, testing::ValuesIn(others),
                         [](const auto &given) { return given.param.name; });

namespace {

struct RateCase
{
    const char *name;
    StreamForm form;
    uint64_t window;
    const char *pieces;
    std::vector<float> rates; // of sync, four inputs, one channel of the chain
};

const RateCase rateCases[] = {
    {"each", t2, 1000, "1@1000 1@2000 2@2500 0@2600 5@2700 6@2800 255@3000", {5e8f, 1e9f, 5e8f, 0, 0, 5e8f}},
    {"shorterThanTheWindow", t2, 2001, "1@1000 1@3000", {0, 0, 0, 0, 0, 0}},
    {"overPieces", t2, 2001, "1@1000 1@3000 | 1@6000", {0, 6e8f, 0, 0, 0, 0}},
    {"anIntervalBeginsAnew", t2, 1000, "1@1000 1@3000 | 2@5000 2@9000", {0, 0, 5e8f, 0, 0, 0}},
    {"noTimeCountsAsOnePicosecond", t2, 0, "1@1000 1@1000", {0, 2e12f, 0, 0, 0, 0}},
    {"noTimeBeginsAnew", t2, 0, "1@1000 | 2@2000 2@3000", {0, 0, 2e9f, 0, 0, 0}},
    {"time0DoesntBegin", t2, 0, "1@0 1@0 1@1000 1@3000", {0, 2e9f, 0, 0, 0, 0}},
    {"t3Sync", t3, 0, "1@10:0 1@20:0", {1e9f, 2e8f, 0, 0, 0, 0}},
};

} // namespace

TEST(CountRate, TurnsCountsIntoRates)
{
    for (const RateCase &given : rateCases) {
        StageRef stage = stageOf(given.form);
        stage.record->Params2 = {1};
        CountRateState state;
        state.Window = given.window;
        workPass(state, stage, piecesOf(given.pieces), 1000);
        const std::vector<float> &rates = stage.record->Rates;
        ASSERT_EQ(rates.size(), given.rates.size()) << given.name;
        for (size_t i = 0; i < rates.size(); ++i)
            EXPECT_NEAR(rates[i], given.rates[i], 1e-6f * given.rates[i]) << given.name << " row " << i;
    }
}

// Where time stands still nothing becomes due and nothing old; what is held stays bounded.
TEST(HeldEvents, GoBeforeTheirTimeWhereThereAreTooMany)
{
    const Events still(1000, Event{5000, 1});
    StageRef stage = stageOf(t2);
    stage.record->InChans = {1};
    stage.record->OutChans = {5};

    DelayState delayed;
    delayed.Delay = 10;
    EXPECT_EQ(workPass(delayed, stage, {still}, 100), Events(1000 - 50, Event{5010, 1}));
    EXPECT_EQ(delayed.Held.size(), 50u);

    stage.record->InChans = {2};
    CoincidenceState pending;
    pending.Window = 10;
    pending.Keep = true;
    EXPECT_EQ(workPass(pending, stage, {still}, 100), still);
}

TEST(Clear, DropsWhatIsHeld)
{
    StageRef stage = stageOf(t2);
    stage.record->InChans = {1};
    stage.record->OutChans = {5};
    DelayState delayed;
    delayed.Delay = 10;
    workPass(delayed, stage, {events("1@100")}, 100);
    EXPECT_FALSE(delayed.Held.empty());
    clear(delayed);
    EXPECT_TRUE(delayed.Held.empty());

    CoincidenceState pending;
    pending.Window = 10;
    pending.TimeMode = TimeMode::Average;
    workPass(pending, stage, {events("2@100 2@101")}, 100);
    EXPECT_FALSE(pending.Pending.empty());
    clear(pending);
    EXPECT_TRUE(pending.Pending.empty());
}
