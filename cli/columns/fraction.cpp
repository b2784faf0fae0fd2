#include "columns/fraction.h"

#include "program/units.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tessel::Cli {

namespace {

constexpr uint64_t largestPart = (uint64_t(1) << 62) - 1;

struct ExactUnit
{
    std::string_view Name;
    Fraction Ps;
    bool IsRate;
};

constexpr uint64_t psPerSecond = 1'000'000'000'000;
constexpr ExactUnit exactUnits[] = {{"fs", {1, 1000}, false},
                                    {"ps", {1, 1}, false},
                                    {"ns", {1000, 1}, false},
                                    {"us", {1'000'000, 1}, false},
                                    {"µs", {1'000'000, 1}, false},
                                    {"ms", {1'000'000'000, 1}, false},
                                    {"s", {psPerSecond, 1}, false},
                                    {"min", {60 * psPerSecond, 1}, false},
                                    {"h", {3600 * psPerSecond, 1}, false},
                                    {"Hz", {1, psPerSecond}, true},
                                    {"kHz", {1, psPerSecond / 1000}, true},
                                    {"MHz", {1, psPerSecond / 1'000'000}, true},
                                    {"GHz", {1, psPerSecond / 1'000'000'000}, true}};

Wide greatestDivisor(Wide a, Wide b)
{
    while (b != 0) {
        const Wide rest = a % b;
        a = b;
        b = rest;
    }
    return a;
}

// Reads factors and joins them; throws UnitError with the place.
struct PeriodReader
{
    std::string_view Text;
    size_t At = 0;
    Fraction Value = {1, 1};
    const ExactUnit *Unit = nullptr;
    bool UnitBelow = false; // behind a slash

    [[noreturn]] void fail(std::string_view why) const { throw UnitError(Text, At, std::string(why)); }
    void skipBlanks()
    {
        while (At < Text.size() && Text[At] == ' ') ++At;
    }
    bool isDigit() const { return At < Text.size() && Text[At] >= '0' && Text[At] <= '9'; }
    bool take(char c)
    {
        const bool isThere = At < Text.size() && Text[At] == c;
        At += isThere;
        return isThere;
    }
    void multiply(const Fraction &by, bool below)
    {
        const Fraction factor = below ? Fraction{by.Den, by.Num} : by;
        if (!reduce(Wide(Value.Num) * factor.Num, Wide(Value.Den) * factor.Den, Value))
            fail("a number out of range");
    }
};

// Of at most 4 digits, with a sign.
int readExponent(PeriodReader &reader)
{
    const bool isNegative = reader.take('-');
    if (!isNegative) reader.take('+');
    if (!reader.isDigit()) reader.fail("a whole exponent is expected");
    int exponent = 0;
    for (; reader.isDigit(); ++reader.At) {
        exponent = exponent * 10 + (reader.Text[reader.At] - '0');
        if (exponent > 9999) reader.fail("a number out of range");
    }
    return isNegative ? -exponent : exponent;
}

void multiplyPower(PeriodReader &reader, const Fraction &base, int exponent, bool below)
{
    for (int i = std::abs(exponent); i > 0; --i) reader.multiply(base, below != (exponent < 0));
}

// How many there were.
int readDigits(PeriodReader &reader, uint64_t &number)
{
    int count = 0;
    for (; reader.isDigit(); ++count, ++reader.At) {
        const auto digit = static_cast<uint64_t>(reader.Text[reader.At] - '0');
        if (number > (largestPart - digit) / 10) reader.fail("a number of too many digits");
        number = number * 10 + digit;
    }
    return count;
}

// "2.5", "1e-9", "2^-20", behind a slash upside down.
void readNumber(PeriodReader &reader, bool below)
{
    uint64_t whole = 0;
    int numDigits = readDigits(reader, whole);
    const int decimals = reader.take('.') ? readDigits(reader, whole) : 0;
    numDigits += decimals;
    if (numDigits == 0) reader.fail("a number is expected");
    if (whole == 0) reader.fail("a number above 0 is expected");
    if (reader.take('^')) {
        if (decimals > 0) reader.fail("a power of a whole number is expected");
        multiplyPower(reader, {whole, 1}, readExponent(reader), below);
        return;
    }
    reader.multiply({whole, 1}, below);
    const bool hasExponent = reader.At + 1 < reader.Text.size() && (reader.Text[reader.At] | 32) == 'e';
    int exponent = -decimals;
    if (hasExponent) {
        ++reader.At;
        exponent += readExponent(reader);
    }
    multiplyPower(reader, {10, 1}, exponent, below);
}

void readUnit(PeriodReader &reader, bool below)
{
    reader.skipBlanks();
    const size_t end = std::min(reader.Text.find_first_of(" */", reader.At), reader.Text.size());
    const std::string_view name = reader.Text.substr(reader.At, end - reader.At);
    if (name.empty()) return;
    if (reader.Unit) reader.fail("a second unit");
    const auto *unit = std::ranges::find(exactUnits, name, &ExactUnit::Name);
    if (unit == std::end(exactUnits))
        reader.fail(
            fmt::format("unknown unit \"{}\" (known: fs, ps, ns, us, ms, s, min, h, Hz, kHz, MHz, GHz)", name));
    if (below) reader.fail("no unit can stand behind a slash");
    reader.Unit = unit;
    reader.At = end;
}

struct ShownUnit
{
    uint64_t Ps;
    const char *Name;
};
constexpr ShownUnit shownUnits[] = {
    {psPerSecond, "s"}, {1'000'000'000, "ms"}, {1'000'000, "us"}, {1000, "ns"}, {1, "ps"}};

// False: it has no end, or a long one.
bool decimalText(const Fraction &number, std::string &text)
{
    constexpr uint64_t longest = psPerSecond;
    uint64_t power = 1;
    while (power % number.Den != 0 && power < longest) power *= 10;
    if (power % number.Den != 0) return false;
    text = fmt::format("{}", number.Num / number.Den);
    if (number.isWhole()) return true;
    const size_t digits = fmt::formatted_size("{}", power) - 1;
    text += fmt::format(".{:0{}}", number.Num % number.Den * (power / number.Den), digits);
    return true;
}

} // namespace

bool reduce(Wide num, Wide den, Fraction &fraction)
{
    const Wide common = greatestDivisor(num, den);
    if (common == 0 || num / common > largestPart || den / common > largestPart) return false;
    fraction = {static_cast<uint64_t>(num / common), static_cast<uint64_t>(den / common)};
    return true;
}

bool divide(const Fraction &a, const Fraction &b, Fraction &fraction)
{
    return reduce(Wide(a.Num) * b.Den, Wide(a.Den) * b.Num, fraction);
}

Fraction parsePeriodPs(std::string_view text)
{
    PeriodReader reader{.Text = text};
    for (bool below = false;;) {
        reader.skipBlanks();
        readNumber(reader, below);
        readUnit(reader, below);
        reader.skipBlanks();
        if (reader.At == text.size()) break;
        below = reader.take('/');
        if (!below && !reader.take('*')) reader.fail("* or / is expected");
    }
    if (!reader.Unit) return reader.Value;
    if (reader.Unit->IsRate) reader.Value = {reader.Value.Den, reader.Value.Num};
    const Fraction &unit = reader.Unit->Ps;
    reader.multiply(reader.Unit->IsRate ? Fraction{unit.Den, unit.Num} : unit, false);
    return reader.Value;
}

std::string periodText(const Fraction &ps)
{
    const auto *unit = std::begin(shownUnits);
    while (unit + 1 != std::end(shownUnits) && ps.Num / ps.Den < unit->Ps) ++unit;
    Fraction shown;
    std::string decimal;
    if (divide(ps, {unit->Ps, 1}, shown) && decimalText(shown, decimal))
        return fmt::format("{} {}", decimal, unit->Name);
    return fmt::format("{}/{} ps", ps.Num, ps.Den);
}

} // namespace Tessel::Cli
