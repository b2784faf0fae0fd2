#include "devices/identity.h"

#include "devices/call.h"
#include "devices/libs/cd.h"
#include "devices/libs/cd90.h"
#include "devices/libs/lm70.h"
#include "devices/libs/sv40.h"
#include "devices/libs/zp.h"

namespace Tessel {

namespace {

bool readResolution(LockedDevice &locked, const decltype(CommonOperations::GetResolution) &operation)
{
    Device &device = locked.device;
    double ps = device.Resolution;
    if (!callQuietly(locked, operation, &ps)) return false;
    storeFinite(device, ps, device.Resolution, "as resolution");
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "{}GetResolution: {} @{}", operation.Library->Prefix, device.Resolution,
               device.ID);
    return true;
}

} // namespace

bool GetResolution(Device &device)
{
    if (device.DeviceType != DeviceType::Instrument) return false;
    LockedDevice locked(device);
    switch (device.LibType) {
    case LibType::ZP: return readResolution(locked, zp.GetResolution);
    case LibType::CD: return readResolution(locked, cd.GetResolution);
    case LibType::SV40: return readResolution(locked, sv40.GetResolution);
    case LibType::LM70: return readResolution(locked, lm70.GetResolution);
    case LibType::CD90: return readResolution(locked, cd90.GetResolution);
    default: return notSupported(device, "GetResolution");
    }
}

} // namespace Tessel
