#include "settings/system_ini.h"

#include "log/log.h"
#include "log/text.h"
#include "support/log_capture.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

using namespace Tessel;
using namespace TestSupport;

namespace {

// Each test starts from what a fresh process has.
class SystemIni : public testing::Test
{
protected:
    SystemIni() : before(settings()) {}
    ~SystemIni() override
    {
        settings() = before;
        LogLevel.Api = true;
        LogLevel.Config = false;
        LogLevel.Device = true;
        LogLevel.DataFile = true;
        LogLevel.Manipulators = false;
    }

    bool load(const std::string &text)
    {
        std::ofstream(folder.file("system.ini"), std::ios::binary) << text;
        return loadSettingsIni(folder.file("system.ini"));
    }

    TempFolder folder;

private:
    const Settings before;
};

TEST_F(SystemIni, InitialValues)
{
    const Settings &now = settings();
    for (const std::string &path : {folder.file("none.ini"), folder.path().string(), std::string()})
        EXPECT_FALSE(loadSettingsIni(path)) << path;
    const auto isAbsolute = [](const char *path) { return path && *path == '/'; };
    const char *data = std::getenv("XDG_DATA_HOME"), *home = std::getenv("HOME");
    const std::string folderOfData = isAbsolute(data)   ? data
                                     : isAbsolute(home) ? std::string(home) + "/.local/share"
                                                        : "/tmp";
    EXPECT_EQ(now.DataPath, normalPath(folderOfData + "/Tessel"));
    EXPECT_EQ(now.ConfigPath, now.DataPath + "\\Configs");
    EXPECT_EQ(now.TgxFolder, "");
    EXPECT_TRUE(now.LogFile && now.LogConsole);
    EXPECT_EQ(now.BufferSize, 1048576u);
    EXPECT_EQ(now.StreamRecords, 0u);
    EXPECT_EQ(streamRecords(), minimumStreamRecords);
}

// Of the switches that the library reads: where each is kept, and what a value that is no bool makes of it.
TEST_F(SystemIni, SwitchesAndTheirFallbacks)
{
    const std::string keys[] = {
        "[Log]\nFile=",        "[Log]\nConsole=",       "[LogLevel]\nApi=",         "[LogLevel]\nConfig=",
        "[LogLevel]\nDevice=", "[LogLevel]\nDataFile=", "[LogLevel]\nManipulators="};
    const auto setAll = [&](const char *value) {
        for (const std::string &key : keys) EXPECT_TRUE(load(key + value + "\n"));
    };
    const auto shown = [] {
        return fmt::format("{:d}{:d}{:d}{:d}{:d}{:d}{:d}", settings().LogFile, settings().LogConsole,
                           LogLevel.Api.load(), LogLevel.Config.load(), LogLevel.Device.load(),
                           LogLevel.DataFile.load(), LogLevel.Manipulators.load());
    };
    for (size_t i = 0; i < std::size(keys); ++i) {
        setAll("False");
        load(keys[i] + "true\n");
        EXPECT_EQ(shown(), std::string(i, '0') + "1" + std::string(6 - i, '0'));
    }
    for (const char *kept : {"0", "1"}) {
        setAll(kept);
        setAll("maybe");
        EXPECT_EQ(shown(), "1110101");
    }
}

TEST_F(SystemIni, NumbersAndPaths)
{
    const Settings &now = settings();
    const auto shown = [&] {
        return fmt::format("{} {}x{} {},{}", now.Window.Design, now.Window.Width, now.Window.Height,
                           now.Window.PosX, now.Window.PosY);
    };
    const struct
    {
        const char *text, *expected;
    } cases[] = {
        {"[SW]\nDesign=3\nSize=800,600\nPos=-10, 20\n", "3 800x600 -10,20"},
        {"[SW]\nDesign=x\nSize=640\nPos=1,2,3\n", "1 800x600 -10,20"},
        {"[SW]\nSize=a,b\nPos=7,\n[sw]\nDesign=9\n", "1 1024x768 7,50"},
    };
    for (const auto &c : cases) {
        EXPECT_TRUE(load(c.text));
        EXPECT_EQ(shown(), c.expected) << c.text;
    }

    load("[SW]\nData=/lab/one\n");
    EXPECT_EQ(now.DataPath + "|" + now.TgxFolder, "\\lab\\one|");
    load("[Paths]\nData=/lab/tw\xC3\xB6\nConfig=c:\\cfg/x\n");
    EXPECT_EQ(now.DataPath + "|" + now.TgxFolder + "|" + now.ConfigPath,
              "\\lab\\tw\xC3\xB6|\\lab\\tw\xC3\xB6|c:\\cfg\\x");
}

TEST_F(SystemIni, BufferSize)
{
    const std::pair<std::string, uint64_t> cases[] = {
        {"1", 8388608},    {"9", 9437184},    {"32", 33554432}, {"-1", 8388608},          {"2047", 2146435072},
        {"2048", 8388608}, {"4105", 9437184}, {"x", 33554432},  {"99999999999", 33554432}};
    for (const auto &[text, records] : cases) {
        testing::internal::CaptureStdout();
        load("[Params]\nBufferSize=" + text + "\n");
        const std::string console = testing::internal::GetCapturedStdout();
        EXPECT_EQ(settings().BufferSize, records) << text;
        EXPECT_EQ(streamRecords(), records) << text;
        EXPECT_TRUE(text != "x" || console == "\033[0;31m ERR Can not parse x to boolean\n\033[0m") << console;
    }
}

TEST_F(SystemIni, Threads)
{
    const uint32_t cores = countingThreads();
    EXPECT_GE(cores, 1u);
    const std::pair<std::string, uint32_t> cases[] = {
        {"3", 3}, {"256", 256}, {"0", cores}, {"2", 2}, {"-1", cores}, {"2", 2}, {"257", cores}, {"x", cores}};
    for (const auto &[text, threads] : cases) {
        load("[Params]\nThreads=" + text + "\n");
        EXPECT_EQ(countingThreads(), threads) << text;
    }
}

TEST_F(SystemIni, TheWalkIsTracedInTheOrderOfTheFile)
{
    LogCapture log;
    load("[Toasts]\nInfo=1\nNew=2\n[Params]\nOther=5\n[Paths]\nData=/d\n[Toasts]\nInfo=\033\n");
    std::string seen;
    for (const std::string &line : log.lines())
        if (line.starts_with("DEB ") || line.starts_with("WRN ") || line.starts_with("ERR "))
            seen += line + "\n";
    EXPECT_EQ(seen, R"(DEB INI Section Toasts
DEB INI Key Info
DEB INI entry: Toasts Info 1
DEB INI Key New
DEB INI entry: Toasts New 2
WRN Unexpected Ini entry: Toasts New 2
DEB INI Section Params
DEB INI Key Other
DEB INI entry: Params Other 5
DEB INI Section Paths
DEB INI Key Data
DEB INI entry: Paths Data /d
DEB setDataFilePath \d
DEB INI Section Toasts
DEB INI Key Info
DEB INI entry: Toasts Info \x1B
ERR Log: Can't parse "\x1B" to boolean
)");
}

} // namespace
