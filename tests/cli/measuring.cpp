// What the measuring commands count, on simulated light with known answers. Seeds are fixed, so a run can't
// fail by chance; the bounds are five standard deviations.
#include "run_program.h"
#include "support/tgx_file.h"
#include "support/words.h"

#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <random>

using namespace TestSupport;

namespace {

// Mean of the bins' centres, in bins.
double meanBin(const std::vector<double> &counts)
{
    double moment = 0;
    for (size_t bin = 0; bin < counts.size(); ++bin) moment += counts[bin] * (static_cast<double>(bin) + 0.5);
    return moment / sum(counts);
}

// Time in ps and channel of each event, in turns.
std::vector<double> t2Events(const TempFolder &folder)
{
    return numbers(json(folder, "unfold light.tgx").at("events"));
}

} // namespace

// Mean delay of a decay folded into the period: lifetime - period / (exp(period / lifetime) - 1).
TEST(Histogram, HasTheDecaysThatWereSimulated)
{
    const TempFolder folder;
    simulateDecays(folder);
    const auto result = json(folder, "histogram light.tgx");
    EXPECT_EQ(result.at("bins"), 32768);
    EXPECT_EQ(result.at("binWidthPs"), 25);
    EXPECT_EQ(result.at("channels").as_array().size(), 3u);
    for (const size_t row : {1, 2}) {
        const std::vector<double> counts = countsOf(result, row);
        EXPECT_EQ(result.at("channels").at(row).at("total").to_number<double>(), sum(counts));
        EXPECT_NEAR(sum(counts), 10000, 5 * 100);
        const double lifetime = row == 1 ? 1000 : 3000;
        const double mean = lifetime - 25000 / (std::exp(25000 / lifetime) - 1);
        EXPECT_NEAR(meanBin(counts) * 25, mean, 5 * lifetime / std::sqrt(sum(counts)));
    }
}

// 100000 syncs, each one period after the one before; the one at time 0 isn't a reference.
TEST(Histogram, CountsT2FromAReference)
{
    const TempFolder folder;
    output(folder, "simulate light.tgx --mode t2 --light pulsed --sync-rate 1MHz --rate 200kcps --background 0 "
                   "--irf 0 --delay 50ns --lifetime 10ns --channels 1 --duration 0.1s");
    const auto result = json(folder, "histogram light.tgx --ref-chan 0 --bin-width 1ns --bins 2000");
    EXPECT_EQ(countsOf(result, 0)[1000], 99998);
    const std::vector<double> counts = countsOf(result, 1);
    EXPECT_EQ(sum({counts.begin(), counts.begin() + 50}), 0);
    EXPECT_NEAR(sum(counts), 20000, 5 * 142);
    EXPECT_NEAR(meanBin(counts), 60, 5 * 10 / std::sqrt(sum(counts)));
}

// g2 = 1 + sign exp(-|lag| / time), averaged over a bin. The light itself fluctuates too; that at most doubles
// the variance of the number of pairs.
TEST(Correlation, G2IsThatOfTheLight)
{
    const struct
    {
        const char *Light;
        double Sign, TimePs, Rate, BinPs;
    } cases[] = {
        {"--light bunched --rate 500kcps --correlation-time 1us", 1, 1e6, 5e5, 2e5},
        {"--light antibunched --rate 1Mcps --recovery 20ns", -1, 2e4, 1e6, 5e3},
        {"--light antibunched --rate 6.25Mcps --recovery 20ns", -1, 2e4, 6.25e6, 5e3}, // saturated
        {"--light poisson --rate 2Mcps", 0, 1e6, 2e6, 2e5},
    };
    for (const auto &row : cases) {
        const TempFolder folder;
        simulateT2(folder, fmt::format("{} --duration 0.1s", row.Light));
        const auto result =
            json(folder, fmt::format("g2 light.tgx --bin-width {}ps --window {}ps", row.BinPs, 15 * row.BinPs));
        const std::vector<double> lags = numbers(result.at("lagPs")), values = numbers(result.at("values"));
        ASSERT_EQ(lags.size(), 30u) << row.Light;
        const double perBin = row.Rate * row.Rate * 0.1 * row.BinPs * 1e-12, width = row.BinPs / row.TimePs;
        for (size_t i = 0; i < lags.size(); ++i) {
            EXPECT_EQ(lags[i], (static_cast<double>(i) - 14.5) * row.BinPs);
            const double from = (std::abs(lags[i]) - row.BinPs / 2) / row.TimePs;
            const double expected = 1 + row.Sign * (std::exp(-from) - std::exp(-from - width)) / width;
            EXPECT_NEAR(values[i], expected, 5 * std::sqrt(2 * expected / perBin)) << row.Light << lags[i];
        }
    }
}

