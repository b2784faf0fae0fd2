// What the program answers: exit codes, and the message where something can't be done or has no effect.
#include "run_program.h"
#include "support/tgx_file.h"
#include "support/words.h"

#include <fmt/format.h>

#include <sys/stat.h>

using namespace TestSupport;

namespace {

void writeFiles(const TempFolder &folder)
{
    output(folder, "simulate t2.tgx --mode t2 --rate 10kcps --duration 0.01s");
    output(folder, "simulate t3.tgx --duration 0.01s");
    std::ofstream(folder.file("text.tgx")) << "not a recording at all";
    std::ofstream(folder.file("empty.tgx"));
    std::ofstream(folder.file("bad.json"))
        << R"({"chain": [{"stage": "delay", "channels": [1], "delay": "5nx"}]})";
    std::filesystem::create_symlink("/dev/zero", folder.file("endless.json"));
    mkfifo(folder.file("silent.json").c_str(), 0600);
}

} // namespace

TEST(Answers, RefuseWhatIsWrong)
{
    const TempFolder folder;
    writeFiles(folder);
    std::string gates, gated = "2"; // each makes a channel for each that it gates: twice as many as before
    for (int next = 3; next < 256;) {
        gates += fmt::format("{}herald(1;{};0;1ns;keep)", gates.empty() ? "" : "|", gated);
        for (const int end = 2 * next - 2; next < end; ++next) gated += fmt::format(",{}", next);
    }
    const struct
    {
        int Code;
        std::string Line, Message;
    } cases[] = {
        {2, "", "subcommand is required"},
        {2, "histo t3.tgx", "; did you mean histogram? (see tessel --help)"},
        {2, "g2 t2.tgx --bin-widht=1ns", "; did you mean --bin-width? (see tessel g2 --help)"},
        {2, "frobnicate", "there is no command frobnicate (see"},
        {2, "config --sim --set ch1.dead-tim=5ns", "no such setting; did you mean ch1.dead-time? (tessel"},
        {2, "trace t3.tgx --history 1e9h", "--history: at most 1000000 s"},
        {2, "info", "FILE is required (see tessel info --help)"},
        {3, "info missing.tgx", "missing.tgx: no such file"},
        {3, "info text.tgx", "text.tgx: not a recording"},
        {3, "unfold empty.tgx", "empty.tgx: "},
        {3, "histogram .", "a folder"},
        {3, "verify missing.tgx", "missing.tgx: no such file"},
        {1, "repair t3.tgx x.tgx", "nothing was cut off"},
        {1, "repair text.tgx x.tgx", "text.tgx can't be repaired: not a recording"},
        {1, "repair t3.tgx no/such/x.tgx", "no/such/x.tgx: No such file"},
        {3, "info t3.tgx --ini missing.ini", "missing.ini: no such settings file"},
        {2, "histogram t3.tgx --bins 5", "--bins is for T2"},
        {2, "histogram t3.tgx --plot x.gif", ".png, .svg or .pdf"},
        {2, "histogram t3.tgx --plot x.svg --size 10x", "--size 10x: width and height"},
        {1, "histogram t3.tgx -o no/such/x.csv", "no/such/x.csv: No such file"},
        {2, "histogram t2.tgx --ref-chan 4 --chain merge(1)", "the recording has channels 0 (sync) to 3"},
        {2, "g2 t2.tgx --bin-width 1ps", "--bin-width: from the recording's resolution, 5 ps"},
        {2, "g2 t2.tgx --window 1ns --bin-width 2ns", "--window: from 1"},
        {2, "fcs t2.tgx --min-lag 1ms --max-lag 1ms", "--max-lag: above"},
        {2, "fcs t2.tgx --min-lag 1ps", "--min-lag: at least"},
        {2, "trace t2.tgx --history 10ps --bins 20", "--history: at least"},
        {2, "hist2d t2.tgx --bins-x 100000 --bins-y 100000", "--bins-x and --bins-y: at most"},
        {2, "hist2d t2.tgx --recovery-slope inf", "--recovery-slope: a finite number"},
        {2, "hist2d t2.tgx --recovery-max 0.5ps", "--recovery-max: whole picoseconds"},
        {2, "hist2d t2.tgx --recovery-max 1000h", "--recovery-max: at most 1000000 s"},
        {2, "unfold t2.tgx --binary", "--binary needs -o"},
        {2, "unfold t2.tgx --binary --json -o x", "choose one"},
        {2, "simulate x.tgx --lifetime 2.5nx", "--lifetime \"2.5nx\": unknown unit"},
        {2, "simulate x.tgx --rate 1,2 --lifetime 1,2,3", "--rate has 2 values for 3 channels"},
        {2, "simulate x.tgx --sync-rate 1kHz", "coarser --resolution"},
        {2, "simulate x.tgx --light bunched", "--light bunched is for T2"},
        {2, "simulate x.tgx --mode t2 --light antibunched --rate 1Gcps", "at most 50 MHz"},
        {2, "simulate x.tgx --mode t2 --light diffusing --molecules 0", "--molecules: from"},
        {2, "serve --port 1234", "--device or --sim is required"},
        {1, "serve --sim -q --address 1.2.3", "can't be served: Server: 1.2.3:55000 failed: Invalid argument"},
        {1, "simulate no/such/x.tgx", "no/such/x.tgx: can't be created"},
        {2, "g2 t2.tgx --chain merge(1", "tessel: --chain: ')' is missing\n  merge(1\n         ^\n"},
        {2, "chain t2.tgx --chain bad.json", "bad.json: chain[0].delay: unknown unit \"nx\""},
        {2, "chain t2.tgx --chain merge(1;keep)|merge(3)|merge(6)",
         "--chain: stage 3, merge(6): there is no channel 6 here, only 0 (sync) to 4"},
        {3, "chain t2.tgx --chain no.json", "--chain no.json: No such file"},
        {3, "chain t2.tgx --chain endless.json", "--chain endless.json: more than 1 MiB"},
        {3, "chain t2.tgx --chain silent.json", "--chain silent.json: nothing to read"},
        {1, "chain t2.tgx --chain " + gates, ": the library refuses it"},
    };
    for (const auto &row : cases) {
        const Ended ended = answered(folder, row.Line, row.Code, row.Message);
        EXPECT_EQ(ended.Out, "") << row.Line;
    }
    EXPECT_FALSE(std::filesystem::exists(folder.file("x.tgx")));
}

