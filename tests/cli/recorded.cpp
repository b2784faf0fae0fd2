// Real recordings with known answers, imported as docs/own-data.md says and measured by the program. Without
// their folder (TESSEL_TEST_DATA) skipped.
#include "run_program.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <ranges>

using namespace TestSupport;

namespace {

using Values = std::vector<double>;

// The command of the page that imports what is in the folder, on one line.
std::string importCommand(const std::string &name)
{
    std::string page = contents(TESSEL_DOCS "/own-data.md");
    for (size_t at = 0; (at = page.find(" \\\n", at)) != page.npos;) page.replace(at, 3, " ");
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("tessel import ") && contains(line, name + "/")) return line.substr(7);
    return {};
}

struct Event
{
    uint64_t Time = 0, Channel = 0;
};

class Recorded : public testing::Test
{
protected:
    // Skips the test where the recording isn't at hand.
    void import(const std::string &name)
    {
        const auto data = std::filesystem::path(TESSEL_TEST_DATA) / name;
        if (!exists(data / "reference.json")) GTEST_SKIP() << "the recording is not at hand";
#ifdef __SANITIZE_THREAD__
        GTEST_SKIP() << "takes minutes under the thread sanitizer, which sees the same threads elsewhere";
#endif
        known = boost::json::parse(contents((data / "reference.json").string())).as_object();
        std::filesystem::create_directory_symlink(data, folder.path() / name);
        imported = json(folder, importCommand(name));
    }
    // T2: time and channel; T3: sync and channel.
    std::vector<Event> events(const std::string &file)
    {
        std::vector<Event> all;
        std::istringstream lines(output(folder, "unfold " + file));
        for (std::string line; std::getline(lines, line);)
            if (line[0] >= '0' && line[0] <= '9')
                all.push_back({std::stoull(line), std::stoull(line.substr(line.rfind(',') + 1))});
        return all;
    }
    // Counts, rates, ends, equal times; `unitPs`: of the times that `events` gives, `all` by time.
    void expectEvents(const std::vector<Event> &all, double unitPs)
    {
        EXPECT_EQ(imported.at("events"), known.at("events"));
        EXPECT_EQ(imported.at("rowsBack").to_number<int64_t>(), known.at("order_violations").as_int64());
        ASSERT_EQ(all.size(), known.at("events").to_number<size_t>());
        EXPECT_TRUE(std::ranges::is_sorted(all, {}, &Event::Time));
        const auto equal = [](const Event &a, const Event &b) { return a.Time == b.Time; };
        int64_t neighbours = 0;
        for (size_t i = 1; i < all.size(); ++i) neighbours += equal(all[i - 1], all[i]);
        EXPECT_EQ(neighbours, known.at("equal_neighbours").as_int64());
        const double seconds = static_cast<double>(all.back().Time - all.front().Time) * unitPs * 1e-12;
        EXPECT_NEAR(seconds, known.at("span_seconds").as_double(), 2e-12);
        for (const auto &file : imported.at("files").as_array()) {
            const auto shown = file.at("file").as_string();
            const auto counts = json(folder, "info " + std::string(shown) + " --counts").at("counts");
            EXPECT_EQ(counts.at("stepsBack").to_number<int64_t>(), 0);
            for (const auto &channel : file.at("channels").as_array()) expectCount(channel, counts, seconds);
        }
    }
    void expectCount(const boost::json::value &channel, const boost::json::value &counts, double seconds)
    {
        const auto &events = counts.at("events");
        const auto count = channel.at("input").is_null()
                               ? events.at("sync").to_number<int64_t>()
                               : events.at("inputs").at(channel.at("input").to_number<size_t>() - 1).as_int64();
        const auto number = channel.at("recorded").to_number<size_t>();
        const auto &list = known.at("counts");
        EXPECT_EQ(count, (list.is_array() ? list.at(number) : list.at(std::to_string(number))).as_int64());
        if (list.is_array()) return; // no rates are known
        const double rate = known.at("rates_cps").at(std::to_string(number)).as_double();
        EXPECT_NEAR(static_cast<double>(count) / seconds, rate, 6e-4);
    }
    // Pairs by whole lags in ps, or bins: of a g2, each with the end towards 0.
    std::map<int64_t, double> pairs(const std::string &line)
    {
        const auto result = json(folder, line);
        const Values edges = numbers(result.at("edgesPs")), counts = numbers(result.at("pairs"));
        std::map<int64_t, double> pairs;
        for (size_t i = 0; i < counts.size(); ++i)
            if (counts[i] > 0) pairs[std::llround(edges[i] < 0 ? edges[i + 1] : edges[i])] += counts[i];
        return pairs;
    }
    Values total(const boost::json::object &result)
    {
        Values sums;
        for (const auto &channel : result.at("channels").as_array()) {
            const Values counts = numbers(channel.at("counts"));
            sums.resize(std::max(sums.size(), counts.size()));
            for (size_t i = 0; i < counts.size(); ++i) sums[i] += counts[i];
        }
        return sums;
    }
    // Lags of the reference are in `unitPs`.
    void expectFcs(const std::string &line, const char *curve, const char *name, double unitPs)
    {
        const auto &bins = known.at(name).as_array();
        // A bin of the reference holds its lower end: a picosecond less, and those of the program do.
        const double from = bins.front().at("lag_lo").to_number<double>() * unitPs - 1,
                     to = std::ldexp(from, static_cast<int>(bins.size()));
        for (const std::string way : {"", " --fast"}) {
            const Ended ended =
                run(folder, fmt::format("{} --norm mean --min-lag {} --max-lag {} --steps {} --json{}", line,
                                        from, to, bins.size(), way));
            const Values values = numbers(boost::json::parse(ended.Out).at(curve));
            ASSERT_GE(values.size(), bins.size()) << ended.Err;
            for (size_t k = 0; k < bins.size(); ++k) {
                const double expected = bins[k].at("G").to_number<double>();
                EXPECT_NEAR(values[k] + 1, expected, 0.01 * expected) << line << way << " " << k;
            }
        }
    }

