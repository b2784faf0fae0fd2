// Results of the program: their forms, and what goes where.
#include "commands/histogram_result.h"
#include "run_program.h"

#include <fmt/format.h>

#include <cstdlib>

using namespace TestSupport;

namespace {

// The column of this name, below the comments.
std::vector<double> csvColumn(const std::string &text, const std::string &name)
{
    std::istringstream lines(text.substr(text.find('\n', text.rfind("# ")) + 1));
    std::vector<double> values;
    std::string line, cell;
    std::getline(lines, line);
    int column = 0;
    for (std::istringstream names(line); std::getline(names, cell, ',') && cell != name;) ++column;
    while (std::getline(lines, line)) {
        std::istringstream cells(line);
        for (int i = 0; i <= column; ++i) std::getline(cells, cell, ',');
        values.push_back(std::stod(cell));
    }
    return values;
}

} // namespace

TEST(Results, AreTheSameInCsvAndJson)
{
    const TempFolder folder;
    simulateDecays(folder);
    const struct
    {
        std::string Line;
        std::vector<std::pair<const char *, const char *>> Places; // column, place in JSON
    } cases[] = {
        {"histogram light.tgx", {{"ch1", "/channels/1/counts"}, {"ch2", "/channels/2/counts"}}},
        {"trace light.tgx --history 200ms --bins 50",
         {{"ch1", "/channels/1/counts"}, {"ch2", "/channels/2/counts"}}},
        {"g2 light.tgx --window 1us --bin-width 25ps", {{"lag_ps", "/lagPs"}, {"g2", "/values"}}},
        {"g2 light.tgx --raw-counts", {{"pairs", "/values"}}},
        {"fcs light.tgx --max-lag 1ms", {{"lag_ps", "/lagPs"}, {"auto1", "/auto1"}, {"cross", "/cross"}}},
        {"hist2d light.tgx --bins-x 5 --bins-y 9 --bin-width-x 2ns --bin-width-y 1ns", {{"counts", "/counts"}}},
        {"fold light.tgx --period 25ns", {{"ch1", "/channels/1/counts"}, {"ch2", "/channels/2/counts"}}},
        {"histogram light.tgx --chain merge(1,2;keep)", {{"ch3_merge", "/channels/3/counts"}}},
    };
    for (const auto &row : cases) {
        const std::string csv = output(folder, row.Line);
        const boost::json::value result = json(folder, row.Line);
        EXPECT_TRUE(csv.starts_with("# " + std::string(result.at("schema").as_string()) + "\n")) << row.Line;
        EXPECT_TRUE(result.at("run").at("complete").as_bool()) << row.Line;
        for (const auto &[column, place] : row.Places) {
            const std::vector<double> written = csvColumn(csv, column),
                                      values = numbers(result.at_pointer(place));
            ASSERT_EQ(written.size(), values.size()) << row.Line << place;
            EXPECT_NE(sum(values), values[0]) << row.Line << place;
            for (size_t i = 0; i < values.size(); ++i) // the reader of JSON may be off by the last bit
                ASSERT_DOUBLE_EQ(written[i], values[i]) << row.Line << place;
        }
    }
}

// The library gives a recording's resolution in whole picoseconds; that of an instrument has a fraction.
TEST(Results, KeepTheFractionOfABinWidth)
{
    using namespace Tessel::Cli;
    const Histogram histogram{.NumBins = 3, .BinWidthPs = 12.5, .SyncPeriodPs = 25000, .Counts = {4, 5, 6}};
    Measured measured;
    measured.From.NumRows = 1;
    measured.From.MeasMode = 3;
    EXPECT_EQ(histogramJson(histogram, measured).at("binWidthPs"), 12.5);
    EXPECT_TRUE(histogramCsv(histogram, measured).ends_with("\ntime_ps,sync\n0,4\n12.5,5\n25,6\n"));
}

TEST(Results, StandAloneOnStandardOutputOrInAFile)
{
    const TempFolder folder;
    simulateDecays(folder);
    const Ended plain = run(folder, "histogram light.tgx --quiet");
    EXPECT_EQ(plain.Err, "");
    EXPECT_TRUE(contains(plain.Out, "\n819175,0,0,0\n")); // the last of 32768 bins
    EXPECT_FALSE(contains(plain.Out, "\033"));
    const Ended verbose = run(folder, "histogram light.tgx --verbose -o -");
    EXPECT_EQ(verbose.Out, plain.Out);
    EXPECT_TRUE(contains(verbose.Err, "OpenTGXFile")) << verbose.Err;
    EXPECT_FALSE(contains(verbose.Err, "\033")) << "no colours in a pipe";
    EXPECT_EQ(output(folder, "histogram light.tgx -o decay.csv"), "");
    EXPECT_EQ(contents(folder.file("decay.csv")), plain.Out);
}

