#include "log/text.h"

#include <gtest/gtest.h>

using namespace Tessel;

namespace {

TEST(Text, VisibleShowsWhatATerminalWouldActOn)
{
    const struct
    {
        const char *name;
        std::string text, expected;
    } cases[] = {
        {"printable", "abc ~\xC3\xA4 \xF0\x9F\x98\x80", "abc ~\xC3\xA4 \xF0\x9F\x98\x80"},
        {"escape", "a\033[31m", "a\\x1B[31m"},
        {"line ends, tab, delete", "\r\n\t\x7F", "\\x0D\\x0A\\x09\\x7F"},
        {"NUL inside", std::string("a\0b", 3), "a\\x00b"},
        {"control above 0x7F", "\xC2\x9B", "\\xC2\\x9B"},
        {"turned direction", "\xE2\x80\xAE\xD8\x9C", "\\xE2\\x80\\xAE\\xD8\\x9C"},
        {"lone byte", "\xFFz", "\\xFFz"},
        {"cut sequence", "\xE2\x82", "\\xE2\\x82"},
        {"overlong slash", "\xC0\xAF", "\\xC0\\xAF"},
        {"surrogate", "\xED\xA0\x80", "\\xED\\xA0\\x80"},
        {"above 10FFFF", "\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"},
    };
    for (const auto &c : cases) EXPECT_EQ(visible(c.text), c.expected) << c.name;
}

TEST(Text, Utf16AndBack)
{
    const struct
    {
        const char *name;
        std::string bytes;
        std::u16string units;
        std::string back; // "": the same bytes
    } cases[] = {
        {"bounds", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
         u"\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF", ""},
        {"cut at the end", "a\xE2\x82", u"a\uFFFD", "a\xEF\xBF\xBD"},
        {"cut before a letter", "\xF0\x9F\x98x", u"\uFFFDx", "\xEF\xBF\xBDx"},
        {"lone tail", "\x80", u"\uFFFD", "\xEF\xBF\xBD"},
        {"overlong", "\xC0\xAF", u"\uFFFD\uFFFD", "\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"surrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(toUtf16(c.bytes), c.units) << c.name;
        EXPECT_EQ(toUtf8(c.units), c.back.empty() ? c.bytes : c.back) << c.name;
    }
    const char16_t high = 0xD83D, low = 0xDE00;
    EXPECT_EQ(toUtf8(std::u16string{high}), "\xEF\xBF\xBD");
    EXPECT_EQ(toUtf8(std::u16string{low, u'x'}), "\xEF\xBF\xBDx");
    EXPECT_EQ(toUtf8(std::u16string{high, high, low}), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
}

TEST(Text, PathForms)
{
    EXPECT_EQ(normalPath("/data/lab\\run 1/x.tgx"), "\\data\\lab\\run 1\\x.tgx");
    EXPECT_EQ(nativePath("\\data\\lab/\xC3\xBC.tgx").string(), "/data/lab/\xC3\xBC.tgx");
    EXPECT_EQ(normalPath(""), "");
    EXPECT_TRUE(nativePath("").empty());
}

} // namespace
