#include "devices/lifecycle.h"

#include "devices/call.h"
#include "devices/families.h"
#include "devices/libs/all.h"
#include "log/text.h"

#include <algorithm>

namespace Tessel {

namespace {

bool openWith(LockedDevice &locked, const decltype(CommonOperations::OpenDevice) &operation,
              std::string &serial, bool quiet)
{
    Device &device = locked.device;
    TextRoom<64> text;
    if (!Kest_isOK(
            locked, operation(device.Index, text.Bytes), [&] { return locationOf(device, operation); }, quiet))
        return false;
    serial = visible(text.text());
    device.IsOpen = true;
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "{}OpenDevice: {} {} {}", operation.Library->Prefix, device.Index.load(),
               serial, device.IsOpen.load());
    return true;
}

} // namespace

bool openInstrument(LockedDevice &locked, std::string &serial, bool quiet)
{
    switch (locked.device.LibType) {
    case LibType::ZP: return openWith(locked, zp.OpenDevice, serial, quiet);
    case LibType::CD: return openWith(locked, cd.OpenDevice, serial, quiet);
    case LibType::SV40: return openWith(locked, sv40.OpenDevice, serial, quiet);
    case LibType::LM70: return openWith(locked, lm70.OpenDevice, serial, quiet);
    case LibType::CD90: return openWith(locked, cd90.OpenDevice, serial, quiet);
    default: return notSupported(locked.device, "openDevice");
    }
}

namespace {

// The location is the trace line: "ZP_Initialize: 0 3 0 @1010101".
template <class... Params>
bool initialize(LockedDevice &locked, const Operation<int32_t(int32_t, Params...)> &operation,
                std::type_identity_t<Params>... args)
{
    const std::string line = traceText(locked.device, operation, args...);
    if (LogLevel.Device) logDev(LogCategory::Progress, "{}", line);
    return callQuietlyAt(locked, operation, line, args...);
}

bool initializeByFamily(LockedDevice &locked)
{
    const Device &device = locked.device;
    const auto mode = static_cast<int32_t>(device.MeasMode);
    switch (device.LibType) {
    case LibType::ZP: return initialize(locked, zp.Initialize, std::min(mode, 3), refSourceCode(device));
    case LibType::CD: {
        const bool good = initialize(locked, cd.Initialize, mode, refSourceCode(device));
        call(locked, cd.Calibrate); // whatever the answer before was, and reported by itself
        return good;
    }
    case LibType::SV40: return initialize(locked, sv40.Initialize, mode);
    case LibType::LM70: return initialize(locked, lm70.Initialize, mode, refSourceCode(device));
    case LibType::CD90: return initialize(locked, cd90.Initialize, mode, refSourceCode(device));
    default: return notSupported(device, "Initialize");
    }
}

} // namespace

bool Initialize(Device &device)
{
    if (device.DeviceType == DeviceType::File || device.DeviceType == DeviceType::Remote) return false;
    LockedDevice locked(device);
    if (!initializeByFamily(locked)) return false;
    device.IsInitialized = device.IsOpen.load(); // a calibration may have found it lost
    return device.IsInitialized;
}

namespace {

void forgetOpen(Device &device)
{
    device.IsOpen = false;
    device.IsInitialized = false;
}

// A lost instrument counts as closed, so the code isn't answered by another close.
void closeWith(LockedDevice &locked, const decltype(CommonOperations::CloseDevice) &operation)
{
    Device &device = locked.device;
    const int32_t result = operation(device.Index);
    device.Error = result;
    if (result < 0) logResult(locked, result, locationOf(device, operation), true);
    if (result < 0 && result != deviceLost) return;
    forgetOpen(device);
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "{}CloseDevice: {} {} @{}", operation.Library->Prefix,
               device.Index.load(), device.IsOpen.load(), device.ID);
}

} // namespace

void closeInstrument(LockedDevice &locked)
{
    const Device &device = locked.device;
    if (!device.IsOpen) return;
    switch (device.LibType) {
    case LibType::ZP: return closeWith(locked, zp.CloseDevice);
    case LibType::CD: return closeWith(locked, cd.CloseDevice);
    case LibType::SV40: return closeWith(locked, sv40.CloseDevice);
    case LibType::LM70: return closeWith(locked, lm70.CloseDevice);
    case LibType::CD90: return closeWith(locked, cd90.CloseDevice);
    default: notSupported(device, "closeDevice");
    }
}

void closeLost(LockedDevice &locked)
{
    Device &device = locked.device;
    closeInstrument(locked);
    forgetOpen(device);
    device.Error = deviceLost;
    if (device.Lost) device.Lost(device);
}

} // namespace Tessel
