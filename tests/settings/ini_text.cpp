#include "settings/ini_text.h"

#include "support/log_capture.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <random>
#include <sys/stat.h>

using namespace Tessel;
using namespace TestSupport;

namespace {

// "[Section] key=value|key=value" for each section, in order.
std::string show(const std::optional<IniText> &text)
{
    if (!text) return "refused";
    std::string shown;
    for (const IniSection &section : *text) {
        shown += "[" + section.Name + "]";
        for (const IniEntry &key : section.Keys) shown += " " + key.Name + "=" + key.Value + ";";
    }
    return shown;
}

TEST(IniText, SectionsAndKeysInTheOrderOfTheText)
{
    const struct
    {
        const char *name;
        std::string text, expected;
    } cases[] = {
        {"order isn't that of the names", "[b]\nz=1\na=2\n[a]\nm=3\n", "[b] z=1; a=2;[a] m=3;"},
        {"no key", "[b]\n[a]\n", "[b][a]"},
        {"repeated key", "[s]\na=1\nb=2\na=3\n", "[s] a=1; b=2; a=3;"},
        {"repeated section", "[s]\na=1\n[t]\nb=2\n[s]\na=3\n", "[s] a=1;[t] b=2;[s] a=3;"},
        {"case", "[S]\na=1\n[s]\nA=2\na=3\n", "[S] a=1;[s] A=2; a=3;"},
        {"blanks and line ends", "  [ s ]\r\n a \t=  1 , 2  \r\n", "[s] a=1 , 2;"},
        {"keys above the first section", "a=1\n[s]\nb=2\n", "[] a=1;[s] b=2;"},
        {"byte order mark", "\xEF\xBB\xBF[s]\na=1\n", "[s] a=1;"},
        {"broken lines", "[s\nnonsense\n=1\n[s]\n===\na=b=c\na=\n", "[s] a=b=c; a=;"},
        {"NUL ends the text", std::string("[s]\na=1\n\0b=2\n", 13), "[s] a=1;"},
    };
    for (const auto &c : cases) EXPECT_EQ(show(parseIni(c.text)), c.expected) << c.name;
}

TEST(IniText, OnlyARegularFileOfBearableSizeIsRead)
{
    const TempFolder folder;
    std::ofstream(folder.file("good")) << "[s]\na=1\n";
    ASSERT_EQ(mkfifo(folder.file("fifo").c_str(), 0600), 0);
    std::ofstream(folder.file("huge")) << "";
    std::filesystem::resize_file(folder.file("huge"), (16u << 20) + 1);
    const struct
    {
        std::string path;
        int error; // 0: is read
    } cases[] = {
        {folder.file("good"), 0},         {folder.path().string() + "\\good", 0},
        {folder.file("none"), ENOENT},    {folder.file("fifo"), EINVAL},
        {folder.path().string(), EISDIR}, {"/dev/zero", EINVAL},
        {folder.file("huge"), EFBIG},     {"", ENOENT},
    };
    for (const auto &c : cases) {
        const int error = readIniFile(c.path) ? 0 : errno;
        EXPECT_EQ(error, c.error) << c.path;
    }
}

TEST(IniText, NumbersAndBooleans)
{
    LogCapture log;
    const std::pair<const char *, int32_t> numbers[] = {{"0", 0},
                                                        {"-7", -7},
                                                        {"+7", 7},
                                                        {" 12\t", 12},
                                                        {"007", 7},
                                                        {"2147483647", INT32_MAX},
                                                        {"-2147483648", INT32_MIN}};
    for (const auto &[text, value] : numbers) EXPECT_EQ(iniInteger(text, -99), value) << text;
    const char *bad[] = {"2147483648", "", " ", "x", "1x", "1.0", "0x10", "1 2"};
    for (const char *text : bad) EXPECT_EQ(iniInteger(text, -99), -99) << text;
    EXPECT_EQ(iniUnsigned("4294967295", 1), UINT32_MAX);
    EXPECT_EQ(iniUnsigned("4294967296", 1), 1u);
    for (const bool fallback : {false, true}) {
        for (const char *text : {"True", "true", "1"}) EXPECT_TRUE(iniBoolean(text, fallback)) << text;
        for (const char *text : {"False", "false", "0"}) EXPECT_FALSE(iniBoolean(text, fallback)) << text;
        for (const char *text : {"TRUE", "yes", "", "2", "true\033"})
            EXPECT_EQ(iniBoolean(text, fallback), fallback);
    }
    EXPECT_EQ(log.count("to integer"), std::size(bad));
    EXPECT_EQ(log.count("ERR Log: Can't parse \"1.0\" to integer"), 1u);
    EXPECT_EQ(log.count("ERR Log: Can't parse \"4294967296\" to unsigned int"), 1u);
    EXPECT_EQ(log.count("ERR Log: Can't parse \"true\\x1B\" to boolean"), 2u);
}

} // namespace
