// Instruments beside their stream: recordings of it, rates, and histograms of their own.
#include "run_program.h"

using namespace TestSupport;

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
        const Ended ended = run(folder, row.Line);
        EXPECT_EQ(ended.Code, row.Code) << row.Line << "\n" << ended.Err;
        EXPECT_TRUE(contains(ended.Err, row.Message)) << row.Line << "\n" << ended.Err;
    }
    EXPECT_EQ(contents(folder.file("taken.tgx")), "mine");
    EXPECT_FALSE(std::filesystem::exists(folder.file("x.tgx")));
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
