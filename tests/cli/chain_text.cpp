// Chains as text and as JSON: what is read, what is written, and where an error points.
#include "chain/chain_text.h"

#include "chain/placed_chain.h"
#include "support/host.h"

#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

#include <array>

using namespace Tessel::Cli;

namespace {

// The stages as they are written, which shows every value.
std::string shown(const std::vector<ChainStage> &stages)
{
    std::string text;
    for (const ChainStage &stage : stages) text += (text.empty() ? "" : " | ") + stageText(stage);
    return text;
}

std::string errorOf(std::vector<ChainStage> (*parse)(std::string_view), std::string_view text)
{
    try {
        return "read: " + shown(parse(text));
    } catch (const ChainError &error) {
        return error.what();
    }
}

// "reason at n", n the column of the caret from 0, whatever the line is; other texts as they are.
std::string placed(const std::string &error)
{
    const size_t line = error.find("\n  "), caret = error.rfind("\n  ");
    if (line == std::string::npos || line == caret) return error;
    return error.substr(0, std::min(line, error.find(':'))) + " at " + std::to_string(error.size() - caret - 4);
}

} // namespace

TEST(ChainText, ReadsStages)
{
    const struct
    {
        const char *Text, *Shown;
    } cases[] = {
        {"coincidence(1,2; 10ns; once; average; keep)", "coincidence(1,2; 10ns; once; average; keep)"},
        {"coincidence(1, 2 ,3; 1.5us)", "coincidence(1,2,3; 1500ns; sliding; last)"},
        {"  coincidence ( first ; window 7 ; channels 0,4 )\t", "coincidence(0,4; 7ps; sliding; first)"},
        {"delay(1; -5ns)", "delay(1; -5ns)"},
        {"delay(3; 2147483647ps)", "delay(3; 2147483647ps)"},
        {"herald(1; 2,3; delay 0ps; window 10ns; inverted; keep)",
         "herald(1; 2,3; delay 0ps; window 10ns; inverted; keep)"},
        {"herald(window 10ns; 0; 2; 1ns)", "herald(0; 2; delay 1ns; window 10ns)"},
        {"substream(to 1h; from 1min)", "substream(60s; 3600s)"},
        {"countrate(0.3ns)", "countrate(300ps)"},
        {"merge(1)|delay(2;5µs) | countrate(1)", "merge(1) | delay(2; 5us) | countrate(1ps)"},
        {"\n merge(1)\r\n\n| merge(2) |\nmerge(3)\n", "merge(1) | merge(2) | merge(3)"},
    };
    for (const auto &row : cases) {
        EXPECT_EQ(errorOf(parseChain, row.Text), std::string("read: ") + row.Shown) << row.Text;
        EXPECT_EQ(errorOf(parseChain, row.Shown), std::string("read: ") + row.Shown);
    }
}

TEST(ChainText, ShowsTheLineAndTheCharacter)
{
    EXPECT_EQ(errorOf(parseChain, "merge(1)\ndelay(1; 5µx) | merge(2)\n"),
              "unknown unit \"µx\" (known: ps, ns, us, µs, ms, s, min, h)\n"
              "  delay(1; 5µx) | merge(2)\n"
              "            ^");
    EXPECT_EQ(errorOf(parseChain, "merge(1,\x1b[2J\u202e\x85x)"),
              "a channel number is expected\n  merge(1, [2J  x)\n          ^");
    EXPECT_EQ(errorOf(parseChain, "merge(\u0085\x80,1x)"),
              "a channel number is expected\n  merge(  ,1x)\n        ^");
}

TEST(ChainText, PointsAtWhatIsWrong)
{
    const struct
    {
        const char *Text, *Error;
    } cases[] = {
        {"", "a stage is expected, as in merge(1,2; keep) at 0"},
        {"merge(1) |", "a stage is expected, as in merge(1,2; keep) at 10"},
        {"merge(1) | | merge(2)\n", "a stage is expected, as in merge(1,2; keep) at 11"},
        {"marge(1)", "unknown stage \"marge\" (known at 0"},
        {"merge 1", "'(' is missing at 6"},
        {"merge(1 | merge(2)", "')' is missing at 7"},
        {"merge(1) merge(2)", "'|' or the end is expected at 9"},
        {"merge()", "an empty field at 6"},
        {"merge(keep)", "channels is missing at 10"},
        {"merge(channels)", "a channel is missing at 14"},
        {"merge(1.5)", "a channel is a whole number at 7"},
        {"merge(1,-1)", "channels go from 0 (sync) to 254 at 8"},
        {"merge(1,2,1)", "channel 1 is given twice at 10"},
        {"merge(1; 2)", "too many values at 9"},
        {"merge(1; once)", "unknown word \"once\" at 9"},
        {"merge(1; keep; keep)", "keep is given twice at 15"},
        {"coincidence(1,2; once; 1ns; sliding)", "mode is given twice at 28"},
        {"coincidence(1,2; -1ns)", "a negative value at 17"},
        {"delay(1,2; 5ns)", "a delay takes one channel at 6"},
        {"delay(1; 2147483648ps)", "at most 2.147 ms at 9"},
        {"substream(2s; 1s)", "the span ends before it begins at 14"},
        {"countrate(105d)", "unknown unit \"d\" (known at 13"},
    };
    for (const auto &row : cases) EXPECT_EQ(placed(errorOf(parseChain, row.Text)), row.Error) << row.Text;
}

