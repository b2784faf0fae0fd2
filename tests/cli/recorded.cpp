// The measuring commands on real recordings with known answers, where these are at hand.
#include "run_program.h"
#include "support/recorded_data.h"
#include "support/tgx_file.h"

#include <fmt/format.h>

#include <cmath>

using namespace TestSupport;

namespace {

// Lags of the reference are in `unitPs`; the pairs of `curve` are those of its bins.
void expectFcs(const TempFolder &folder, const std::string &line, const std::string &curve,
               const boost::json::value &reference, double unitPs)
{
    const auto &known = reference.as_array();
    // A bin of the reference holds its lower end: a picosecond less, and those of the program do.
    const double from = known.front().at("lag_lo").to_number<double>() * unitPs - 1,
                 to = std::ldexp(from, static_cast<int>(known.size()));
    for (const std::string way : {"", " --fast"}) {
        const Ended ended =
            run(folder, fmt::format("{} --norm mean --min-lag {} --max-lag {} --steps {} --json{}", line, from,
                                    to, known.size(), way));
        const boost::json::value result = boost::json::parse(ended.Out);
        const std::vector<double> values = numbers(result.at(curve));
        ASSERT_GE(values.size(), known.size());
        for (size_t k = 0; k < known.size(); ++k) {
            const double expected = known[k].at("G").to_number<double>();
            EXPECT_NEAR(values[k] + 1, expected, 0.01 * expected) << line << way << " " << k;
        }
    }
}

} // namespace

TEST(Recorded, FcsIsThatOfTheReference)
{
    const TempFolder folder;
    const auto blinking = recordedData("single-molecule-blinking"), molecules = recordedData("smfret-t3");
    if (!blinking || !molecules) GTEST_SKIP() << "the recordings are not at hand";
    const auto path = [&](const char *name) { return (folder.path() / name).string(); };
    TgxFile::t2(1, 1000)
        .records(t2Words(
            *blinking, [](uint8_t) { return 0; }, [](uint64_t ns) { return ns; }))
        .write(path("blinking.tgx"));
    expectFcs(folder, "fcs blinking.tgx --chan1 1 --chan2 1", "auto1", blinking->reference.at("fcs_auto"), 1e3);

    RecordedData syncs = *molecules; // the reference goes by sync numbers alone
    syncs.microtimes.assign(syncs.times.size(), 0);
    TgxFile::t3(4, 4.0, 1 / 13.5e-9)
        .records(t3Words(syncs, [](uint8_t channel) { return channel < 2 ? channel : channel - 6; }))
        .write(path("molecules.tgx"));
    expectFcs(folder, "fcs molecules.tgx --chan1 1 --chan2 3 --later chan2", "cross",
              molecules->reference.at("fcs_0x8"), 13'500);
    expectFcs(folder,
              "fcs molecules.tgx --chain merge(1,3;keep)|merge(2,4;keep) --chan1 5 --chan2 6 --later chan2",
              "cross", molecules->reference.at("fcs_green_x_red"), 13'500);
}

TEST(Recorded, FoldFindsThePulsar)
{
    const TempFolder folder;
    const auto pulsar = recordedData("xray-pulsar-b1509");
    if (!pulsar) GTEST_SKIP() << "the recording is not at hand";
    const auto toNs = [](uint64_t ticks) { // of 2^-20 s; no event at 0
        return static_cast<uint64_t>(std::llround(static_cast<double>(ticks) * 953.67431640625)) + 1;
    };
    const auto words = t2Words(
        *pulsar, [](uint8_t) { return 0; }, toNs);
    TgxFile::t2(1, 1000)
        .tag("TTResult_NumberOfRecords", words.size())
        .records(words)
        .write((folder.path() / "pulsar.tgx").string());
    const auto &z2 = pulsar->reference.at("z2_2").as_object();
    const auto found = json(folder, "fold pulsar.tgx --search 6.5955Hz,6.5965Hz,0.000002Hz");
    EXPECT_NEAR(found.at("frequencyHz").to_number<double>(), z2.at("f_hz").to_number<double>(), 1e-9);
    EXPECT_NEAR(found.at("channels").at(1).at("z2").to_number<double>(), z2.at("value").to_number<double>(),
                0.05);
    const std::vector<double> known = numbers(pulsar->reference.at("folded_profile_20_bins").at("bins")),
                              counts = countsOf(json(folder, "fold pulsar.tgx --frequency 6.596096Hz"), 1);
    ASSERT_EQ(counts.size(), known.size());
    for (size_t bin = 0; bin < known.size(); ++bin) EXPECT_NEAR(counts[bin], known[bin], 2) << bin;
    const auto info = json(folder, "info pulsar.tgx --counts");
    EXPECT_EQ(info.at("counts").at("events").at("inputs").at(0), pulsar->reference.at("events"));
    EXPECT_NEAR(info.at("counts").at("durationMs").to_number<double>(), 3509753.144, 0.001);
    EXPECT_FALSE(info.at("ofInstrument").as_bool());
}
