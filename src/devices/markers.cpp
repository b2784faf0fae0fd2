#include "devices/markers.h"

#include "devices/call.h"
#include "devices/libs/all.h"
#include "devices/limits.h"
#include "devices/setting.h"

namespace Tessel {

namespace {

bool hasMarkers(const Device &device)
{
    return (device.Features & Feature::Markers) != 0;
}

} // namespace

bool SetMarkerEdges(Device &device, FourMarkers edges)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!hasMarkers(device) || device.MeasMode == MeasMode::Histogramming) return false;
    for (int32_t &edge : edges) checkLimits(device, &DeviceConfig::MarkerEdges, edge);
    const auto [a, b, c, d] = edges;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetMarkerEdges, a, b, c, d); break;
    case LibType::CD: ok = call(locked, cd.SetMarkerEdges, a, b, c, d); break;
    case LibType::SV40: ok = call(locked, sv40.SetMarkerEdges, a, b, c, d); break;
    case LibType::LM70: ok = call(locked, lm70.SetMarkerEdges, a, b, c, d); break;
    case LibType::CD90: ok = call(locked, cd90.SetMarkerEdges, a, b, c, d); break;
    default: return notSupported(device, "SetMarkerEdges");
    }
    if (ok) remember(locked, [&] { device.MarkerEdges.assign(edges.begin(), edges.end()); });
    return ok;
}

bool SetMarkerEnable(Device &device, FourMarkers enables)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!hasMarkers(device) || device.MeasMode == MeasMode::Histogramming) return false;
    for (int32_t &enable : enables) checkLimits(device, &DeviceConfig::MarkerEna, enable);
    const auto [a, b, c, d] = enables;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetMarkerEnable, a, b, c, d); break;
    case LibType::CD: ok = call(locked, cd.SetMarkerEnable, a, b, c, d); break;
    case LibType::SV40: ok = call(locked, sv40.SetMarkerEnable, a, b, c, d); break;
    case LibType::LM70: ok = call(locked, lm70.SetMarkerEnable, a, b, c, d); break;
    case LibType::CD90: ok = call(locked, cd90.SetMarkerEnable, a, b, c, d); break;
    default: return notSupported(device, "SetMarkerEnable");
    }
    if (ok) remember(locked, [&] { device.MarkerEna.assign(enables.begin(), enables.end()); });
    return ok;
}

bool SetMarkerHoldoffTime(Device &device, int32_t time)
{
    if (auto answer = settingWithoutLibrary(device)) return *answer;
    LockedDevice locked(device);
    if (!hasMarkers(device)) return false;
    checkLimits(device, &DeviceConfig::MarkerHoldoffTime, time);
    if (device.MeasMode != MeasMode::T2 && device.MeasMode != MeasMode::T3) return false;
    bool ok = false;
    switch (device.LibType) {
    case LibType::ZP: ok = call(locked, zp.SetMarkerHoldoffTime, time); break;
    case LibType::CD: ok = call(locked, cd.SetMarkerHoldoffTime, time); break;
    case LibType::SV40: ok = call(locked, sv40.SetMarkerHoldoffTime, time); break;
    case LibType::LM70: ok = call(locked, lm70.SetMarkerHoldoffTime, time); break;
    case LibType::CD90: ok = call(locked, cd90.SetMarkerHoldoffTime, time); break;
    default: return notSupported(device, "SetMarkerHoldoffTime");
    }
    if (ok) remember(locked, [&] { device.MarkerHoldoffTime = time; });
    return ok;
}

} // namespace Tessel
