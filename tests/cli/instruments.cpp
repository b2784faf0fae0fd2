// Instruments through the program: what is listed, what is set, and what can't be done. The instruments are the
// simulated ones.
#include "run_program.h"

#include <fmt/format.h>

#include <cstdlib>

using namespace TestSupport;

namespace {

using boost::json::object;

constexpr const char *families[] = {"ZP", "CD", "SV40", "LM70", "CD90"};

// One of each family, and a busy one.
void describeInstruments(const TempFolder &folder)
{
    std::ofstream(folder.file("lab.json"))
        << R"({"instruments": [{"family": "ZP", "channels": 2}, {"family": "CD"}, {"family": "LM70"},)"
        << R"({"family": "SV40", "model": "Sarvex 40 P"}, {"family": "CD90", "serial": "77"},)"
        << R"({"family": "ZP", "busy": true}]})";
    std::ofstream(folder.file("lost.json"))
        << R"({"instruments": [{"faults": [{"op": "Initialize", "code": -36}]}]})";
    std::ofstream(folder.file("wrong.json")) << R"({"instruments": [{"family": "ZX"}]})";
}

object configOf(const TempFolder &folder, std::vector<std::string> words, Ended &ended)
{
    words.insert(words.begin(), {"config", "--sim=lab.json", "--json"});
    ended = run(folder, words);
    EXPECT_EQ(ended.Code, 0) << ended.Err;
    return ended.Code == 0 ? boost::json::parse(ended.Out).as_object() : object();
}

const object *settingOf(const object &config, std::string_view key)
{
    for (const auto &setting : config.at("settings").as_array())
        if (setting.at("key").as_string() == key) return &setting.as_object();
    return nullptr;
}

} // namespace

TEST(Instruments, AreListedWithTheirLibraries)
{
    const TempFolder folder;
    describeInstruments(folder);
    simulateT2(folder, "--duration 1ms");
    const auto standard = json(folder, "devices --sim");
    ASSERT_EQ(standard.at("devices").as_array().size(), 1u);
    EXPECT_EQ(standard.at("devices").at(0).at("state"), "free");
    EXPECT_EQ(standard.at("devices").at(0).at("channels"), 4);

    const auto lab = json(folder, "--sim=lab.json devices light.tgx");
    std::string listed;
    for (const auto &device : lab.at("devices").as_array())
        listed +=
            fmt::format("{} {} {}\n", std::string(device.at("family").as_string()),
                        std::string(device.at("state").as_string()), device.at("channels").to_number<int>());
    EXPECT_EQ(listed, "CD file 2\nZP free 2\nZP busy 0\nCD free 4\nSV40 free 4\nLM70 free 4\nCD90 free 4\n");
    const auto &last = lab.at("devices").as_array().back();
    EXPECT_EQ(last.at("serial"), "77");
    EXPECT_EQ(last.at("features").as_array().front(), "DLL");
    EXPECT_NE(last.at("libraryVersion"), nullptr);
    for (const char *key : {"model", "firmware", "partNumber"}) EXPECT_NE(last.at(key), "") << key;
    for (const auto &library : lab.at("libraries").as_array()) EXPECT_TRUE(library.at("loaded").as_bool());

    const Ended lost = run(folder, "devices --sim=lost.json");
    EXPECT_TRUE(contains(lost.Out, " failed\n")) << lost.Out;
    EXPECT_TRUE(contains(lost.Err, "SIM-ZP-0: can't be initialised: ")) << lost.Err;
}

TEST(Instruments, AbsentLibrariesAreNamedWithTheirPlace)
{
    const TempFolder folder;
    std::ofstream(folder.file("CDLib64.so")) << "no library";
    setenv("TESSEL_INSTRUMENT_PATH", folder.path().c_str(), 1);
    const auto devices = json(folder, "devices");
    const Ended refused = run(folder, "config 77");
    unsetenv("TESSEL_INSTRUMENT_PATH");
    EXPECT_TRUE(devices.at("devices").as_array().empty());
    for (size_t i = 0; i < std::size(families); ++i) {
        const auto &library = devices.at("libraries").at(i);
        EXPECT_EQ(library.at("family"), families[i]);
        EXPECT_EQ(library.at("loaded"), false);
        const std::string file(library.at("file").as_string());
        EXPECT_EQ(library.at("places").at(0).as_string(), folder.file(file));
        EXPECT_TRUE(contains(std::string(library.at("why").as_string()), file)) << library;
    }
    EXPECT_EQ(refused.Code, 3);
    EXPECT_TRUE(contains(refused.Err, "77: no such instrument (none found; no instrument library found"))
        << refused.Err;
}

