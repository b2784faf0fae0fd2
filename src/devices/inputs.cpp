#include "devices/inputs.h"

#include "devices/call.h"
#include "devices/enum_texts.h"
#include "devices/families.h"
#include "devices/libs/all.h"
#include "devices/limits.h"
#include "devices/primitives.h"
#include "devices/setting.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace Tessel {

namespace {

bool takesAllInputs(const Device &device)
{
    return device.LibType == LibType::ZP || device.LibType == LibType::CD90;
}

// Whether the family's library knows the input, or all of them as -1.
bool isAddressed(const Device &device, const ChannelRow &row)
{
    return row.Index >= (takesAllInputs(device) ? -1 : 0);
}

// Sets what was sent to `row` in the rows that it stands for.
template <class Set>
void rememberIn(LockedDevice &locked, ChannelRow &row, Set set)
{
    remember(locked, [&] {
        if (row.Index >= 0) return set(row);
        for (ChannelRow &each : locked.device.ChansCfg) set(each);
    });
}

void rememberEdge(LockedDevice &locked, ChannelRow &row, int32_t level, int32_t edge)
{
    rememberIn(locked, row, [&](ChannelRow &each) {
        each.TrigLvl = level;
        each.TrigEdge = edge;
    });
}

// The server forces the level into its range, and nobody waits for its answer.
bool sendEdgeToServer(Device &device, ChannelRow &row, int32_t level, int32_t edge)
{
    if (device.Remote.SetInputEdgeTrig) device.Remote.SetInputEdgeTrig(row.Index, level, edge);
    LockedDevice locked(device);
    rememberEdge(locked, row, level, edge);
    return true;
}

bool sendTrigger(Device &device, ChannelRow &row, TrigMode mode, const ChannelRow &levels)
{
    switch (mode) {
    case TrigMode::Edge: return SetInputEdgeTrig(device, row, levels.TrigLvl, levels.TrigEdge);
    case TrigMode::CFD: return SetInputCFD(device, row, levels.DiscrLvl, levels.ZeroXLvl);
    }
    return false;
}

bool haveSameLevels(const std::vector<ChannelRow> &rows, TrigMode mode)
{
    return std::ranges::all_of(rows, [&](const ChannelRow &row) {
        const ChannelRow &first = rows.front();
        if (mode == TrigMode::Edge) return row.TrigLvl == first.TrigLvl && row.TrigEdge == first.TrigEdge;
        return row.DiscrLvl == first.DiscrLvl && row.ZeroXLvl == first.ZeroXLvl;
    });
}

// The levels of the trigger mode again, to all inputs: at once if they are alike. The last answer counts.
bool sendTriggerToAll(Device &device, ChannelRow &all, TrigMode mode)
{
    std::vector<ChannelRow> &rows = device.ChansCfg;
    if (!rows.empty() && haveSameLevels(rows, mode)) return sendTrigger(device, all, mode, rows.front());
    bool ok = false;
    for (ChannelRow &row : rows) ok = sendTrigger(device, row, mode, row);
    return ok;
}

// The position in DeadTimeTable of the one that is nearest; of two the earlier one.
int32_t nearestDeadTime(int64_t ps)
{
    const auto nearest =
        std::ranges::min_element(DeadTimeTable, {}, [ps](int64_t each) { return std::abs(each - ps); });
    return static_cast<int32_t>(std::distance(DeadTimeTable.begin(), nearest));
}

bool setCodedDeadTime(LockedDevice &locked, ChannelRow &row, int32_t deadTime)
{
    const int32_t code = nearestDeadTime(deadTime);
    const int32_t coded = DeadTimeTable[static_cast<size_t>(code)];
    if (LogLevel.Device)
        logDev(LogCategory::Progress, "SV40_SetInputDeadTime: {} {} {} {} ({}) @{}", locked.device.Index.load(),
               row.Index, deadTime, code, coded, locked.device.ID);
    if (!callQuietly(locked, sv40.SetInputDeadTime, row.Index, code)) return false;
    remember(locked, [&] {
        row.DeadTimeOn = 1;
        row.DeadTime = coded;
    });
    return true;
}

} // namespace

bool SetInputTrgMode(Device &device, ChannelRow &row, int32_t mode)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!(device.Features & Feature::InputMode)) return false;
    if (!isAddressed(device, row)) return false;
    bool ok = false;
    switch (device.LibType) {
    case LibType::LM70: ok = call(locked, lm70.SetInputTrgMode, row.Index, mode); break;
    case LibType::CD90: ok = call(locked, cd90.SetInputTrgMode, row.Index, mode); break;
    default: return notSupported(device, "SetInputTrgMode");
    }
    if (!ok) return false;
    const auto trigger = static_cast<TrigMode>(mode); // an unknown one is remembered all the same
    rememberIn(locked, row, [&](ChannelRow &each) { each.TrigMode = trigger; });
    return row.Index < 0 ? sendTriggerToAll(device, row, trigger) : sendTrigger(device, row, trigger, row);
}