TEST(Correlation, PairsAreThoseOfTheEvents)
{
    const TempFolder folder;
    simulateT2(folder, "--rate 200kcps --duration 0.1s");
    std::vector<double> expected(20, 0); // positive lags: channel 1 after channel 2
    const std::vector<double> all = t2Events(folder);
    for (size_t i = 0; i < all.size(); i += 2)
        for (size_t k = i + 2; k < all.size() && all[k] - all[i] < 1e7; k += 2) {
            const auto bin = static_cast<size_t>((all[k] - all[i]) / 1e6);
            if (all[i + 1] == 2 && all[k + 1] == 1) ++expected[10 + bin];
            if (all[i + 1] == 1 && all[k + 1] == 2) ++expected[9 - bin];
        }
    const auto result = json(folder, "g2 light.tgx --window 10us --bin-width 1us --raw-counts");
    EXPECT_EQ(numbers(result.at("values")), expected);
    EXPECT_FALSE(result.at("normalised").as_bool());
}

// Channel 2 has light in the second half of the time only.
TEST(Correlation, G2HasNoStepWhereAChannelStartsLate)
{
    const TempFolder folder;
    std::mt19937 random(3);
    std::vector<uint32_t> words;
    for (uint32_t unit = 1; unit < 20'000'000; unit += 1 + random() % 799)
        words.push_back(t2Event(random() % 2 && unit > 10'000'000 ? 1 : 0, unit));
    TgxFile::t2(2, 1000)
        .tag("TTResult_NumberOfRecords", words.size())
        .records(words)
        .write((folder.path() / "late.tgx").string());
    const std::string line = "g2 late.tgx --bin-width 1us --window 100us";
    for (const bool each : {false, true}) {
        const auto result = json(folder, line + (each ? " --span each" : ""));
        const std::vector<double> values = numbers(result.at("values")), sigma = numbers(result.at("sigma"));
        ASSERT_EQ(values.size(), 200u);
        const double earlier = sum({values.begin(), values.begin() + 100}) / 100,
                     later = sum({values.begin() + 100, values.end()}) / 100;
        EXPECT_NEAR(later, 2.0 / 3, 0.02); // channel 1 has half as many events there
        EXPECT_NEAR(earlier, each ? 1.0 / 3 : 2.0 / 3, 0.02);
        EXPECT_NEAR(sigma[100], values[100] / std::sqrt(result.at("pairs").at(100).to_number<double>()), 1e-9);
    }
    const auto own = json(folder, "g2 late.tgx --chan1 2 --chan2 2 --bin-width 1us --window 100us");
    EXPECT_EQ(own.at("selfPairs"), own.at("n1"));
    EXPECT_NEAR(numbers(own.at("values"))[100], 0.86, 0.1); // the pairs with itself would add 0.8
}