    TempFolder folder;
    boost::json::object known, imported;
};

double between(const std::map<int64_t, double> &pairs, int64_t first, int64_t end)
{
    double sum = 0;
    for (auto at = pairs.lower_bound(first); at != pairs.end() && at->first < end; ++at) sum += at->second;
    return sum;
}

int64_t leastLag(const std::map<int64_t, double> &pairs)
{
    return pairs.upper_bound(0)->first;
}

} // namespace

TEST_F(Recorded, PulsesOfASinglePhotonEmitter)
{
    import("qd-hbt-320mhz");
    if (IsSkipped()) return;
    expectEvents(events("emitter.tgx"), 1);
    const auto decays = json(folder, "histogram emitter.tgx --bin-width 100ps --bins 126");
    for (const int channel : {1, 2})
        EXPECT_EQ(countsOf(decays, static_cast<size_t>(channel)),
                  numbers(known.at(fmt::format("sync_to_{}", channel)).at("bins")));
    EXPECT_EQ(total(json(folder, "trace emitter.tgx --bins 29 --history 290ms")),
              numbers(known.at("trace_10ms_all_channels")));
    const auto cross = pairs("g2 emitter.tgx --chan1 2 --chan2 1 --window 60ns --bin-width 1ps");
    Values bins;
    for (int64_t lag = -60'000; lag < 60'000; lag += 100) bins.push_back(between(cross, lag, lag + 100));
    EXPECT_EQ(bins, numbers(known.at("cross_1_to_2").at("bins")));
    for (const auto &[peak, bounds] : known.at("peaks").at("bounds_ps").as_object())
        EXPECT_EQ(between(cross, bounds.at(0).as_int64(), bounds.at(1).as_int64()),
                  known.at("peaks").at("counts").at(peak).to_number<double>());
    for (const char *channel : {"1", "2"})
        EXPECT_EQ(leastLag(pairs(fmt::format(
                      "g2 emitter.tgx --chan1 {0} --chan2 {0} --window 30ns --bin-width 1ps", channel))),
                  known.at("singles_min_interval_ps").at(channel).as_int64());
}

