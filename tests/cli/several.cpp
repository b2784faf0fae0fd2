// Many recordings: in one call, merged, in a batch; and results that are computed again.
#include "program/exact_json.h"
#include "run_program.h"

#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <cmath>

using namespace TestSupport;

namespace {

// a.tgx, b.tgx, c.tgx in T2; d.tgx in T3; cut.tgx, a part of a.tgx; text.tgx, which is none.
void simulateAll(const TempFolder &folder)
{
    for (int i = 0; i < 3; ++i)
        output(folder, fmt::format("simulate {}.tgx --mode t2 --rate {}kcps,{}kcps --duration 0.05s --seed {}",
                                   char('a' + i), 100 - 30 * i, 40 + 30 * i, i + 1));
    output(folder, "simulate d.tgx --duration 0.01s");
    const std::string bytes = contents(folder.file("a.tgx"));
    std::ofstream(folder.file("cut.tgx"), std::ios::binary) << bytes.substr(0, bytes.size() / 2);
    std::ofstream(folder.file("text.tgx")) << "not a recording";
}

void write(const TempFolder &folder, const std::string &name, const boost::json::value &value)
{
    std::ofstream(folder.file(name)) << boost::json::serialize(value);
}

double number(const boost::json::object &result, const char *key)
{
    return result.at(key).to_number<double>();
}

std::vector<std::string> linesOf(const std::string &text)
{
    std::istringstream lines(text);
    std::vector<std::string> all;
    for (std::string line; std::getline(lines, line);) all.push_back(line);
    return all;
}

} // namespace

TEST(SeveralFiles, GiveTheSumOfTheirCountsNormalisedOnce)
{
    const TempFolder folder;
    simulateAll(folder);
    const struct
    {
        std::string Command, Options;
        std::vector<const char *> Sums;
    } cases[] = {
        {"histogram",
         "--ref-chan 1 --bins 90 --chain merge(1,2;keep)|countrate(1ms)",
         {"/channels/2/counts", "/channels/3/counts", "/channels/2/total"}},
        {"g2", "--window 2us --bin-width 100ns", {"/pairs", "/n1", "/n2", "/measuredPs"}},
        {"g2", "--chan2 1 --span each", {"/pairs", "/selfPairs", "/channelSpansPs"}},
        {"fcs", "--max-lag 1ms", {"/pairs/cross", "/pairs/auto2", "/laterEvents", "/n2"}},
        {"fcs", "--max-lag 1ms --norm mean --later chan2 --fast", {"/pairs/cross"}},
        {"hist2d", "--start-chan 1 --bins-x 9 --bins-y 5 --bin-width-x 1us", {"/counts", "/total"}},
    };
    for (const auto &row : cases) {
        boost::json::object singles[3];
        for (int i = 0; i < 3; ++i) {
            const std::string name(1, char('a' + i));
            output(folder, fmt::format("{0} {1}.tgx {2} --json -o {1}.json", row.Command, name, row.Options));
            singles[i] = boost::json::parse(contents(folder.file(name + ".json"))).as_object();
        }
        const std::string line = fmt::format("{} a.tgx b.tgx c.tgx {}", row.Command, row.Options);
        const boost::json::value all = json(folder, line);
        for (const char *place : row.Sums) {
            std::vector<double> expected(numbers(all.at_pointer(place)).size());
            for (const boost::json::value one : singles)
                for (size_t i = 0; i < expected.size(); ++i)
                    expected[i] += numbers(one.at_pointer(place)).at(i);
            EXPECT_EQ(numbers(all.at_pointer(place)), expected) << line << place;
        }
        output(folder, line + " --json -o all.json");
        output(folder, "merge a.json b.json --json -o ab.json");
        const std::string whole = contents(folder.file("all.json")); // EXPECT_EQ would print all of it
        EXPECT_TRUE(output(folder, "merge a.json b.json c.json --json") == whole) << line;
        EXPECT_TRUE(output(folder, "merge ab.json c.json --json") == whole) << line;
        EXPECT_TRUE(output(folder, "merge ab.json c.json") == output(folder, line));
        EXPECT_EQ(output(folder, "rerun all.json"), "all.json: equal\n") << line;
    }
    const auto g2 = json(folder, "g2 a.tgx b.tgx --window 2us --bin-width 100ns");
    const double expected = number(g2, "n1") * number(g2, "n2") * 1e5 / number(g2, "measuredPs");
    EXPECT_NEAR(numbers(g2.at("values"))[3], numbers(g2.at("pairs"))[3] / expected, 1e-12);
    const auto fcs = json(folder, "fcs a.tgx b.tgx --norm mean --max-lag 1ms");
    const double span = number(fcs, "measuredPs"), width = fcs.at("edgesPs").at(60).to_number<double>() -
                                                           fcs.at("edgesPs").at(59).to_number<double>();
    const double pairs = number(fcs, "n1") * number(fcs, "n1") / (span * span) * width *
                         (span - 2 * fcs.at("lagPs").at(59).to_number<double>());
    EXPECT_NEAR(fcs.at("auto1").at(59).to_number<double>() + 1,
                fcs.at("pairs").at("auto1").at(59).to_number<double>() / pairs, 1e-5);
    EXPECT_TRUE(contains(run(folder, "g2 a.tgx c.tgx").Err, "the count rates differ from file to file"));
    // The last line of --json-lines is a result as well.
    const auto updates = linesOf(output(folder, "g2 a.tgx --json-lines -q"));
    std::ofstream(folder.file("last.json")) << updates.back();
    output(folder, "g2 b.tgx --json -o b.json");
    EXPECT_EQ(output(folder, "merge last.json b.json"), output(folder, "g2 a.tgx b.tgx"));
    // Of one name, in two folders.
    std::filesystem::create_directory(folder.file("two"));
    std::filesystem::rename(folder.file("b.tgx"), folder.file("two/a.tgx"));
    for (const char *line : {"g2 a.tgx --json -o a.json", "g2 two/a.tgx --json -o b.json"})
        output(folder, line);
    EXPECT_TRUE(output(folder, "merge a.json b.json --json") == output(folder, "g2 a.tgx two/a.tgx --json"));
}

