// How far a batch may go into the next store.
#include "manipulators/fill_rule.h"

#include <gtest/gtest.h>

using namespace Tessel;

namespace {

struct FillCase
{
    const char *name;
    uint64_t count; // of the next store; its high water is 100
    bool isFile;
    BatchWindow window; // before; the batch has 50 events
    bool hold;          // before
    Fill expected;
    uint64_t end;
    bool holdBehind;
};

const FillCase cases[] = {
    {"room for all", 10, true, {}, false, Fill::Work, 50, false},
    {"room for exactly all", 50, true, {}, false, Fill::Work, 50, false},
    {"room for a part", 51, true, {}, false, Fill::Work, 49, false},
    {"one below the mark", 99, false, {}, false, Fill::Work, 1, false},
    {"a file holds", 100, true, {}, false, Fill::Hold, 0, true},
    {"a file goes on holding", 130, true, {}, true, Fill::Hold, 0, true},
    {"an instrument overruns", 100, false, {}, false, Fill::Overrun, 0, false},
    {"room again", 70, true, {49, 49, false}, true, Fill::Work, 50, false},
    {"the rest, as far as there is room", 99, true, {20, 20, false}, true, Fill::Work, 21, false},
    {"a cut piece keeps its end", 10, true, {20, 30, true}, false, Fill::Work, 30, false},
    {"a cut piece goes on above the mark", 120, true, {20, 30, true}, true, Fill::Work, 30, true},
};

} // namespace

TEST(FillRule, SaysHowFarABatchMayGo)
{
    for (const FillCase &given : cases) {
        BatchWindow window = given.window;
        bool hold = given.hold;
        EXPECT_EQ(fillRule(given.count, 100, given.isFile, 50, window, hold), given.expected) << given.name;
        EXPECT_EQ(window.End, given.end) << given.name;
        EXPECT_EQ(hold, given.holdBehind) << given.name;
    }
}
