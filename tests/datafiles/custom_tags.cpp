#include "datafiles/custom_tags.h"

#include "support/log_capture.h"
#include "support/tgx_file.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>

using namespace Tessel;
using namespace TestSupport;

TEST(CustomTags, BytesAndTraceInTheOrderOfAdding)
{
    const uint8_t blob[24] = {1, 2, 3, 4, 5, 6, 7, 8};
    const std::string longName(40, 'n'), zeros(24, '\0');
    CustomTags tags;
    std::string header;
    LogCapture log;
    addIntTag(tags, "i", -2, 5);
    addDblTag(tags, "d", 0.5, 0xFFFFFFFF);
    addBoolTag(tags, "b", true, 0);
    addEmptyTag(tags, longName, 2);
    addStringTag(tags, "s", "", 0);
    addStringTag(tags, "s", "12345678", 1);
    addWStringTag(tags, "w", u"abc", 0);
    addWStringTag(tags, "w", u"abcd", 1);
    addFloatArrayTag(tags, "a", std::array{0.0, 0.5, 0.0}, 2);
    addFloatArrayTag(tags, "a", {}, 3);
    addBBTag(tags, "x", blob, 3, 2);
    addBBTag(tags, "x", nullptr, 5, 3);
    tags.emplace_back().Type = 0x1234;
    addCustomTags(header, tags);

    EXPECT_EQ(
        header,
        tagBytes("i", 5, Type::Int8, ~uint64_t{1}) +
            tagBytes("d", -1, Type::Float8, std::bit_cast<uint64_t>(0.5)) + tagBytes("b", 0, Type::Bool8, 1) +
            tagBytes(longName.substr(0, 31), 2, Type::Empty8, 0) +
            tagBytes("s", 0, Type::AnsiString, 8, zeros.substr(0, 8)) +
            tagBytes("s", 1, Type::AnsiString, 16, "12345678" + zeros.substr(0, 8)) +
            tagBytes("w", 0, Type::WideString, 8, {"a\0b\0c\0\0\0", 8}) +
            tagBytes("w", 1, Type::WideString, 16, {"a\0b\0c\0d\0\0\0\0\0\0\0\0\0", 16}) +
            tagBytes("a", 2, Type::Float8Array, 24, zeros.substr(0, 14) + "\xE0\x3F" + zeros.substr(0, 8)) +
            tagBytes("a", 3, Type::Float8Array, 0) + tagBytes("x", 2, Type::BinaryBlob, 3, "\x01\x02\x03") +
            tagBytes("x", 3, Type::BinaryBlob, 0));
    for (const char *line :
         {"DEB DataFile::addTag: i -2 5", "DEB DataFile::addTag: nnnn", "DEB addCustomTags: 13",
          "addCustomTag: i MV_TAGTYPE_INT8 -2 5", "addCustomTag: d MV_TAGTYPE_FLOAT8 0.5 4294967295",
          "addCustomTag: b MV_TAGTYPE_BOOL8 true 0", "n MV_TAGTYPE_EMPTY8 0 2",
          "addCustomTag: s MV_TAGTYPE_ANSISTRING  0", "addCustomTag: s MV_TAGTYPE_ANSISTRING 12345678 1",
          "addCustomTag: w MV_TAGTYPE_WIDESTRING abc 0", "addCustomTag: w MV_TAGTYPE_WIDESTRING abcd 1",
          "addCustomTag: a MV_TAGTYPE_FLOAT8ARRAY 0.. 2", "addCustomTag: a MV_TAGTYPE_FLOAT8ARRAY 0.. 3",
          "addCustomTag: x MV_TAGTYPE_BINARYBLOB 578437695752307201.. 2",
          "addCustomTag: x MV_TAGTYPE_BINARYBLOB 0.. 3", "ERR AddTag: tagtype {:0X8}"})
        EXPECT_EQ(log.count(line), 1u) << line;
}
