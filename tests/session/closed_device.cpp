// A call that found its device before another thread closed it.
#include "manipulators/chain.h"
#include "manipulators/stages.h"
#include "run/requests.h"
#include "session/open_close.h"
#include "session/tables.h"
#include "threads/run_control.h"

#include <gtest/gtest.h>

using namespace Tessel;

TEST(ClosedDevice, StartsNoRunAndTakesNoStage)
{
    DeviceRef target = std::make_shared<DeviceEntry>();
    target->device.DeviceType = DeviceType::File;
    target->device.Index = 0;
    target->device.IsOpen = target->device.IsInitialized = true;
    addDevice(target);
    closeDevice(target);

    uint8_t finished = 0;
    startMeasurement(target, {.Kind = MeasKind::Histogram, .FinishedFlag = &finished}, deviceLookUp);
    EXPECT_EQ(finished, 1); // at once, without a thread
    EXPECT_EQ(liveRun(target->context), nullptr);
    const int32_t members[] = {1};
    EXPECT_EQ(addMerge(target, members, true), -1);
    EXPECT_TRUE(chainOf(target->context).empty());
}