TEST(SeveralFiles, KeepTheirLossesAndSayWhereASumIsNone)
{
    const TempFolder folder;
    simulateAll(folder);
    const Ended cut = run(folder, "g2 a.tgx cut.tgx --json");
    EXPECT_EQ(cut.Code, 4);
    EXPECT_TRUE(contains(cut.Err, "warning: cut.tgx: the file is cut short"));
    const auto result = boost::json::parse(cut.Out);
    EXPECT_EQ(result.at("run").at("complete"), false);
    EXPECT_EQ(result.at("files").at(0).at("run").at("complete"), true);
    EXPECT_EQ(result.at("files").at(1).at("run").at("recording"), "cut short");
    for (const char *name : {"a", "b"})
        output(folder, fmt::format("g2 {}.tgx --window {}ns --json -o {}.json", name, int(name[0]), name));
    write(folder, "cut.json", result);
    auto broken = json(folder, "g2 b.tgx --window 97ns"); // as a.json
    broken["pairs"] = "many";
    write(folder, "broken.json", broken);
    boost::json::object less = json(folder, "g2 b.tgx");
    for (const char *key : {"program", "file", "device", "notes"}) less.erase(key);
    write(folder, "less.json", less);
    less["files"] = boost::json::array();
    write(folder, "none.json", less);
    boost::json::object rows = json(folder, "histogram b.tgx --ref-chan 1 --bins 9");
    rows["rows"].as_array().resize(9, rows["rows"].at(0));
    write(folder, "rows.json", rows);
    const struct
    {
        int Code;
        std::string Line, Message;
    } cases[] = {
        {4, "merge cut.json -q", ""},
        {2, "trace a.tgx b.tgx", "the trace of several recordings isn't defined: its bins are times"},
        {2, "fold a.tgx b.tgx --period 1ms", "the fold of several recordings isn't defined: the phases"},
        {1, "g2 a.tgx d.tgx", "d.tgx: can't be added: mode: \"T2\" against \"T3\""},
        {1, "fcs a.tgx cut.tgx", "cut.tgx: can't be added: "},
        {3, "g2 a.tgx missing.tgx", "missing.tgx: no such file"},
        {2, "g2 a.tgx b.tgx --json-lines", "one recording at a time"},
        {1, "merge a.json b.json", "it is of another job: parameters.window: \"97ns\" against \"98ns\""},
        {1, "merge a.json broken.json", "broken.json: can't be added: pairs: "},
        {0, "merge less.json", ""},
        {1, "merge rows.json", "other channels than rows"},
        {1, "merge none.json", "none.json: not as the program writes it: no files"},
        {2, "merge a.tgx", "a.tgx: line 1, column 1: not JSON"},
        {2, "merge a.json -o a.json", "-o"},
        {3, "merge missing.json", "missing.json: No such file"},
    };
    for (const auto &row : cases) {
        answered(folder, row.Line, row.Code, row.Message);
    }
}

