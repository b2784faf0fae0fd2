// How far a batch may go into the next store.
#include "manipulators/fill_rule.h"

#include <gtest/gtest.h>

using namespace Tessel;

namespace {

struct FillCase
{
    const char *name;
    uint64_t count;     // of the next store; its high water is 100
    BatchWindow window; // before; the batch has 50 events
    Fill expected;
    uint64_t end;
};

const FillCase cases[] = {
    {"room for all", 10, {}, Fill::Work, 50},
    {"room for exactly all", 50, {}, Fill::Work, 50},
    {"room for a part", 51, {}, Fill::Work, 49},
    {"one below the mark", 99, {}, Fill::Work, 1},
    {"full", 100, {}, Fill::Overrun, 0},
    {"room again", 70, {49, 49, false}, Fill::Work, 50},
    {"the rest, as far as there is room", 99, {20, 20, false}, Fill::Work, 21},
    {"a cut piece keeps its end", 10, {20, 30, true}, Fill::Work, 30},
};

} // namespace

TEST(FillRule, SaysHowFarABatchOfLiveDataMayGo)
{
    for (const FillCase &given : cases) {
        BatchWindow window = given.window;
        EXPECT_EQ(fillRule(given.count, 100, 50, window), given.expected) << given.name;
        EXPECT_EQ(window.End, given.end) << given.name;
    }
}
