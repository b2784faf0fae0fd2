// What the libraries refuse, what instruments the description makes, and the script of its faults.
#include "loaded.h"
#include "support/host.h"

#include <boost/json.hpp>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

using namespace SimTest;

namespace {

const FamilyLibrary &zp = families[0];

} // namespace

TEST(SimulatedLibrary, FindsTheInstrumentsOfItsDescription)
{
    for (const FamilyLibrary &family : families) {
        Loaded library(family);
        const int32_t ports = family.Prefix == "SV40" ? 4 : 8;
        library.describe("{'instruments':[{'family':'" + family.Prefix +
                         "','number':" + std::to_string(ports - 1) + ",'serial':'A7'},{'family':'" +
                         family.Prefix + "','busy':true}]}");
        char serial[64];
        for (int32_t port = 0; port < ports - 1; ++port) {
            ASSERT_EQ(library("OpenDevice", port, serial), 0);
            EXPECT_EQ(serial, port == 0 ? "A7" : "A7-" + std::to_string(port + 1));
            EXPECT_EQ(library("CloseDevice", port), 0);
        }
        EXPECT_EQ(library("OpenDevice", ports - 1, serial), -2);
        EXPECT_EQ(library("OpenDevice", ports, serial), -1);
        EXPECT_EQ(library("OpenDevice", -1, serial), -1);
        library.describe("{'instruments':[]}");
        EXPECT_EQ(library("OpenDevice", 0, serial), -1);
    }
}

TEST(SimulatedLibrary, SaysWhereItsDescriptionIsWrong)
{
    const std::pair<const char *, const char *> rows[] = {
        {"{'instruments':\n  [{'family' 'ZP'}]}", "line 2:14: "},
        {"{'instruments':[]} x", "line 1:20: more than one value"},
        {"[]", "file: isn't an object"},
        {"{'instrument':[]}", "instrument: is no key that is known here"},
        {"{'instruments':[{},{'family':'XX'}]}",
         "instruments[1].family: isn't one of ZP, CD, SV40, LM70, CD90"},
        {"{'instruments':[{'port':8}]}", "instruments[0].port: isn't between 0 and 7"},
        {"{'instruments':[{},{'port':0}]}", "instruments[1].port: is taken"},
        {"{'instruments':[{'seed':1.5}]}", "instruments[0].seed: isn't a whole number"},
        {"{'instruments':[{'pace':'fast'}]}", "instruments[0].pace: isn't a number"},
        {"{'instruments':[{'sync':{'periodPs':10}}]}", "instruments[0].sync.periodPs: isn't between 1000 and"},
        {"{'instruments':[{'light':{'kind':'laser'}}]}",
         "instruments[0].light.kind: isn't one of pulsed, poisson"},
        {"{'instruments':[{'channels':1,'inputs':[{},{}]}]}",
         "instruments[0].inputs[1]: is more than there are"},
        {"{'instruments':[{'input':{'colour':1}}]}",
         "instruments[0].input.colour: is no key that is known here"},
        {"{'instruments':[{'light':{'kind':'antibunched','recoveryPs':1e7}}]}",
         "instruments[0].light.recoveryPs"},
        {"{'instruments':[{'features':['Laser']}]}", "instruments[0].features[0]: is no feature"},
        {"{'instruments':[{'faults':[{'op':'Fly','code':-1}]}]}",
         "instruments[0].faults[0].op: is no operation"},
        {"{'instruments':[{'faults':[{'op':'*'}]}]}", "instruments[0].faults[0]: needs one of code, hangMs"},
    };
    for (const auto &[json, text] : rows) {
        Loaded library(zp);
        library.describe(json);
        char serial[64];
        std::vector<char> whole(65536);
        const int32_t code = library("OpenDevice", 0, serial);
        EXPECT_EQ(code, -3) << json;
        library("GetDebugInfo", 0, whole.data());
        EXPECT_EQ(std::string(whole.data()).substr(0, strlen(text)), text);
        EXPECT_EQ(library.textOf(code), std::string(whole.data()).substr(0, 63)); // all that there is room for
    }
}