TEST(Answers, AVerdictIsAnExitCode)
{
    const TempFolder folder;
    writeFiles(folder);
    std::filesystem::copy(folder.file("t3.tgx"), folder.file("cut.tgx"));
    std::filesystem::resize_file(folder.file("cut.tgx"),
                                 std::filesystem::file_size(folder.file("cut.tgx")) - 5);
    const struct
    {
        int Code;
        const char *Line, *Out, *Err;
    } cases[] = {
        {0, "verify t3.tgx", "t3.tgx: clean\n  records ", ""},
        {0, "verify t2.tgx --json", "{\"schema\":\"tessel.verify/1\",\"file\":\"t2.tgx\",\"verdict\":\"clean\"",
         ""},
        {4, "verify cut.tgx", "cut.tgx: lossy\n  cutShort           the file is cut short", ""},
        {1, "verify text.tgx", "text.tgx: invalid\n  header             not a recording", ""},
        {4, "repair cut.tgx whole.tgx", "", "whole.tgx: records are missing, by the stop reason of its run"},
        {4, "verify whole.tgx", "whole.tgx: lossy\n  fileError ", ""},
        {0, "info whole.tgx", "File\n", ""}, // it is whole, and replays without a warning
    };
    for (const auto &row : cases) {
        const Ended ended = run(folder, std::string(row.Line));
        EXPECT_EQ(ended.Code, row.Code) << row.Line << "\n" << ended.Err;
        EXPECT_TRUE(ended.Out.starts_with(row.Out)) << row.Line << "\n" << ended.Out;
        EXPECT_TRUE(contains(ended.Err, row.Err)) << row.Line << "\n" << ended.Err;
    }
}

TEST(Answers, WarnOfWhatHasNoEffect)
{
    const TempFolder folder;
    writeFiles(folder);
    const struct
    {
        const char *Line, *Warning; // "": none
    } cases[] = {
        {"histogram t2.tgx --bins 2", "nothing was counted"},
        {"g2 t2.tgx --chan1 0 --raw-counts", "nothing was counted"},
        {"fcs t2.tgx --max-lag 10s --steps 9", "rest on few independent events"},
        {"hist2d t2.tgx", "nothing was counted"},
        {"trace t2.tgx --chain substream(9s;10s)", "nothing was counted"},
        {"simulate x.tgx --force --molecules 3 --duration 1ms",
         "--molecules has no effect on this kind of light"},
        {"simulate x.tgx --force --lifetime 1ns --duration 1ms", ""},
        {"chain t2.tgx --chain merge(0,2,129)", ""},
        {"chain t3.tgx --chain merge(0,2)", "a T3 stream has no events on channel 0 (sync)"},
        {"chain t3.tgx --chain herald(0;1;0;1ns)", ""},
        {"chain t2.tgx --chain countrate(1s)", "the window is cut to 2.147 ms"},
        {"chain t2.tgx --chain coincidence(1,2;1ns;average)", "dropped without keep"},
    };
    for (const auto &row : cases) {
        const Ended ended = answered(folder, std::string(row.Line) + " -q", 0, row.Warning);
        EXPECT_EQ(contains(ended.Err, "tessel: warning: "), *row.Warning != '\0') << row.Line << ended.Err;
    }
    answered(folder, "fcs t2.tgx --chan1 0", 4, "the curve auto1 has no value");
}

