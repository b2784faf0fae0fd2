// The queue and its writer thread from start to stop.
#include "log/folder.h"
#include "log/log.h"
#include "log/text.h"
#include "support/log_capture.h"
#include "support/refused_memory.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <thread>

using namespace Tessel;
using namespace TestSupport;

namespace {

using Lines = std::vector<std::string>;
const std::string hyphens = "INF " + std::string(46, '-');

TEST(Log, ARunStandsBetweenItsBanners)
{
    const TempFolder folder;
    const std::string below = folder.file("Data/Logs");
    startLog(true, false, below, "Tessel", "Tessel v1.2.3.7");
    logExt("");
    stopLog();
    const std::string shown = normalPath(below);
    const Lines lines = logLines(below);
    ASSERT_EQ(lines.size(), 10u);
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 6),
              (Lines{hyphens, "INF INIT", "INF Tessel Tessel v1.2.3.7", "INF Create Folder: \"" + shown + "\"",
                     "INF Create Folder: " + shown, "INF Create directory \"" + shown + "\":"}));
    EXPECT_EQ(countLines(lines, "EXT "), 1u);
    EXPECT_EQ(countLines(lines, "INF Create " + shown + "\\"), 1u);
    EXPECT_EQ(countLines(lines, "INF EXIT"), 1u);
    EXPECT_EQ(countLines(lines, hyphens), 2u);
}

TEST(Log, BothOutputsOffQueueNothingAndMakeNoFolder)
{
    const TempFolder folder;
    startLog(false, false, folder.file("Logs"), "Tessel", "v1");
    logErr(LogCategory::General, "lost");
    stopLog();
    EXPECT_FALSE(std::filesystem::exists(folder.file("Logs")));
    startLog(true, false, folder.path().string(), "Tessel", "v1");
    stopLog();
    EXPECT_EQ(countLines(logLines(folder.path()), "lost"), 0u);
}

TEST(Log, StartAndStopInAnyOrder)
{
    const TempFolder folder;
    stopLog();
    for (int run = 0; run < 5; run++) {
        startLog(true, false, folder.path().string(), "Tessel", "v1");
        startLog(false, false, "/elsewhere", "Tessel", "v1");
        logWrn(LogCategory::General, "run {}", run);
        stopLog();
        stopLog();
        logWrn(LogCategory::General, "waits {}", run); // for the next start
    }
    const Lines lines = logLines(folder.path());
    EXPECT_EQ(countLines(lines, "run "), 5u);
    EXPECT_EQ(countLines(lines, "waits "), 4u);
    EXPECT_EQ(countLines(lines, "INIT"), 5u);
}

// The writer's thread may not be the first that asks for the zone: a host may be setting a variable.
TEST(Log, TheZoneIsReadByTheThreadThatStarts)
{
    setenv("TZ", "TST-05:30", 1);
    startLog(false, false, "/elsewhere", "Tessel", "v1");
    EXPECT_EQ(timezone, -(5 * 60 + 30) * 60);
    stopLog();
    unsetenv("TZ");
    tzset();
}

// Posted while nobody writes: the record that finds the queue full stands alone in it, and the console hears of
// it.
TEST(Log, AFullQueueIsDropped)
{
    for (const size_t posted : {4096u, 4097u, 9000u}) {
        {
            LogCapture drain;
        }
        const TempFolder folder;
        const auto startAndStop = [&] {
            startLog(true, true, folder.path().string(), "Tessel", "v1");
            stopLog();
        };
        LogLevel.Api = false; // the banners would count too
        testing::internal::CaptureStdout();
        startAndStop(); // from here on records wait for the next start
        for (size_t i = 0; i < posted; i++) logWrn(LogCategory::General, "waiting {}", i);
        startAndStop();
        LogLevel.Api = true;
        const std::string console = testing::internal::GetCapturedStdout();
        const Lines lines = logLines(folder.path());
        const size_t dropped = (posted - 1) / 4096 * 4096;
        EXPECT_EQ(countLines(lines, "waiting "), posted - dropped);
        EXPECT_EQ(lines.at(0), fmt::format("WRN waiting {}", dropped));
        EXPECT_EQ(countLines(lines, "INIT") + countLines(lines, "EXIT"), 0u) << "no banners";
        EXPECT_EQ(console.find("Buffer overrun in Log!!!\n") != std::string::npos, dropped > 0);
    }
}

TEST(Log, ThreadsKeepTheirOrder)
{
    LogCapture log;
    constexpr int threads = 4, records = 500;
    std::vector<std::thread> posters;
    for (int t = 0; t < threads; t++)
        posters.emplace_back([t] {
            for (int i = 0; i < records; i++) logWrn(LogCategory::Device, "thread {} record {}", t, i);
        });
    for (std::thread &poster : posters) poster.join();
    for (int t = 0; t < threads; t++) {
        Lines expected, written;
        for (int i = 0; i < records; i++) expected.push_back(fmt::format("WRN thread {} record {}", t, i));
        std::ranges::copy_if(log.lines(), std::back_inserter(written), [&](const std::string &line) {
            return line.starts_with(fmt::format("WRN thread {} ", t));
        });
        EXPECT_EQ(written, expected);
    }
}

