// Exact fractions: lengths of time as people write them, "17.857ps", "25ns/4096", "2^-20s", "80MHz". Pure
// functions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Tessel::Cli {

__extension__ typedef unsigned __int128 Wide;

// Num / Den in lowest terms; both fit in 62 bits, so that products with 64 bits fit in Wide.
struct Fraction
{
    uint64_t Num = 0, Den = 1;

    bool isWhole() const { return Den == 1; }
    double value() const { return static_cast<double>(Num) / static_cast<double>(Den); }
    bool operator==(const Fraction &) const = default;
};

// Nothing of it is lost: false if it doesn't fit.
bool reduce(Wide num, Wide den, Fraction &fraction);

// `a` / `b`, `b` above 0. False if it doesn't fit.
bool divide(const Fraction &a, const Fraction &b, Fraction &fraction);

// A time in ps: numbers, joined by * and /, each of them with a power of whole numbers if need be, one of them
// with a unit of time; without any it is in ps. Or a rate, whose period it is. Above 0. Throws UnitError.
Fraction parsePeriodPs(std::string_view text);

// "12.5 ns"; what is no decimal stays a fraction: "125/7 ps".
std::string periodText(const Fraction &ps);

} // namespace Tessel::Cli
