// Quantities with units, as people write them.
#include "program/units.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

using namespace Tessel::Cli;

TEST(Units, AreReadOrRefusedAtACharacter)
{
    const auto read = [](std::string_view text) {
        try {
            return fmt::format("{}", fmt::join(parseTimesPs(text, "ns"), " "));
        } catch (const UnitError &error) {
            return fmt::format("{} at {}", error.Reason.substr(0, error.Reason.find(" (")), error.At + 1);
        }
    };
    const struct
    {
        const char *Text, *Result;
    } cases[] = {
        {"2.5ns", "2500"},
        {"1ps,10s,1ms,3us,3µs,2min,1h",
         "1 10000000000000 1000000000 3000000 3000000 120000000000000 3600000000000000"},
        {" 1.5 ns , .5,1e3ps", "1500 500 1000"},
        {"2.5nx", "unknown unit \"nx\" at 4"},
        {"1ns,2MHz", "unknown unit \"MHz\" at 6"},
        {"5NS", "unknown unit \"NS\" at 2"},
        {"1 2", "unknown unit \"2\" at 3"},
        {"", "a number is missing at 1"},
        {"1ns,,2ns", "a number is missing at 5"},
        {"-3ns", "a negative value at 1"},
        {"inf", "a number is expected at 1"},
        {"1e999s", "a number out of range at 1"},
        {"1e300h", "a number out of range at 1"},
    };
    for (const auto &row : cases) EXPECT_EQ(read(row.Text), row.Result) << row.Text;
    EXPECT_EQ(parseRatesHz("80MHz,100kcps,3", "Hz"), (std::vector<double>{8e7, 1e5, 3}));
}

TEST(Units, AreWrittenWithTheFittingOne)
{
    const std::string texts[] = {timeText(0),      timeText(999.99), timeText(12500),
                                 timeText(3.6e15), rateText(8e7),    countText(6122325)};
    EXPECT_EQ(fmt::format("{}", fmt::join(texts, ", ")), "0 ps, 1 ns, 12.5 ns, 3600 s, 80 MHz, 6.122 M");
}