// Each family's settings, each as far as it goes: the instrument takes them all as they are, and again from a
// file, with the mode.
TEST(Instruments, TakeEverySettingUpToItsLimit)
{
    const TempFolder folder;
    describeInstruments(folder);
    for (const char *id : {"SIM-ZP-0", "SIM-CD-0", "SIM-SV40-0", "SIM-LM70-0", "77"}) {
        Ended ended;
        const auto initial = configOf(folder, {id, "--mode", "histogram"}, ended);
        for (const char *mode : {"histogram", "t3"}) {
            const bool isT3 = std::string_view(mode) == "t3";
            std::vector<std::string> words = {id, "--mode", mode};
            std::vector<std::pair<std::string, int64_t>> asked;
            for (const auto &setting : initial.at("settings").as_array()) {
                const std::string key(setting.at("key").as_string());
                const bool ofEvents = key.starts_with("marker") || key == "overflow-hold";
                if (isT3 ? key == "length-code" : ofEvents) continue;
                const auto *most = setting.as_object().if_contains("max");
                asked.emplace_back(key, most ? most->to_number<int64_t>() : 1);
                words.insert(words.end(), {"--set", fmt::format("{}={}", key, asked.back().second)});
            }
            words.push_back("--export=set.json");
            const auto config = configOf(folder, words, ended);
            EXPECT_EQ(ended.Err, "") << id;
            EXPECT_GT(asked.size(), 20u);
            const auto again = configOf(folder, {id, "--load", "set.json"}, ended);
            EXPECT_EQ(ended.Err, "") << id;
            EXPECT_EQ(again.at("device").at("MeasMode"), config.at("device").at("MeasMode"));
            for (const auto &[key, value] : asked) {
                const object &setting = *settingOf(config, key);
                EXPECT_EQ(setting.at("value"), value) << id << " " << mode << " " << key;
                if (!setting.at("inUse").as_bool()) continue; // a file hasn't the levels of the other mode
                EXPECT_EQ(setting, *settingOf(again, key)) << id;
            }
        }
    }
}

TEST(Instruments, SettingsHaveUnitsAndWordsAndAreClamped)
{
    const TempFolder folder;
    describeInstruments(folder);
    const struct
    {
        const char *Id, *Set, *Key;
        int64_t Value;
        const char *Warning; // "": none
    } cases[] = {
        {"SIM-ZP-0", "sync.level=-0.1V", "sync.level", -100, ""},
        {"SIM-ZP-0", "sync.level=-9V", "sync.level", -1200, "sync.level: -9000 mV becomes -1200 mV"},
        {"SIM-ZP-0", "ch*.offset=1.5ns", "ch2.offset", 1500, ""},
        {"SIM-ZP-0", "ch*.offset=-1us", "ch2.offset", -99999,
         "ch*.offset: -1000000 ps becomes -99999 ps (range"},
        {"SIM-ZP-0", "ch2.edge=rising", "ch2.edge", 1, ""},
        {"SIM-ZP-0", "marker3.enable=on", "marker3.enable", 1, ""},
        {"SIM-ZP-0", "trigger-output=2us", "trigger-output", 2000, ""},
        {"SIM-ZP-0", "stop-count=9999999999", "stop-count", 4294967295, "becomes 4294967295"},
        {"SIM-ZP-0", "ch1.dead-time=1ns", "ch1.dead-time", 1000, ""},
        {"SIM-ZP-0", "ch1.dead-time=1us", "ch1.dead-time", 160000, "becomes 160000 ps"},
        {"SIM-ZP-0", "ch1.dead-time=5ps", "ch1.dead-time", 0, "ch1.dead-time: 5 ps becomes off"},
        {"SIM-ZP-0", "ch1.dead-time=off", "ch1.dead-time", 0, ""},
        {"SIM-SV40-0", "ch1.dead-time=55ns", "ch1.dead-time", 44000, "becomes 44000 ps"},
        {"SIM-CD-0", "control.mode=8", "control.mode", 5, "control.mode: 8 becomes 5"},
        {"77", "sync.trigger=cfd", "sync.trigger", 1, ""},
    };
    for (const auto &row : cases) {
        Ended ended;
        const auto config = configOf(folder, {row.Id, "--set", row.Set}, ended);
        EXPECT_EQ(settingOf(config, row.Key)->at("value"), row.Value) << row.Set;
        EXPECT_TRUE(contains(ended.Err, row.Warning)) << row.Set << "\n" << ended.Err;
        EXPECT_EQ(ended.Err.empty(), *row.Warning == '\0') << row.Set << "\n" << ended.Err;
        EXPECT_EQ(config.at("clamped").as_array().size(), *row.Warning ? 1u : 0u) << row.Set;
    }
    EXPECT_TRUE(contains(output(folder, "config sim"), "\nch*.level                      -40 mV   -1200 to"));
}

