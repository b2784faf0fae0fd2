// Recordings of an instrument: beside a measurement and alone, to an end that was asked for or by Ctrl-C.
#include "run_program.h"
#include "support/host.h"

using namespace TestSupport;

namespace {

std::vector<double> totalsOf(const boost::json::object &result)
{
    std::vector<double> totals;
    for (const auto &channel : result.at("channels").as_array())
        totals.push_back(channel.at("total").to_number<double>());
    return totals;
}

} // namespace

// A replay counts what the live run has counted, event for event.
TEST(Record, HasWhatTheRunHasCounted)
{
    const TempFolder folder;
    const auto live = json(folder, "histogram --sim --for 400ms --record h.tgx");
    const auto replayed = json(folder, "histogram h.tgx");
    EXPECT_EQ(live.at("run").at("recordsRead"), replayed.at("run").at("recordsInFile"));
    EXPECT_GT(sum(totalsOf(live)), 100000);
    EXPECT_EQ(live.at("channels"), replayed.at("channels"));

    for (const std::string mode : {"t2", "t3"}) {
        const auto recorded =
            json(folder, "record " + mode + ".tgx --sim --comment lamp --mode " + mode + " --until ch1>=20k");
        EXPECT_EQ(recorded.at("endedBy"), "ch1>=20k");
        EXPECT_EQ(recorded.at("run").at("complete"), true);
        EXPECT_EQ(recorded.at("recorded").at("closed"), true);
        const auto totals = totalsOf(recorded);
        EXPECT_GE(totals[1], 20000);
        EXPECT_LT(totals[1], 200000);
        const auto inFile = totalsOf(json(folder, "trace " + mode + ".tgx --bins 1 --history 100s"));
        for (size_t row = 0; row < totals.size(); ++row) EXPECT_LE(totals[row], inFile[row]);
        // Under a sanitizer the time may be over in which a stopped run still counts what it has read.
        if (!isSanitized) {
            EXPECT_EQ(totals, inFile);
        }
        EXPECT_EQ(json(folder, "info " + mode + ".tgx").at("device").at("Comment"), "lamp");
    }
}

TEST(Record, CtrlCEndsItCleanly)
{
    const TempFolder folder;
    const std::string path = folder.file("run.tgx");
    const Ended ended = start(folder, "record run.tgx --sim --mode t2").interruptWhen([&] {
        return std::filesystem::exists(path) && std::filesystem::file_size(path) > 1'000'000;
    });
    EXPECT_EQ(ended.Code, 130) << ended.Err;
    const auto info = json(folder, "info run.tgx");
    EXPECT_EQ(info.at("recording"), "closed");
    EXPECT_GT(info.at("recordsInFile").to_number<double>(), 200000);
}

TEST(Record, NeverTakesAnotherNameOrAFileThatIsThere)
{
    const TempFolder folder;
    std::ofstream(folder.file("taken.tgx")) << "mine";
    const struct
    {
        int Code;
        std::string Line, Message;
    } cases[] = {
        {2, "record taken.tgx --sim --for 50ms", "taken.tgx: a recording, which only --force replaces"},
        {2, "trace --sim --record taken.tgx --for 50ms", "--record taken.tgx: a recording, which only"},
        {2, "record x.dat --sim", "x.dat: the name of a recording must end in .tgx"},
        {1, "record no/x.tgx --sim", "no/x.tgx: can't be created: No such file"},
        {2, "record x.tgx", "record needs an instrument"},
        {2, "trace taken.tgx --record x.tgx", "--record is for instruments"},
        {2, "histogram --sim --hardware --record x.tgx", "--hardware and --record"},
        {2, "histogram --sim --live --json-lines", "--live"},
        {2, "trace --sim --record x.tgx -o x.tgx", "-o writes this file"},
        {2, "record x.tgx --sim --until bytes>3", "\"bytes>3\": records, size, time, sync or a channel"},
        {2, "record x.tgx --sim --until records", "\"records\": > and a number are missing at character 8"},
        {2, "record x.tgx --sim --until size>3q",
         "unknown unit \"q\" (known: B, kB, MB, GB, TB) at character 7"},
        {2, "record x.tgx --sim --until ch5>1", "there are channels 0 (sync) to 4"},
        {2, "record x.tgx --sim --until sync>1", "a T3 stream has no events of the sync"},
    };
    for (const auto &row : cases) {
        answered(folder, row.Line, row.Code, row.Message);
    }
    EXPECT_EQ(contents(folder.file("taken.tgx")), "mine");
    EXPECT_FALSE(std::filesystem::exists(folder.file("x.tgx")));
    output(folder, "record taken.tgx --sim --force --until records>0");
    const auto info = json(folder, "info taken.tgx");
    EXPECT_EQ(info.at("recording"), "closed");
    EXPECT_GT(info.at("run").at("NumRecs").to_number<int>(), 0);
}

TEST(Rates, AreThoseOfTheInstrument)
{
    const TempFolder folder;
    const auto channels = json(folder, "rates --sim --set ch2.level=-1V").at("channels").as_array();
    ASSERT_EQ(channels.size(), 5u);
    EXPECT_EQ(channels[0].at("cps"), 5000000);
    EXPECT_NEAR(channels[1].at("cps").to_number<double>(), 100000, 1000);
    EXPECT_EQ(channels[2].at("cps"), 0);
    EXPECT_TRUE(contains(output(folder, "rates --sim"), "Channel 4  100.1 kcps"));
    const std::string lines = output(folder, "rates --sim --json-lines --interval 20ms --for 200ms");
    EXPECT_GT(std::ranges::count(lines, '\n'), 3);
}

TEST(Hardware, CountsAsTheStreamDoes)
{
    const TempFolder folder;
    const auto result =
        json(folder, "histogram --sim --hardware --for 500ms --set binning=1 --set length-code=2");
    EXPECT_EQ(result.at("mode"), "histogram");
    EXPECT_EQ(result.at("bins"), 4096);
    EXPECT_EQ(result.at("binWidthPs"), 10);
    EXPECT_EQ(result.at("run").at("complete"), true);
    for (size_t row = 1; row <= 4; ++row) EXPECT_NEAR(sum(countsOf(result, row)), 50000, 2500) << row;
    const auto full = json(folder, "histogram --sim --hardware --for 1h --set stop-count=100");
    EXPECT_EQ(full.at("run").at("complete"), true);
    const std::vector<double> all = numbers(full.at("channels").at(1).at("counts"));
    EXPECT_EQ(*std::ranges::max_element(all), 100);
}
