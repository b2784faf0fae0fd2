#include "columns/binary_column.h"

#include "program/exit_codes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <concepts>
#include <cstring>

namespace Tessel::Cli {

namespace {

[[noreturn]] void refuseNumber(const BinaryColumn &column, uint64_t row, const std::string &number,
                               std::string_view why)
{
    throw Failure(Exit::Failed, fmt::format("{}: row {}: {} {}", column.File->Shown, row + 1, number, why));
}

template <class Number>
Number numberAt(const char *bytes, bool isBigEndian)
{
    std::array<char, sizeof(Number)> own;
    std::memcpy(own.data(), bytes, sizeof own);
    if (isBigEndian != (std::endian::native == std::endian::big)) std::ranges::reverse(own);
    return std::bit_cast<Number>(own);
}

// `take(row, number)` for each number.
template <class Number, class Take>
void eachNumber(const BinaryColumn &column, size_t count, Take take)
{
    const char *bytes = column.Buffer.data();
    if (column.IsBigEndian) {
        for (size_t i = 0; i < count; ++i) take(i, numberAt<Number>(bytes + i * column.Stride, true));
    } else if (column.Stride == sizeof(Number)) {
        for (size_t i = 0; i < count; ++i) take(i, numberAt<Number>(bytes + i * sizeof(Number), false));
    } else {
        for (size_t i = 0; i < count; ++i) take(i, numberAt<Number>(bytes + i * column.Stride, false));
    }
}

// A fraction goes to 2^-48, or as far as the number itself: finer than any tick that is scaled exactly.
void addFraction(double number, uint64_t &value, uint8_t &power)
{
    constexpr int finest = 48;
    const int shift = std::clamp(52 - std::ilogb(number), 0, finest);
    value = static_cast<uint64_t>(std::llround(std::ldexp(number, shift)));
    power = static_cast<uint8_t>(binaryPower + shift);
}

template <std::floating_point Number>
void take(const BinaryColumn &column, uint64_t first, size_t count, Numbers &numbers)
{
    constexpr double most = 0x1p63;
    numbers.Powers.assign(count, 0);
    numbers.AreWhole = true;
    eachNumber<Number>(column, count, [&](size_t i, Number number) {
        const double value = number;
        if (!(value >= 0)) refuseNumber(column, first + i, fmt::format("{}", value), "is no time");
        if (value >= most) refuseNumber(column, first + i, fmt::format("{}", value), "is too large");
        numbers.Values[i] = static_cast<uint64_t>(value);
        if (static_cast<double>(numbers.Values[i]) == value) return;
        numbers.AreWhole = false;
        addFraction(value, numbers.Values[i], numbers.Powers[i]);
    });
}

template <std::integral Number>
void take(const BinaryColumn &column, uint64_t first, size_t count, Numbers &numbers)
{
    uint64_t all = 0;
    eachNumber<Number>(column, count, [&](size_t i, Number number) {
        numbers.Values[i] = static_cast<uint64_t>(number);
        all |= numbers.Values[i];
    });
    numbers.AreWhole = true;
    if (std::unsigned_integral<Number> || all >> 63 == 0) return;
    eachNumber<Number>(column, count, [&](size_t i, Number number) {
        if (number < Number(0)) refuseNumber(column, first + i, fmt::format("{}", number), "is negative");
    });
}

void takeAs(const BinaryColumn &column, uint64_t first, size_t count, Numbers &numbers)
{
    switch (column.Type) {
    case NumberType::U8: return take<uint8_t>(column, first, count, numbers);
    case NumberType::U16: return take<uint16_t>(column, first, count, numbers);
    case NumberType::U32: return take<uint32_t>(column, first, count, numbers);
    case NumberType::T3:
    case NumberType::U64: return take<uint64_t>(column, first, count, numbers);
    case NumberType::I8: return take<int8_t>(column, first, count, numbers);
    case NumberType::I16: return take<int16_t>(column, first, count, numbers);
    case NumberType::I32: return take<int32_t>(column, first, count, numbers);
    case NumberType::I64: return take<int64_t>(column, first, count, numbers);
    case NumberType::F32: return take<float>(column, first, count, numbers);
    case NumberType::F64: return take<double>(column, first, count, numbers);
    }
}

} // namespace

void readNumbers(BinaryColumn &column, uint64_t first, size_t count, Numbers &numbers)
{
    if (count == 0) return numbers.Values.clear();
    const size_t bytes = (count - 1) * column.Stride + bytesOf(column.Type);
    if (column.Buffer.size() < bytes) column.Buffer.resize(bytes);
    if (readAt(*column.File, column.Offset + first * column.Stride, column.Buffer.data(), bytes) < bytes)
        throw Failure(Exit::Failed, fmt::format("{}: became shorter while it was read", column.File->Shown));
    numbers.Values.resize(count);
    takeAs(column, first, count, numbers);
}

void readChannels(BinaryColumn &column, uint64_t first, size_t count, std::vector<uint32_t> &channels)
{
    Numbers numbers;
    readNumbers(column, first, count, numbers);
    channels.resize(count);
    for (size_t i = 0; i < count; ++i) {
        const uint64_t number = numbers.Values[i];
        const bool isWhole = numbers.AreWhole || numbers.Powers[i] == 0;
        if (number >= mostChannels || !isWhole)
            refuseNumber(column, first + i, isWhole ? fmt::format("{}", number) : "a fraction",
                         "is no channel (0 to 65535)");
        channels[i] = static_cast<uint32_t>(number);
    }
}

} // namespace Tessel::Cli
