// `tessel import`: columns of all forms, exact scaling, order, channels, and what is refused.
#include "columns/time_scale.h"
#include "run_program.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <sys/stat.h>

using namespace TestSupport;

namespace {

void write(const TempFolder &folder, const std::string &name, const std::string &bytes)
{
    std::ofstream(folder.path() / name, std::ios::binary) << bytes;
}

template <class Number>
std::string packed(std::initializer_list<Number> numbers, bool isBigEndian = false)
{
    std::string bytes;
    for (const Number number : numbers) {
        std::string own(reinterpret_cast<const char *>(&number), sizeof number);
        if (isBigEndian) std::ranges::reverse(own);
        bytes += own;
    }
    return bytes;
}

std::string npy(const std::string &type, const std::string &shape, const std::string &data,
                bool isFortran = false)
{
    std::string text = fmt::format("{{'descr': {}, 'fortran_order': {}, 'shape': ({}), }}", type,
                                   isFortran ? "True" : "False", shape);
    text.resize(118, ' ');
    return std::string("\x93NUMPY\1\0\x76\0", 10) + text + data;
}

// "5@1 7@2": time and channel of T2, or sync.dtime@channel.
std::string events(const TempFolder &folder, const std::string &file = "own.tgx")
{
    std::string all;
    const auto unfolded = json(folder, "unfold " + file);
    for (const auto &event : unfolded.at("events").as_array()) {
        const std::vector<double> values = numbers(event);
        all += fmt::format("{}{}", all.empty() ? "" : " ", values[0]);
        if (values.size() == 3) all += fmt::format(".{}", values[1]);
        all += fmt::format("@{}", values.back());
    }
    return all;
}

// As a shell has it, with $tessel for the program.
int shell(const TempFolder &folder, const std::string &line)
{
    return std::system(
        fmt::format("cd {} && tessel={} && {}", folder.path().string(), TESSEL_PROGRAM, line).c_str());
}

} // namespace

// Every source holds the same four events.
TEST(Import, ReadsTextNpyAndNumbersAlone)
{
    const TempFolder folder;
    write(folder, "t.u64", packed<uint64_t>({5, 7, 7, 5'000'000'000'000}));
    write(folder, "c.u8", packed<uint8_t>({1, 2, 1, 3}));
    write(folder, "c.bin", packed<uint16_t>({1, 2, 1, 3}));
    write(folder, "rows.bin",
          packed<uint64_t>({5}) + "\1" + packed<uint64_t>({7}) + "\2" + packed<uint64_t>({7}) + "\1" +
              packed<uint64_t>({5'000'000'000'000}) + "\3");
    write(folder, "big.npy", npy("'>i8'", "4,", packed<int64_t>({5, 7, 7, 5'000'000'000'000}, true)));
    write(folder, "f.npy", npy("'<f8'", "4,", packed<double>({5e-12, 7e-12, 7e-12, 5})));
    write(folder, "two.npy", npy("'<f8'", "4, 2", packed<double>({1, 2, 1, 3, 5, 7, 7, 5e12}), true));
    write(folder, "fields.npy",
          npy("[('ch', '|u1'), ('t', '<u4')]", "2,", packed<uint8_t>({1, 5, 0, 0, 0, 2, 7, 0, 0, 0})));
    write(folder, "others.npy", // what is no number is passed over
          npy("[('s', '|S1'), ('time', '<u2'), ('', '|V1'), ('channel', '|u1')]", "2,",
              std::string("x\5\0x\1x\7\0x\2", 10)));
    const std::string whole = "5@1 7@2 7@1 5000000000000@3";
    const struct
    {
        std::string Text, Line, Expected;
    } cases[] = {
        {"", "--times t.u64 --channels c.u8", whole},
        {"", "t.u64 --channels c.bin:u16", whole},
        {"", "rows.bin --raw u64,u8", whole},
        {"", "big.npy --channels c.u8", whole},
        {"", "f.npy --channels c.u8 --tick 1s", whole},
        {"", "two.npy --times 2 --channels 1", whole},
        {"", "fields.npy --times t --channels ch", "5@1 7@2"},
        {"", "others.npy", "5@1 7@2"},
        {"when\n5,1\n7,2\n", "x.csv", "5@1 7@2"}, // fewer names than columns
        {"# mine\ntime_ns,channel\n0.005,1\n.007,2\n7e-3,1\n5.0E+9,3\n", "x.csv", whole},
        {"\xEF\xBB\xBF\"det\";\"t\"\r\n\"1\";5\r\n2;7\r\n\r\n1;7\r\n3;5000000000000",
         "x.csv --times t --channels det", whole},
        {"# channel  time\n 1   5\n 2   7\n% no\n 1   7\n 3   5000000000000  \n", "x.csv", whole},
        {"\t5\t1\n\t7\t2\n", "x.csv --times 2 --channels 3", "5@1 7@2"},
        {"5\n7\n", "x.csv", "5@1 7@1"},
        {"3,9,20\n3,0,2\n4,1,21\n",
         "x.csv --microtimes 3 --sync-rate 80MHz --microtime-unit 4ps --resolution 8ps --map 0-9",
         "3.10@10 3.1@1 4.11@2"},
    };
    for (const auto &given : cases) {
        write(folder, "x.csv", given.Text);
        const Ended ended = run(folder, "import own.tgx " + given.Line + " --force");
        EXPECT_EQ(ended.Code, 0) << given.Line << "\n" << ended.Err;
        EXPECT_EQ(events(folder), given.Expected) << given.Line;
    }
}

