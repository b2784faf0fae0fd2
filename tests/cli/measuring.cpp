// The measuring commands from outside, on simulated light whose correlations are known. Seeds are fixed, so a
// run can't fail by chance; the bounds are five standard deviations.
#include "run_program.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <numeric>

using namespace TestSupport;

namespace {

void simulate(const TempFolder &folder, Arguments options)
{
    options.insert(options.begin(), {"simulate", "light.tgx"});
    const Ended ended = run(folder, options);
    ASSERT_EQ(ended.Code, 0) << ended.Err;
}

void simulateT2(const TempFolder &folder, Arguments options)
{
    options.insert(options.end(), {"--mode", "t2", "--background", "0", "--irf", "0"});
    simulate(folder, options);
}

boost::json::object measured(const TempFolder &folder, Arguments options)
{
    options.push_back("--json");
    const Ended ended = run(folder, options);
    EXPECT_EQ(ended.Code, 0) << ended.Err;
    return ended.Code == 0 ? parsed(ended.Out) : boost::json::object();
}

std::vector<double> numbers(const boost::json::value &array)
{
    std::vector<double> values;
    for (const auto &value : array.as_array()) values.push_back(value.to_number<double>());
    return values;
}

// Events by the unfold command: time in ps and channel.
std::vector<std::vector<double>> events(const TempFolder &folder)
{
    const boost::json::object result = measured(folder, {"unfold", "light.tgx"});
    std::vector<std::vector<double>> all;
    for (const auto &event : result.at("events").as_array()) all.push_back(numbers(event));
    return all;
}

} // namespace

// g2 = 1 + sign exp(-|lag| / time), averaged over a bin. The light itself fluctuates too; that at most doubles
// the variance of the number of pairs.
TEST(Measuring, G2GivesTheCorrelationOfTheLight)
{
    const struct
    {
        const char *Light;
        double Sign, TimePs, Rate, BinPs;
        Arguments Options;
    } cases[] = {
        {"bunched", 1, 1e6, 5e5, 2e5, {"--rate", "500kcps", "--correlation-time", "1us", "--duration", "0.3s"}},
        {"antibunched", -1, 2e4, 1e6, 5e3, {"--rate", "1Mcps", "--recovery", "20ns", "--duration", "0.3s"}},
        {"poisson", 0, 1e6, 5e5, 1e6, {"--rate", "500kcps", "--duration", "0.1s"}},
    };
    for (const auto &row : cases) {
        const TempFolder folder;
        Arguments options = row.Options;
        options.insert(options.end(), {"--light", row.Light});
        simulateT2(folder, options);
        const Arguments command = {"g2",          "light.tgx",
                                   "--bin-width", fmt::format("{}ps", row.BinPs),
                                   "--window",    fmt::format("{}ps", 15 * row.BinPs)};
        const boost::json::object result = measured(folder, command);
        const std::vector<double> lags = numbers(result.at("lagPs")), values = numbers(result.at("values"));
        ASSERT_EQ(lags.size(), 30u) << row.Light;
        const double seconds = row.Sign == 0 ? 0.1 : 0.3;
        const double perBin = row.Rate * row.Rate * seconds * row.BinPs * 1e-12;
        for (size_t i = 0; i < lags.size(); ++i) {
            EXPECT_EQ(lags[i], (static_cast<double>(i) - 14.5) * row.BinPs);
            const double from = (std::abs(lags[i]) - row.BinPs / 2) / row.TimePs,
                         width = row.BinPs / row.TimePs;
            const double expected = 1 + row.Sign * (std::exp(-from) - std::exp(-from - width)) / width;
            EXPECT_NEAR(values[i], expected, 5 * std::sqrt(2 * expected / perBin))
                << row.Light << " " << lags[i];
        }
    }
}

TEST(Measuring, G2GivesPairsIfAskedTo)
{
    const TempFolder folder;
    simulateT2(folder, {"--rate", "200kcps", "--duration", "0.1s"});
    const Arguments command = {"g2", "light.tgx", "--window", "10us", "--bin-width", "1us"};
    Arguments raw = command;
    raw.push_back("--raw-counts");
    const boost::json::object result = measured(folder, raw);
    EXPECT_FALSE(result.at("normalised").as_bool());
    // The same pairs from the events themselves: channel 1 after channel 2 at positive lags.
    std::vector<double> expected(20, 0);
    const auto all = events(folder);
    for (size_t i = 0; i < all.size(); ++i)
        for (size_t k = i + 1; k < all.size() && all[k][0] - all[i][0] < 1e7; ++k) {
            const auto bin = static_cast<size_t>((all[k][0] - all[i][0]) / 1e6);
            if (all[i][1] == 2 && all[k][1] == 1) ++expected[10 + bin];
            if (all[i][1] == 1 && all[k][1] == 2) ++expected[9 - bin];
        }
    EXPECT_EQ(numbers(result.at("values")), expected);
}

