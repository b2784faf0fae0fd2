// What the program does to files: nothing that it reads or that is a recording is lost, what it writes is whole
// or not there, and a name is a name, whatever it looks like.
#include "program/visible_text.h"
#include "run_program.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <sys/stat.h>

using namespace TestSupport;
namespace fs = std::filesystem;

namespace {

void writeRecording(const TempFolder &folder)
{
    output(folder, "simulate s.tgx --duration 5ms");
}

std::vector<std::string> namesIn(const TempFolder &folder)
{
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder.path()))
        names.push_back(entry.path().filename().string());
    std::ranges::sort(names);
    return names;
}

// True once a work file has some content.
bool isAtWork(const TempFolder &folder)
{
    return std::ranges::any_of(fs::directory_iterator(folder.path()), [](const auto &entry) {
        return entry.path().extension() == ".part" && entry.file_size() > 100000;
    });
}

} // namespace

TEST(Files, ThatAreReadOrRecordedStay)
{
    const TempFolder folder;
    writeRecording(folder);
    fs::copy_file(folder.file("s.tgx"), folder.file("other"));
    std::ofstream(folder.file("c.json")) << R"({"chain": [{"stage": "merge", "channels": [1]}]})";
    std::ofstream(folder.file("own.ini")) << "[Log]\nFile=false\nConsole=false\n";
    fs::create_symlink("s.tgx", folder.file("link"));
    fs::create_symlink("link", folder.file("picture.png"));
    fs::create_hard_link(folder.file("s.tgx"), folder.file("hard"));
    const std::string kept[] = {"s.tgx", "other", "c.json", "own.ini"};
    std::vector<std::string> before;
    for (const std::string &name : kept) before.push_back(contents(folder.file(name)));
    const struct
    {
        const char *Line, *Message;
    } cases[] = {
        {"histogram s.tgx -o s.tgx", "-o s.tgx: the command reads this file"},
        {"unfold link -o hard --force", "-o hard: the command reads this file"},
        {"g2 hard --plot picture.png --force", "--plot picture.png: the command reads this file"},
        {"info s.tgx -o ./link", "the command reads this file"},
        {"chain s.tgx --chain c.json -o c.json", "the command reads this file"},
        {"info other --ini own.ini -o own.ini", "the command reads this file"},
        {"simulate own.ini --ini own.ini --force", "the command reads this file"},
        {"trace s.tgx -o x.png --plot ./x.png", "-o writes this file"},
        {"unfold s.tgx --binary -o c --chain c.json", "-o c.json: the command reads this file"},
        {"histogram s.tgx -o other", "-o other: a recording, which only --force replaces"},
        {"histogram other --plot picture.png", "a recording, which only --force replaces"},
        {"simulate s.tgx", "s.tgx: is there already; --force replaces it"},
        {"simulate link", "link: is there already; --force replaces it"},
        {"repair s.tgx hard --force", "OUT hard: the command reads this file"},
        {"repair hard link --force", "OUT link: the command reads this file"},
        {"repair s.tgx other", "OUT other: a recording, which only --force replaces"},
    };
    for (const auto &row : cases) {
        answered(folder, std::string(row.Line), 2, row.Message);
        for (size_t i = 0; i < before.size(); ++i)
            EXPECT_TRUE(contents(folder.file(kept[i])) == before[i]) << row.Line;
    }
    output(folder, "simulate link --force --duration 1ms");
    EXPECT_LT(fs::file_size(folder.file("s.tgx")), before[0].size());
    EXPECT_TRUE(fs::is_symlink(folder.file("link")));
    EXPECT_TRUE(output(folder, "info s.tgx -o other --force").empty());
    EXPECT_TRUE(contents(folder.file("other")).starts_with("File\n"));
    output(folder, "trace s.tgx -o other"); // a text about a recording isn't one
}

// The recording would take minutes: its zero words are events, and take no room on the disc.
TEST(Files, AreLeftByNoSignalHalfWritten)
{
    const TempFolder folder;
    writeRecording(folder);
    fs::resize_file(folder.file("s.tgx"), uint64_t(16) << 30);
    std::ofstream(folder.file("events.csv")) << "old";
    const std::initializer_list<int> cases[] = {{SIGHUP}, {SIGQUIT}, {SIGPIPE}, {SIGINT, SIGTERM}};
    for (const auto &signals : cases) {
        const Ended ended = start(folder, std::string("unfold s.tgx -o events.csv"))
                                .interruptWhen([&] { return isAtWork(folder); }, signals);
        EXPECT_TRUE(std::ranges::count(signals, ended.Code - 128)) << ended.Code;
        EXPECT_EQ(namesIn(folder), (std::vector<std::string>{"events.csv", "s.tgx", "stderr", "stdout"}));
        EXPECT_TRUE(contents(folder.file("events.csv")) == "old"); // else it has gigabytes
    }
}

