// The one place that knows in which order an instrument is told its parameters.
#include "devices/acquisition.h"
#include "devices/identity.h"
#include "devices/inputs.h"
#include "devices/lifecycle.h"
#include "devices/primitives.h"
#include "devices/sync.h"
#include "log/log.h"
#include "session/instruments.h"

namespace Tessel {

namespace {

void readIdentity(Device &device, MeasContext &context)
{
    GetHardwareInfo(device);
    GetFeatures(device);
    GetBaseResolution(device, context);
    GetResolution(device);
    GetNumOfInputChannels(device);
    if (device.LibType == LibType::ZP || device.LibType == LibType::CD || device.LibType == LibType::CD90)
        GetModules(device);
    GetSyncFeatures(device);
}

// Of a CD90 instrument the last word of its model says it.
uint32_t filterRowWidth(const Device &device)
{
    switch (device.LibType) {
    case LibType::ZP:
    case LibType::LM70: return 8;
    case LibType::CD90: return device.Model == "S" || device.Model.ends_with(" S") ? 8 : 16;
    default: return device.HwFilteRowWidth;
    }
}

// An instrument that is lost on the way is asked no further.
void configure(Device &device, MeasContext &context)
{
    readIdentity(device, context);
    for (ChannelRow &row : device.ChansCfg)
        if (device.IsOpen) GetInputFeatures(device, row);
    device.HwFilteRowWidth = filterRowWidth(device);
}

} // namespace

bool initInstrument(const DeviceRef &target)
{
    Device &device = target->device;
    device.IsInitialized = false;
    if (device.Index < 0) return false;
    if (!device.IsOpen) openInstrument(target, false);
    if (device.IsOpen && Initialize(device)) configure(device, target->context);
    for (auto &rate : target->context.CountRates) rate = 0;
    return device.IsInitialized;
}

} // namespace Tessel
