// Doubles as whole numbers.
#include "stream/rounding.h"

#include <gtest/gtest.h>

using namespace Tessel;

namespace {

constexpr int32_t most32 = INT32_MAX, least32 = INT32_MIN;
constexpr int64_t most64 = INT64_MAX, least64 = INT64_MIN;
constexpr uint64_t all = UINT64_MAX;

} // namespace

TEST(Rounding, AnyDoubleBecomesAWholeNumber)
{
    const struct
    {
        double given;
        int32_t cut32, nearest32;
        int64_t cut64, nearest64;
        uint64_t cutUnsigned, nearestUnsigned;
    } cases[] = {
        {0.4, 0, 0, 0, 0, 0, 0},
        {1.5, 1, 2, 1, 2, 1, 2},
        {-0.5, 0, -1, 0, -1, 0, 0},
        {-1.6, -1, -2, -1, -2, 0, 0},
        {NAN, 0, 0, 0, 0, 0, 0},
        {2147483647.4, most32, most32, 2147483647, 2147483647, 2147483647, 2147483647},
        {2147483647.5, most32, most32, 2147483647, 2147483648, 2147483647, 2147483648},
        {-2147483648.4, least32, least32, -2147483648, -2147483648, 0, 0},
        {0x1p63, most32, most32, most64, most64, uint64_t{1} << 63, uint64_t{1} << 63},
        {-0x1p63, least32, least32, least64, least64, 0, 0},
        {0x1p64, most32, most32, most64, most64, all, all},
        {INFINITY, most32, most32, most64, most64, all, all},
        {-INFINITY, least32, least32, least64, least64, 0, 0},
    };
    for (const auto &given : cases) {
        SCOPED_TRACE(given.given);
        EXPECT_EQ(truncated<int32_t>(given.given), given.cut32);
        EXPECT_EQ(nearest<int32_t>(given.given), given.nearest32);
        EXPECT_EQ(truncated<int64_t>(given.given), given.cut64);
        EXPECT_EQ(nearest<int64_t>(given.given), given.nearest64);
        EXPECT_EQ(truncated<uint64_t>(given.given), given.cutUnsigned);
        EXPECT_EQ(nearest<uint64_t>(given.given), given.nearestUnsigned);
    }
}
