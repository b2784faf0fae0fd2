// Quantities with units, as people write them.
#include "program/units.h"

#include <gtest/gtest.h>

using namespace Tessel::Cli;

TEST(Units, ReadsTimes)
{
    const struct
    {
        const char *Text, *BareUnit;
        double Ps;
    } cases[] = {{"2.5ns", "ps", 2500}, {"100ps", "s", 100},      {"10s", "ps", 1e13},    {"1ms", "ps", 1e9},
                 {"3us", "ps", 3e6},    {"3µs", "ps", 3e6},       {"2min", "ps", 1.2e14}, {"1h", "ps", 3.6e15},
                 {"7", "ns", 7000},     {" 1.5 ns ", "ps", 1500}, {".5ns", "ps", 500},    {"1e3ps", "ps", 1000},
                 {"0", "s", 0}};
    for (const auto &row : cases) EXPECT_DOUBLE_EQ(parseTimePs(row.Text, row.BareUnit), row.Ps) << row.Text;
}

TEST(Units, ReadsRatesAndLists)
{
    EXPECT_DOUBLE_EQ(parseRateHz("80MHz", "Hz"), 80e6);
    EXPECT_DOUBLE_EQ(parseRateHz("100kcps", "Hz"), 1e5);
    EXPECT_DOUBLE_EQ(parseRateHz("3", "kcps"), 3000);
    EXPECT_EQ(parseTimesPs("1ns, 2.5ns,3", "ps"), (std::vector<double>{1000, 2500, 3}));
    EXPECT_EQ(parseRatesHz("1kcps", "cps"), std::vector<double>{1000});
}

TEST(Units, SaysWhereReadingFailed)
{
    const struct
    {
        const char *Text, *Fragment, *Place;
    } cases[] = {
        {"2.5nx", "unknown unit \"nx\"", "character 4"},  {"", "number is missing", "character 1"},
        {"ns", "number is expected", "character 1"},      {"-3ns", "negative", "character 1"},
        {"inf", "number is expected", "character 1"},     {"nan", "number is expected", "character 1"},
        {"1ns,,2ns", "number is missing", "character 5"}, {"1ns,2MHz", "unknown unit \"MHz\"", "character 6"},
        {"1ns,", "number is missing", "character 5"},     {"1e999s", "out of range", "character 1"},
        {"1e300h", "out of range", "character 1"},        {"1 2", "unknown unit \"2\"", "character 3"},
        {"5NS", "unknown unit \"NS\"", "character 2"}};
    for (const auto &row : cases) try {
            parseTimesPs(row.Text, "ps");
            ADD_FAILURE() << row.Text << " was read";
        } catch (const UnitError &error) {
            EXPECT_NE(std::string(error.what()).find(row.Fragment), std::string::npos) << error.what();
            EXPECT_TRUE(std::string(error.what()).ends_with(row.Place)) << error.what();
        }
}

TEST(Units, WritesWithTheFittingUnit)
{
    EXPECT_EQ(timeText(0), "0 ps");
    EXPECT_EQ(timeText(999), "999 ps");
    EXPECT_EQ(timeText(999.99), "1 ns");
    EXPECT_EQ(timeText(12500), "12.5 ns");
    EXPECT_EQ(timeText(3.6e15), "3600 s");
    EXPECT_EQ(rateText(8e7), "80 MHz");
    EXPECT_EQ(countText(123), "123");
    EXPECT_EQ(countText(6122325), "6.122 M");
}