TEST(Rerun, FindsWhatDiffers)
{
    const TempFolder folder;
    simulateAll(folder);
    const auto result =
        Tessel::Cli::parseExactJson(output(folder, "g2 a.tgx --window 50ns --json")).as_object();
    auto count = result, value = result, other = result, live = result;
    count["pairs"].at(7) = 12345;
    value["values"].at(9) = std::nextafter(result.at("values").at(9).to_number<double>(), 9e9);
    other["files"].at(0).as_object()["crc32"] = 1;
    live["files"].at(0).as_object()["file"] = nullptr;
    std::filesystem::copy(folder.file("a.tgx"), folder.file("moved.tgx"));
    const struct
    {
        boost::json::object Result;
        int Code;
        std::string Files, Answer;
    } cases[] = {
        {result, 0, "", "r.json: equal"},
        {result, 0, "moved.tgx", "r.json: equal"},
        {count, 1, "", "r.json: differs: pairs[7]: 12345 against "},
        {value, 1, "", "r.json: differs: values[9]: "},
        {other, 1, "", "r.json: a.tgx isn't the recording of the result: other bytes"},
        {result, 1, "b.tgx", "b.tgx isn't the recording of the result"},
        {live, 2, "", "r.json: of an instrument"},
        {{{"tessel", 1}}, 2, "", "r.json: not the JSON of a measurement"},
        {{{"schema", "tessel.g2/1"}, {"job", result.at("job")}}, 1, "", "r.json: not as the program writes it"},
    };
    EXPECT_NE(result.at("files").at(0).at("crc32"), 0);
    for (const auto &row : cases) {
        write(folder, "r.json", row.Result);
        const Ended ended = run(folder, "rerun r.json " + row.Files);
        EXPECT_EQ(ended.Code, row.Code) << row.Answer << ended.Err;
        EXPECT_TRUE(contains(ended.Out + ended.Err, row.Answer)) << row.Answer << "\n"
                                                                 << ended.Out << ended.Err;
    }
}