// Two molecules in the focus, diffusion time 50 us, 5000 diffusion times: over ten seeds the amplitude of a
// curve has a standard deviation of 4.5 %, and G(tD) / G(0) one of 3 %.
TEST(Correlation, FcsGivesNumberAndDiffusionTimeOfMolecules)
{
    const TempFolder folder;
    simulateT2(folder, "--light diffusing --molecules 2 --diffusion-time 50us --rate 200kcps --duration 0.25s");
    for (const std::string way : {"", " --fast"}) {
        const auto result = json(folder, "fcs light.tgx --min-lag 1us --max-lag 1ms --steps 20" + way);
        const std::vector<double> lags = numbers(result.at("lagPs"));
        for (const char *curve : {"auto1", "cross", "auto2"}) {
            const std::vector<double> values = numbers(result.at(curve));
            ASSERT_EQ(values.size(), lags.size()) << curve;
            std::vector<double> atStart, atHalf; // G (1 + t / tD) at short lags and about tD
            for (size_t i = 0; i < lags.size(); ++i) {
                const double scaled = values[i] * (1 + lags[i] / 5e7);
                if (lags[i] < 1e7) atStart.push_back(scaled);
                if (lags[i] > 3e7 && lags[i] < 8e7) atHalf.push_back(scaled);
            }
            const double amplitude = sum(atStart) / static_cast<double>(atStart.size());
            EXPECT_NEAR(amplitude, 0.5, 5 * 0.045 * 0.5) << curve << way;
            EXPECT_NEAR(sum(atHalf) / static_cast<double>(atHalf.size()) / amplitude, 1, 5 * 0.03)
                << curve << way;
        }
    }
}

TEST(Trace, CountsTheEventsOfEachBin)
{
    const TempFolder folder;
    simulateT2(folder, "--rate 100kcps,20kcps --duration 0.1s");
    std::vector<std::vector<double>> expected(3, std::vector<double>(10, 0)); // of 10 ms
    const std::vector<double> all = t2Events(folder);
    for (size_t i = 0; i < all.size(); i += 2)
        ++expected[static_cast<size_t>(all[i + 1])][static_cast<size_t>(all[i] / 1e10)];
    for (const int bins : {100, 5, 1}) { // the first reaches back to before the start
        const auto result =
            json(folder, fmt::format("trace light.tgx --history {}ms --bins {}", 10 * bins, bins));
        const int shown = std::min(bins, 10);
        EXPECT_EQ(result.at("firstBin"), 10 - shown);
        EXPECT_EQ(result.at("binWidthPs"), 10000000000);
        for (const size_t row : {1, 2})
            EXPECT_EQ(countsOf(result, row),
                      std::vector<double>(expected[row].end() - shown, expected[row].end()));
    }
}

// Mean times of the pairs are the lifetimes; of two photons of a pulse the later one counts: at most 4 % more.
TEST(Hist2d, KeepsItsAxesApart)
{
    const TempFolder folder;
    output(folder, "simulate light.tgx --rate 5Mcps --lifetime 1ns,3ns --background 0 --irf 0 --delay 0 "
                   "--duration 0.03s");
    const auto result = json(folder, "hist2d light.tgx --bins-x 100 --bins-y 240");
    std::vector<double> x(100, 0), y(240, 0);
    const std::vector<double> counts = numbers(result.at("counts"));
    ASSERT_EQ(counts.size(), 24000u);
    for (size_t i = 0; i < counts.size(); ++i) x[i % 100] += counts[i], y[i / 100] += counts[i];
    EXPECT_EQ(result.at("total").to_number<double>(), sum(counts));
    EXPECT_GT(sum(counts), 1000);
    EXPECT_NEAR(meanBin(x) * 100, 1020, 20 + 5 * 1000 / std::sqrt(sum(counts)));
    EXPECT_NEAR(meanBin(y) * 100, 3060, 60 + 5 * 3000 / std::sqrt(sum(counts)));
    // Each pair comes sooner than an hour after the one before, so all are corrected.
    const auto moved = json(folder, "hist2d light.tgx --bins-x 100 --bins-y 240 --recovery-min 1h "
                                    "--recovery-offset-x 1ns --recovery-offset-y 200ps");
    EXPECT_EQ(moved.at("recovery").at("offsetXPs"), 1000);
    for (size_t row = 0; row < 238; ++row)
        for (size_t column = 0; column < 90; ++column)
            ASSERT_EQ(moved.at("counts").at(row + 2).at(column + 10), result.at("counts").at(row).at(column));
}