TEST(Files, AreReplacedByWholePicturesOnly)
{
    const TempFolder folder;
    writeRecording(folder);
    std::ofstream(folder.file("a.png")) << "old";
    std::ofstream(folder.file("gnuplot")) << "#!/bin/sh\nprintf half\nexit 1\n";
    fs::permissions(folder.file("gnuplot"), fs::perms::owner_all);
    const std::string path = std::getenv("PATH");
    setenv("PATH", (folder.path().string() + ":" + path).c_str(), 1);
    const Ended ended = run(folder, std::string("trace s.tgx --plot a.png"));
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(ended.Code, 1);
    EXPECT_TRUE(contains(ended.Err, "gnuplot could not draw a.png")) << ended.Err;
    EXPECT_EQ(contents(folder.file("a.png")), "old");
    EXPECT_EQ(namesIn(folder).size(), 5u);
}

TEST(Files, AreWrittenThroughLinksAndPipes)
{
    const TempFolder folder;
    writeRecording(folder);
    const std::string csv = output(folder, "trace s.tgx");
    fs::create_directory(folder.file("there"));
    fs::create_symlink("there/real.csv", folder.file("link.csv"));
    fs::create_symlink("/dev/stdout", folder.file("out.csv"));
    for (int i = 0; i < 2; ++i) { // without, then with a file behind it
        output(folder, "trace s.tgx -o link.csv");
        EXPECT_EQ(contents(folder.file("there/real.csv")), csv);
        EXPECT_TRUE(fs::is_symlink(folder.file("link.csv")));
        fs::permissions(folder.file("there/real.csv"), fs::perms::owner_read | fs::perms::owner_write);
    }
    EXPECT_EQ(fs::status(folder.file("there/real.csv")).permissions(), fs::perms(0600));
    EXPECT_EQ(output(folder, "trace s.tgx -o /dev/stdout"), csv);
    EXPECT_EQ(output(folder, "trace s.tgx -o out.csv"), csv);
    mkfifo(folder.file("pipe").c_str(), 0600);
    const Started writing = start(folder, std::string("trace s.tgx -o pipe"));
    EXPECT_EQ(contents(folder.file("pipe")), csv);
    EXPECT_EQ(writing.wait().Code, 0);
}

TEST(Files, HaveNamesThatAreNothingElse)
{
    const bool draws = std::system("command -v gnuplot >/dev/null 2>&1") == 0;
    for (const std::string &name :
         {std::string("|touch PWNED;"), std::string("it's \"q\"$(touch PWNED)`touch PWNED`"),
          std::string("a\\b"), std::string("..\\..\\up"), std::string("not\xff\xfeutf8"),
          std::string(" \n\t\x1b[2J"), std::string("\u202egnp\u0085"), std::string("%s{}*"),
          std::string(246, 'x')}) {
        const TempFolder folder;
        const std::string file = name + ".tgx", csv = name + ".csv", picture = name + ".svg";
        std::vector<std::string> expected = {"stdout", "stderr", file, csv};
        std::vector<std::string> line = {"histogram", file, "-o", csv, "--plot", picture};
        if (draws) expected.push_back(picture);
        std::ranges::sort(expected);
        EXPECT_EQ(run(folder, std::vector<std::string>{"simulate", file, "--duration", "1ms"}).Code, 0) << name;
        const Ended drawn = run(folder, line);
        EXPECT_EQ(drawn.Code, 0) << name << drawn.Err;
        EXPECT_EQ(namesIn(folder), expected);
        const Ended info = run(folder, std::vector<std::string>{"info", file});
        EXPECT_EQ(run(folder, std::vector<std::string>{"verify", file, "-q"}).Code, 0);
        for (const std::string &text : {contents(folder.file(csv)), drawn.Err, info.Out})
            for (std::istringstream lines(text); std::getline(lines, line[0]);)
                EXPECT_EQ(Tessel::Cli::visibleText(line[0]), line[0]);
        const Ended asJson = run(folder, std::vector<std::string>{"trace", file, "--json"});
        const std::string shown = Tessel::Cli::isUtf8(file) ? file : "not\\xFF\\xFEutf8.tgx";
        const auto result = boost::json::parse(asJson.Out);
        EXPECT_EQ(std::string(result.at("file").as_string()), shown);
        EXPECT_EQ(std::string(result.at("device").as_string()), "simulated@" + shown);
    }
}

TEST(Texts, AreShownWithoutWhatMovesOrTurnsThem)
{
    const struct
    {
        std::string Text, Shown;
    } cases[] = {
        {"2.5 µs, 日本 \\ 🙂", "2.5 µs, 日本 \\ 🙂"},
        {"a\x1b[2J\n\x7f", "a\\x1B[2J\\x0A\\x7F"},
        {"\u0085\u009b", "\\xC2\\x85\\xC2\\x9B"},
        {"\u202eabc\u2069\u200f\u061c", "\\xE2\\x80\\xAEabc\\xE2\\x81\\xA9\\xE2\\x80\\x8F\\xD8\\x9C"},
        {"\xc3(\xff\xc0\x80\xed\xa0\x80\xe2\x82", "\\xC3(\\xFF\\xC0\\x80\\xED\\xA0\\x80\\xE2\\x82"},
    };
    for (const auto &row : cases) EXPECT_EQ(Tessel::Cli::visibleText(row.Text), row.Shown);
}
