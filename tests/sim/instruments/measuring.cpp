// What simulated instruments measure: the same light as records of either mode and as histograms, and what the
// settings make of it. Descriptions are read as fast as asked, with a seed, so nothing depends on time.
#include "loaded.h"

#include <boost/json.hpp>

#include <algorithm>
#include <cmath>
#include <map>

using namespace SimTest;

namespace {

const FamilyLibrary &zpFamily = families[0], &cd = families[1];

const std::string decays = "{'pace':'free','seed':7,'sync':{'periodPs':50000},"
                           "'input':{'rateCps':1e6,'darkCps':1000,'jitterPs':30}}";

std::map<std::pair<uint32_t, uint64_t>, uint64_t> histogram(const std::vector<Word> &words)
{
    std::map<std::pair<uint32_t, uint64_t>, uint64_t> counts;
    for (const Word &word : words)
        if (word.Channel < 64) ++counts[{word.Channel, word.Dtime}];
    return counts;
}

std::vector<Word> ofInputs(std::vector<Word> words)
{
    std::erase_if(words, [](const Word &word) { return word.Channel >= 64; });
    return words;
}

uint64_t countOf(const std::vector<Word> &words, uint32_t channel)
{
    return static_cast<uint64_t>(std::ranges::count(words, channel, &Word::Channel));
}

boost::json::object truthOf(const Loaded &library)
{
    return boost::json::parse(TestSupport::contents(library.folder.file("truth.json"))).as_object();
}

} // namespace

// One source of events: T2 with its syncs, T3 and the histograms of the hardware must tell the same of it.
TEST(SimulatedInstrument, CountsTheSameInAllModes)
{
    for (const FamilyLibrary &family : families) {
        const auto words = [&](int mode) {
            Loaded library(family, decays);
            EXPECT_EQ(library.open(mode), 0);
            return decoded(library.measure(20), mode);
        };
        const std::vector<Word> t2 = words(2), t3 = words(3);
        Loaded library(family, decays);
        ASSERT_EQ(library.open(0), 0) << family.Prefix;
        double base = 0;
        int32_t steps = 0, bins = 0, isOver = 0;
        library("GetBaseResolution", 0, &base, &steps);
        ASSERT_EQ(library("SetHistoLen", 0, 5, &bins), 0);
        ASSERT_EQ(bins, 32768);
        const auto ticksPerSync = static_cast<uint64_t>(50000 / base);

        std::vector<Word> fromT2;
        uint64_t syncs = 0;
        for (const Word &word : t2) {
            if (word.Channel == 64) {
                ASSERT_EQ(word.Time, syncs++ * ticksPerSync);
            }
            if (word.Channel >= 64) continue;
            ASSERT_EQ(word.Time / ticksPerSync, syncs - 1);
            fromT2.push_back({syncs - 1, word.Channel, static_cast<uint32_t>(word.Time % ticksPerSync)});
        }
        EXPECT_EQ(syncs, 400000u) << family.Prefix;
        EXPECT_GT(t3.size(), 79000u);
        std::erase_if(fromT2, [](const Word &word) { return word.Dtime >= 32768; });
        EXPECT_TRUE(fromT2 == t3) << family.Prefix;

        library("StartMeas", 0, 20);
        while (!isOver) library("CTCStatus", 0, &isOver);
        std::vector<uint32_t> counts(4 * 32768);
        if (family.IsAskedForRoom)
            for (int32_t i = 0; i < 4; ++i) library("GetHistogram", 0, counts.data() + i * 32768, i, 0);
        else
            library("GetAllHistograms", 0, counts.data());
        auto expected = histogram(t3);
        for (size_t i = 0; i < counts.size(); ++i)
            ASSERT_EQ(counts[i], (expected[{static_cast<uint32_t>(i / 32768), i % 32768}])) << family.Prefix;
    }
}