// Two molecules in the focus, diffusion time 50 us, 5000 diffusion times: over ten seeds the amplitude of a
// curve has a standard deviation of 4.5 %, and G(tD) / G(0) one of 3 %.
TEST(Measuring, FcsGivesNumberAndDiffusionTimeOfMolecules)
{
    const TempFolder folder;
    simulateT2(folder, {"--light", "diffusing", "--molecules", "2", "--diffusion-time", "50us", "--rate",
                        "200kcps", "--duration", "0.25s"});
    for (const bool fast : {false, true}) {
        Arguments command = {"fcs", "light.tgx", "--min-lag", "1us", "--max-lag", "1ms", "--steps", "20"};
        if (fast) command.push_back("--fast");
        const boost::json::object result = measured(folder, command);
        const std::vector<double> lags = numbers(result.at("lagPs"));
        EXPECT_EQ(result.at("points").to_number<size_t>(), lags.size());
        for (const char *curve : {"auto1", "cross", "auto2"}) {
            const std::vector<double> values = numbers(result.at(curve));
            ASSERT_EQ(values.size(), lags.size()) << curve;
            double amplitude = 0, half = 0; // means of G (1 + t / tD) at short lags and about tD
            int atStart = 0, atHalf = 0;
            for (size_t i = 0; i < lags.size(); ++i) {
                const double scaled = values[i] * (1 + lags[i] / 5e7);
                if (lags[i] < 1e7) amplitude += scaled, ++atStart;
                if (lags[i] > 3e7 && lags[i] < 8e7) half += scaled, ++atHalf;
            }
            amplitude /= atStart, half /= atHalf;
            EXPECT_NEAR(amplitude, 0.5, 5 * 0.045 * 0.5) << curve << fast;
            EXPECT_NEAR(half / amplitude, 1, 5 * 0.03) << curve << fast;
        }
    }
}

TEST(Measuring, TraceCountsTheEventsOfEachBin)
{
    const TempFolder folder;
    simulateT2(folder, {"--rate", "100kcps,20kcps", "--duration", "0.1s"});
    std::vector<std::vector<double>> expected(3, std::vector<double>(10, 0));
    for (const auto &event : events(folder))
        ++expected[static_cast<size_t>(event[1])][static_cast<size_t>(event[0] / 1e10)];
    // A history that reaches back beyond the start.
    const boost::json::object whole =
        measured(folder, {"trace", "light.tgx", "--history", "1s", "--bins", "100"});
    EXPECT_EQ(whole.at("firstBin"), 0);
    EXPECT_EQ(whole.at("binWidthPs"), 10000000000);
    for (size_t row = 1; row <= 2; ++row)
        EXPECT_EQ(numbers(whole.at("channels").at(row).at("counts")), expected[row]) << row;
    // Shorter ones.
    for (const size_t bins : {5, 1}) {
        const boost::json::object part =
            measured(folder, {"trace", "light.tgx", "--history", fmt::format("{}ms", 10 * bins), "--bins",
                              std::to_string(bins)});
        EXPECT_EQ(part.at("firstBin"), 10 - bins);
        for (size_t row = 1; row <= 2; ++row)
            EXPECT_EQ(
                numbers(part.at("channels").at(row).at("counts")),
                std::vector<double>(expected[row].end() - static_cast<ptrdiff_t>(bins), expected[row].end()))
                << row;
    }
}

// Mean times of the pairs are the lifetimes; of two photons of a pulse the later counts: at most 4 % more.
TEST(Measuring, Hist2dKeepsItsAxesApart)
{
    const TempFolder folder;
    simulate(folder, {"--rate", "5Mcps", "--lifetime", "1ns,3ns", "--background", "0", "--irf", "0", "--delay",
                      "0", "--duration", "0.03s"});
    const boost::json::object result =
        measured(folder, {"hist2d", "light.tgx", "--bins-x", "100", "--bins-y", "240"});
    const auto &rows = result.at("counts").as_array();
    ASSERT_EQ(rows.size(), 240u);
    double total = 0, sumX = 0, sumY = 0;
    for (size_t y = 0; y < rows.size(); ++y) {
        const std::vector<double> row = numbers(rows[y]);
        ASSERT_EQ(row.size(), 100u);
        for (size_t x = 0; x < row.size(); ++x) {
            total += row[x];
            sumX += row[x] * (static_cast<double>(x) + 0.5) * 100;
            sumY += row[x] * (static_cast<double>(y) + 0.5) * 100;
        }
    }
    EXPECT_EQ(result.at("total").to_number<double>(), total);
    EXPECT_GT(total, 1000);
    EXPECT_NEAR(sumX / total, 1020, 20 + 5 * 1000 / std::sqrt(total));
    EXPECT_NEAR(sumY / total, 3060, 60 + 5 * 3000 / std::sqrt(total));
}

