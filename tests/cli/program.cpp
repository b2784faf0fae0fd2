// The program from outside: exit codes, what reaches which output, interruption.
#include "run_program.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

using namespace TestSupport;

namespace {

// A T3 recording of some 20000 records: channels 1 and 2, lifetimes 1 ns and 3 ns, no background.
void simulateDecays(const TempFolder &folder)
{
    const Ended ended = run(folder, {"simulate", "decay.tgx", "--rate", "100kcps", "--lifetime", "1ns,3ns",
                                     "--background", "0", "--irf", "0", "--delay", "0", "--duration", "0.1s"});
    ASSERT_EQ(ended.Code, 0) << ended.Err;
}

} // namespace

TEST(Program, RefusesWrongUsageAndMissingFiles)
{
    const TempFolder folder;
    simulateDecays(folder);
    std::ofstream(folder.file("text.tgx")) << "no recording at all";
    std::ofstream(folder.file("empty.tgx"));
    const struct
    {
        Arguments Given;
        int Code;
        const char *Message;
    } cases[] = {
        {{}, 2, "subcommand is required"},
        {{"correlate"}, 2, ""},
        {{"info"}, 2, "FILE is required (tessel info --help tells more)"},
        {{"info", "missing.tgx"}, 3, "missing.tgx: no such file"},
        {{"info", "text.tgx"}, 3, "text.tgx: not a recording"},
        {{"info", "empty.tgx"}, 3, "empty.tgx: "},
        {{"histogram", "missing.tgx"}, 3, "missing.tgx: no such file"},
        {{"histogram", "."}, 3, "a folder"},
        {{"--ini", "missing.ini", "info", "decay.tgx"}, 3, "missing.ini: no such settings file"},
        {{"histogram", "decay.tgx", "--bins", "5"}, 2, "--bins is for T2"},
        {{"histogram", "decay.tgx", "--plot", "x.pdf"}, 2, ".png or .svg"},
        {{"histogram", "decay.tgx", "-o", "no/such/folder.csv"}, 1, "no/such/folder.csv: No such file"},
        {{"simulate", "x.tgx", "--lifetime", "2.5nx"}, 2, "--lifetime \"2.5nx\": unknown unit"},
        {{"simulate", "x.tgx", "--rate", "1,2", "--lifetime", "1,2,3"},
         2,
         "--rate has 2 values for 3 channels"},
        {{"simulate", "x.tgx", "--sync-rate", "1kHz"}, 2, "coarser --resolution"},
        {{"simulate", "x.tgx", "--mode", "t2", "--light", "antibunched", "--rate", "1Gcps"},
         2,
         "at most 50 MHz"},
        {{"simulate", "no/such/x.tgx"}, 1, "no/such/x.tgx: can't be created"},
    };
    for (const auto &row : cases) {
        const Ended ended = run(folder, row.Given);
        const std::string label = fmt::format("{}", fmt::join(row.Given, " "));
        EXPECT_EQ(ended.Code, row.Code) << label << "\n" << ended.Err;
        EXPECT_TRUE(contains(ended.Err, row.Message)) << label << "\n" << ended.Err;
        EXPECT_EQ(ended.Out, "") << label;
        EXPECT_TRUE(row.Code != 2 || !std::filesystem::exists(folder.file("x.tgx"))) << label;
    }
}

TEST(Program, AnswersHelpAndVersionOnStandardOutput)
{
    const TempFolder folder;
    EXPECT_TRUE(run(folder, {"--version"}).Out.starts_with("tessel "));
    EXPECT_TRUE(contains(run(folder, {"--help"}).Out, "\nExit codes: "));
    for (const char *command :
         {"simulate", "info", "histogram", "g2", "fcs", "trace", "hist2d", "unfold", "chain"}) {
        const Ended ended = run(folder, {command, "--help"});
        EXPECT_EQ(ended.Code, 0) << command;
        EXPECT_EQ(ended.Err, "") << command;
        EXPECT_TRUE(contains(ended.Out, fmt::format("\nUsage: tessel {} ", command))) << ended.Out;
        EXPECT_TRUE(contains(ended.Out, "\nExamples:\n")) << ended.Out;
    }
}

