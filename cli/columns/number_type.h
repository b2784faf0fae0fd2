// The numbers of binary columns.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Tessel::Cli {

enum class NumberType { U8, U16, U32, U64, I8, I16, I32, I64, F32, F64, T3 };

// Of a number in a file. T3 is what `unfold --binary` writes: a u64, sync << 15 | dtime.
inline unsigned bytesOf(NumberType type)
{
    switch (type) {
    case NumberType::U8:
    case NumberType::I8: return 1;
    case NumberType::U16:
    case NumberType::I16: return 2;
    case NumberType::U32:
    case NumberType::I32:
    case NumberType::F32: return 4;
    case NumberType::U64:
    case NumberType::I64:
    case NumberType::F64:
    case NumberType::T3: break;
    }
    return 8;
}

// "u8" to "f64", "t3"; also as the ending of a file's name.
inline std::optional<NumberType> numberType(std::string_view name)
{
    constexpr std::string_view names[] = {"u8",  "u16", "u32", "u64", "i8", "i16",
                                          "i32", "i64", "f32", "f64", "t3"};
    for (int i = 0; i < static_cast<int>(std::size(names)); ++i)
        if (names[i] == name) return static_cast<NumberType>(i);
    return std::nullopt;
}

} // namespace Tessel::Cli