TEST(Instruments, AreSetFromFiles)
{
    const TempFolder folder;
    std::ofstream(folder.file("lab.ini")) << "[Device]\nSyncDiv=4\n[All_Channels]\nEdgeTrig=-120,1\n"
                                             "[Channel_1]\nName = herald\nChanOffs = 1500\n";
    output(folder, "config sim --ini lab.ini --set ch1.level=-70 --export lab.json");
    const Ended there = run(folder, "config sim --load lab.json --mode t2 --export");
    EXPECT_TRUE(contains(there.Err, "--load lab.json: length-code can't be set in this mode")) << there.Err;
    const auto device = boost::json::parse(there.Out);
    EXPECT_EQ(device.at("SyncDiv"), 4);
    EXPECT_EQ(device.at("MeasMode"), 2);
    const auto &inputs = device.at("ChansCfg");
    EXPECT_EQ(inputs.at(0).at("TrigLvl"), -70);
    EXPECT_EQ(inputs.at(1).at("TrigLvl"), -120);
    EXPECT_EQ(inputs.at(1).at("Name"), "herald");
    EXPECT_EQ(inputs.at(1).at("ChanOffs"), 1500);

    const struct
    {
        int Code;
        const char *Options, *Text; // of the file x
        const char *Message;
        const char *Key = "ch1.level";
        int64_t Value = -40;
    } cases[] = {
        {0, "--load x", R"({"ChansCfg": [{"TrigLvl": -9000}]})", "ch1.level: -9000 mV becomes -1200 mV",
         "ch1.level", -1200},
        {0, "--load x", R"({"LibType": 4, "ChansCfg": [{"TrigLvl": -90}]})", "of another family", "ch1.level",
         -90},
        {0, "--load x", R"({"ChansCfg": [{}, {}, {}, {}, {}]})", "it has 5 inputs, the instrument 4"},
        {0, "--load x", R"({"ChansCfg": [{"Name": "a\nb"}]})", "ch1: the name a\\x0Ab can't be kept"},
        {0, "--load x", R"({"StopCount": -1, "ChansCfg": []})", "", "stop-count", 4294967295},
        {0, "--ini x", "[Device]\nFoo=1\n", "--ini x: Unknown ini key: [Device] 'Foo' '1'"},
        {1, "--ini x", "[Device]\nHystCode=x\nSyncDiv=2\n", "Can't parse \"x\" to integer", "sync.divider", 2},
        {1, "--ini x", "[Device]\nSyncCFD=1\nSyncDiv=3\n", "not all of it is set", "sync.divider", 3},
    };
    for (const auto &row : cases) {
        std::ofstream(folder.file("x")) << row.Text;
        const Ended ended =
            answered(folder, fmt::format("config sim --json {}", row.Options), row.Code, row.Message);
        const auto set = boost::json::parse(ended.Out).as_object();
        EXPECT_EQ(settingOf(set, row.Key)->at("value"), row.Value) << row.Text;
    }
}