TEST(Program, CountsTheDecaysThatItSimulated)
{
    const TempFolder folder;
    simulateDecays(folder);
    const Ended ended = run(folder, {"histogram", "decay.tgx", "--json"});
    ASSERT_EQ(ended.Code, 0) << ended.Err;
    EXPECT_FALSE(hasEscape(ended.Out));
    const auto result = parsed(ended.Out);
    EXPECT_EQ(result.at("schema"), "tessel.histogram/1");
    EXPECT_EQ(result.at("bins"), 32768);
    EXPECT_EQ(result.at("binWidthPs"), 25);
    EXPECT_TRUE(result.at("run").at("complete").as_bool());
    const auto &channels = result.at("channels").as_array();
    ASSERT_EQ(channels.size(), 3u);
    EXPECT_EQ(channels[0].at("total"), 0);
    for (size_t row = 1; row <= 2; ++row) {
        const auto &counts = channels[row].at("counts").as_array();
        ASSERT_EQ(counts.size(), 32768u);
        double total = 0, sum = 0;
        for (size_t bin = 0; bin < counts.size(); ++bin) {
            total += counts[bin].to_number<double>();
            sum += counts[bin].to_number<double>() * (static_cast<double>(bin) + 0.5) * 25;
        }
        EXPECT_EQ(channels[row].at("total").to_number<double>(), total);
        EXPECT_NEAR(total, 10000, 5 * 100);
        // Mean delay of a decay folded into the period: lifetime - period / (exp(period / lifetime) - 1).
        const double lifetime = row == 1 ? 1000 : 3000;
        const double mean = lifetime - 25000 / (std::exp(25000 / lifetime) - 1);
        EXPECT_NEAR(sum / total, mean, 5 * lifetime / std::sqrt(total));
    }
}

TEST(Program, KeepsTheLogOutOfResults)
{
    const TempFolder folder;
    simulateDecays(folder);
    const Ended csv = run(folder, {"histogram", "decay.tgx", "--quiet"});
    EXPECT_EQ(csv.Code, 0);
    EXPECT_EQ(csv.Err, "");
    EXPECT_FALSE(hasEscape(csv.Out));
    EXPECT_TRUE(csv.Out.starts_with("# tessel.histogram/1\n"));
    EXPECT_TRUE(contains(csv.Out, "\ntime_ps,sync,ch1,ch2\n0,0,"));
    EXPECT_TRUE(contains(csv.Out, "\n819175,0,0,0\n")); // the last of 32768 bins
    const Ended verbose = run(folder, {"histogram", "decay.tgx", "--verbose", "-o", "-"});
    EXPECT_EQ(verbose.Out, csv.Out);
    EXPECT_TRUE(contains(verbose.Err, "OpenTGXFile")) << verbose.Err;
    const Ended file = run(folder, {"histogram", "decay.tgx", "-q", "-o", "decay.csv"});
    EXPECT_EQ(file.Out, "");
    EXPECT_EQ(contents(folder.file("decay.csv")), csv.Out);
    for (const auto &entry : std::filesystem::directory_iterator(folder.path()))
        EXPECT_FALSE(entry.path().string().ends_with(".part")) << entry.path();
}

TEST(Program, TakesSettingsOfTheUser)
{
    const TempFolder folder;
    simulateDecays(folder);
    std::ofstream(folder.file("own.ini")) << "[Paths]\nData=" << folder.path().string()
                                          << "\n[Log]\nFile=true\nConsole=false\n[Params]\nBufferSize=8\n";
    const Ended ended = run(folder, {"info", "decay.tgx", "--ini", "own.ini", "--json"});
    ASSERT_EQ(ended.Code, 0) << ended.Err;
    EXPECT_TRUE(std::filesystem::is_directory(folder.path() / "Logs"));
    const auto info = parsed(ended.Out);
    EXPECT_EQ(info.at("schema"), "tessel.info/1");
    EXPECT_EQ(info.at("device").at("ID"), "simulated@decay.tgx");
    EXPECT_EQ(info.at("device").at("NumChans"), 2);
    EXPECT_EQ(info.at("run").at("NumRecs"), info.at("recordsInFile"));
    EXPECT_EQ(info.at("header").at("magic"), "MVTTTR");
    const Ended table = run(folder, {"info", "decay.tgx"});
    EXPECT_TRUE(contains(table.Out, "HW_SerialNo")) << table.Out;
    EXPECT_FALSE(hasEscape(table.Out));
}