TEST_F(Recorded, ABlinkingMolecule)
{
    import("single-molecule-blinking");
    if (IsSkipped()) return;
    expectEvents(events("blinking.tgx"), 1);
    const Values trace = countsOf(json(folder, "trace blinking.tgx --bins 334 --history 33.4s"), 1);
    EXPECT_EQ(trace, numbers(known.at("trace_100ms")));
    const Values intervals =
        countsOf(json(folder, "histogram blinking.tgx --ref-chan 1 --bin-width 1ns --bins 1000"), 1);
    EXPECT_EQ(sum(intervals), known.at("intervals_below_1us").to_number<double>());
    EXPECT_EQ(std::ranges::find_if(intervals, [](double n) { return n > 0; }) - intervals.begin(),
              known.at("min_interval_ns").as_int64());
    expectFcs("fcs blinking.tgx --chan1 1 --chan2 1", "auto1", "fcs_auto", 1000);
}

TEST_F(Recorded, DiffusingMolecules)
{
    import("smfret-t3");
    if (IsSkipped()) return;
    expectEvents(events("molecules.tgx"), 13'500);
    const auto decays = json(folder, "histogram molecules.tgx");
    size_t row = 0, least = 32768, most = 0;
    for (const char *detector : {"0", "1", "8", "9"}) {
        const Values counts = countsOf(decays, ++row);
        Values wide(64);
        for (size_t i = 0; i < 4096; ++i) {
            wide[i / 64] += counts[i];
            if (counts[i] > 0) least = std::min(least, i), most = std::max(most, i);
        }
        EXPECT_EQ(wide, numbers(known.at("decay_64ch_bins").at(detector))) << detector;
    }
    EXPECT_EQ(least, known.at("microtime").at("min").to_number<size_t>());
    EXPECT_EQ(most, known.at("microtime").at("max").to_number<size_t>());
    const Values bursts = total(json(folder, "trace molecules.tgx --bins 62400 --history 62399937600000ps"));
    const auto &milliseconds = known.at("trace_74074ticks_1ms");
    const auto largest = std::ranges::max_element(bursts);
    EXPECT_EQ(bursts.size(), milliseconds.at("bins").to_number<size_t>());
    EXPECT_EQ(*largest, milliseconds.at("max").to_number<double>());
    EXPECT_EQ(largest - bursts.begin(), milliseconds.at("argmax").as_int64());
    EXPECT_EQ(std::ranges::count_if(bursts, [](double n) { return n >= 50; }),
              milliseconds.at("ge50").as_int64());
    double squares = 0;
    const double mean = sum(bursts) / static_cast<double>(bursts.size());
    for (const double count : bursts) squares += (count - mean) * (count - mean);
    EXPECT_NEAR(mean, milliseconds.at("mean").as_double(), 5e-5);
    EXPECT_NEAR(squares / static_cast<double>(bursts.size()), milliseconds.at("var").as_double(), 5e-5);
    EXPECT_EQ(total(json(folder, "trace molecules.tgx --bins 63 --history 62999999937000ps")),
              numbers(known.at("trace_74074074ticks_1s")));
    const auto both = json(folder, "hist2d molecules.tgx --chan-x 1 --chan-y 3 --bins-x 1 --bins-y 1 "
                                   "--bin-width-x 13.5ns --bin-width-y 13.5ns");
    EXPECT_EQ(both.at("total"), known.at("zero_lag_pairs_0x8"));
    expectFcs("fcs molecules.tgx --chan1 1 --chan2 3 --later chan2", "cross", "fcs_0x8", 13'500);
    expectFcs("fcs molecules.tgx --chain merge(1,3;keep)|merge(2,4;keep) --chan1 5 --chan2 6 --later chan2",
              "cross", "fcs_green_x_red", 13'500);
}

// Without microtimes lags are whole syncs, and every pair is known.
TEST_F(Recorded, PairsOfDiffusingMoleculesBySync)
{
    import("smfret-t3");
    if (IsSkipped()) return;
    output(folder,
           "import syncs.tgx --times smfret-t3/timestamps.u64 --channels smfret-t3/channels.u8 --map 0,1,8,9 "
           "--sync-period 13.5ns");
    const auto found = pairs("g2 syncs.tgx --chan1 3 --chan2 1 --window 442368ns --bin-width 13.5ns");
    for (const auto &bin : known.at("fcs_0x8").as_array()) {
        const int64_t low = bin.at("lag_lo").as_int64(), high = bin.at("lag_hi").as_int64();
        if (high > 32768) break;
        EXPECT_EQ(between(found, low * 13'500, high * 13'500), bin.at("pairs").to_number<double>()) << low;
    }
}

TEST_F(Recorded, AnArrayOf256Pixels)
{
    import("spad-array-256");
    if (IsSkipped()) return;
    std::vector<Event> all;
    Values cycles(20), phases(2500);
    int64_t fullRows = 0;
    for (const int file : {1, 2, 3, 4}) {
        const std::string name = fmt::format("array-{}.tgx", file);
        const std::vector<Event> here = events(name);
        all.insert(all.end(), here.begin(), here.end());
        const auto trace = json(folder, "trace " + name + " --bins 20 --history 10ms");
        const Values sums = total(trace);
        for (size_t i = 0; i < cycles.size(); ++i) {
            cycles[i] += sums[i];
            for (size_t row = 1; row <= 64; row += 4) { // 4 pixels share the 200 slots of a converter
                double slots = 0;
                for (size_t pixel = row; pixel < row + 4; ++pixel) slots += countsOf(trace, pixel)[i];
                fullRows += slots == 200;
            }
        }
        const Values folded = total(json(folder, "fold " + name + " --period 2.5ns --bins 2500"));
        for (size_t i = 0; i < folded.size(); ++i) phases[(i + here.front().Time) % 2500] += folded[i];
    }
    std::ranges::sort(all, {}, &Event::Time);
    expectEvents(all, 1);
    EXPECT_EQ(cycles, numbers(known.at("events_per_cycle")));
    EXPECT_EQ(fullRows, known.at("full_rows").as_int64());
    Values clock(14); // in bins of 10 of 140 ticks; a phase may be a picosecond off its tick
    for (size_t ps = 0; ps < phases.size(); ++ps) clock[(ps + 9) % 2500 * 14 / 2500] += phases[ps];
    EXPECT_EQ(clock, numbers(known.at("fold_2p5ns").at("bins")));
    const std::string &command = importCommand("spad-array-256");
    double neighbours = 0;
    for (int first = 0; first < 255; first += 63) {
        const int last = std::min(first + 63, 255);
        output(folder, fmt::format("{} --map {}-{} --force", command, first, last));
        for (int input = 1; input <= last - first; ++input)
            for (const auto &[lag, count] : pairs(fmt::format(
                     "g2 array.tgx --chan1 {} --chan2 {} --window 10008 --bin-width 10008", input, input + 1)))
                neighbours += count;
    }
    EXPECT_EQ(neighbours, known.at("neighbour_pairs").at("d").at("1").at("pairs").to_number<double>());
}

TEST_F(Recorded, APulsar)
{
    import("xray-pulsar-b1509");
    if (IsSkipped()) return;
    expectEvents(events("pulsar.tgx"), 1);
    const auto &z2 = known.at("z2_2").as_object();
    const auto found = json(folder, "fold pulsar.tgx --search 6.5940Hz,6.5980Hz,0.000001Hz");
    EXPECT_NEAR(found.at("frequencyHz").to_number<double>(), z2.at("f_hz").as_double(), 1e-9);
    EXPECT_NEAR(found.at("channels").at(1).at("z2").to_number<double>(), z2.at("value").as_double(), 0.005);
    const Values profile = countsOf(json(folder, "fold pulsar.tgx --frequency 6.596096Hz"), 1);
    EXPECT_EQ(profile, numbers(known.at("folded_profile_20_bins").at("bins")));
    EXPECT_EQ(countsOf(json(folder, "trace pulsar.tgx --bins 59 --history 3540s"), 1),
              numbers(known.at("trace_60s")));
    // Bins of a tick, cut to whole ps: after 636000 of them they are 0.2 ticks short.
    constexpr int64_t tick = 953'674, width = 15'900 * tick;
    const auto lags =
        pairs(fmt::format("g2 pulsar.tgx --chan1 1 --chan2 1 --window {} --bin-width {}", 40 * width, tick));
    Values bins;
    for (int64_t lag = 0; lag < 40; ++lag) bins.push_back(between(lags, lag * width, (lag + 1) * width));
    EXPECT_EQ(bins, numbers(known.at("auto_pairs").at("bins")));
}
