// Whole replays through random chains of stages, through tessel.h, against the plain form of each stage. A file
// of one chunk reaches every stage as one batch, so that what a coincidence makes of it is settled.
#include "plain/stages.h"
#include "support/host.h"
#include "support/measured_events.h"
#include "support/random_words.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

using namespace Plain;
using namespace TestSupport;

namespace {

constexpr int channels = 4;
constexpr double resolution = 5;
constexpr double syncRate = 80e6;
constexpr uint64_t bins = 4000, binWidth = 50'000;

class RandomChain
{
public:
    RandomChain(uint32_t seed, bool isT3)
        : random(seed), form{isT3, isT3 ? uint64_t(std::llround(1e12 / syncRate)) : 1, resolution}
    {
        words = randomWords({.count = 20'000 + random() % 20'000,
                             .t3 = isT3,
                             .overflowShare = isT3 ? 0.05 : 0.0005,
                             .channels = channels,
                             .seed = seed});
        stream = {isT3 ? decodeT3(words, channels) : decodeT2(words, channels, uint64_t(resolution))};
    }

    // Adds a stage to the library's chain and passes the reference's stream through its plain form.
    void addStage()
    {
        switch (random() % 6) {
        case 0: return merge();
        case 1: return coincidence();
        case 2: return delay();
        case 3: return herald();
        case 4: return subStream();
        default: return countRate();
        }
    }

    // Channels that the library must have numbered so far, the sync included.
    size_t rows() const { return static_cast<size_t>(nextChannel); }

    Events events() const
    {
        Events all;
        for (const Events &piece : stream) all.insert(all.end(), piece.begin(), piece.end());
        return all;
    }

    std::vector<uint32_t> words;
    struct Rates
    {
        int32_t index;
        std::vector<float> rates;
    };
    std::vector<Rates> rates; // of each count rate

private:
    uint8_t channel() { return static_cast<uint8_t>(random() % static_cast<uint32_t>(nextChannel)); }
    std::vector<int32_t> channelList(size_t most)
    {
        std::vector<int32_t> list(random() % (most + 1));
        for (int32_t &one : list) one = channel();
        return list;
    }
    static std::vector<uint8_t> bytes(const std::vector<int32_t> &list) { return {list.begin(), list.end()}; }
    uint64_t length()
    {
        const uint64_t lengths[] = {0, 1000, 20'000, 400'000};
        return lengths[random() % 4];
    }

    void pass(ReferenceStage stage)
    {
        std::vector<Events> out;
        for (size_t i = 0; i < stream.size(); ++i) {
            Events piece = passPiece(stage, form, stream[i], false);
            if (!piece.empty()) out.push_back(std::move(piece));
        }
        Events atEnd = passPiece(stage, form, {}, true);
        if (!atEnd.empty()) out.push_back(std::move(atEnd));
        if (const auto *counted = std::get_if<ReferenceCountRate>(&stage))
            rates.push_back({stages, counted->rates});
        stream = std::move(out);
        ++stages;
    }

    void merge()
    {
        const auto members = channelList(3);
        const bool keep = random() % 4 > 0;
        const auto output = static_cast<uint8_t>(nextChannel++);
        EXPECT_EQ(addMMerge(nullptr, members.data(), int32_t(members.size()), keep), output);
        pass(ReferenceMerge{bytes(members), output, keep});
    }

    // What comes at the end of a run may reach the next stage in one piece with what came before, or not: no
    // stage whose result depends on pieces may stand behind one that has something left for the end.
    void coincidence()
    {
        const auto members = channelList(3);
        const uint64_t window = length();
        const uint32_t coincMode = random() % 3;
        const uint32_t timeMode = random() % 3;
        const bool keep = random() % 4 > 0;
        if (leavesForTheEnd) return merge();
        leavesForTheEnd = timeMode == 0 && keep;
        const auto output = static_cast<uint8_t>(nextChannel++);
        EXPECT_EQ(addMCoincidence(nullptr, members.data(), int32_t(members.size()), double(window), coincMode,
                                  timeMode, keep),
                  output);
        pass(ReferenceCoincidence{bytes(members), output, window, coincMode, timeMode, keep});
    }

    void delay()
    {
        const uint8_t input = channel();
        const uint64_t ps = length();
        const bool keep = random() % 2;
        const auto output = static_cast<uint8_t>(nextChannel++);
        EXPECT_EQ(addMDelay(u"ignored", input, double(ps), keep), output);
        pass(ReferenceDelay{input, output, ps, keep});
    }

    void herald()
    {
        const uint8_t herald = channel();
        const auto gated = channelList(3);
        const uint64_t ps = length(), window = length();
        const bool inverted = random() % 2, keep = random() % 2;
        std::vector<uint8_t> outputs = bytes(gated);
        if (keep)
            for (uint8_t &output : outputs) output = static_cast<uint8_t>(nextChannel++);
        const int32_t first = addMHerald(nullptr, herald, gated.data(), int32_t(gated.size()), int32_t(ps),
                                         int32_t(window), inverted, keep);
        if (!gated.empty()) {
            EXPECT_EQ(first, outputs[0]);
        }
        pass(ReferenceHerald{herald, bytes(gated), outputs, ps, window, inverted, keep});
    }

