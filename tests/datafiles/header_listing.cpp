#include "datafiles/header_listing.h"

#include "support/log_capture.h"
#include "support/tgx_file.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>

using namespace Tessel;
using namespace TestSupport;

namespace json = boost::json;

TEST(HeaderListing, ValuesOfEveryType)
{
    const auto bits = [](double value) { return std::bit_cast<uint64_t>(value); };
    struct Case
    {
        TgxFile File;
        std::string_view Type, Value;
    };
    auto number = [](uint32_t type, uint64_t value) { return TgxFile().raw("x", 7, type, value); };
    std::string doubles(16, '\0');
    doubles[15] = 0x40; // 0 and 2
    const Case cases[] = {
        {number(Type::Empty8, 5), "Empty8", "null"},
        {number(Type::Bool8, 1), "Bool8", "true"},
        {number(Type::Int8, ~uint64_t{0}), "Int8", "-1"},
        {number(Type::BitSet64, ~uint64_t{0}), "BitSet64", "18446744073709551615"},
        {number(Type::Color8, 255), "Color8", "255"},
        {number(Type::Float8, bits(1.5)), "Float8", "1.5E0"},
        {number(Type::Float8, bits(std::nan(""))), "Float8", "null"},
        {number(Type::TDateTime, bits(25569.5)), "TDateTime", R"("1970-01-01T12:00:00.000")"},
        {number(Type::TDateTime, bits(46347.604224537)), "TDateTime", R"("2026-11-21T14:30:05.000")"},
        {number(Type::TDateTime, bits(-0.25)), "TDateTime", R"("1899-12-29T18:00:00.000")"},
        {number(Type::TDateTime, bits(1e300)), "TDateTime", "null"},
        {number(Type::TDateTime, bits(std::nan(""))), "TDateTime", "null"},
        {TgxFile().tag("x", "a\"b\r\n\xFF", 7), "AnsiString", "\"a\\\"b\\r\\n\uFFFD\""},
        {TgxFile().wide("x", u"t\u00e9", 7), "WideString", "\"t\u00e9\""},
        {TgxFile().raw("x", 7, Type::Float8Array, 16, doubles), "Float8Array", "[0E0,2E0]"},
        {TgxFile().raw("x", 7, Type::BinaryBlob, 3, "\x01\xFF\x0A"), "BinaryBlob", R"("01ff0a")"},
        {number(0x1234, 42), "InvalidType", "42"},
    };
    TempFolder folder;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.Value);
        std::string path = TgxFile(c.File).records({1, 2}).write(folder.file("l.tgx"));
        json::object listing = json::parse(headerTagsAsJson(path).value()).as_object();
        EXPECT_EQ(listing["magic"].as_string(), "MVTTTR");
        EXPECT_EQ(listing["version"].as_string(), "1.0.0.0");
        EXPECT_EQ(listing["dataStart"].to_number<uint64_t>(), c.File.header().size());
        EXPECT_EQ(listing["fileSize"].to_number<uint64_t>(), c.File.header().size() + 8);
        ASSERT_EQ(listing["tags"].as_array().size(), 2u);
        json::object tag = listing["tags"].as_array()[0].as_object();
        EXPECT_EQ(tag["name"].as_string(), "x");
        EXPECT_EQ(tag["idx"].as_int64(), 7);
        EXPECT_EQ(std::string_view(tag["type"].as_string()), c.Type);
        EXPECT_EQ(json::serialize(tag["value"]), c.Value);
        EXPECT_EQ(listing["tags"].as_array()[1].at("name").as_string(), "Header_End");
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
