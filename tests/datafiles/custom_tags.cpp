#include "datafiles/custom_tags.h"

#include "support/log_capture.h"
#include "support/tgx_file.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>

using namespace Tessel;
using namespace TestSupport;

TEST(CustomTags, BytesAndTrace)
{
    struct Case
    {
        void (*Add)(CustomTags &);
        std::string Bytes;
        std::string_view Line;
    };
    static const uint8_t blob[24] = {1, 2, 3, 4, 5, 6, 7, 8};
    static const std::string longName(40, 'n');
    auto text = [](std::string_view block) { return std::string(block); };
    const Case cases[] = {
        {[](CustomTags &tags) { addIntTag(tags, "i", -2, 5); }, tagBytes("i", 5, Type::Int8, ~uint64_t{1}),
         "addCustomTag: i MV_TAGTYPE_INT8 -2 5"},
        {[](CustomTags &tags) { addDblTag(tags, "d", 0.5, 0xFFFFFFFF); },
         tagBytes("d", -1, Type::Float8, std::bit_cast<uint64_t>(0.5)),
         "addCustomTag: d MV_TAGTYPE_FLOAT8 0.5 4294967295"},
        {[](CustomTags &tags) { addBoolTag(tags, "b", true, 0); }, tagBytes("b", 0, Type::Bool8, 1),
         "addCustomTag: b MV_TAGTYPE_BOOL8 true 0"},
        {[](CustomTags &tags) { addEmptyTag(tags, "e", 0); }, tagBytes("e", 0, Type::Empty8, 0),
         "addCustomTag: e MV_TAGTYPE_EMPTY8 0 0"},
        {[](CustomTags &tags) { addStringTag(tags, "s", "", 0); },
         tagBytes("s", 0, Type::AnsiString, 8, std::string(8, '\0')),
         "addCustomTag: s MV_TAGTYPE_ANSISTRING  0"},
        {[](CustomTags &tags) { addStringTag(tags, "s", "12345678", 0); },
         tagBytes("s", 0, Type::AnsiString, 16, "12345678" + std::string(8, '\0')),
         "addCustomTag: s MV_TAGTYPE_ANSISTRING 12345678 0"},
        {[](CustomTags &tags) { addWStringTag(tags, "w", u"abc", 0); },
         tagBytes("w", 0, Type::WideString, 8, text({"a\0b\0c\0\0\0", 8})),
         "addCustomTag: w MV_TAGTYPE_WIDESTRING abc 0"},
        {[](CustomTags &tags) { addWStringTag(tags, "w", u"abcd", 0); },
         tagBytes("w", 0, Type::WideString, 16, text({"a\0b\0c\0d\0\0\0\0\0\0\0\0\0", 16})),
         "addCustomTag: w MV_TAGTYPE_WIDESTRING abcd 0"},
        {[](CustomTags &tags) {
             addFloatArrayTag(tags, "a", std::array{0.0, 0.0, 0.0}, 2);
         },
         tagBytes("a", 2, Type::Float8Array, 24, std::string(24, '\0')),
         "addCustomTag: a MV_TAGTYPE_FLOAT8ARRAY 0.. 2"},
        {[](CustomTags &tags) { addFloatArrayTag(tags, "a", {}, 2); }, tagBytes("a", 2, Type::Float8Array, 0),
         "addCustomTag: a MV_TAGTYPE_FLOAT8ARRAY 0.. 2"},
        {[](CustomTags &tags) { addBBTag(tags, "x", blob, 3, 2); },
         tagBytes("x", 2, Type::BinaryBlob, 3, "\x01\x02\x03"),
         "addCustomTag: x MV_TAGTYPE_BINARYBLOB 578437695752307201.. 2"},
        {[](CustomTags &tags) { addBBTag(tags, "x", nullptr, 5, 2); }, tagBytes("x", 2, Type::BinaryBlob, 0),
         "addCustomTag: x MV_TAGTYPE_BINARYBLOB 0.. 2"},
        {[](CustomTags &tags) { addEmptyTag(tags, longName, 0); },
         tagBytes(longName.substr(0, 31), 0, Type::Empty8, 0), "MV_TAGTYPE_EMPTY8 0 0"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.Line);
        CustomTags tags;
        std::string header;
        LogCapture log;
        c.Add(tags);
        addCustomTags(header, tags);
        EXPECT_EQ(header, c.Bytes);
        EXPECT_EQ(log.count("DEB addCustomTags: 1"), 1u);
        EXPECT_EQ(log.count(c.Line), 1u);
    }
}

TEST(CustomTags, OrderTraceOfAddingAndUnknownTypes)
{
    CustomTags tags;
    std::string header;
    LogCapture log;
    addIntTag(tags, "one", 5, 1);
    tags.emplace_back().Type = 0x1234;
    addEmptyTag(tags, "two", 2);
    addCustomTags(header, tags);
    EXPECT_EQ(header, tagBytes("one", 1, Type::Int8, 5) + tagBytes("two", 2, Type::Empty8, 0));
    EXPECT_EQ(log.count("DEB DataFile::addTag: one 5 1"), 1u);
    EXPECT_EQ(log.count("DEB DataFile::addTag: two 3"), 1u);
    EXPECT_EQ(log.count("ERR AddTag: tagtype {:0X8}"), 1u);
}