TEST(Answers, HelpAndVersionAreResults)
{
    const TempFolder folder;
    EXPECT_TRUE(output(folder, "--version").starts_with("tessel "));
    EXPECT_TRUE(contains(output(folder, "--help"), "\nExit codes:\n"));
    for (const char *command : {"simulate", "info", "histogram", "g2", "fcs", "trace", "hist2d", "unfold",
                                "chain", "devices", "config"}) {
        const Ended ended = run(folder, fmt::format("{} --help", command));
        EXPECT_EQ(ended.Err, "") << command;
        EXPECT_TRUE(contains(ended.Out, fmt::format("\nUsage: tessel {} ", command))) << ended.Out;
        EXPECT_TRUE(contains(ended.Out, "\nExamples:\n")) << ended.Out;
    }
}

// A closed recording holds count, stop reason and records; a kill leaves the first two as they began.
TEST(Answers, SayThatARecordingWasNotClosedOrIsCutShort)
{
    const struct
    {
        const char *Name;
        int Claimed, StopReason; // below -1: no such tag
        uint64_t Bytes;          // of records
        int Code;
        const char *State;
        bool IsMeasured = false; // one of each state
    } cases[] = {
        {"closed", 100, 0, 400, 0, "closed", true},
        {"moreThanCounted", 90, 0, 400, 0, "closed"},
        {"emptyAndClosed", 0, 0, 0, 0, "closed"},
        {"stoppedByHandWhileEmpty", 0, 1, 0, 0, "closed"},
        {"noTagsNoRecords", -2, -2, 0, 0, "closed"},
        {"killed", 0, -1, 400, 4, "not closed", true},
        {"killedInAWord", 0, -1, 3, 4, "not closed"},
        {"killedBeforeData", 0, -1, 0, 4, "not closed"},
        {"killedInItsLastStep", 0, 0, 400, 4, "not closed"},
        {"noCount", -2, 0, 400, 4, "not closed"},
        {"lastRecordGone", 101, 0, 400, 4, "cut short", true},
        {"allGone", 100, 0, 0, 4, "cut short"},
    };
    const TempFolder folder;
    for (const auto &row : cases) {
        SCOPED_TRACE(row.Name);
        TgxFile file = TgxFile::t3();
        if (row.StopReason > -2) file.tag("TTResult_StopReason", row.StopReason);
        if (row.Claimed > -2) file.tag("TTResult_NumberOfRecords", row.Claimed);
        std::ofstream(folder.file("x.tgx"), std::ios::binary) << file.bytes() << std::string(row.Bytes, '\0');
        EXPECT_EQ(json(folder, "info x.tgx").at("recording"), row.State);
        EXPECT_TRUE(contains(output(folder, "info x.tgx"), fmt::format("          {}\n", row.State)));
        for (const char *command : {"histogram", "unfold"}) {
            if (!row.IsMeasured) continue;
            const Ended ended = run(folder, fmt::format("{} x.tgx --json -q", command));
            EXPECT_EQ(ended.Code, row.Code) << command << ended.Err;
            EXPECT_EQ(contains(ended.Err, row.State), row.Code != 0) << command << ended.Err;
            const auto ofRun = boost::json::parse(ended.Out).at("run");
            EXPECT_EQ(ofRun.at("recording"), row.State) << command;
            EXPECT_EQ(ofRun.at("complete"), row.Code == 0) << command;
        }
    }
    const Started killed = start(folder, "simulate killed.tgx --duration 1h --rate 10Mcps");
    const auto isWritten = [&] {
        std::error_code missing;
        return std::filesystem::file_size(folder.file("killed.tgx"), missing) > 1'000'000 && !missing;
    };
    EXPECT_EQ(killed.interruptWhen(isWritten, {SIGKILL}).Code, 128 + SIGKILL);
    EXPECT_EQ(run(folder, "histogram killed.tgx").Code, 4);
}

