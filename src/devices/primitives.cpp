#include "devices/primitives.h"

#include "devices/file_answers.h"
#include "devices/result.h"

namespace Tessel {

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

bool readFifo(Device &device, MeasContext &context, Run &run, uint64_t &count)
{
    count = 0;
    return isFile(device) ? readFile(device, context, run, count) : notSupported(device, "readFifo");
}

} // namespace Tessel