TEST(SimulatedLibrary, RefusesWhatAnInstrumentCouldNotDo)
{
    Loaded library(zp, "{'features':['TTTR'],'channels':2}");
    int32_t number = 0;
    EXPECT_EQ(library("SetSyncDiv", 0, 1), -1); // nothing was opened, so nothing is there
    char serial[64];
    ASSERT_EQ(library("OpenDevice", 0, serial), 0);
    EXPECT_EQ(library("SetSyncDiv", 0, 1), -5);
    EXPECT_EQ(library("Initialize", 0, 1, 0), -6);
    ASSERT_EQ(library("Initialize", 0, 2, 0), 0);
    const std::pair<int32_t, int32_t> rows[] = {
        {library("SetSyncDiv", 0, 17), -6},
        {library("SetSyncDiv", 1, 1), -1},
        {library("SetInputEdgeTrg", 0, 0, 1201, 0), -6},
        {library("SetInputEdgeTrg", 0, 2, 0, 0), -6},
        {library("SetInputEdgeTrg", 0, -2, 0, 0), -6},
        {library("SetInputDeadTime", 0, 0, 1, 800), -7},
        {library("SetMarkerEdges", 0, 0, 0, 0, 0), -7},
        {library("EnableMainEventFilter", 0, 1), -7},
        {library("SetBinning", 0, 1), -8}, // T2
        {library("SetHistoLen", 0, 1, &number), -8},
        {library("ClearHistMem", 0), -8},
        {library("GetNumOfInputChannels", 0, static_cast<int32_t *>(nullptr)), -10},
        {library("StartMeas", 0, 0), -6},
        {library("StartMeas", 0, 360000001), -6},
        {library("GetStartTime", 0, &number, &number, &number), -9},
    };
    for (const auto &[code, expected] : rows)
        EXPECT_EQ(code, expected) << "row " << &expected - &rows[0].second;
}

