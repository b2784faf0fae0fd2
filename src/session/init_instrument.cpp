// The one place that knows in which order an instrument is told its parameters. The device's mutex is held over
// all of it, so that nobody sets a parameter between what is remembered and what is sent.
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

// The sync of these families is a channel with dead time and hysteresis.
bool hasSyncChannel(LibType type)
{
    return type == LibType::ZP || type == LibType::LM70 || type == LibType::CD90;
}

void readIdentity(Device &device, MeasContext &context)
{
    GetHardwareInfo(device);
    GetFeatures(device);
    GetBaseResolution(device, context);
    GetResolution(device);
    GetNumOfInputChannels(device);
    GetModules(device); // a family without modules warns here: hosts know it so
    GetSyncFeatures(device);
}

void sendSyncTrigger(Device &device)
{
    if (device.SyncTrigFeature == TrigFeature::Both)
        SetSyncTrgMode(device, static_cast<int32_t>(device.SyncTrigMode));
    else if (device.SyncTrigMode == TrigMode::Edge)
        SetSyncEdgeTrig(device, device.SyncTrigLvl, device.SyncTrigEdge);
    else if (device.SyncTrigMode == TrigMode::CFD)
        SetSyncCFD(device, device.SyncDiscrLvl, device.SyncZeroxLvL);
    else
        logWrn(LogCategory::General, "Config: TriggerType {} is not supported for Sync @{}",
               static_cast<int32_t>(device.SyncTrigMode), device.ID);
}

void sendSync(Device &device)
{
    SetSyncDiv(device, device.SyncDiv);
    sendSyncTrigger(device);
    SetSyncChannelOffset(device, device.SyncChannelOffset);
    if (!hasSyncChannel(device.LibType)) return;
    SetSyncChannelEnable(device, device.SyncChannelEnable);
    SetSyncDeadTime(device, device.SyncDeadTimeOn ? static_cast<int32_t>(device.SyncDeadTime) : 0);
    SetInputHysteresis(device, device.HystCode);
    SetTriggerOutput(device, device.TriggerOutput);
    SetOflCompression(device, device.HoldTime);
}

void sendAcquisition(Device &device, const MeasContext &context)
{
    SetStopOverflow(device, context, device.StopCount, true);
    if (device.Features & Feature::LowRes) SetTimingMode(device, device.TimingMode);
    SetBinning(device, device.Binning);
    SetOffset(device, device.Offset);
    SetHistoLength(device, device.LengthCode);
    clearHistMem(device, true);
    SetMeasControl(device, device.MeasControl, device.StartEdge, device.StopEdge);
}

void sendInputTrigger(Device &device, ChannelRow &row)
{
    if (row.TrigFeature == TrigFeature::Both)
        SetInputTrgMode(device, row, static_cast<int32_t>(row.TrigMode));
    else if (row.TrigMode == TrigMode::Edge)
        SetInputEdgeTrig(device, row, row.TrigLvl, row.TrigEdge);
    else if (row.TrigMode == TrigMode::CFD)
        SetInputCFD(device, row, row.DiscrLvl, row.ZeroXLvl);
    else
        logWrn(LogCategory::General, "Config: TriggerType {} is not supported for Input @ Devcie {}, Channel{}",
               static_cast<int32_t>(row.TrigMode), device.ID, row.Index);
}

void sendInput(Device &device, ChannelRow &row)
{
    GetInputFeatures(device, row);
    sendInputTrigger(device, row);
    SetInputChannelOffset(device, row, row.ChanOffs);
    SetInputChannelEnable(device, row, row.ChanEna);
    if (device.LibType != LibType::CD) SetInputDeadTime(device, row, row.DeadTimeOn ? row.DeadTime : 0);
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
void configure(LockedDevice &locked, MeasContext &context)
{
    Device &device = locked.device;
    readIdentity(device, context);
    if (device.IsOpen) sendSync(device);
    if (device.IsOpen) sendAcquisition(device, context);
    for (ChannelRow &row : device.ChansCfg)
        if (device.IsOpen) sendInput(device, row);
    remember(locked, [&] { device.HwFilteRowWidth = filterRowWidth(device); });
    if (device.LibType == LibType::CD90 && device.IsOpen) SetLEDBrightness(device, device.LedBrightness);
}

} // namespace

bool initInstrument(const DeviceRef &target)
{
    Device &device = target->device;
    device.IsInitialized = false;
    if (device.Index < 0) return false;
    if (!device.IsOpen) openInstrument(target, false);
    {
        LockedDevice locked(device);
        if (device.IsOpen && Initialize(device)) configure(locked, target->context);
    }
    for (auto &rate : target->context.CountRates) rate = 0;
    return device.IsInitialized;
}

} // namespace Tessel
