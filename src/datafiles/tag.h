// The layout of a data file's header: a preamble, then tags with no gap, the last one `Header_End`; the raw
// records begin right after it. All numbers are little-endian.
//
//   preamble, 16 bytes      MMMMMMMM VVVVVVVV              magic "MVTTTR", version "1.0.0.0", zero-padded
//   tag, 48 bytes + block   N x 32, IIII TTTT VVVVVVVV ... name, index, type, value, data block
//
// A name has at most 31 bytes; an index of -1 means none. Four types carry a data block, and their value is
// its size in bytes.
#pragma once

#include <bit>
#include <cstdint>
#include <string_view>

namespace Tessel {

static_assert(std::endian::native == std::endian::little, "numbers go to the file as they stand in memory");

inline constexpr std::string_view fileMagic{"MVTTTR\0\0", 8};
inline constexpr std::string_view fileVersion{"1.0.0.0\0", 8};
inline constexpr uint64_t preambleSize = 16;
inline constexpr uint64_t tagSize = 48;
inline constexpr uint64_t identSize = 32;
inline constexpr std::string_view headerEndName = "Header_End";

enum class TagType : uint32_t {
    Empty8 = 0xFFFF0008,
    Bool8 = 0x00000008,
    Int8 = 0x10000008,
    BitSet64 = 0x11000008,
    Color8 = 0x12000008,
    Float8 = 0x20000008,
    TDateTime = 0x21000008, // days since 30 December 1899
    Float8Array = 0x2001FFFF,
    AnsiString = 0x4001FFFF,
    WideString = 0x4002FFFF,
    BinaryBlob = 0xFFFFFFFF,
};

inline constexpr double dateTimeOf1970 = 25569.0;
inline constexpr double secondsOfDay = 86400.0;

constexpr bool hasBlock(TagType type)
{
    return type == TagType::Float8Array || type == TagType::AnsiString || type == TagType::WideString ||
           type == TagType::BinaryBlob;
}

constexpr std::string_view tagTypeName(TagType type)
{
    switch (type) {
    case TagType::Empty8: return "Empty8";
    case TagType::Bool8: return "Bool8";
    case TagType::Int8: return "Int8";
    case TagType::BitSet64: return "BitSet64";
    case TagType::Color8: return "Color8";
    case TagType::Float8: return "Float8";
    case TagType::TDateTime: return "TDateTime";
    case TagType::Float8Array: return "Float8Array";
    case TagType::AnsiString: return "AnsiString";
    case TagType::WideString: return "WideString";
    case TagType::BinaryBlob: return "BinaryBlob";
    }
    return "InvalidType";
}

} // namespace Tessel