// The mean arrival of a decay is delay plus lifetime; five standard deviations of it.
TEST(SimulatedInstrument, ShowsTheLightOfItsDescription)
{
    Loaded library(zpFamily, "{'pace':'free','sync':{'periodPs':50000},'input':{'rateCps':1e6,"
                             "'darkCps':0},'inputs':[{},{'signalPeriodPs':1e6,'rateCps':0}],'channels':4}");
    ASSERT_EQ(library.open(3), 0);
    const std::vector<Word> words = decoded(library.measure(200), 3);
    const double lifetimes[] = {800, 0, 2900, 4100};
    EXPECT_EQ(countOf(words, 1), 200000u);
    for (const uint32_t channel : {0u, 2u, 3u}) {
        double sum = 0;
        const auto count = static_cast<double>(countOf(words, channel));
        for (const Word &word : words)
            if (word.Channel == channel) sum += word.Dtime * 5 + 2.5;
        EXPECT_NEAR(count, 200000, 5 * std::sqrt(200000));
        EXPECT_NEAR(sum / count, 2000 + lifetimes[channel], 5 * lifetimes[channel] / std::sqrt(count));
    }
}

// However often and in however small pieces it is read, the words are the same; so are the records of real
// time.
TEST(SimulatedInstrument, GivesTheSameWordsHoweverItIsRead)
{
    for (const int mode : {2, 3}) {
        const auto words = [&](const std::string &json, int32_t room) {
            Loaded library(cd, json);
            EXPECT_EQ(library.open(mode), 0);
            return library.measure(30, room);
        };
        const std::vector<uint32_t> all = words(decays, 131072);
        EXPECT_TRUE(all == words(decays, 777)) << mode;
        std::string slow = decays;
        slow.replace(slow.find("'free'"), 6, "10");
        EXPECT_TRUE(all == words(slow, 131072)) << mode;
    }
}

// Nothing gets lost without being counted: events by cause, losses by reason, records.
TEST(SimulatedInstrument, AccountsForEachEvent)
{
    struct Case
    {
        const char *Name;
        std::string Input;
        void (*Set)(const Loaded &);
        const char *Loss; // the reason of input 1's losses; null: none
        double Recorded;  // of 1e5 events of input 1
    };
    const Case cases[] = {
        {"all", "", [](const Loaded &) {}, nullptr, 100000},
        {"detector's dead time", "'detectorDeadPs':1e6", [](const Loaded &) {}, "detectorDeadTime", 50000},
        {"dead time", "", [](const Loaded &zp) { zp("SetInputDeadTime", 0, 0, 1, 160000); }, "deadTime", 86207},
        {"level", "", [](const Loaded &zp) { zp("SetInputEdgeTrg", 0, 0, -301, 0); }, "level", 0},
        {"level at the height", "", [](const Loaded &zp) { zp("SetInputEdgeTrg", 0, 0, -300, 0); }, nullptr,
         100000},
        {"other polarity", "", [](const Loaded &zp) { zp("SetInputEdgeTrg", 0, -1, 20, 0); }, "level", 0},
        {"disabled", "", [](const Loaded &zp) { zp("SetInputChannelEnable", 0, 0, 0); }, "disabled", 0},
        {"offset behind the dtimes", "", [](const Loaded &zp) { zp("SetOffset", 0, 100000); }, "outside", 0},
        {"afterpulses", "'afterpulsing':0.1,'detectorDeadPs':1000", [](const Loaded &) {}, nullptr, 111111},
        {"crosstalk", "'crosstalk':0.2", [](const Loaded &) {}, nullptr, 125000},
    };
    for (const Case &row : cases) {
        const std::string more = row.Input.empty() ? "" : "," + row.Input;
        Loaded library(zpFamily, "{}");
        library.describe("{'instruments':[{'pace':'free','channels':2,'truth':'" +
                         library.folder.file("truth.json") +
                         "','sync':{'periodPs':50000},'input':{'rateCps':1e6,'darkCps':0" + more + "}}]}");
        ASSERT_EQ(library.open(3), 0) << row.Name << ": " << library.textOf(-3);
        row.Set(library);
        const std::vector<Word> words = decoded(library.measure(100), 3);
        const boost::json::object truth = truthOf(library);
        const double recorded = static_cast<double>(countOf(words, 0));
        EXPECT_NEAR(recorded, row.Recorded, 5 * std::sqrt(row.Recorded * 1.5) + row.Recorded / 500) << row.Name;
        for (uint32_t channel = 0; channel < 2; ++channel) {
            const auto &input = truth.at("inputs").at(channel);
            int64_t left = input.at("recorded").to_number<int64_t>();
            EXPECT_EQ(left, static_cast<int64_t>(countOf(words, channel))) << row.Name;
            for (const auto &lost : input.at("lost").as_object()) {
                left += lost.value().to_number<int64_t>();
                if (channel > 0) continue;
                const bool isExpected = row.Loss ? lost.key() == row.Loss : lost.key() == "detectorDeadTime";
                EXPECT_TRUE(isExpected || lost.value().to_number<int64_t>() == 0) << row.Name << lost.key();
                EXPECT_TRUE(!isExpected || !row.Loss || lost.value().to_number<int64_t>() > 0) << row.Name;
            }
            for (const auto &made : input.at("events").as_object()) left -= made.value().to_number<int64_t>();
            EXPECT_EQ(left, 0) << row.Name << ", input " << channel;
        }
    }
}

