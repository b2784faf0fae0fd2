// Chains through the program: what stages make of a recording, what is told of them, and the exit codes.
#include "run_program.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace TestSupport;

namespace {

void simulate(const TempFolder &folder)
{
    const Arguments t2 = {"simulate", "t2.tgx", "--mode", "t2", "--rate", "100kcps", "--duration", "0.2s"};
    ASSERT_EQ(run(folder, t2).Code, 0);
    ASSERT_EQ(run(folder, {"simulate", "t3.tgx", "--duration", "0.02s"}).Code, 0);
}

boost::json::object histogram(const TempFolder &folder, const Arguments &chain)
{
    Arguments arguments = {"histogram", "t2.tgx",      "-q",  "--json", "--ref-chan",
                           "1",         "--bin-width", "1ns", "--bins", "200"};
    arguments.insert(arguments.end(), chain.begin(), chain.end());
    const Ended ended = run(folder, arguments);
    EXPECT_EQ(ended.Code, 0) << ended.Err;
    return parsed(ended.Out);
}

const boost::json::value &countsOf(const boost::json::object &result, size_t row)
{
    return result.at("channels").at(row).at("counts");
}

} // namespace

TEST(ChainProgram, NumbersChannelsAndReadsBackWhatItWrites)
{
    const TempFolder folder;
    simulate(folder);
    const Arguments command = {"chain",   "t2.tgx",
                               "--chain", "merge(1,2; keep)|delay(3; 1ns)",
                               "--chain", "herald(1; 2,3; 0; 1ns; keep)"};
    const Ended table = run(folder, command);
    EXPECT_EQ(table.Code, 0) << table.Err;
    for (const char *part : {"Sync", "ch2 ", "ch3_merge", "ch4_delay", "ch5_herald", "ch6_herald",
                             "Channel 6, herald 1 of 3", "herald(1; 2,3; delay 0ps; window 1ns; keep)"})
        EXPECT_TRUE(contains(table.Out, part)) << part << "\n" << table.Out;
    EXPECT_EQ(table.Err, "");
    Arguments toFile = command;
    toFile.insert(toFile.end(), {"--json", "-o", "chain.json"});
    const Ended written = run(folder, toFile);
    EXPECT_EQ(written.Code, 0) << written.Err;
    const auto first = parsed(contents(folder.file("chain.json")));
    EXPECT_EQ(first.at("schema"), "tessel.chain/1");
    EXPECT_EQ(first.at("channels").as_array().size(), 7u);
    EXPECT_EQ(first.at("chain").at(2).at("makes"), boost::json::parse("[5, 6]"));
    const Ended again = run(folder, {"chain", "t2.tgx", "--json", "--chain", "chain.json"});
    EXPECT_EQ(parsed(again.Out), first);
}

TEST(ChainProgram, CountsWhatTheStagesMake)
{
    const TempFolder folder;
    simulate(folder);
    const auto plain = histogram(folder, {});
    EXPECT_FALSE(plain.contains("chain"));
    // A copy of channel 2 that comes 30 ns later counts 30 bins further; both together make the merged channel.
    const auto result =
        histogram(folder, {"--chain", "delay(2; 30ns; keep) | merge(2,3; keep) | countrate(1ms)"});
    ASSERT_EQ(result.at("channels").as_array().size(), 5u);
    EXPECT_EQ(result.at("channels").at(4).at("name"), "Channel 4, merge 2+3");
    EXPECT_EQ(countsOf(result, 2), countsOf(plain, 2));
    double shifted = 0;
    for (size_t bin = 0; bin < 200; ++bin) {
        const auto at = [&](size_t row) { return countsOf(result, row).at(bin).to_number<double>(); };
        EXPECT_EQ(at(4), at(2) + at(3)) << bin;
        if (bin >= 30) shifted += at(3);
    }
    EXPECT_GT(shifted, 100);
    const auto rates = result.at("chain").at(2).at("rates").as_array();
    ASSERT_EQ(rates.size(), 5u);
    EXPECT_EQ(rates[0], 0);
    // The rate of the last interval, which is at least 1 ms: 100 events, so within five times their root.
    for (const size_t row : {1, 2, 3}) EXPECT_NEAR(rates[row].to_number<double>(), 1e5, 5e4) << row;
    const Ended csv = run(
        folder, {"histogram", "t2.tgx", "-q", "--chain", "substream(0.1s; 0.2s)", "--chain", "merge(1; keep)"});
    EXPECT_TRUE(contains(csv.Out, "\n# stage 2: merge(1; keep), makes ch3\n"));
    EXPECT_TRUE(contains(csv.Out, "\ntime_ps,sync,ch1,ch2,ch3_merge\n"));
}

TEST(ChainProgram, TellsPlainlyWhatCannotWork)
{
    const TempFolder folder;
    simulate(folder);
    std::ofstream(folder.file("bad.json"))
        << R"({"chain": [{"stage": "delay", "channels": [1], "delay": "5nx"}]})";
    std::string gate = "herald(1; 2"; // makes a channel for each of 2 to 127
    for (int channel = 3; channel < 128; ++channel) gate += "," + std::to_string(channel);
    gate += "; 0; 1ns; keep)";
    const std::string many = gate + "|" + gate + "|" + gate;
    const struct
    {
        const char *Command, *File;
        std::string Chain;
        int Code;
        const char *Message; // "": none at all
    } cases[] = {
        {"histogram", "t2.tgx", "merge(1", 2, "tessel: --chain: ')' is missing\n  merge(1\n         ^\n"},
        {"chain", "t2.tgx", "bad.json", 2, "bad.json: chain[0].delay: unknown unit \"nx\""},
        {"chain", "t2.tgx", "no.json", 3, "--chain no.json: No such file"},
        {"chain", "no.tgx", "merge(1)", 3, "no.tgx: no such file"},
        {"chain", "t2.tgx", many, 1, ": the library refuses it"},
        {"chain", "t2.tgx", "merge(0,2,129)", 0, ""},
        {"chain", "t2.tgx", "merge(1; keep) | merge(3) | merge(6)", 0,
         "warning: --chain: stage 3, merge(6): no channel 6 at this place, only 0 (sync) to 4"},
        {"chain", "t3.tgx", "merge(0,2)", 0, "a T3 stream has no events on channel 0 (sync)"},
        {"chain", "t3.tgx", "herald(0; 1; 0; 1ns)", 0, ""},
        {"chain", "t2.tgx", "countrate(1s)", 0, "the window is cut to 2.147 ms"},
        {"chain", "t2.tgx", "coincidence(1,2; 1ns; average)", 0, "go on only with keep"},
    };
    for (const auto &row : cases) {
        const Ended ended = run(folder, {row.Command, row.File, "--chain", row.Chain});
        EXPECT_EQ(ended.Code, row.Code) << row.Chain << "\n" << ended.Err;
        EXPECT_TRUE(contains(ended.Err, row.Message)) << row.Chain << "\n" << ended.Err;
        EXPECT_EQ(ended.Err.empty(), *row.Message == '\0') << row.Chain << "\n" << ended.Err;
        EXPECT_EQ(ended.Out.empty(), row.Code != 0) << row.Chain;
    }
    const Ended beyond = run(folder, {"histogram", "t2.tgx", "--ref-chan", "4", "--chain", "merge(1)"});
    EXPECT_EQ(beyond.Code, 2);
    EXPECT_TRUE(contains(beyond.Err, "channels 0 (sync) to 3")) << beyond.Err;
}
