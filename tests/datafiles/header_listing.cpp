// What the reader makes of a tag of each type: in the listing of a header, and in a line of the log.
#include "datafiles/header_listing.h"

#include "datafiles/tag_reader.h"
#include "support/log_capture.h"
#include "support/tgx_file.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>

using namespace Tessel;
using namespace TestSupport;

namespace json = boost::json;

TEST(HeaderListing, ValuesAndTraceOfEveryType)
{
    auto number = [](uint32_t type, uint64_t value) { return TgxFile().raw("x", 7, type, value); };
    auto real = [&](uint32_t type, double value) { return number(type, std::bit_cast<uint64_t>(value)); };
    const double nan = std::nan("");
    const std::string doubles = std::string(15, '\0') + '\x40'; // 0 and 2
    // File, type, value; trace behind the type, which fills 16 places.
    const std::tuple<TgxFile, std::string_view, std::string_view, std::string_view> cases[] = {
        {number(Type::Empty8, 5), "Empty8", "null", ""},
        {number(Type::Bool8, 1), "Bool8", "true", " tValue:                1"},
        {number(Type::Int8, ~uint64_t{0}), "Int8", "-1", " tValue:               -1"},
        {number(Type::BitSet64, ~uint64_t{0}), "BitSet64", "18446744073709551615", " tValue: ffffffffffffffff"},
        {number(Type::Color8, 255), "Color8", "255", " tValue:                               ff"},
        {real(Type::Float8, 1.5), "Float8", "1.5E0", " tValue:         1.50e+00"},
        {real(Type::Float8, nan), "Float8", "null", " tValue: nan             "},
        {real(Type::TDateTime, 25569.5), "TDateTime", R"("1970-01-01T12:00:00.000")",
         " tValue: 01.01.70 12:00:00"},
        {real(Type::TDateTime, 46347.604224537), "TDateTime", R"("2026-11-21T14:30:05.000")",
         " tValue: 21.11.26 14:30:04"},
        {real(Type::TDateTime, -0.25), "TDateTime", R"("1899-12-29T18:00:00.000")",
         " tValue: 29.12.99 18:00:00"},
        {real(Type::TDateTime, 1e300), "TDateTime", "null", " tValue: 31.12.99 23:59:59"},
        {real(Type::TDateTime, nan), "TDateTime", "null", " tValue: 01.01.70 00:00:00"},
        {TgxFile().tag("x", "a\"b\x01\r\n\xFF", 7), "AnsiString", "\"a\\\"b\\u0001\\r\\n\uFFFD\"",
         " tValue: a\"b\\x01\\r\\n\\xFF"},
        {TgxFile().wide("x", u"t\u00e9", 7), "WideString", "\"t\u00e9\"", " tValue: t\u00e9"},
        {TgxFile().raw("x", 7, Type::Float8Array, 16, doubles), "Float8Array", "[0E0,2E0]", " tValue: 0, 2, "},
        {TgxFile().raw("x", 7, Type::BinaryBlob, 3, "\x01\xFF\x0A"), "BinaryBlob", R"("01ff0a")",
         " tValue: 1, 255, 10, "},
        {number(0x1234, 42), "InvalidType", "42", " tValue:               42"},
    };
    TempFolder folder;
    for (const auto &[file, type, value, trace] : cases) {
        SCOPED_TRACE(value);
        std::string path = TgxFile(file).records({1, 2}).write(folder.file("l.tgx"));
        json::object listing = json::parse(headerTagsAsJson(path).value()).as_object();
        const std::string expected =
            fmt::format(R"({{"name":"x","idx":7,"type":"{}","value":{}}})", type, value);
        EXPECT_EQ(json::serialize(listing["tags"].at(0)), expected);
        EXPECT_EQ(listing["tags"].at(1).at("name").as_string(), "Header_End");
        listing.erase("tags");
        EXPECT_EQ(json::serialize(listing),
                  fmt::format(R"({{"magic":"MVTTTR","version":"1.0.0.0","dataStart":{},"fileSize":{}}})",
                              file.header().size(), file.header().size() + 8));

        LogCapture log;
        const std::string image = file.header();
        printTag(readTag(image, {}, preambleSize), image);
        const std::string line =
            fmt::format("INF Identifier: {:32} Idx: {:16} Type: {:16}{}", "x", 7, type, trace);
        EXPECT_EQ(std::ranges::count(log.lines(), line), 1) << line;
    }
}

TEST(HeaderListing, OddFiles)
{
    TempFolder folder;
    EXPECT_FALSE(headerTagsAsJson(folder.file("absent.tgx")));
    EXPECT_FALSE(headerTagsAsJson(folder.path().string()));
    EXPECT_EQ(
        headerTagsAsJson(TgxFile().preamble("\xC0", "2").withoutEnd().write(folder.file("o.tgx"))).value(),
        "{\"magic\":\"\uFFFD\",\"version\":\"2\",\"dataStart\":0,\"fileSize\":16,\"tags\":[]}");
    std::string cut = TgxFile().tag("x", 1).raw("y", 0, Type::AnsiString, 1000).write(folder.file("c.tgx"));
    EXPECT_EQ(json::parse(headerTagsAsJson(cut).value()).at("tags").as_array().size(), 1u);
}