// Offsets and delays move what they should, before and behind each other.
TEST(SimulatedInstrument, MovesByOffsets)
{
    const std::string periodic = "{'pace':'free','channels':2,'sync':{'periodPs':100000},"
                                 "'input':{'rateCps':0,'darkCps':0,'signalPeriodPs':1e6},"
                                 "'inputs':[{'signalPhasePs':150000},{'signalPhasePs':30000,'delayPs':500}]}";
    struct Case
    {
        void (*Set)(const Loaded &);
        uint32_t Dtimes[2]; // ps
    };
    const Case cases[] = {
        {[](const Loaded &) {}, {50000, 30500}},
        {[](const Loaded &zp) { zp("SetInputChannelOffset", 0, 0, -90000); }, {60000, 30500}},
        {[](const Loaded &zp) { zp("SetInputChannelOffset", 0, -1, 1000); }, {51000, 31500}},
        {[](const Loaded &zp) { zp("SetSyncChannelOffset", 0, 20000); }, {30000, 10500}},
        {[](const Loaded &zp) { zp("SetSyncChannelOffset", 0, -99995); }, {49995, 30495}},
        {[](const Loaded &zp) { zp("SetInputEdgeTrg", 0, 1, -20, 1); }, {50000, 31500}}, // the trailing edge
        {[](const Loaded &zp) { zp("SetOffset", 0, 30000); }, {20000, 500}},
        {[](const Loaded &zp) { zp("SetSyncDeadTime", 0, 1, 150000); }, {150000, 30500}}, // every second sync
    };
    for (const Case &row : cases) {
        Loaded library(zpFamily, periodic);
        ASSERT_EQ(library.open(3), 0);
        row.Set(library);
        const std::vector<Word> words = decoded(library.measure(1), 3);
        ASSERT_GE(words.size(), 1990u) << "row " << &row - cases;
        for (const Word &word : words)
            ASSERT_EQ(word.Dtime * 5, row.Dtimes[word.Channel]) << "row " << &row - cases;
    }
}

// Markers of 1 ms and of 2 ms, which are low for a quarter of the time behind the pulse.
TEST(SimulatedInstrument, SendsMarkers)
{
    struct Case
    {
        void (*Set)(const Loaded &);
        std::vector<Word> First; // T2, in us
    };
    const Case cases[] = {
        {[](const Loaded &) {}, {{500, 131}, {1500, 129}, {2500, 131}}},
        {[](const Loaded &cd) { cd("SetMarkerEdges", 0, 0, 1, 0, 0); }, {{500, 130}, {750, 129}, {1750, 129}}},
        {[](const Loaded &cd) { cd("SetMarkerEnable", 0, 0, 1, 1, 1); },
         {{500, 130}, {2500, 130}, {4500, 130}}},
        {[](const Loaded &cd) { cd("SetMarkerHoldoffTime", 0, 524296); },
         {{500, 131}, {1500, 129}, {2500, 131}}},
    };
    for (const Case &row : cases) {
        Loaded library(cd,
                       "{'pace':'free','sync':{'present':false},'input':{'rateCps':0,'darkCps':0},'markers':"
                       "[{'periodPs':1e9,'phasePs':5e8,'widthPs':2.5e8},{'periodPs':2e9,'phasePs':5e8}]}");
        ASSERT_EQ(library.open(2), 0) << library.textOf(-3);
        row.Set(library);
        std::vector<Word> words = decoded(library.measure(10), 2);
        ASSERT_GE(words.size(), 3u);
        words.resize(3);
        for (Word &word : words) word.Time /= 1000000; // the base resolution is 1 ps
        EXPECT_TRUE(words == row.First) << "row " << &row - cases;
    }
}