// exp(2 pi i k t / period) of a decay is 1 / (1 - 2 pi i k lifetime / period) on average.
TEST(Fold, Z2IsThatOfTheDecay)
{
    const TempFolder folder;
    simulateDecays(folder);
    const auto result = json(folder, "fold light.tgx --search 39.9MHz,40.1MHz,50kHz");
    EXPECT_EQ(result.at("frequencyHz"), 4e7);
    for (const size_t row : {1, 2}) {
        const double omega = 2 * M_PI * (row == 1 ? 1 : 3) / 25, n = sum(countsOf(result, row));
        const double even = 1 / (1 + omega * omega) + 1 / (1 + 4 * omega * omega);
        EXPECT_NEAR(result.at("channels").at(row).at("z2").to_number<double>(), 2 * n * even,
                    0.05 * 2 * n * even);
    }
    const auto other = json(folder, "fold light.tgx --frequency 39.9MHz").at("channels");
    EXPECT_LT(other.at(1).at("z2").to_number<double>(), 50); // 4 on average
}

// A copy of channel 2 that comes 30 ns later counts 30 bins further; both together make the merged channel.
TEST(Chain, StagesMakeWhatIsCounted)
{
    const TempFolder folder;
    simulateT2(folder, "--rate 100kcps --duration 0.2s");
    const std::string line = "histogram light.tgx --ref-chan 1 --bin-width 1ns --bins 200";
    const auto plain = json(folder, line);
    EXPECT_FALSE(plain.contains("chain"));
    const auto result = json(folder, line + " --chain delay(2;30ns;keep)|merge(2,3;keep)|countrate(1ms)");
    EXPECT_EQ(result.at("channels").at(4).at("name"), "Channel 4, merge 2+3");
    const std::vector<double> original = countsOf(result, 2), copy = countsOf(result, 3);
    EXPECT_EQ(original, countsOf(plain, 2));
    EXPECT_GT(sum({copy.begin() + 30, copy.end()}), 100);
    std::vector<double> both = original;
    for (size_t bin = 0; bin < both.size(); ++bin) both[bin] += copy[bin];
    EXPECT_EQ(countsOf(result, 4), both);
    // The rate of the last interval, which is at least 1 ms: 100 events, so within five times their root.
    const std::vector<double> rates = numbers(result.at("chain").at(2).at("rates"));
    ASSERT_EQ(rates.size(), 5u);
    for (const size_t row : {1, 2, 3}) EXPECT_NEAR(rates[row], 1e5, 5e4) << row;
    EXPECT_TRUE(
        contains(output(folder, line + " --chain merge(1;keep)"), "\n# stage 1: merge(1; keep), makes ch3\n"));
}