// Whatever unfold writes of a recording becomes the same recording: syncs, markers, an event at 0, long gaps.
TEST(Import, TakesBackWhatUnfoldWrites)
{
    const TempFolder folder;
    write(folder, "x.csv", "0,0\n3,1\n3,2\n40000000,129\n99000000000,4\n99000000000,143\n");
    output(folder, "import t2.tgx x.csv --tick 4ps --resolution 4ps --map codes --keep-zero");
    write(folder, "y.csv", "sync,dtime,channel\n0,0,1\n1,32767,2\n1,5,64\n9999999999,1,1\n10000000000,0,130\n");
    output(folder,
           "import t3.tgx y.csv --sync-period 13.5ns --microtime-unit 25ns/4096 --map codes --keep-zero");
    const struct
    {
        const char *File, *Units, *Raw;
    } cases[] = {{"t2", "", "u64,u8"}, {"t3", "--sync-period 13.5ns --microtime-unit 25ns/4096", "t3,u8"}};
    for (const auto &given : cases) {
        const std::string file = given.File,
                          options = fmt::format("{} --map codes --keep-zero -q", given.Units);
        const std::string expected = events(folder, file + ".tgx");
        const std::string lines[] = {
            fmt::format("$tessel unfold {}.tgx -q | $tessel import own.tgx - --force -q", file),
            fmt::format(
                "$tessel unfold {0}.tgx -q --npy -o {0}.npy && $tessel import own.tgx {0}.npy {1} --force",
                file, options),
            fmt::format("$tessel unfold {}.tgx -q --binary -o - | $tessel import own.tgx - --raw {} {} --force",
                        file, given.Raw, options)};
        for (const std::string &line : lines) {
            EXPECT_EQ(shell(folder, line), 0) << line;
            EXPECT_EQ(events(folder), expected) << line;
        }
        EXPECT_EQ(std::ranges::count(expected, '@'), file == "t2" ? 6 : 5) << expected;
    }
    EXPECT_TRUE(contains(output(folder, "unfold t2.tgx --to 1us"), "\n# partial: up to 1us\n"));
}

