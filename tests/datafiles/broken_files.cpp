// Files that are none of ours, or damaged: no device or one of defaults, and a line in the log.
#include "log/text.h"
#include "opened.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>

using namespace Tessel;
using namespace TestSupport;

TEST(FileDevice, WhatIsNoFileMakesNoDevice)
{
    TempFolder folder;
    std::string pipe = folder.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string empty = folder.file("empty.tgx"); // makes one of defaults
    std::ofstream{empty};
    for (const std::string &path : {folder.file("absent.tgx"), folder.path().string(), pipe,
                                    std::string("/dev/zero"), std::string(), empty}) {
        LogCapture log;
        const auto opened = openPath(path);
        EXPECT_EQ(opened->good, path == empty) << path;
        EXPECT_EQ(opened->device.DataStart, 0u) << path;
        const char *what = path == empty ? "empty!" : "read Error!";
        EXPECT_EQ(log.count(fmt::format("ERR File: {} {}", normalPath(path), what)), 1u) << path;
    }
}

TEST(FileDevice, OddFilesMakeADeviceOfDefaults)
{
    const std::string_view emptyTag = "WRN Empty Tag @ OpenTGXFile ", read = "MeasMode=2",
                           unread = "MeasMode=3";
    const uint64_t ones = ~uint64_t{0};
    // File, DataStart; the mode, which is 3 unless the tag was read; the line in the log, and no other of what
    // is wrong.
    const std::tuple<TgxFile, uint64_t, std::string_view, std::string_view> cases[] = {
        {mode(2).preamble("NOTOURS!", "9.9"), 112, read, "INF Preamble: NOTOURS! v9.9"},
        {mode(2).withoutEnd(), 0, unread, ""},
        {TgxFile().preamble("", "").withoutEnd(), 0, unread, ""},
        {mode(2).tag("$Comment", std::string(300000, 'x')), 0, unread, ""}, // the end lies beyond the image
        {mode(2).withoutEnd().raw("Header_End", -1, Type::AnsiString, uint64_t{1} << 40), 0, unread, ""},
        {mode(2).raw("$Comment", -1, Type::AnsiString, 1000), 160, read, emptyTag},
        {mode(2).raw("$Comment", -1, Type::BinaryBlob, ones), 160, read, emptyTag},
        {mode(2).raw("x", -1, Type::BinaryBlob, ones - 47), 160, read, emptyTag}, // would wrap to itself
        {TgxFile().tag("", 5).tag("Measurement_Mode", 2), 160, unread, emptyTag},
        {mode(2).tag("$Comment", "Header_End"), 16 + 48 + 48 + 48, read, emptyTag},
        {one("HW_Type", "\x1b[2J"), 16 + 48 + 8 + 48, unread, "ERR File: Not supported HW_Type: \\x1B[2J!"},
    };
    for (const auto &[file, dataStart, mode, line] : cases) {
        SCOPED_TRACE(fmt::format("{} {}", dataStart, line));
        LogCapture log;
        auto opened = openBytes(file);
        EXPECT_TRUE(opened->good);
        EXPECT_EQ(opened->device.DataStart, dataStart);
        EXPECT_EQ(missing(*opened, mode), "");
        EXPECT_EQ(log.count(emptyTag), line == emptyTag ? 1u : 0u);
        EXPECT_TRUE(line.empty() || log.count(line) == 1);
    }
}

TEST(FileDevice, OutOfRangeIsToldOnceAKind)
{
    LogCapture log;
    openBytes(one("HW_InpChannels", -1)
                  .tag("HW_Markers", 5000)
                  .tag("HWInpChan_Offset", 1, -1)
                  .tag("HWMarkers_Enabled", 1, 9999)
                  .tag("HWInpChan_Name", "x", 3));
    EXPECT_EQ(log.count("is out of range and ignored"), 2u);
    EXPECT_EQ(log.count("WRN File: HW_InpChannels [-1] value -1 is out of range"), 1u);
    EXPECT_EQ(log.count("WRN File: HWInpChan_Offset [-1] value 1 is out of range"), 1u);
}

TEST(FileDevice, IdFitsTheHostsBuffer)
{
    QuietDataFile quiet;
    std::string serial;
    while (serial.size() < 20000) serial += "\u00e9"; // two bytes each
    for (const char *name : {"c.tgx", "cc.tgx"}) {
        auto opened = openBytes(one("HW_SerialNo", serial), name);
        const std::string &id = opened->device.ID;
        EXPECT_LE(id.size() + 1, 8192u);
        EXPECT_GE(id.size() + 1, 8190u);
        EXPECT_TRUE(id.ends_with(std::string("\u00e9@") + name)) << "cut between two characters";
    }
}

// Nothing of a broken header may crash, hang or read beyond its bytes.
TEST(FileDevice, EveryPrefixAndEveryFlippedByte)
{
    QuietDataFile quiet;
    LogCapture log;
    TempFolder folder;
    TgxFile file = TgxFile::t3(2).tag("File_Comment", "c").wide("AnaChName", u"wide", 0);
    file.raw("ChkHistogram", -1, Type::BinaryBlob, 3, "abc").tag("HW_Markers", 4).tag("HWInpChan_Name", "n", 1);
    const std::string whole = file.bytes();
    std::string path = file.write(folder.file("f.tgx"));
    auto openIt = [&] {
        auto opened = openPath(path);
        EXPECT_TRUE(opened->good);
        EXPECT_LE(opened->device.DataStart, whole.size());
        EXPECT_LE(opened->device.ChansCfg.size(), 4096u);
    };
    std::fstream stream(path, std::ios::binary | std::ios::in | std::ios::out);
    auto put = [&](size_t at, int byte) {
        stream.seekp(static_cast<std::streamoff>(at));
        stream.put(static_cast<char>(byte)).flush();
    };
    for (size_t at = 0; at < whole.size(); ++at) {
        for (int flip : {0xFF, 0x80, 0x01, 0x20}) {
            put(at, whole[at] ^ flip);
            openIt();
        }
        put(at, whole[at]);
    }
    for (size_t size = whole.size(); size-- > 0;) {
        std::filesystem::resize_file(path, size);
        openIt();
    }
}