// 100000 events a second and input, with lifetimes of their own; a level beyond the pulses counts nothing.
TEST(Instruments, Measure)
{
    const TempFolder folder;
    const auto histogram = json(folder, "histogram --sim --for 500ms --set ch2.level=-1V");
    EXPECT_EQ(histogram.at("device"), "SIM-ZP-0");
    EXPECT_EQ(histogram.at("file"), nullptr);
    EXPECT_EQ(histogram.at("run").at("complete"), true);
    for (size_t row : {1, 3, 4}) EXPECT_NEAR(sum(countsOf(histogram, row)), 50000, 2500) << row;
    EXPECT_EQ(sum(countsOf(histogram, 2)), 0);
    const auto &ofRun = histogram.at("run");
    EXPECT_EQ(ofRun.at("verdict"), "clean");
    EXPECT_EQ(ofRun.at("recordingLosses"), nullptr);
    const auto &live = histogram.at("live");
    EXPECT_NEAR(live.at("liveTimeMs").to_number<double>(), 500, 100);
    EXPECT_EQ(live.at("instrument").at("ChansCfg").at(1).at("TrigLvl"), -1000);
    EXPECT_EQ(live.at("startRates").at("inputs").as_array().size(), 4u);
    EXPECT_EQ(json(folder, "trace --sim --for 100ms --mode t2").at("mode"), "T2");
    const Ended stopped = start(folder, "histogram --sim --for 1h --json --verbose").interruptWhen([&] {
        return contains(contents(folder.file("stderr")), "HistoThread");
    });
    EXPECT_EQ(stopped.Code, 130) << stopped.Err;
    EXPECT_EQ(boost::json::parse(stopped.Out).at("run").at("complete"), false);
}

TEST(Instruments, SayWhyNot)
{
    const TempFolder folder;
    describeInstruments(folder);
    std::ofstream(folder.file("word.json")) << R"({"SyncDiv": 2, "ChansCfg": [{"TrigLvl": "x"}]})";
    std::filesystem::create_symlink("/dev/zero", folder.file("endless.json"));
    const struct
    {
        int Code;
        std::vector<std::string> Words;
        const char *Message;
    } cases[] = {
        {3, {"config", "78", "--sim=lab.json"}, "78: no such instrument (found: SIM-ZP-0, ZP_Port 1 (busy), "},
        {3, {"config", "ZP_Port 1 (busy)", "--sim=lab.json"}, "ZP_Port 1 (busy): in use by another program"},
        {3, {"devices", "--sim=none.json"}, "--sim=none.json: no such file"},
        {3, {"config", "--sim=lost.json"}, "SIM-ZP-0: the instrument can't be initialised: "},
        {3, {"config", "--sim=wrong.json"}, "instruments[0].family: isn't one of"},
        {3, {"histogram", "--device", "78", "--sim"}, "78: no such instrument"},
        {3, {"info", "--sim"}, "SIM-ZP-0: tessel info works on recordings only"},
        {2, {"histogram", "--sim", "--for", "0"}, "--for: from 1ms to 100h"},
        {2, {"histogram", "light.tgx", "--sim"}, "a recording and an instrument: choose one"},
        {2, {"config"}, "an instrument's id or sim is required"},
        {2, {"config", "77", "--device", "78"}, "choose one"},
        {2, {"config", "sim", "--set", "sync.level"}, "--set sync.level: KEY=VALUE is expected"},
        {2, {"config", "sim", "--set", "sync.cfd-level=1"}, "this instrument has no such setting"},
        {2, {"config", "sim", "--set", "sync.level=1ns"}, "\"1ns\": unknown unit \"ns\""},
        {2, {"config", "sim", "--set", "sync.level=0.5"}, "whole mV"},
        {2, {"config", "sim", "--set", "sync.divider=off"}, "a number is expected"},
        {3, {"config", "sim", "--load", "no.json"}, "--load no.json: No such file"},
        {3, {"config", "sim", "--ini", "endless.json"}, "--ini endless.json: more than 1 MiB"},
        {2, {"config", "sim", "--load", "lab.json"}, "--load lab.json: not the configuration of a device"},
        {2, {"config", "sim", "--load", "word.json"}, "TrigLvl (ch1.level): a whole number is expected"},
        {2, {"config", "sim", "--export", "word.json", "--load", "word.json"}, "the command reads this file"},
        {2, {"config", "sim", "--export", "--json"}, "choose one"},
        {2, {"config", "--host", "x", "--load", "lab.json"}, "--host excludes --load"},
        {2, {"config", "--host", "x", "--ini", "lab.json"}, "--host excludes --ini"},
        {2, {"devices", "--host", ""}, "--host: it is empty"},
        {1, {"config", "sim", "--mode", "t2", "--set", "binning=1"}, "binning=1: the instrument refuses it"},
    };
    for (const auto &row : cases) {
        const Ended ended = answered(folder, row.Words, row.Code, row.Message);
        EXPECT_EQ(std::ranges::count(ended.Err, '\n'), 1) << ended.Err;
        EXPECT_EQ(ended.Out, "");
    }
}
