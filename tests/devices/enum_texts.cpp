#include "devices/enum_texts.h"

#include <gtest/gtest.h>

using namespace Tessel;

TEST(Enums, Texts)
{
    EXPECT_EQ(libTypeText(LibType::Undefined), "undefined");
    EXPECT_EQ(libTypeText(LibType::CD90), "CD90");
    EXPECT_EQ(libTypeText(LibType::Dummy), "dummy");
    EXPECT_EQ(libTypeText(static_cast<LibType>(17)), "libType: 17");

    EXPECT_EQ(stopReasonText(static_cast<StopReason>(-13)), "SyncLost");
    EXPECT_EQ(stopReasonText(StopReason::FiFoOverrun), "FiFoOverrun");
    EXPECT_EQ(stopReasonText(static_cast<StopReason>(3)), "Error");
    EXPECT_EQ(stopReasonText(static_cast<StopReason>(7)), "Undefined");
    EXPECT_EQ(stopReasonText(static_cast<StopReason>(-14)), "Undefined");
}
