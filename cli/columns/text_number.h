// A number of a text, read exactly: digits, decimals, an exponent. Inline: every cell goes through it.
#pragma once

#include "columns/rows.h"

#include <cstdint>

namespace Tessel::Cli {

// Mantissa and power of ten of a number without a sign.
struct TextNumber
{
    uint64_t Value = 0;
    int Decimals = 0;
    const char *End = nullptr; // null: not a number, or too large
};

// The digits from `at` on; null: they don't fit. Adds to `count`.
inline const char *readTextDigits(const char *at, const char *end, uint64_t &value, int &count)
{
    constexpr uint64_t mostBeforeDigit = ~uint64_t(0) / 10;
    const char *start = at;
    for (; at < end && static_cast<unsigned char>(*at - '0') <= 9; ++at) {
        const auto digit = static_cast<uint64_t>(*at - '0');
        if (value >= mostBeforeDigit && (value > mostBeforeDigit || digit > 5)) return nullptr;
        value = value * 10 + digit;
    }
    count += static_cast<int>(at - start);
    return at;
}

// What follows the e.
inline bool applyTextExponent(TextNumber &number, const char *end)
{
    const bool isNegative = number.End < end && *number.End == '-';
    if (number.End < end && (*number.End == '-' || *number.End == '+')) ++number.End;
    uint64_t exponent = 0;
    int digits = 0;
    number.End = readTextDigits(number.End, end, exponent, digits);
    if (!number.End || digits == 0 || exponent > 99) return false;
    number.Decimals += isNegative ? static_cast<int>(exponent) : -static_cast<int>(exponent);
    for (; number.Decimals > 0 && number.Value % 10 == 0 && number.Value > 0; --number.Decimals)
        number.Value /= 10;
    if (number.Value == 0) number.Decimals = 0;
    for (; number.Decimals < 0; ++number.Decimals)
        if (__builtin_mul_overflow(number.Value, uint64_t(10), &number.Value)) return false;
    return true;
}

// What begins at `at`, as far as it goes.
inline TextNumber readTextNumber(const char *at, const char *end)
{
    TextNumber number;
    int digits = 0;
    number.End = readTextDigits(at, end, number.Value, digits);
    if (number.End && number.End < end && *number.End == '.')
        number.End = readTextDigits(number.End + 1, end, number.Value, number.Decimals);
    if (!number.End || digits + number.Decimals == 0) return {};
    const bool hasExponent = number.End < end && (*number.End | 32) == 'e';
    if (hasExponent && (++number.End, !applyTextExponent(number, end))) return {};
    if (number.Decimals >= binaryPower) return {};
    return number;
}

} // namespace Tessel::Cli