// Each pair comes sooner than an hour after the one before, so all are corrected.
TEST(Measuring, Hist2dCorrectsPairsByTheTimeSinceTheOneBefore)
{
    const TempFolder folder;
    simulate(folder, {"--rate", "5Mcps", "--duration", "0.01s"});
    const Arguments plain = {"hist2d", "light.tgx", "--bins-x", "50", "--bins-y", "50"};
    Arguments corrected = plain;
    corrected.insert(corrected.end(), {"--recovery-min", "1h", "--recovery-offset-x", "1ns",
                                       "--recovery-offset-y", "200ps", "--recovery-slope", "0"});
    const boost::json::object before = measured(folder, plain), after = measured(folder, corrected);
    EXPECT_EQ(after.at("recovery").at("offsetXPs"), 1000);
    EXPECT_GT(before.at("total").to_number<int>(), 100);
    for (size_t y = 0; y < 48; ++y)
        for (size_t x = 0; x < 40; ++x)
            ASSERT_EQ(after.at("counts").at(y + 2).at(x + 10), before.at("counts").at(y).at(x))
                << x << " " << y;
}

TEST(Measuring, WarnsWhereNothingIsCounted)
{
    const TempFolder folder;
    simulateT2(folder, {"--rate", "10kcps", "--duration", "0.01s"}); // without syncs
    const std::vector<Arguments> cases = {{"histogram", "light.tgx", "--bins", "2"},
                                          {"g2", "light.tgx", "--chan1", "0"},
                                          {"g2", "light.tgx", "--chan2", "0", "--raw-counts"},
                                          {"fcs", "light.tgx", "--max-lag", "1s"},
                                          {"hist2d", "light.tgx"},
                                          {"trace", "light.tgx", "--chain", "substream(9s; 10s)"}};
    for (const Arguments &given : cases) {
        const Ended ended = run(folder, given);
        EXPECT_EQ(ended.Code, 0) << ended.Err;
        EXPECT_TRUE(contains(ended.Err, "warning: nothing was counted")) << given[0] << "\n" << ended.Err;
    }
    const Ended curves = run(folder, {"fcs", "light.tgx"});
    EXPECT_TRUE(curves.Out.ends_with(",nan,nan,nan\n")) << curves.Out.substr(0, 1000);
}

TEST(Measuring, UnfoldWritesTheSameEventsInEachForm)
{
    const TempFolder folder;
    simulate(folder, {"--rate", "100kcps", "--duration", "0.05s"});
    std::string csv, binary;
    for (const auto &event : events(folder)) {
        csv += fmt::format("{},{},{}\n", event[0], event[1], event[2]);
        const auto time = static_cast<uint64_t>(event[0]) << 15 | static_cast<uint64_t>(event[1]);
        for (int shift = 0; shift < 64; shift += 8) binary += static_cast<char>(time >> shift);
        binary += static_cast<char>(event[2]);
    }
    const Ended text = run(folder, {"unfold", "light.tgx", "-q"});
    EXPECT_EQ(text.Err, "");
    EXPECT_TRUE(text.Out.starts_with("# tessel.unfold/1\n"));
    EXPECT_TRUE(text.Out.ends_with("\nsync,dtime,channel\n" + csv)); // EXPECT_EQ would print all of it
    ASSERT_EQ(run(folder, {"unfold", "light.tgx", "--binary", "-o", "events.bin"}).Code, 0);
    EXPECT_TRUE(contents(folder.file("events.bin")) == binary);
    const boost::json::object side = parsed(contents(folder.file("events.bin.json")));
    EXPECT_EQ(side.at("events").to_number<size_t>() * 9, binary.size());
    EXPECT_EQ(side.at("eventBytes"), 9);
}

