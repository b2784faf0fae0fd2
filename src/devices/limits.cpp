#include "devices/limits.h"

#include "log/log.h"

#include <algorithm>

namespace Tessel {

namespace {

Range rangeOf(const DeviceConfig &device, const Limits &limits)
{
    const auto family = static_cast<size_t>(device.LibType); // Undefined becomes a large number
    if (family >= familyCount) return limits.OfNoFamily;
    if (limits.By == Limits::Rule::BinSteps) return {0, std::max(device.MaxBinSteps, 1) - 1};
    return limits.OfFamily[family];
}

template <class Number>
void force(Range limits, Number &value, std::string_view parameter, std::string_view function)
{
    if (value < limits.Min) {
        logWrn(LogCategory::General, "Config: Value {} is below minimum of {} for {} in {}!", value, limits.Min,
               parameter, function);
        value = static_cast<Number>(limits.Min);
    } else if (value > limits.Max) {
        logWrn(LogCategory::General, "Config: Value {} is above maximum of {} for {} in {}!", value, limits.Max,
               parameter, function);
        value = static_cast<Number>(limits.Max);
    }
}

template <class Record, class Number>
void forceInto(const DeviceConfig &device, const Field<Record> &field, Number &value)
{
    const Range limits = rangeOf(device, field.Limits);
    if (field.Limits.By == Limits::Rule::InPlace)
        value = static_cast<Number>(std::clamp<int64_t>(value, limits.Min, limits.Max));
    else
        force(limits, value, field.Limits.Text, field.Setter);
}

} // namespace

Range limitsOf(const DeviceConfig &device, MemberOf<DeviceConfig> field)
{
    return rangeOf(device, fieldOf(field).Limits);
}

Range limitsOf(const DeviceConfig &device, MemberOf<ChannelRow> field)
{
    return rangeOf(device, fieldOf(field).Limits);
}

void checkLimits(Range limits, int32_t &value, std::string_view parameter, std::string_view function)
{
    force(limits, value, parameter, function);
}

void checkLimits(const DeviceConfig &device, MemberOf<DeviceConfig> field, int32_t &value)
{
    forceInto(device, fieldOf(field), value);
}

void checkLimits(const DeviceConfig &device, MemberOf<DeviceConfig> field, uint32_t &value)
{
    forceInto(device, fieldOf(field), value);
}

void checkLimits(const DeviceConfig &device, MemberOf<ChannelRow> field, int32_t &value)
{
    forceInto(device, fieldOf(field), value);
}

} // namespace Tessel
