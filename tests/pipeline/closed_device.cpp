// A call that found its device before another thread closed it.
#include "devices/lifecycle.h"
#include "manipulators/chain.h"
#include "manipulators/stages.h"
#include "pipeline/requests.h"

#include <gtest/gtest.h>

using namespace Tessel;

TEST(ClosedDevice, StartsNoRunAndTakesNoStage)
{
    auto device = std::make_shared<Device>();
    device->DeviceType = DeviceType::File;
    device->Index = 0;
    device->IsOpen = device->IsInitialized = true;
    DeviceRef target = addDevice(device, std::make_shared<MeasContext>());
    closeDevice(target);

    uint8_t finished = 0;
    startMeasurement(target, {.Kind = MeasKind::Histogram, .FinishedFlag = &finished});
    EXPECT_EQ(finished, 1); // at once, without a thread
    EXPECT_EQ(liveRun(*target.context), nullptr);
    const int32_t members[] = {1};
    EXPECT_EQ(addMerge(target, members, true), -1);
    EXPECT_TRUE(chainOf(*target.context).empty());
}