TEST(SimulatedLibrary, TimerAndControlEndAMeasurement)
{
    const std::string json =
        "{'pace':'free','control':{'delayPs':2e9,'lengthPs':3e9},'input':{'rateCps':0,'darkCps':0,"
        "'signalPeriodPs':1e6}}";
    const struct
    {
        int32_t Control;
        double Ms;
        size_t Records; // of four inputs with 1000 events a millisecond
    } rows[] = {{0, 10, 40000}, {1, 10, 12000}, {2, 10, 40000}, {3, 3, 12000}};
    for (const auto &row : rows) {
        Loaded library(zp, json);
        ASSERT_EQ(library.open(3), 0);
        ASSERT_EQ(library("SetMeasControl", 0, row.Control, 1, 0), 0);
        EXPECT_EQ(decoded(library.measure(10), 3).size(), row.Records) << row.Control;
        double ms = 0;
        library("GetElapsedMeasTime", 0, &ms);
        EXPECT_DOUBLE_EQ(ms, row.Ms) << row.Control;
    }
    Loaded library(zp, json);
    ASSERT_EQ(library.open(3), 0);
    ASSERT_EQ(library("SetMeasControl", 0, 6, 1, 0), 0); // the software stops it, whatever the timer says
    std::vector<uint32_t> words;
    int32_t isOver = 1;
    EXPECT_EQ(library("StartMeas", 0, 1), 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(library.read(words), 0);
    EXPECT_EQ(library("CTCStatus", 0, &isOver), 0);
    EXPECT_EQ(isOver, 0);
    EXPECT_EQ(library("StopMeas", 0), 0);
    EXPECT_EQ(library("CTCStatus", 0, &isOver), 0);
    EXPECT_EQ(isOver, 1);
}

// A thousand times as fast as the time, and nobody reads.
TEST(SimulatedLibrary, FifoOverflowsWhenNobodyReads)
{
    Loaded library(zp);
    const std::string truth = library.folder.file("truth.json");
    library.describe("{'instruments':[{'pace':1000,'fifoRecords':5000,'truth':'" + truth + "'}]}");
    ASSERT_EQ(library.open(3), 0);
    ASSERT_EQ(library("StartMeas", 0, 1000), 0);
    int32_t flags = 0, isOver = 0;
    ASSERT_TRUE(TestSupport::eventually([&] { return library("CTCStatus", 0, &isOver) == 0 && isOver; }));
    EXPECT_EQ(library("GetFlags", 0, &flags), 0);
    EXPECT_EQ(flags, 2);
    std::vector<uint32_t> words;
    EXPECT_EQ(library.read(words), 0);
    EXPECT_EQ(words.size(), 5000u);
    EXPECT_EQ(library("StopMeas", 0), 0);
    const boost::json::value told = boost::json::parse(TestSupport::contents(truth));
    const std::vector<Word> records = decoded(words, 3);
    int64_t recorded = 0, lost = 0, made = 0;
    for (const auto &input : told.at("inputs").as_array()) {
        recorded += input.at("recorded").to_number<int64_t>();
        EXPECT_GT(input.at("lost").at("fifo").to_number<int64_t>(), 90000);
        for (const auto &reason : input.at("lost").as_object()) lost += reason.value().to_number<int64_t>();
        made += input.at("events").at("signal").to_number<int64_t>() +
                input.at("events").at("dark").to_number<int64_t>();
    }
    EXPECT_EQ(recorded, static_cast<int64_t>(records.size()));
    EXPECT_EQ(recorded + lost, made);
    EXPECT_NEAR(static_cast<double>(made), 400400, 5 * std::sqrt(400400));
    EXPECT_EQ(told.at("words").at("read").to_number<int64_t>(), 5000);
}

TEST(SimulatedLibrary, FaultsHappenAsScripted)
{
    Loaded library(zp, "{'pace':'free','faults':[{'op':'GetSyncRate','call':2,'code':-36},"
                       "{'op':'SetSyncDiv','from':2,'to':3,'code':-2147483648},{'op':'SetOffset','every':2,'"
                       "from':2,'code':-7},"
                       "{'op':'ReadFiFo','call':1,'value':-5},{'op':'GetResolution','value':'nan'},"
                       "{'op':'GetFeatures','value':-1e30},{'op':'GetWarningsText','endless':true},"
                       "{'op':'CTCStatus','hangMs':20},{'flag':'refLost','atMs':3,'forMs':4},"
                       "{'flag':'countsDropped','atMs':5}]}");
    ASSERT_EQ(library.open(3), 0) << library.textOf(-3);
    int32_t number = 0;
    const auto codes = [&](const auto &call) {
        std::string text;
        for (int i = 0; i < 4; ++i) text += std::to_string(call()) + " ";
        return text;
    };
    EXPECT_EQ(codes([&] { return library("GetSyncRate", 0, &number); }), "0 -36 0 0 ");
    EXPECT_EQ(codes([&] { return library("SetSyncDiv", 0, 1); }), "0 -2147483648 -2147483648 0 ");
    EXPECT_EQ(codes([&] { return library("SetOffset", 0, 1); }), "0 -7 0 -7 ");
    double real = 0;
    EXPECT_EQ(library("GetResolution", 0, &real), 0);
    EXPECT_TRUE(std::isnan(real));
    EXPECT_EQ(library("GetFeatures", 0, &number), 0);
    EXPECT_EQ(number, INT32_MIN);
    std::vector<char> text(65537, '\0');
    EXPECT_EQ(library("GetWarningsText", 0, text.data(), 0), 0);
    EXPECT_EQ(strlen(text.data()), 65536u);

    std::vector<uint32_t> words(1048576);
    EXPECT_EQ(library("SetMeasControl", 0, 6, 1, 0), 0);
    EXPECT_EQ(library("StartMeas", 0, 10), 0);
    EXPECT_EQ(library("ReadFiFo", 0, words.data(), &number), 0);
    EXPECT_EQ(number, -5);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(library("CTCStatus", 0, &number), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(20));
}

TEST(SimulatedLibrary, FlagsStandAtTheirTime)
{
    Loaded library(families[1], "{'pace':'free','input':{'rateCps':1e7},'faults':"
                                "[{'flag':'refLost','atMs':3,'forMs':4},{'flag':'countsDropped','atMs':5}]}");
    ASSERT_EQ(library.open(3), 0);
    ASSERT_EQ(library("StartMeas", 0, 10), 0);
    std::vector<uint32_t> words;
    std::string seen;
    for (int32_t flags = -1, last = -1, isOver = 0; !isOver; last = flags) {
        ASSERT_EQ(library("GetFlags", 0, &flags), 0);
        if (flags != last) seen += std::to_string(flags) + " ";
        ASSERT_EQ(library.read(words, 10000), 0);
        library("CTCStatus", 0, &isOver);
    }
    EXPECT_EQ(seen, "32 40 104 96 "); // with that of an active measurement
}

// A call that would hang for ever leaves when the instrument is closed.
TEST(SimulatedLibrary, CloseEndsAHangForGood)
{
    Loaded library(zp, "{'faults':[{'op':'GetFlags','hang':true}]}");
    ASSERT_EQ(library.open(3), 0);
    std::atomic<int32_t> code = 1;
    std::thread caller([&] {
        int32_t flags;
        code = library("GetFlags", 0, &flags);
    });
    int32_t rate = 0;
    EXPECT_EQ(library("GetSyncRate", 0, &rate), 0); // others get through
    EXPECT_EQ(code, 1);
    EXPECT_TRUE(TestSupport::eventually([&] { return library("CloseDevice", 0), code != 1; }));
    caller.join();
    EXPECT_EQ(code, -4);
}

TEST(SimulatedLibrary, FilterTestsGiveRatesAndNoRecords)
{
    Loaded library(families[3], "{'pace':'free','input':{'rateCps':1e6,'darkCps':0}}");
    ASSERT_EQ(library.open(3), 0);
    EXPECT_EQ(library("SetEventFilterParams", 0, 0, 6, 0), 0);
    EXPECT_EQ(library("SetEventFilterChannels", 0, 0x0f, 0x02), 0); // only the second always passes
    EXPECT_EQ(library("EnableEventFilter", 0, 1), 0);
    EXPECT_EQ(library("SetFilterTestMode", 0, 1), 0);
    EXPECT_EQ(library.measure(300).size(), 0u);
    int32_t sync = 0, rates[4];
    EXPECT_EQ(library("GetFilterInputRates", 0, &sync, rates), 0);
    EXPECT_EQ(sync, 5000000);
    for (const int32_t rate : rates) EXPECT_NEAR(rate, 1e6, 5 * std::sqrt(1e7));
    EXPECT_EQ(library("GetFilterOutputRates", 0, &sync, rates), 0);
    EXPECT_NEAR(rates[1], 1e6, 5 * std::sqrt(1e7));
    EXPECT_EQ(rates[0] + rates[2] + rates[3], 0);
}

TEST(SimulatedLibrary, KeepsTheStateOfWhiteRabbit)
{
    Loaded library(families[4]);
    ASSERT_EQ(library.open(3), 0);
    const uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    uint8_t found[6];
    EXPECT_EQ(library("WRabbitSetMAC", 0, mac), 0);
    EXPECT_EQ(library("WRabbitGetMAC", 0, found), 0);
    EXPECT_EQ(memcmp(mac, found, 6), 0);
    EXPECT_EQ(library("WRabbitSetInitScript", 0, "mode slave"), 0);
    EXPECT_EQ(library("WRabbitInitLink", 0, 1), 0);
    EXPECT_EQ(library("WRabbitSetTime", 0, 1u, 5u), 0);
    uint32_t high = 0, low = 0, subSecond = 0, words[3];
    EXPECT_EQ(library("WRabbitGetTime", 0, &high, &low, &subSecond), 0);
    EXPECT_EQ(high, 1u);
    EXPECT_NEAR(low, 5, 60);
    std::vector<char> text(65536);
    int32_t count = 0, status = 0;
    EXPECT_EQ(library("WRabbitGetInitScript", 0, text.data()), 0);
    EXPECT_STREQ(text.data(), "mode slave");
    EXPECT_EQ(library("WRabbitGetStatus", 0, &status), 0);
    EXPECT_EQ(status, 7);
    EXPECT_EQ(library("WRabbitGetTermOutput", 0, text.data(), &count), 0);
    EXPECT_EQ(std::string(text.data()).find("wr# mac set\r\n"), 0u);
    EXPECT_EQ(strlen(text.data()), static_cast<size_t>(count));
    // A measurement starts at that time: words of 1 ps since 1970, high ones first.
    EXPECT_EQ(library("StartMeas", 0, 1), 0);
    EXPECT_EQ(library("GetStartTime", 0, &words[0], &words[1], &words[2]), 0);
    const double ps = words[0] * 0x1p64 + words[1] * 0x1p32 + words[2];
    EXPECT_NEAR(ps * 1e-12, 4294967301.0, 60);
}