bool SetInputEdgeTrig(Device &device, ChannelRow &row, int32_t level, int32_t edge)
{
    if (isRemote(device)) return sendEdgeToServer(device, row, level, edge);
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    checkLimits(device, &ChannelRow::TrigLvl, level);
    if (!isAddressed(device, row)) return false;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetInputEdgeTrg, row.Index, level, edge); break;
    case LibType::SV40: ok = call(locked, sv40.SetInputEdgeTrg, row.Index, level, edge); break;
    case LibType::LM70: ok = call(locked, lm70.SetInputEdgeTrg, row.Index, level, edge); break;
    case LibType::CD90: ok = call(locked, cd90.SetInputEdgeTrg, row.Index, level, edge); break;
    default:
        return notSupported(device, "SetInputEdgeTrig"); // its own name, not the library's: hosts know it so
    }
    if (ok) rememberEdge(locked, row, level, edge);
    return ok;
}

bool SetInputCFD(Device &device, ChannelRow &row, int32_t discriminator, int32_t zeroCross)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    checkLimits(device, &ChannelRow::DiscrLvl, discriminator);
    checkLimits(device, &ChannelRow::ZeroXLvl, zeroCross);
    if (!isAddressed(device, row)) return false;
    bool ok = false;
    switch (device.LibType) {
    case LibType::CD: ok = call(locked, cd.SetInputCFD, row.Index, discriminator, zeroCross); break;
    case LibType::SV40:
        if (fixedTrigger(device) != TrigMode::CFD) return notSupportedByModel(device, "SetInputCFD");
        ok = call(locked, sv40.SetInputCFD, row.Index, discriminator, zeroCross);
        break;
    case LibType::LM70: ok = call(locked, lm70.SetInputCFD, row.Index, discriminator, zeroCross); break;
    case LibType::CD90: ok = call(locked, cd90.SetInputCFD, row.Index, discriminator, zeroCross); break;
    default: return notSupported(device, "SetInputCFD");
    }
    if (ok)
        rememberIn(locked, row, [&](ChannelRow &each) {
            each.DiscrLvl = discriminator;
            each.ZeroXLvl = zeroCross;
        });
    return ok;
}

bool SetInputChannelOffset(Device &device, ChannelRow &row, int32_t offset)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    checkLimits(device, &ChannelRow::ChanOffs, offset);
    if (!isAddressed(device, row)) return false;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetInputChannelOffset, row.Index, offset); break;
    case LibType::CD: ok = call(locked, cd.SetInputChannelOffset, row.Index, offset); break;
    case LibType::SV40: ok = call(locked, sv40.SetInputChannelOffset, row.Index, offset); break;
    case LibType::LM70: ok = call(locked, lm70.SetInputChannelOffset, row.Index, offset); break;
    case LibType::CD90: ok = call(locked, cd90.SetInputChannelOffset, row.Index, offset); break;
    default: // The text names another operation: hosts know it so.
        logWrn(LogCategory::General, "Device: GetNumOfModules is not supported for libType {} @{}",
               libTypeText(device.LibType), device.ID);
        return false;
    }
    if (ok) rememberIn(locked, row, [&](ChannelRow &each) { each.ChanOffs = offset; });
    return ok;
}

bool SetInputChannelEnable(Device &device, ChannelRow &row, int32_t enable)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!isAddressed(device, row)) return false;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetInputChannelEnable, row.Index, enable); break;
    case LibType::CD: ok = call(locked, cd.SetInputChannelEnable, row.Index, enable); break;
    case LibType::SV40: ok = call(locked, sv40.SetInputChannelEnable, row.Index, enable); break;
    case LibType::LM70: ok = call(locked, lm70.SetInputChannelEnable, row.Index, enable); break;
    case LibType::CD90: ok = call(locked, cd90.SetInputChannelEnable, row.Index, enable); break;
    default: return notSupported(device, "SetInputChannelEnable");
    }
    if (ok) rememberIn(locked, row, [&](ChannelRow &each) { each.ChanEna = enable; });
    return ok;
}

bool SetInputDeadTime(Device &device, ChannelRow &row, int32_t deadTime)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!(device.Features & Feature::ProgTd)) return false;
    const auto [on, sent] = deadTimeSent(device, &ChannelRow::DeadTime, deadTime);
    if (!isAddressed(device, row)) return false;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetInputDeadTime, row.Index, on, sent); break;
    case LibType::SV40: return setCodedDeadTime(locked, row, deadTime);
    case LibType::LM70: ok = call(locked, lm70.SetInputDeadTime, row.Index, on, sent); break;
    case LibType::CD90: ok = call(locked, cd90.SetInputDeadTime, row.Index, on, sent); break;
    default: return notSupported(device, "SetInputDeadTime");
    }
    if (ok)
        rememberIn(locked, row, [&, switchedOn = on](ChannelRow &each) {
            each.DeadTimeOn = switchedOn;
            each.DeadTime = deadTime;
        });
    return ok;
}

bool SetInputHysteresis(Device &device, int32_t code)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!(device.Features & Feature::ProgHyst)) return false;
    checkLimits(device, &DeviceConfig::HystCode, code);
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetInputHysteresis, code); break;
    case LibType::LM70: ok = call(locked, lm70.SetInputHysteresis, code); break;
    case LibType::CD90: ok = call(locked, cd90.SetInputHysteresis, code); break;
    default: return notSupported(device, "SetInputHysteresis");
    }
    if (ok) remember(locked, [&] { device.HystCode = code; });
    return ok;
}

} // namespace Tessel