// The filter of the hardware against a plain one on the unfiltered events of the same seed.
TEST(SimulatedInstrument, FiltersEvents)
{
    const std::string light =
        "{'pace':'free','channels':12,'seed':3,'baseResolutionPs':1,'light':{'kind':'poissonian'},"
        "'sync':{'present':false},'input':{'rateCps':2e6,'darkCps':0}}";
    struct Case
    {
        void (*Set)(const Loaded &);
        uint64_t Use, Pass; // of the one filter that is on
        uint64_t Range;     // ps
        int Match;
        bool IsInverse;
        uint64_t Touched; // channels that it decides on
    };
    const Case cases[] = {
        {[](const Loaded &l) {
             l("SetRowEventFilter", 0, 0, 100000, 1, 0, 0x0f, 0x10);
             l("EnableRowEventFilter", 0, 0, 1);
         },
         0x0f, 0x10, 100000, 1, false, 0xff},
        {[](const Loaded &l) {
             l("SetRowEventFilter", 0, 1, 160000, 2, 1, 0x0f, 0);
             l("EnableRowEventFilter", 0, 1, 1);
         },
         0xf00, 0, 160000, 2, true, 0xff00},
        {[](const Loaded &l) {
             l("SetMainEventFilterParams", 0, 50000, 1, 0);
             l("SetMainEventFilterChannels", 0, 0, 0x03, 0x80);
             l("SetMainEventFilterChannels", 0, 1, 0x08, 0);
             l("EnableMainEventFilter", 0, 1);
         },
         0x803, 0x80, 50000, 1, false, UINT64_MAX},
    };
    const auto measured = [&](void (*set)(const Loaded &)) {
        Loaded library(zpFamily, light);
        EXPECT_EQ(library.open(2), 0);
        set(library);
        return ofInputs(decoded(library.measure(5), 2));
    };
    const std::vector<Word> all = measured([](const Loaded &) {});
    ASSERT_GT(all.size(), 100000u);
    for (const Case &row : cases) {
        std::vector<Word> expected;
        const auto isIn = [](uint64_t mask, const Word &word) { return (mask >> word.Channel & 1) != 0; };
        for (size_t i = 0; i < all.size(); ++i) {
            int matches = 0;
            for (size_t j = i; j > 0 && all[i].Time - all[j - 1].Time <= row.Range; --j)
                matches += isIn(row.Use, all[j - 1]);
            for (size_t j = i + 1; j < all.size() && all[j].Time - all[i].Time <= row.Range; ++j)
                matches += isIn(row.Use, all[j]);
            const bool used = isIn(row.Use, all[i]) && (matches >= row.Match) != row.IsInverse;
            if (!isIn(row.Touched, all[i]) || isIn(row.Pass, all[i]) || used) expected.push_back(all[i]);
        }
        std::vector<Word> found = measured(row.Set);
        EXPECT_LT(found.size(), all.size() * 9 / 10);
        // What comes right after the end decides on the last events too.
        const auto isLast = [&](const Word &word) { return word.Time + row.Range > all.back().Time; };
        std::erase_if(found, isLast);
        std::erase_if(expected, isLast);
        EXPECT_TRUE(found == expected) << "row " << &row - cases;
    }
}