// Against exact arithmetic, at every fraction that a rounding can meet.
TEST(Import, ScalesTimesExactly)
{
    using namespace Tessel::Cli;
    std::mt19937_64 random(7);
    for (const char *tick :
         {"17.857ps", "25ns/4096", "2.5ns/140", "2^-20s", "1ns", "1ps/3", "4611686018427387903ps/2"}) {
        const Fraction ps = parsePeriodPs(tick);
        TimeScale scale = makeTimeScale(ps, (uint64_t(1) << 63) - 1);
        uint64_t largest = 0;
        for (int i = 0; i < 20000; ++i) {
            const uint64_t number = (random() >> (random() % 64)) % scale.MostNumber;
            const Wide product = Wide(number) * ps.Num, units = (2 * product + ps.Den) / (2 * Wide(ps.Den));
            ASSERT_TRUE(toUnits(scale, number) == units) << tick << " " << number;
            const Wide back = units * ps.Den;
            largest =
                std::max(largest, static_cast<uint64_t>(back > product ? back - product : product - back));
        }
        EXPECT_EQ(scale.LargestRounding, largest) << tick;
        EXPECT_TRUE(Wide(scale.MostNumber) * ps.Num / ps.Den < Wide(1) << 63);
    }
    const std::pair<const char *, Fraction> texts[] = {
        {"80MHz", {12'500, 1}},  {"13.5ns/4096", {3375, 1024}}, {"2^-20s", {244140625, 256}}, {"1.5", {3, 2}},
        {"2.5ns/140", {125, 7}}, {"1e-3 ns", {1, 1}},           {"3*2ns", {6000, 1}}};
    for (const auto &[text, fraction] : texts) EXPECT_TRUE(parsePeriodPs(text) == fraction) << text;
}

TEST(Import, SortsShiftsMapsAndSplits)
{
    const TempFolder folder;
    const struct
    {
        std::string Text, Line, Expected, Note;
    } cases[] = {
        {"9,1\n5,1\n7,2\n5,3\n", "--sort", "5@1 5@3 7@2 9@1", "steps back: 2, largest 4 ps"},
        {"0,1\n2,2\n", "--tick 1ns", "1000@1 3000@2", "1 tick of 1 ns"},
        {"0,1\n2,2\n", "--resolution 4ps", "4@1 8@2", "by at most 2 ps"},
        {"0.5,1\n0,2\n", "--tick 1ns --sort", "1@2 501@1", "later by 1 ps"},
        {"1700000000000000000,1\n1700000000000000002,2\n", "--tick 1ns --from-first", "1000@1 3000@2",
         "taken off"},
        {"1,0\n2,9\n", "", "1@1 2@10", "0 is input 1, 9 is input 10"},
        {"1,5\n2,9\n3,7\n4,1\n", "--map 9,1-2,5=sync,7=marker2", "1@0 2@1 3@130 4@2", ""},
        {"1,5\n2,9\n", "--map 9", "2@1", "1 events of channels that --map doesn't name"},
        {"1,5\n2,9\n", "--sync 5", "1@0 2@9", ""},
    };
    for (const auto &given : cases) {
        write(folder, "x.csv", given.Text);
        const Ended ended = run(folder, "import own.tgx x.csv --force " + given.Line);
        EXPECT_TRUE(contains(ended.Err, given.Note)) << given.Line << "\n" << ended.Err;
        EXPECT_EQ(events(folder), given.Expected) << given.Line;
    }
    write(folder, "x.csv", "1,200\n2,64\n3,0\n4,63\n");
    const auto split = json(folder, "import many.tgx x.csv --sync 200");
    EXPECT_EQ(split.at("files").as_array().size(), 2u);
    EXPECT_EQ(events(folder, "many-1.tgx"), "1@0 3@1 4@64");
    EXPECT_EQ(events(folder, "many-2.tgx"), "1@0 2@1");
    // Far more than are sorted at once, in blocks of falling order.
    std::string text, expected;
    for (int i = 0; i < 300'000; ++i) text += fmt::format("{},1\n", i / 1000 * 1000 + 1000 - i % 1000);
    write(folder, "x.csv", text);
    output(folder, "import own.tgx x.csv --sort --force");
    std::istringstream lines(output(folder, "unfold own.tgx"));
    int next = 0;
    for (std::string line; std::getline(lines, line);)
        if (line[0] >= '0' && line[0] <= '9') next += std::stoi(line) == next + 1;
    EXPECT_EQ(next, 300'000);
}

// One line with file, place and why, and nothing is left behind.
TEST(Import, RefusesWhatIsWrong)
{
    const TempFolder folder;
    write(folder, "t.u64", packed<uint64_t>({5, 7}));
    write(folder, "odd.u64", "123456789");
    write(folder, "c.u8", "\1");
    write(folder, "minus.npy", npy("'<i4'", "2,", packed<int32_t>({5, -7})));
    write(folder, "nan.npy", npy("'<f8'", "2,", packed<double>({5, std::nan("")})));
    write(folder, "cut.npy", npy("'<u8'", "3,", packed<uint64_t>({5, 7})));
    write(folder, "cube.npy", npy("'<u8'", "1, 1, 1", packed<uint64_t>({5})));
    const struct
    {
        int Code;
        std::string Text, Line, Expected;
    } cases[] = {
        {1, "5,1\n7,x\n", "x.csv", "x.csv: line 2: \"x\" is no number"},
        {1, "5,1\n-7,1\n", "x.csv", "line 2: \"-7\" is negative"},
        {1, "5,1\n7\n", "x.csv", "line 2: has 1 column"},
        {1, "5,1\n7,70000\n", "x.csv", "line 2: 70000 is no channel"},
        {1, "5,1\n7,1.5\n", "x.csv", "line 2: 1.5 is no channel"},
        {1, "99999999999999999999,1\n", "x.csv", "has too many digits"},
        {1, "5,1\n9999999,1\n", "x.csv --tick 1s", "line 2: time 9999999 is later"},
        {1, "5,1\n# c\n4,1\n", "x.csv", "line 3 goes back by 1 ps"},
        {1, "5,1\n1,1\n", "x.csv --sort=3ps", "beyond --sort 3ps"},
        {1, "1,1,40000\n", "x.csv --microtimes 3 --sync-rate 1MHz --microtime-unit 1ps",
         "microtime 40000 is beyond"},
        {1, "", "x.csv", "has no line of numbers"},
        {2, "1,1\n", "x.csv --tick 5xs", "--tick \"5xs\": unknown unit"},
        {2, "1,1\n", "x.csv --tick 0ns", "above 0"},
        {2, "1,1\n", "x.csv --times when", "no such column"},
        {2, "1,1\n", "x.csv --map 1=65x", "--map 1=65x"},
        {2, "1,1\n", "x.csv --mode t3", "--sync-period or --sync-rate"},
        {2, "1,1\n", "x.csv --sync-period 1e-12ps", "466ps to 1000000s"},
        {2, "", "", "what to import?"},
        {3, "", "none.csv", "none.csv: "},
        {1, "", "t.u64 --channels c.u8", "t.u64 has 2 numbers, c.u8 has 1"},
        {1, "", "odd.u64", "9 bytes aren't a whole number of rows"},
        {1, "", "minus.npy", "minus.npy: row 2: -7 is negative"},
        {1, "", "nan.npy", "nan.npy: row 2: nan is no time"},
        {1, "", "cut.npy", "has 144 bytes, but 152 by its header"},
        {1, "", "cube.npy", "an array of 3 axes"},
    };
    for (const auto &given : cases) {
        write(folder, "x.csv", given.Text);
        answered(folder, "import own.tgx " + given.Line, given.Code, given.Expected);
        for (const auto &file : std::filesystem::directory_iterator(folder.path()))
            EXPECT_NE(file.path().extension(), ".tgx") << given.Line;
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 10) << given.Line;
    }
}

TEST(Import, EndsByCtrlCWhileNobodyWritesToItsPipe)
{
    const TempFolder folder;
    const std::string pipe = folder.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Started waiting = start(folder, "import own.tgx pipe");
    const Ended ended = waiting.interruptWhen([&] {
        std::error_code gone; // the program opens and closes others meanwhile
        for (const auto &file :
             std::filesystem::directory_iterator(fmt::format("/proc/{}/fd", waiting.Id), gone))
            if (std::filesystem::read_symlink(file.path(), gone) == pipe) return true;
        return false;
    });
    EXPECT_EQ(ended.Code, 130) << ended.Err;
}