TEST(Notes, SayWhatTheResultIsToBeDoubtedFor)
{
    const TempFolder folder;
    const auto write = [&](const char *name, TgxFile file, const std::vector<uint32_t> &words) {
        file.tag("TTResult_NumberOfRecords", words.size()).records(words).write(folder.file(name));
    };
    const std::vector<uint32_t> words = {t3Event(0, 1, 10), t3Event(1, 2, 9000), t3Event(1, 3, 20)};
    write("slow.tgx", TgxFile::t3(2, 4, 1.5), words);
    write("fast.tgx", TgxFile::t3(2, 4, 80e6), words);
    write("fine.tgx", TgxFile::t3(2, 25000. / 4096, 80e6), {t3Event(0, 1, 10), t3Event(1, 3, 20)});
    write("t2.tgx", TgxFile::t2(2, 5), {t2Event(0, 9), t2Event(1, 11), t2Event(0, 20)});
    write("dead.tgx",
          TgxFile::t2(2, 1)
              .tag("HWInpChan_TdCode", 0, 0)
              .tag("HWInpChan_TdCode", 50'000, 1)
              .tag("TTResult_InputRate", 30'000'000, 0)
              .tag("TTResult_InputRate", 2'000'000, 1),
          {t2Event(0, 9), t2Event(1, 11)});
    write("tick20.tgx", TgxFile::t2(2, 953674), {t2Event(0, 9), t2Event(1, 11)});
    write("tick.tgx", TgxFile::t2(2, 25000. / 1400), {t2Event(0, 9), t2Event(1, 11)});
    const struct
    {
        const char *Line, *Note; // "": none
    } cases[] = {
        {"histogram slow.tgx",
         "times go by a sync period of 500000000000 ps, the file was made with one of 666666"},
        {"trace fast.tgx", ""},
        {"histogram fast.tgx",
         "1 count later after the sync than the sync period, 12500 ps: lost syncs, another "
         "resolution, or a sync divider; one of 3 would explain them"},
        {"trace dead.tgx",
         "Channel 2: at 2 Mcps a dead time of 50 ns takes 10 % of the time (pile-up); below 1 "
         "Mcps it is at most 5 %"},
        {"trace tick20.tgx --history 10ms --bins 10",
         "1000000000 ps isn't a multiple of the resolution, 953674 ps"},
        {"trace t2.tgx --history 109ps --bins 10",
         "--history: 109 ps isn't a multiple of the bin width, and is cut to 100 ps"},
        {"histogram t2.tgx --ref-chan 1 --bin-width 12ps",
         "12 ps isn't a multiple of the resolution, 5 ps, so bins differ; 10 ps is"},
        {"g2 t2.tgx --bin-width 10ps --window 105ps",
         "105 ps isn't a multiple of the bin width, and is cut to 100 ps"},
        {"g2 t2.tgx --bin-width 10ps --window 100ps", ""},
        {"histogram fine.tgx", ""},
        {"g2 fine.tgx --bin-width 12ps --window 120ps",
         "times go by dtimes of 6 ps, the file was made with dtimes of 6.103515625 ps: they are -1.7 % off"},
        {"histogram fine.tgx --chain merge(1,2)", "times go by dtimes of 6 ps"},
        {"trace tick.tgx", "times go by time tags of 18 ps, the file was made with time tags of 17.857142857"},
        {"hist2d fast.tgx --bin-width-x 6ps --bin-width-y 8ps", "--bin-width-x: 6 ps isn't a multiple"},
    };
    for (const auto &row : cases) {
        const Ended ended = run(folder, std::string(row.Line) + " --json");
        EXPECT_EQ(ended.Code, 0) << row.Line << ended.Err;
        const auto result = boost::json::parse(ended.Out);
        const auto &notes = result.at("notes").as_array();
        ASSERT_EQ(notes.size(), *row.Note ? 1u : 0u) << row.Line << ended.Err;
        for (const auto &note : notes)
            EXPECT_TRUE(contains(std::string(note.as_string()), row.Note)) << ended.Err;
    }
    EXPECT_TRUE(contains(output(folder, "histogram fine.tgx"), "\n61.03515625,0,1,0\n67.138671875,0,0,0\n"));
    EXPECT_EQ(boost::json::serialize(json(folder, "info fine.tgx").at("resolution")),
              R"({"usedPs":6E0,"ofFilePs":6.103515625E0})");
}

// Every hundredth event of channel 2 is written after ten later ones.
TEST(Order, EventsThatGoBackAreTold)
{
    const TempFolder folder;
    std::vector<uint32_t> words;
    for (uint32_t i = 1; i <= 1000; ++i) words.push_back(t2Event(i % 2, 1000 * i));
    for (uint32_t at = 99; at + 10 < words.size(); at += 100)
        std::rotate(words.begin() + at, words.begin() + at + 1, words.begin() + at + 11);
    TgxFile::t2(2, 10)
        .tag("TTResult_NumberOfRecords", words.size())
        .records(words)
        .write((folder.path() / "back.tgx").string());
    const Ended ended = answered(folder, "trace back.tgx --json", 4,
                                 "9 events after a later one, by up to 100 ns: --sort 100000ps");
    const auto result = boost::json::parse(ended.Out);
    EXPECT_EQ(result.at("run").at("stepsBack"), 9);
    EXPECT_EQ(result.at("run").at("largestStepPs"), 100'000);
    const auto sorted = json(folder, "trace back.tgx --sort 100ns --from 1us --to 5us");
    EXPECT_EQ(sorted.at("run").at("unsorted"), 0);
    EXPECT_EQ(sum(countsOf(sorted, 1)) + sum(countsOf(sorted, 2)), 401); // every 10 ns
    EXPECT_TRUE(contains(run(folder, "trace back.tgx --sort 50ns").Err, "--sort must be at least 100 ns"));
}