TEST(Unfold, WritesTheSameEventsInEachForm)
{
    const TempFolder folder;
    simulateDecays(folder);
    std::string csv, binary;
    const std::vector<double> events = numbers(json(folder, "unfold light.tgx").at("events"));
    for (size_t i = 0; i < events.size(); i += 3) {
        csv += fmt::format("{},{},{}\n", events[i], events[i + 1], events[i + 2]);
        const auto time = static_cast<uint64_t>(events[i]) << 15 | static_cast<uint64_t>(events[i + 1]);
        for (int shift = 0; shift < 64; shift += 8) binary += static_cast<char>(time >> shift);
        binary += static_cast<char>(events[i + 2]);
    }
    const std::string text = output(folder, "unfold light.tgx");
    const size_t end = text.rfind("\n# ") + 1;
    EXPECT_TRUE(
        text.substr(0, end).ends_with("\nsync,dtime,channel\n" + csv)); // EXPECT_EQ would print all of it
    EXPECT_TRUE(text.ends_with(" records read; clean\n")) << text.substr(end);
    output(folder, "unfold light.tgx --binary -o events.bin");
    EXPECT_TRUE(contents(folder.file("events.bin")) == binary);
    const auto side = boost::json::parse(contents(folder.file("events.bin.json")));
    EXPECT_EQ(side.at("events").to_number<size_t>() * 9, binary.size());
    EXPECT_EQ(side.at("dtimePs"), 25);
}

TEST(Chain, NumbersChannelsAndReadsBackWhatItWrites)
{
    const TempFolder folder;
    simulateT2(folder, "--duration 1ms");
    const std::string line =
        "chain light.tgx --chain merge(1,2;keep)|delay(3;1ns) --chain herald(1;2,3;0;1ns;keep)";
    const std::string table = output(folder, line);
    for (const char *part : {"Sync", "ch2 ", "ch3_merge", "ch4_delay", "ch5_herald", "ch6_herald",
                             "Channel 6, herald 1 of 3", "herald(1; 2,3; delay 0ps; window 1ns; keep)"})
        EXPECT_TRUE(contains(table, part)) << part << "\n" << table;
    output(folder, line + " --json -o chain.json");
    const auto written = boost::json::parse(contents(folder.file("chain.json")));
    EXPECT_EQ(written.at("channels").as_array().size(), 7u);
    EXPECT_EQ(written.at("chain").at(2).at("makes"), boost::json::parse("[5, 6]"));
    EXPECT_EQ(json(folder, "chain light.tgx --chain chain.json"), written);
}

TEST(Simulate, MakesTheSameEventsForASeed)
{
    const TempFolder folder;
    const auto events = [&](int seed) {
        output(folder, fmt::format("simulate light.tgx --duration 0.05s --seed {} --force", seed));
        return numbers(json(folder, "unfold light.tgx").at("events"));
    };
    EXPECT_GT(events(5).size(), 10000u);
    EXPECT_EQ(events(5), events(5));
    EXPECT_NE(events(5), events(6));
}

TEST(Info, ShowsDeviceRunAndHeaderWithSettingsOfTheUser)
{
    const TempFolder folder;
    output(folder, "simulate x.tgx --mode T3 --light Pulsed --family sv40 --duration 0.01s"); // in any case
    std::ofstream(folder.file("own.ini")) << "[Paths]\nData=" << folder.path().string()
                                          << "\n[Log]\nFile=true\nConsole=false\n[Params]\nBufferSize=8\n";
    const auto info = json(folder, "info x.tgx --ini own.ini");
    EXPECT_TRUE(std::filesystem::is_directory(folder.path() / "Logs"));
    EXPECT_EQ(info.at("device").at("ID"), "simulated@x.tgx");
    EXPECT_EQ(info.at("device").at("MeasMode"), 3);
    EXPECT_EQ(info.at("device").at("Model"), "Sarvex 40 N");
    EXPECT_EQ(info.at("run").at("NumRecs"), info.at("recordsInFile"));
    EXPECT_EQ(info.at("header").at("magic"), "MVTTTR");
    EXPECT_TRUE(contains(output(folder, "info x.tgx"), "\n  HW_SerialNo "));
}

TEST(Plots, AreDrawnOrSaidToBeMissing)
{
    const TempFolder folder;
    simulateT2(folder, "--rate 100kcps --duration 0.05s");
    if (std::system("command -v gnuplot >/dev/null 2>&1") == 0)
        for (const char *line :
             {"histogram light.tgx --ref-chan 1", "g2 light.tgx", "fcs light.tgx --max-lag 1ms",
              "trace light.tgx", "hist2d light.tgx --start-chan 1", "unfold light.tgx"}) {
            EXPECT_EQ(output(folder, fmt::format("{} --plot a.png --errors", line)), "") << line;
            EXPECT_EQ(contents(folder.file("a.png")).substr(0, 4), "\x89PNG") << line;
            std::filesystem::remove(folder.file("a.png"));
            EXPECT_EQ(output(folder, fmt::format("{} --plot a.pdf --title It's --size 400x300", line)), "")
                << line;
            EXPECT_EQ(contents(folder.file("a.pdf")).substr(0, 4), "%PDF") << line;
        }
    const char *saved = std::getenv("PATH");
    const std::string path = saved ? saved : "";
    setenv("PATH", folder.path().c_str(), 1);
    const Ended without = run(folder, "trace light.tgx --plot b.png -o b.csv");
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(without.Code, 1);
    EXPECT_EQ(without.Err, "tessel: --plot needs gnuplot, which is not in PATH\n") << "before the replay";
    EXPECT_FALSE(std::filesystem::exists(folder.file("b.csv")));
}
