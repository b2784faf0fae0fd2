#include "devices/primitives.h"

#include "devices/result.h"
#include "stream/rounding.h"

#include <algorithm>

namespace Tessel {

namespace {

// The rate that the file gave.
int32_t fileSyncRate(const MeasContext &context)
{
    return std::max(nearest<int32_t>(context.Description.AveSyncRate), 0);
}

} // namespace

bool SetMeasControl(Device &device, int32_t, int32_t, int32_t)
{
    return isFile(device) || notSupported(device, "SetMeasControl");
}

bool StartMeasure(Device &device, int32_t)
{
    return isFile(device) || notSupported(device, "StartMeasure");
}

bool StopMeasure(Device &device)
{
    return isFile(device) || notSupported(device, "StopMeasure");
}

bool clearHistMem(Device &device)
{
    return isFile(device) || notSupported(device, "ClearHistMem");
}

bool getFlags(Device &device, int32_t &flags)
{
    flags = 0;
    return isFile(device) || notSupported(device, "getFlags");
}

bool getCtcStatus(Device &device, int32_t &status)
{
    status = 0;
    return isFile(device) || notSupported(device, "getCtcStatus");
}

bool getSyncRate(Device &device, MeasContext &context, int32_t &rate)
{
    rate = 0;
    if (!isFile(device)) return notSupported(device, "getSyncRate");
    rate = fileSyncRate(context);
    return true;
}

bool getElapsedMeasTime(Device &device, double &)
{
    return isFile(device) || notSupported(device, "getElapsedMeasTime");
}

bool readCountRates(Device &device, MeasContext &)
{
    return isFile(device) ? false : notSupported(device, "getCountRates");
}

} // namespace Tessel