TEST(Log, LongTextsAreCutBetweenCharacters)
{
    LogCapture log;
    logExt(std::string(65536, 'a'));
    logExt(std::string(65537, 'b'));
    logExt(std::string(65535, 'c') + "\xC3\xBC and more");
    Lines texts;
    for (const std::string &line : log.lines())
        if (line.starts_with("EXT ")) texts.push_back(line.substr(4));
    EXPECT_EQ(texts, (Lines{std::string(65536, 'a'), std::string(65536, 'b'), std::string(65535, 'c')}));
}

// Whoever logs goes on, and so does the writer: each line is there, or counted in one that is.
TEST(Log, WithoutMemoryLinesAreLostAndCounted)
{
    LogCapture log;
    size_t posted = 0;
    auto postFor = [&posted](std::chrono::milliseconds time) {
        const auto end = std::chrono::steady_clock::now() + time;
        for (; std::chrono::steady_clock::now() < end; ++posted) {
            logWrn(LogCategory::General, "a line that is longer than a string holds in itself, {}", posted);
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    };
    for (int turn = 0; turn < 20; ++turn) {
        postFor(std::chrono::milliseconds(5));
        const RefusedMemory refused;
        postFor(std::chrono::milliseconds(20)); // the writer looks every 10 ms
        if (turn > 0) continue;
        logErr(LogCategory::General, "File: {} has {}", "a.tgx", 5);
        ++posted;
        EXPECT_EQ(lastError(), "File: a.tgx has 5");
    }
    size_t written = 0, lost = 0;
    for (const std::string &line : log.lines()) {
        if (line.starts_with("WRN a line that is")) ++written;
        if (line.starts_with("WRN Log: no memory for ")) lost += std::stoul(line.substr(23));
    }
    EXPECT_GT(written, 0u);
    EXPECT_GT(lost, 0u);
    EXPECT_EQ(written + lost, posted);
}

TEST(Log, TextsAreShownAndOwnLineFeedsStay)
{
    LogCapture log;
    logErr(LogCategory::General, "first {}\nsecond {:6}@{}", "a\nb\x1B[2J", "\xC2\x85",
           std::string("\xE2\x80\xAE"));
    EXPECT_EQ(lastError(), "first a\\x0Ab\\x1B[2J\nsecond \\xC2\\x85@\\xE2\\x80\\xAE");
    logExternal("x\ny");
    EXPECT_EQ(logLastError("File: none", 0), "");
    EXPECT_EQ(logLastError("File: c\rd", ENOENT), "No such file or directory");
    EXPECT_EQ(log.count("ERR first a\\x0Ab\\x1B[2J"), 1u);
    EXPECT_EQ(log.count("second \\xC2\\x85@\\xE2\\x80\\xAE"), 1u);
    EXPECT_EQ(log.count("EXT x\\x0Ay"), 1u);
    EXPECT_EQ(log.count("ERR File: c\\x0Dd 2 No such file or directory"), 1u);
    EXPECT_EQ(log.count("none"), 0u);
}

TEST(Log, FoldersThatCanNotBeMade)
{
    const TempFolder folder;
    LogCapture log;
    EXPECT_EQ(createFolder(folder.file("a/b\\c/")), 0);
    EXPECT_TRUE(std::filesystem::is_directory(folder.file("a/b/c")));
    EXPECT_EQ(createFolder(folder.file("a/b")), 0) << "is there, so not a word";
    EXPECT_EQ(createFolder("/proc/Tessel/Logs"), ENOENT);
    EXPECT_EQ(createFolder("/dev/null"), ENOTDIR);
    EXPECT_EQ(log.count("INF Create Folder: "), 3u);
    EXPECT_EQ(log.count("INF Create directory \""), 1u);
    EXPECT_EQ(log.count("ERR filesystem error: create_directories: "), 2u);
}

TEST(Log, ALogFolderThatCanNotBeMadeStopsNothing)
{
    testing::internal::CaptureStdout();
    startLog(true, true, "/dev/null/Logs", "Tessel", "v1");
    logWrn(LogCategory::General, "still here");
    stopLog();
    const std::string console = testing::internal::GetCapturedStdout();
    EXPECT_NE(console.find("WRN still here\n"), std::string::npos);
    EXPECT_NE(console.find("20 Not a directory\n"), std::string::npos);
    EXPECT_NE(console.find("ERR Log: Create directory for logfiles \"\\dev\\null\\Logs\": 20 Not a directory"),
              std::string::npos);
    EXPECT_NE(console.find("ERR Log: Create logfile \"\\dev\\null\\Logs\\"), std::string::npos);
    LogCapture drain;
}

TEST(Log, AHostPostsAndSwitches)
{
    LogCapture log;
    logError("lamp {} \xC3\xBC");
    logError(nullptr);
    logExternal("shutter open");
    std::atomic<bool> *const switches[] = {&LogLevel.Api, &LogLevel.Config, &LogLevel.Device,
                                           &LogLevel.DataFile, &LogLevel.Manipulators};
    for (int32_t level = 0; level < 5; level++)
        for (const bool wanted : {false, true, switches[level]->load()}) {
            setLogLevel(level, wanted);
            EXPECT_EQ(*switches[level], wanted) << level;
        }
    setLogLevel(5, 1);
    setLogLevel(-1, 1);
    EXPECT_EQ(log.count("ERR Ext.-Error: lamp {} \xC3\xBC"), 1u);
    EXPECT_EQ(log.count("ERR Ext.-Error: "), 2u);
    EXPECT_EQ(log.count("EXT shutter open"), 1u);
    EXPECT_EQ(log.count("Invalid logLevel"), 2u);
}

} // namespace
