#include "devices/acquisition.h"

#include "devices/call.h"

namespace Tessel {

bool SetMeasControl(Device &device, int32_t, int32_t, int32_t)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    return notSupported(device, "SetMeasControl");
}

} // namespace Tessel
