// The range of a parameter in the family of a device, and the check that forces a value into it.
#pragma once

#include "devices/fields.h"

#include <string_view>

namespace Tessel {

// The range of the parameter's field, for the device's family as it is now.
Range limitsOf(const DeviceConfig &device, MemberOf<DeviceConfig> field);
Range limitsOf(const DeviceConfig &device, MemberOf<ChannelRow> field);

// Forces the value into the range. A value that this changes is logged; it never stops an operation.
void checkLimits(Range limits, int32_t &value, std::string_view parameter, std::string_view function);

// The same, with range and names from the table of fields. A field that is limited in place isn't logged.
void checkLimits(const DeviceConfig &device, MemberOf<DeviceConfig> field, int32_t &value);
void checkLimits(const DeviceConfig &device, MemberOf<DeviceConfig> field, uint32_t &value);
void checkLimits(const DeviceConfig &device, MemberOf<ChannelRow> field, int32_t &value);

} // namespace Tessel