TEST(ChainJson, ReadsWhatItWrites)
{
    const std::vector<ChainStage> stages =
        parseChain("coincidence(1,2; 10ns; once; average) | merge(1,3; keep) | delay(1; -5ns) | "
                   "herald(1; 2,3; 1ns; 10ns; inverted; keep) | substream(1ps; 10s) | countrate(100ms)");
    boost::json::array chain;
    for (const ChainStage &stage : stages) chain.push_back(stageJson(stage));
    const boost::json::object whole = {{"schema", "tessel.chain/1"}, {"chain", chain}};
    EXPECT_EQ(parseChainJson(boost::json::serialize(whole)), stages);
    EXPECT_EQ(
        shown(parseChainJson(R"( {"chain": [{"stage": "delay", "channels": 1, "delay": 2500, "makes": [3]},
        {"channels": "1,2", "window": 1.5e3, "stage": "coincidence", "time": "first", "keep": false}]} )")),
        "delay(1; 2500ps) | coincidence(1,2; 1500ps; sliding; first)");
}

TEST(ChainJson, ReadsWhatTheLibrarySaysOfItsChain)
{
    TestSupport::Host host;
    ASSERT_FALSE(host.open(TestSupport::TgxFile::t2(4), {}).empty());
    const auto stages =
        parseChain("coincidence(1,3,2; 11ns; once; average; keep) | coincidence(2,1; 0; first)"
                   "| merge(3,1; keep) | merge(0,2) | delay(4; -5ns; keep) | delay(2; 2147483647)"
                   "| herald(2; 4,1; delay -7; window 8ns; inverted; keep)"
                   "| herald(0; 3; delay 9; window 2147483647)"
                   "| substream(1ns; 9000000000000000000) | sort(7ns) | countrate(30)");
    Recording recording;
    recording.NumRows = getNumAllChans(nullptr);
    placeChain(recording, stages);
    const auto chainOf = [] {
        std::array<char, 65535> text{};
        EXPECT_TRUE(tessel_getText(nullptr, TESSEL_TEXT_STAGES, text.data(), text.size(), nullptr));
        return std::string(text.data());
    };
    EXPECT_EQ(errorOf(parseChainJson, chainOf()), "read: " + shown(stages));

    // What can't be had again isn't read as something else.
    clearManis(nullptr);
    const int32_t channels[] = {2, 1};
    addMImportStream(nullptr, u"77", 1, channels, 2, -3);
    addMMerge(nullptr, channels, 2, 0);
    deleteMani(nullptr, 1);
    EXPECT_EQ(chainOf(),
              R"({"chain":[{"stage":"import","source":"77","start":true,"channels":[2,1],"offset":-3},)"
              R"({"stage":"merge","channels":[2,1],"keep":false,"ended":true}]})");
}

TEST(ChainJson, SaysWhereItIsWrong)
{
    const struct
    {
        const char *Text, *Error;
    } cases[] = {
        {R"([])", "an object with the key \"chain\" and a list of stages is expected"},
        {R"({"chain": [{"stage": "merge"}]})", "chain[0]: the key \"channels\" is missing"},
        {R"({"chain": [{"stage": "merge", "channels": [1]}, {"stage": "countrate", "window": "5nx"}]})",
         "chain[1].window: unknown unit \"nx\" (known: ps, ns, us, µs, ms, s, min, h)\n  5nx\n   ^"},
        {R"({"chain": [{"stage": "merge", "channels": [1, "2"]}]})",
         "chain[0].channels: a channel number is expected\n  1,\"2\"\n    ^"},
        {R"({"chain": [{"stage": "merge", "channels": [1], "window": 5}]})",
         "chain[0].window: a merge has no such key"},
        {R"({"chain": [{"stage": "merge", "channels": [1], "keep": "yes"}]})",
         "chain[0].keep: true or false is expected\n  \"yes\"\n  ^"},
    };
    for (const auto &row : cases) EXPECT_EQ(errorOf(parseChainJson, row.Text), row.Error) << row.Text;
    EXPECT_EQ(placed(errorOf(parseChainJson, "{\"chain\": [}")), "not JSON at 11");
    EXPECT_EQ(placed(errorOf(parseChainJson, "{} x")), "text after the end of the object at 3");
}