TEST(Program, MeasuresT2AgainstAReference)
{
    const TempFolder folder;
    ASSERT_EQ(run(folder,
                  {"simulate",   "t2.tgx",  "--mode",       "t2", "--light",    "pulsed", "--sync-rate", "1MHz",
                   "--rate",     "200kcps", "--background", "0",  "--irf",      "0",      "--delay",     "50ns",
                   "--lifetime", "10ns",    "--channels",   "1",  "--duration", "0.1s"})
                  .Code,
              0);
    const Ended ended = run(
        folder, {"histogram", "t2.tgx", "--ref-chan", "0", "--bin-width", "1ns", "--bins", "2000", "--json"});
    ASSERT_EQ(ended.Code, 0) << ended.Err;
    const auto result = parsed(ended.Out);
    const auto &channels = result.at("channels").as_array();
    // 100000 syncs, each one period after the one before; the one at time 0 doesn't serve as a reference.
    EXPECT_EQ(channels[0].at("counts").as_array()[1000], 99998);
    const auto &counts = channels[1].at("counts").as_array();
    double before = 0, sum = 0;
    for (size_t bin = 0; bin < counts.size(); ++bin) {
        if (bin < 50) before += counts[bin].to_number<double>();
        sum += counts[bin].to_number<double>() * (static_cast<double>(bin) + 0.5);
    }
    const double total = channels[1].at("total").to_number<double>();
    EXPECT_EQ(before, 0);
    EXPECT_NEAR(total, 20000, 5 * 142);
    EXPECT_NEAR(sum / total, 60, 5 * 10 / std::sqrt(total));
    EXPECT_EQ(run(folder, {"histogram", "t2.tgx", "--ref-chan", "2"}).Code, 2);
}

TEST(Program, TakesNamesInAnyCase)
{
    const TempFolder folder;
    const Ended ended = run(folder, {"simulate", "x.tgx", "--mode", "T3", "--light", "Pulsed", "--family",
                                     "sv40", "--duration", "0.01s"});
    ASSERT_EQ(ended.Code, 0) << ended.Err;
    const auto info = parsed(run(folder, {"info", "x.tgx", "--json"}).Out);
    EXPECT_EQ(info.at("device").at("MeasMode"), 3);
    EXPECT_EQ(info.at("device").at("Model"), "Sarvex 40 N");
}

TEST(Program, WarnsOfOptionsThatDoNothing)
{
    const TempFolder folder;
    const struct
    {
        Arguments Given;
        const char *Option; // null: no warning
    } cases[] = {{{"--mode", "t2", "--lifetime", "1ns"}, "--lifetime"},
                 {{"--mode", "t2", "--light", "bunched", "--recovery", "1ns"}, "--recovery"},
                 {{"--molecules", "3"}, "--molecules"},
                 {{"--lifetime", "1ns", "--delay", "1ns"}, nullptr}};
    for (const auto &row : cases) {
        Arguments arguments = {"simulate", "x.tgx", "-q", "--duration", "1ms"};
        arguments.insert(arguments.end(), row.Given.begin(), row.Given.end());
        const Ended ended = run(folder, arguments);
        EXPECT_EQ(ended.Code, 0);
        EXPECT_EQ(ended.Err,
                  row.Option
                      ? fmt::format("tessel: warning: {} does nothing to light of this kind\n", row.Option)
                      : "");
    }
}