TEST(Answers, SayWhatARecordingLost)
{
    const TempFolder folder;
    TgxFile::t3()
        .tag("File_GUID", "{1}")
        .tag("TTResult_NumberOfRecords", 1)
        .records({t3Event(0, 1, 5)})
        .write(folder.file("x.tgx"));
    const std::string losses =
        R"({"readBuffer":{"unit":"words","occasions":2,"lost":7,"first":1.5E0,"last":2E0},)"
        R"("dropped":{"unit":"counts","occasions":1,"lost":null,"first":1E0,"last":1E0}})";
    std::ofstream(folder.file("x.losses.json"))
        << R"({"schema":"tessel.losses/1","recording":"{1}","verdict":"invalid","losses":)" << losses << "}";
    const char *line =
        "the recording is invalid: dropped lost counts, at 1 s; readBuffer lost 7 words, 2 times "
        "from 1.5 s to 2 s";
    for (const char *command : {"histogram", "unfold"}) {
        const Ended csv = run(folder, fmt::format("{} x.tgx", command));
        EXPECT_EQ(csv.Code, 4);
        EXPECT_TRUE(contains(csv.Out, line) && contains(csv.Err, line)) << csv.Out << csv.Err;
        const auto ofRun =
            boost::json::parse(run(folder, fmt::format("{} x.tgx --json", command)).Out).at("run");
        EXPECT_EQ(ofRun.at("verdict"), "invalid");
        EXPECT_EQ(ofRun.at("losses"), boost::json::object()); // the replay itself lost nothing
        EXPECT_EQ(ofRun.at("recordingLosses").at("losses"), boost::json::parse(losses));
    }
    EXPECT_TRUE(contains(output(folder, "info x.tgx"), line));
    EXPECT_EQ(json(folder, "info x.tgx").at("losses").at("verdict"), "invalid");
    std::ofstream(folder.file("x.losses.json")) << "{"; // of which nobody can say what it is
    const Ended unknown = run(folder, "histogram x.tgx");
    EXPECT_EQ(unknown.Code, 0);
    EXPECT_TRUE(contains(unknown.Err, "what the recording lost is unknown")) << unknown.Err;
}

TEST(Answers, GoOnWithoutAStandardErrorThatTakesThem)
{
    const int status = std::system(TESSEL_PROGRAM " info not.there 2>/dev/full");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;
}

TEST(Answers, TakeAFileWithALongCommentOrManyChannels)
{
    const TempFolder folder;
    const std::pair<const char *, TgxFile> files[] = {
        {"comment.tgx", TgxFile::t3().tag("File_Comment", std::string(70'000, 'x'))},
        {"channels.tgx", TgxFile::t3(4095)},
    };
    for (const auto &[name, file] : files) {
        file.write(folder.file(name));
        EXPECT_GT(output(folder, fmt::format("info {} --json", name)).size(), 70'000u);
        output(folder, fmt::format("unfold {}", name));
    }
}

// A recording of minutes: the zero words that are added are events of channel 1 and take no room on the disc.
TEST(Answers, CtrlCKeepsWhatThereIs)
{
    const TempFolder folder;
    writeFiles(folder);
    std::filesystem::resize_file(folder.file("t3.tgx"), uint64_t(16) << 30);
    const Started counting = start(folder, "histogram t3.tgx --json --verbose");
    const Ended counted =
        counting.interruptWhen([&] { return contains(counting.errorText(), "HistoThread started"); });
    EXPECT_EQ(counted.Code, 130) << counted.Err.substr(0, 2000);
    EXPECT_FALSE(boost::json::parse(counted.Out).at("run").at("complete").as_bool());

    const Ended unfolded = start(folder, "unfold t3.tgx --binary -o events.bin").interruptWhen([&] {
        for (const auto &entry : std::filesystem::directory_iterator(folder.path()))
            if (entry.path().extension() == ".part" && entry.file_size() > 1000000) return true;
        return false;
    });
    EXPECT_EQ(unfolded.Code, 130);
    const auto side = boost::json::parse(contents(folder.file("events.bin.json")));
    EXPECT_FALSE(side.at("run").at("complete").as_bool());
    EXPECT_EQ(side.at("events").to_number<uint64_t>() * 9,
              std::filesystem::file_size(folder.file("events.bin")));

    const Ended simulated = start(folder, "simulate x.tgx --duration 1h --rate 10Mcps").interruptWhen([&] {
        std::error_code missing;
        return std::filesystem::file_size(folder.file("x.tgx"), missing) > 100000 && !missing;
    });
    EXPECT_EQ(simulated.Code, 130);
    const auto info = json(folder, "info x.tgx --counts");
    EXPECT_GT(info.at("recordsInFile").to_number<uint64_t>(), 0u);
    EXPECT_EQ(info.at("run").at("NumRecs"), info.at("recordsInFile"));
    EXPECT_EQ(info.at("run").at("StopReason"), "Manual");
    const auto ms = info.at("run").at("StopAfter").to_number<int64_t>();
    EXPECT_NEAR(static_cast<double>(ms), info.at("counts").at("durationMs").to_number<double>(), 1);
    EXPECT_TRUE(contains(simulated.Err, fmt::format("the recording is {} ms long, not 3600 s", ms)));
    EXPECT_TRUE(contains(output(folder, "verify x.tgx"), "clean"));
}
