#include "devices/enum_texts.h"

#include <gtest/gtest.h>

using namespace Tessel;

TEST(Enums, Texts)
{
    EXPECT_EQ(libTypeText(LibType::Undefined), "undefined");
    EXPECT_EQ(libTypeText(LibType::CD90), "CD90");
    EXPECT_EQ(libTypeText(LibType::Dummy), "dummy");
    EXPECT_EQ(libTypeText(static_cast<LibType>(17)), "libType: 17");

    const std::string_view texts[] = {
        "SyncLost", "RefClkLost", "DataCheckFail", "DataXferFail", "QueueOverrun", "SYSERROR",
        "Suspend",  "OutOfMem",   "FileError",     "TCSPCError",   "LegacyErr",    "FiFoOverrun",
        "Unknown",  "TimeOver",   "Manual",        "OverFlow",     "Error"};
    int32_t value = -13;
    for (std::string_view text : texts) EXPECT_EQ(stopReasonText(static_cast<StopReason>(value++)), text);
    EXPECT_EQ(stopReasonText(static_cast<StopReason>(7)), "Undefined");
    EXPECT_EQ(stopReasonText(static_cast<StopReason>(-14)), "Undefined");
}
