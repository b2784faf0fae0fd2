// What is handed on: a device with its context, a run, a stage. Whoever has one keeps alive what it names.
#pragma once

#include "records/context.h"
#include "records/device.h"
#include "records/run.h"

#include <memory>
#include <string_view>
#include <vector>

namespace Tessel {

// An entry of the library's table.
struct DeviceEntry
{
    Device device;
    MeasContext context;
};
using DeviceRef = std::shared_ptr<DeviceEntry>; // never null

struct RunRef
{
    DeviceRef target;
    std::shared_ptr<Run> run;
    Device &device = target->device;
    MeasContext &context = target->context;
};

struct StageRef
{
    DeviceRef target;
    std::shared_ptr<Manipulator> record;
    std::shared_ptr<Run> run{}; // through which the stage passes; null between two runs
    Device &device = target->device;
    MeasContext &context = target->context;
};

// How a lower layer reaches other devices: session/ hands its functions down.
struct DeviceLookUp
{
    DeviceRef (*Find)(std::string_view id);      // the device without id where there is none
    std::vector<DeviceRef> (*All)();             // in table order
    bool (*Initialise)(const DeviceRef &device); // true: initialised
};

} // namespace Tessel