    void subStream()
    {
        uint64_t from = 0, to = ~uint64_t{0};
        if (!stream.empty() && !stream[0].empty()) {
            from = form.ps(stream[0][random() % (stream[0].size() / 3 + 1)].time);
            to = form.ps(stream[0][stream[0].size() - 1 - random() % (stream[0].size() / 3 + 1)].time);
        }
        addMSubStream(nullptr, from, to);
        pass(ReferenceSubStream{from, to});
    }

    void countRate()
    {
        if (leavesForTheEnd) return merge();
        const uint64_t window = 1000;
        EXPECT_EQ(addMCountRate(nullptr, double(window)), stages);
        ReferenceCountRate plain{window, rows()};
        plain.rates.assign(rows(), 0);
        pass(std::move(plain));
    }

    std::mt19937 random;
    StreamForm form;
    std::vector<Events> stream; // in pieces
    int32_t nextChannel = channels + 1;
    int32_t stages = 0;
    bool leavesForTheEnd = false;
};

void expectRates(const RandomChain &chain)
{
    for (const auto &counted : chain.rates) {
        std::vector<uint32_t> rates(chain.rows(), 77);
        EXPECT_TRUE(getMCountRates(nullptr, counted.index, rates.data()));
        for (size_t row = 0; row < rates.size(); ++row) {
            const double expected = row < counted.rates.size() ? counted.rates[row] : 0;
            EXPECT_EQ(rates[row], uint32_t(std::min(expected, 4294967295.0))) << "row " << row;
        }
    }
}

class Chains : public testing::TestWithParam<uint32_t>
{
};

} // namespace

TEST_P(Chains, GiveWhatThePlainFormsGive)
{
    const bool t3 = GetParam() % 2;
    RandomChain chain(GetParam(), t3);
    Host host;
    auto file = t3 ? TgxFile::t3(channels, resolution, syncRate) : TgxFile::t2(channels, resolution);
    ASSERT_FALSE(host.open(file.tag("HW_SerialNo", "1").records(chain.words).write(host.folder().file("a.tgx")))
                     .empty());
    const uint32_t stages = 1 + GetParam() / 2 % 8;
    for (uint32_t i = 0; i < stages; ++i) chain.addStage();
    ASSERT_EQ(getNumAllChans(nullptr), int64_t(chain.rows()));
    const Events expected = chain.events();

    if (!t3) {
        setHistoT2NumBins(nullptr, bins);
        setHistoT2BinWidth(nullptr, binWidth);
        setHistoT2RefChan(nullptr, 2);
    }
    Counts counts(chain.rows(), t3 ? 32768 : bins);
    Finished finished;
    EXPECT_TRUE(getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get()));
    EXPECT_TRUE(counts.data == (t3 ? histogramT3(expected, chain.rows())
                                   : histogramT2(expected, chain.rows(), bins, binWidth, 2)));
    expectRates(chain);
    expectSameEvents(measuredEvents(expected.size() + 1000), expected); // the chain stays for the next run
    EXPECT_EQ(host.logged("overrun"), 0u);
    EXPECT_EQ(host.logged("Could not"), 0u);
}

INSTANTIATE_TEST_SUITE_P(Random, Chains, testing::Range(0u, 32u));

namespace {

std::string chainTypes()
{
    std::array<char, 65535> buffer{};
    getManisConfig(buffer.data());
    const auto config = boost::json::parse(buffer.data());
    std::string types;
    for (const auto &stage : config.at("ManisCfg").as_array())
        types += std::string(stage.at("Type").as_string()) + ' ';
    return types;
}

} // namespace

// The record of an ended stage stays, with its channel; a chain is cleared as a whole, and can be built anew.
TEST(ChainCalls, DeletingKeepsTheRecordAndClearingAllBeginsAnew)
{
    Host host;
    const RandomChain source(5, false);
    ASSERT_FALSE(host.open(TgxFile::t2(channels, resolution), source.words).empty());
    EXPECT_EQ(addMDelay(nullptr, 1, 100, 1), channels + 1);
    EXPECT_EQ(addMDelay(nullptr, 2, 100, 1), channels + 2);
    for (uint32_t index : {2u, ~0u, 0u}) deleteMani(nullptr, index); // the first two are none
    EXPECT_EQ(getNumAllChans(nullptr), channels + 2);
    EXPECT_EQ(chainTypes(), "Delay Delay ");
    // The number of channels is right again with the next stage.
    EXPECT_EQ(addMDelay(nullptr, 3, 100, 1), channels + 3);
    EXPECT_EQ(getNumAllChans(nullptr), channels + 4);

    clearManis(nullptr);
    EXPECT_EQ(chainTypes(), "");
    // Null and negative lists are empty: these stages make channels without events.
    const int32_t members[] = {1, 2};
    EXPECT_EQ(addMCoincidence(nullptr, nullptr, 3, 1000, 0, 1, 1), channels + 1);
    EXPECT_EQ(addMMerge(nullptr, members, -5, 1), channels + 2);
    EXPECT_EQ(addMHerald(nullptr, 1, nullptr, 2, 0, 1000, 0, 1), channels + 3);
    EXPECT_EQ(addMMerge(nullptr, members, 2, 1), channels + 3);
    EXPECT_EQ(chainTypes(), "Coincidence Merge Herald Merge ");
    const Events expected = merge(source.events(), {1, 2}, channels + 3, true);
    expectSameEvents(measuredEvents(expected.size()), expected);
}
