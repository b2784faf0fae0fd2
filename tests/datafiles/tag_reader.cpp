#include "datafiles/tag_reader.h"

#include "support/log_capture.h"
#include "support/tgx_file.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>

using namespace Tessel;
using namespace TestSupport;

TEST(TagReader, TracesEveryType)
{
    struct Case
    {
        TgxFile File;
        std::string_view Line; // behind the type's name
    };
    const auto bits = [](double value) { return std::bit_cast<uint64_t>(value); };
    auto number = [](uint32_t type, uint64_t value) { return TgxFile().raw("x", 7, type, value); };
    const Case cases[] = {
        {number(Type::Empty8, 5), "Empty8          "},
        {number(Type::Bool8, ~uint64_t{0}), "Bool8            tValue:               -1"},
        {number(Type::Int8, 42), "Int8             tValue:               42"},
        {number(Type::BitSet64, 255), "BitSet64         tValue:               ff"},
        {number(Type::Color8, 255), "Color8           tValue:                               ff"},
        {number(Type::Float8, bits(1.5)), "Float8           tValue:         1.50e+00"},
        {number(Type::TDateTime, bits(25569.5)), "TDateTime        tValue: 01.01.70 12:00:00"},
        {number(Type::TDateTime, bits(std::nan(""))), "TDateTime        tValue: 01.01.70 00:00:00"},
        {number(Type::TDateTime, bits(1e300)), "TDateTime        tValue: 31.12.99 23:59:59"},
        {TgxFile().tag("x", "te\x01xt", 7), "AnsiString       tValue: te\\x01xt"},
        {TgxFile().wide("x", u"t\u00e9", 7), "WideString       tValue: t\u00e9"},
        {TgxFile().raw("x", 7, Type::BinaryBlob, 3, "\x01\xFF\x02"), "BinaryBlob       tValue: 1, 255, 2, "},
        {TgxFile().raw("x", 7, Type::Float8Array, 0), "Float8Array      tValue: "},
        {number(0x1234, 42), "InvalidType      tValue:               42"},
    };
    for (const Case &c : cases) {
        LogCapture log;
        const std::string image = c.File.header();
        printTag(readTag(image, {}, preambleSize), image);
        std::string head = "INF Identifier: x                                Idx:                7 Type: ";
        size_t found = 0;
        for (const std::string &line : log.lines()) found += line == head + std::string(c.Line);
        EXPECT_EQ(found, 1u) << c.Line;
    }
}
