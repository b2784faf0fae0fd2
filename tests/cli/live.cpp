// What a run shows while it goes on: the picture on a terminal of any size, lines of JSON.
#include "terminal.h"

#include <algorithm>

using namespace TestSupport;

namespace {

// Each picture fills the terminal that it was drawn for, in whatever size: all rows, all as wide.
void expectRectangles(const std::vector<std::vector<std::string>> &pictures)
{
    for (const auto &rows : pictures)
        for (const std::string &row : rows) EXPECT_EQ(columnsOf(row), columnsOf(rows.front())) << row;
}

} // namespace

TEST(Live, FitsEverySizeOfTheTerminalAndLeavesTheLastPicture)
{
    const TempFolder folder;
    for (const char *locale : {"C.UTF-8", "C"}) {
        Terminal terminal(folder, "histogram --sim --live --interval 20ms", "xterm", locale, 80, 24);
        for (const auto &[columns, rows] : {std::pair{80, 24}, {20, 8}, {200, 50}, {3, 2}, {1, 1}, {60, 20}}) {
            terminal.resize(columns, rows);
            const auto fits = [&, columns = columns, rows = rows] {
                const auto pictures = picturesIn(terminal.Seen);
                return !pictures.empty() && pictures.back().size() == static_cast<size_t>(rows) &&
                       columnsOf(pictures.back()[0]) == static_cast<size_t>(columns);
            };
            ASSERT_TRUE(terminal.readUntil(fits)) << columns << " x " << rows << "\n" << terminal.Seen;
        }
        ASSERT_TRUE(terminal.readUntil([&] { return contains(terminal.Seen, "Channel 4 ("); }));
        kill(terminal.Id, SIGINT);
        EXPECT_EQ(terminal.wait(), 130);
        expectRectangles(picturesIn(terminal.Seen));
        const size_t left = terminal.Seen.rfind("\033[?1049l");
        ASSERT_NE(left, std::string::npos);
        const std::string after = terminal.Seen.substr(left);
        EXPECT_TRUE(contains(after, "Channel 4 (")) << after;
        EXPECT_FALSE(contains(after, "time_ps")) << after;
        const bool isAscii = std::ranges::all_of(terminal.Seen, [](char byte) { return byte >= 0; });
        EXPECT_EQ(isAscii, std::string_view(locale) == "C");
    }
}

TEST(Live, IsOffWhereNothingCanBeDrawn)
{
    const TempFolder folder;
    Terminal dumb(folder, "histogram --sim --live --for 200ms", "dumb", "C.UTF-8", 80, 24);
    EXPECT_EQ(dumb.wait(), 0);
    EXPECT_EQ(dumb.Seen.find('\033'), std::string::npos);
    EXPECT_TRUE(contains(dumb.Seen, "time_ps"));
    const std::string csv = output(folder, "histogram --sim --live --for 200ms");
    EXPECT_TRUE(csv.starts_with("# tessel.histogram/1\n"));
}

TEST(JsonLines, GrowUpToTheResult)
{
    const TempFolder folder;
    simulateT2(folder, "--duration 1s --rate 1Mcps");
    for (const char *line : {"histogram --sim --for 2s", "trace --sim --for 600ms", "g2 --sim --for 600ms",
                             "fcs --sim --for 600ms --max-lag 1ms", "hist2d --sim --for 600ms",
                             "fold --sim --for 600ms --period 200ns", "histogram light.tgx"}) {
        std::istringstream lines(output(folder, std::string(line) + " --json-lines --interval 50ms"));
        double update = 0, records = 0;
        bool isFinal = false;
        for (std::string text; std::getline(lines, text);) {
            EXPECT_FALSE(isFinal) << "a line behind the last one";
            const auto result = boost::json::parse(text).as_object();
            EXPECT_EQ(result.at("update").to_number<double>(), ++update);
            const double read = result.at("run").at("recordsRead").to_number<double>();
            EXPECT_GE(read, records);
            records = read;
            isFinal = result.at("final").as_bool();
            EXPECT_EQ(result.at("run").at("complete"), isFinal);
        }
        EXPECT_TRUE(isFinal) << line;
        EXPECT_GT(records, 1000) << line;
        EXPECT_TRUE(update > 1 || !contains(line, "--sim")) << line;
    }
}