TEST(Program, GivesTheSameRecordsForASeed)
{
    const TempFolder folder;
    const auto records = [&](const std::string &name, const std::string &seed) {
        EXPECT_EQ(run(folder, {"simulate", name, "--duration", "0.05s", "--seed", seed}).Code, 0);
        const auto info = parsed(run(folder, {"info", name, "--json"}).Out);
        return contents(folder.file(name)).substr(info.at("header").at("dataStart").to_number<size_t>());
    };
    const std::string first = records("a.tgx", "5");
    EXPECT_GT(first.size(), 10000u);
    EXPECT_EQ(first, records("b.tgx", "5"));
    EXPECT_NE(first, records("c.tgx", "6"));
}

TEST(Program, TellsThatAFileIsCutShort)
{
    const TempFolder folder;
    simulateDecays(folder);
    resize(folder, "decay.tgx", std::filesystem::file_size(folder.file("decay.tgx")) - 4000);
    const Ended ended = run(folder, {"histogram", "decay.tgx", "--json"});
    EXPECT_EQ(ended.Code, 4);
    EXPECT_TRUE(contains(ended.Err, "cut short")) << ended.Err;
    EXPECT_EQ(parsed(ended.Out).at("run").at("recordsRead"), parsed(ended.Out).at("run").at("recordsInFile"));
}

TEST(Program, WritesThePartialResultOnInterruption)
{
    const TempFolder folder;
    simulateDecays(folder);
    resize(folder, "decay.tgx", uint64_t(16) << 30); // some minutes of replay
    const Started started = start(folder, {"histogram", "decay.tgx", "--json", "--verbose"});
    ASSERT_TRUE(waitFor([&] { return contains(started.errorText(), "HistoThread started"); }));
    kill(started.Id, SIGINT);
    const Ended ended = started.wait();
    EXPECT_EQ(ended.Code, 130) << ended.Err.substr(0, 2000);
    const auto result = parsed(ended.Out);
    EXPECT_FALSE(result.at("run").at("complete").as_bool());
    EXPECT_LT(result.at("run").at("recordsRead").to_number<uint64_t>(),
              result.at("run").at("recordsInFile").to_number<uint64_t>());
}

TEST(Program, SealsAnInterruptedSimulation)
{
    const TempFolder folder;
    const Started started = start(folder, {"simulate", "long.tgx", "--duration", "1h", "--rate", "10Mcps"});
    ASSERT_TRUE(waitFor([&] {
        std::error_code missing;
        return std::filesystem::file_size(folder.file("long.tgx"), missing) > 100000 && !missing;
    }));
    kill(started.Id, SIGINT);
    EXPECT_EQ(started.wait().Code, 130);
    const auto info = parsed(run(folder, {"info", "long.tgx", "--json"}).Out);
    EXPECT_GT(info.at("recordsInFile").to_number<uint64_t>(), 0u);
    EXPECT_EQ(info.at("run").at("NumRecs"), info.at("recordsInFile"));
}

TEST(Program, DrawsAPlotOrSaysPlainlyWhyNot)
{
    const TempFolder folder;
    simulateDecays(folder);
    if (std::system("command -v gnuplot >/dev/null 2>&1") == 0) {
        const Ended drawn = run(folder, {"histogram", "decay.tgx", "--plot", "it's.png"});
        EXPECT_EQ(drawn.Code, 0) << drawn.Err;
        EXPECT_EQ(drawn.Out, "");
        EXPECT_EQ(contents(folder.file("it's.png")).substr(0, 4), "\x89PNG");
    }
    const char *saved = std::getenv("PATH");
    const std::string path = saved ? saved : "";
    setenv("PATH", folder.path().c_str(), 1);
    const Ended alone = run(folder, {"histogram", "decay.tgx", "--plot", "b.png"});
    const Ended beside = run(folder, {"histogram", "decay.tgx", "--plot", "b.png", "-o", "b.csv"});
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(alone.Code, 1);
    EXPECT_TRUE(contains(alone.Err, "gnuplot")) << alone.Err;
    EXPECT_EQ(beside.Code, 0);
    EXPECT_TRUE(contains(beside.Err, "warning")) << beside.Err;
    EXPECT_TRUE(std::filesystem::exists(folder.file("b.csv")));
}