TEST(Batch, KeepsWhatIsDoneAndGoesOnAfterAFailure)
{
    const TempFolder folder;
    simulateAll(folder);
    std::ofstream(folder.file("job.json")) << R"({"tessel": 1, "measurement": "g2"})";
    const std::string line = "batch job.json a.tgx text.tgx b.tgx cut.tgx -j 2 -o out";
    const Ended first = run(folder, line);
    EXPECT_EQ(first.Code, 4);
    EXPECT_TRUE(contains(first.Out, "\na.tgx,done,clean,closed,")) << first.Out;
    EXPECT_TRUE(contains(first.Out, "\ntext.tgx,failed,")) << first.Out;
    EXPECT_TRUE(contains(first.Out, "not a recording")) << first.Out;
    EXPECT_TRUE(contains(first.Out, "\ncut.tgx,done,clean,cut short,")) << first.Out;
    std::string kept;
    for (const auto &entry : std::filesystem::directory_iterator(folder.path() / "out"))
        if (entry.path().filename().string().starts_with("a.")) kept = entry.path().string();
    EXPECT_EQ(contents(kept), output(folder, "g2 a.tgx --json"));
    const auto written = std::filesystem::last_write_time(kept);
    const Ended second = run(folder, line);
    EXPECT_TRUE(contains(second.Err, "0 done, 3 kept from before, 1 failed")) << second.Err;
    EXPECT_EQ(std::filesystem::last_write_time(kept), written);
    std::ofstream(kept) << "{"; // is no result
    std::filesystem::last_write_time(folder.file("b.tgx"),
                                     written + std::chrono::hours(1)); // another recording
    EXPECT_TRUE(contains(run(folder, line).Err, "2 done, 1 kept")) << "a and b";
    std::ofstream(folder.file("job.json"))
        << R"({"tessel": 1, "measurement": "g2", "parameters": {"windw": 1}})";
    EXPECT_EQ(run(folder, line).Code, 2);
}

TEST(Batch, OutlivesAProcessThatIsKilledAndEndsAtOnceByCtrlC)
{
    const TempFolder folder;
    simulateAll(folder);
    output(folder, "simulate long.tgx --mode t2 --rate 1Mcps --duration 3s");
    std::ofstream(folder.file("job.json"))
        << R"({"tessel": 1, "measurement": "fcs", "parameters": {"max-lag": "10ms"}})";
    // The process of this recording, its last word, if it runs. Before that it still has the words of the
    // batch.
    const auto processOf = [&](const Started &batch, const std::string &file) {
        std::istringstream children(contents(fmt::format("/proc/{0}/task/{0}/children", batch.Id)));
        for (pid_t id = 0; children >> id;)
            if (contents(fmt::format("/proc/{}/cmdline", id)).ends_with(file + '\0')) return id;
        return pid_t(0);
    };
    pid_t process = 0;
    const auto waitFor = [&](const Started &batch, const std::string &file) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while ((process = processOf(batch, file)) == 0 && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return process != 0;
    };
    const Started killed = start(folder, "batch job.json long.tgx a.tgx -j 1");
    ASSERT_TRUE(waitFor(killed, "long.tgx"));
    kill(process, SIGKILL);
    const Ended ended = killed.wait();
    EXPECT_EQ(ended.Code, 4);
    EXPECT_TRUE(contains(ended.Out, "its process was ended by Killed")) << ended.Out;
    EXPECT_TRUE(contains(ended.Out, "\na.tgx,done,")) << ended.Out;

    const Started stopped = start(folder, "batch job.json a.tgx b.tgx long.tgx c.tgx -j 1");
    const Ended interrupted = stopped.interruptWhen([&] { return waitFor(stopped, "long.tgx"); });
    EXPECT_EQ(interrupted.Code, 130);
    EXPECT_NE(kill(process, 0), 0) << "its process has gone";
    const auto lines = linesOf(interrupted.Out);
    ASSERT_EQ(lines.size(), 5u) << interrupted.Out;
    const char *states[] = {"file,state", "a.tgx,kept", "b.tgx,done", "long.tgx,waiting", "c.tgx,waiting"};
    for (size_t i = 0; i < lines.size(); ++i) EXPECT_TRUE(lines[i].starts_with(states[i])) << lines[i];
    const auto folderEntries = std::filesystem::directory_iterator(folder.path() / "job.results");
    EXPECT_EQ(std::distance(begin(folderEntries), end(folderEntries)), 2) << "whole results alone";

    const Started alone = start(folder, "batch job.json long.tgx");
    alone.interruptWhen([&] { return waitFor(alone, "long.tgx"); }, {SIGKILL});
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    const std::string words = fmt::format("/proc/{}/cmdline", process); // a zombie has none
    while (!contents(words).empty() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(contents(words), "") << "it ends with the batch";
}
