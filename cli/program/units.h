// Quantities as people write them: "2.5ns", "80MHz", "100kcps". A number without a unit is in the one that the
// option documents. Inside the program times are picoseconds and rates are per second.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel::Cli {

struct UnitError : std::runtime_error
{
    UnitError(std::string_view whole, size_t at, const std::string &reason);
    std::string Reason;
    size_t At; // in the whole text, from 0
};

// `defaultUnit`: the unit of a number without one. Negative numbers are refused. Throws UnitError, whose text
// names the character at which the reading failed (from 1).
double parseTimePs(std::string_view text, std::string_view defaultUnit);
double parseRateHz(std::string_view text, std::string_view defaultUnit);

// The same, with commas between: "1ns,2.5ns".
std::vector<double> parseTimesPs(std::string_view text, std::string_view defaultUnit);
std::vector<double> parseRatesHz(std::string_view text, std::string_view defaultUnit);

// "500k", "1e9"; "2GB", without a unit bytes.
double parseCount(std::string_view text);
double parseBytes(std::string_view text);

// A number of either sign in `unit`: "mV", a unit of time, or none ("", then none is taken). Another unit of
// the same kind is converted; a number without one is in `unit`.
double parseQuantity(std::string_view text, std::string_view unit);

// A value with the unit that keeps it between 1 and 1000, in at most four significant digits.
std::string timeText(double ps);
std::string rateText(double hz);
std::string countText(double count);                        // "12.3 M"
std::string counted(uint64_t count, std::string_view noun); // "1 event", "2 events"
std::string countRateText(double cps);
std::string byteText(double bytes);

// The unit in which a time axis is drawn that reaches from 0 to `rangePs`, and what a ps is in it.
struct TimeAxis
{
    double Factor;
    const char *Unit;
};

TimeAxis timeAxis(double rangePs);

} // namespace Tessel::Cli