TEST(Measuring, UnfoldKeepsWhatItHasOnInterruption)
{
    const TempFolder folder;
    simulate(folder, {"--rate", "100kcps", "--duration", "0.05s"});
    resize(folder, "light.tgx", uint64_t(16) << 30); // zero words: events of channel 1
    const Started started = start(folder, {"unfold", "light.tgx", "--binary", "-o", "events.bin"});
    ASSERT_TRUE(waitFor([&] {
        for (const auto &entry : std::filesystem::directory_iterator(folder.path()))
            if (entry.path().extension() == ".part" && entry.file_size() > 1000000) return true;
        return false;
    }));
    kill(started.Id, SIGINT);
    EXPECT_EQ(started.wait().Code, 130);
    const boost::json::object side = parsed(contents(folder.file("events.bin.json")));
    EXPECT_FALSE(side.at("run").at("complete").as_bool());
    EXPECT_EQ(side.at("events").to_number<uint64_t>() * 9,
              std::filesystem::file_size(folder.file("events.bin")));
}

TEST(Measuring, RefusesWhatItCantMeasure)
{
    const TempFolder folder;
    simulateT2(folder, {"--rate", "1kcps", "--duration", "0.01s"});
    const struct
    {
        Arguments Given;
        const char *Message;
    } cases[] = {
        {{"g2", "light.tgx", "--chan1", "3"}, "--chan1 3: the recording has channels 0 (sync) to 2"},
        {{"g2", "light.tgx", "--bin-width", "1ps"}, "--bin-width: from the recording's resolution, 5 ps"},
        {{"g2", "light.tgx", "--window", "1ns", "--bin-width", "2ns"}, "--window: from 1"},
        {{"g2", "light.tgx", "--window", "1s", "--bin-width", "5ps"}, "--window: from 1"},
        {{"fcs", "light.tgx", "--min-lag", "1ms", "--max-lag", "1ms"}, "--max-lag: above"},
        {{"fcs", "light.tgx", "--min-lag", "1ps"}, "--min-lag: at least"},
        {{"fcs", "light.tgx", "--steps", "0"}, "--steps"},
        {{"trace", "light.tgx", "--history", "10ps", "--bins", "20"}, "--history"},
        {{"hist2d", "light.tgx", "--chan-y", "9"}, "--chan-y 9"},
        {{"hist2d", "light.tgx", "--bins-x", "100000", "--bins-y", "100000"}, "at most"},
        {{"hist2d", "light.tgx", "--slope", "nan"}, "--slope"},
        {{"hist2d", "light.tgx", "--recovery-slope", "inf"}, "--recovery-slope"},
        {{"hist2d", "light.tgx", "--recovery-max", "0.5ps"}, "--recovery-max: whole picoseconds"},
        {{"unfold", "light.tgx", "--binary"}, "--binary needs -o"},
        {{"unfold", "light.tgx", "--binary", "--json", "-o", "x"}, "one form"},
        {{"simulate", "x.tgx", "--mode", "t2", "--light", "diffusing", "--molecules", "0"}, "--molecules"},
        {{"simulate", "x.tgx", "--light", "bunched"}, "--light bunched is for T2"},
    };
    for (const auto &row : cases) {
        const Ended ended = run(folder, row.Given);
        const std::string label = fmt::format("{}", fmt::join(row.Given, " "));
        EXPECT_EQ(ended.Code, 2) << label << "\n" << ended.Err;
        EXPECT_TRUE(contains(ended.Err, row.Message)) << label << "\n" << ended.Err;
        EXPECT_EQ(ended.Out, "") << label;
    }
    for (const char *command : {"g2", "fcs", "trace", "hist2d", "unfold"})
        EXPECT_EQ(run(folder, {command, "missing.tgx"}).Code, 3) << command;
}

TEST(Measuring, DrawsEachKindOfPlot)
{
    if (std::system("command -v gnuplot >/dev/null 2>&1") != 0) GTEST_SKIP() << "no gnuplot";
    const TempFolder folder;
    simulateT2(folder, {"--rate", "100kcps", "--duration", "0.05s"});
    for (const char *command : {"g2", "fcs", "trace", "hist2d", "unfold"}) {
        const Ended drawn = run(folder, {command, "light.tgx", "--plot", "x.png"});
        EXPECT_EQ(drawn.Code, 0) << command << drawn.Err;
        EXPECT_EQ(drawn.Out, "") << command;
        EXPECT_EQ(contents(folder.file("x.png")).substr(0, 4), "\x89PNG") << command;
        std::filesystem::remove(folder.file("x.png"));
    }
}
