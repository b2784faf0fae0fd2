#include "config/device_ini.h"

#include "devices/acquisition.h"
#include "devices/fields.h"
#include "devices/inputs.h"
#include "devices/markers.h"
#include "devices/primitives.h"
#include "devices/sync.h"
#include "log/log.h"

#include <algorithm>
#include <optional>

namespace Tessel {

namespace {

using Numbers = std::span<const int32_t>;

// A setter by its name in the table of fields, with as many numbers as the default of its key has.
struct DeviceSetter
{
    std::string_view Name;
    bool (*Set)(Device &device, const MeasContext &context, Numbers values);
};
struct RowSetter
{
    std::string_view Name;
    bool (*Set)(Device &device, ChannelRow &row, Numbers values);
};

template <bool (*set)(Device &, int32_t)>
constexpr auto withOne =
    [](Device &device, const MeasContext &, Numbers values) { return set(device, values[0]); };
template <bool (*set)(Device &, int32_t, int32_t)>
constexpr auto withTwo =
    [](Device &device, const MeasContext &, Numbers values) { return set(device, values[0], values[1]); };
template <bool (*set)(Device &, FourMarkers)>
constexpr auto withFour = [](Device &device, const MeasContext &, Numbers values) {
    return set(device, {values[0], values[1], values[2], values[3]});
};
template <bool (*set)(Device &, ChannelRow &, int32_t)>
constexpr auto rowWithOne =
    [](Device &device, ChannelRow &row, Numbers values) { return set(device, row, values[0]); };
template <bool (*set)(Device &, ChannelRow &, int32_t, int32_t)>
constexpr auto rowWithTwo =
    [](Device &device, ChannelRow &row, Numbers values) { return set(device, row, values[0], values[1]); };

constexpr DeviceSetter deviceSetters[] = {
    {"SetSyncDiv", withOne<SetSyncDiv>},
    {"SetSyncTrgMode", withOne<SetSyncTrgMode>},
    {"SetSyncCFD", withTwo<SetSyncCFD>},
    {"SetSyncEdgeTrig", withTwo<SetSyncEdgeTrig>},
    {"SetSyncChannelOffset", withOne<SetSyncChannelOffset>},
    {"SetSyncChannelEnable", withOne<SetSyncChannelEnable>},
    {"SetSyncDeadTime", withOne<SetSyncDeadTime>},
    {"SetInputHysteresis", withOne<SetInputHysteresis>},
    {"SetTimingMode", withOne<SetTimingMode>},
    {"SetStopOverflow",
     [](Device &device, const MeasContext &context, Numbers values) {
         return SetStopOverflow(device, context, static_cast<uint32_t>(values[0]), true);
     }},
    {"SetOffset", withOne<SetOffset>},
    {"SetBinning", withOne<SetBinning>},
    {"SetHistoLength", withOne<SetHistoLength>},
    {"SetTriggerOutput", withOne<SetTriggerOutput>},
    {"SetMarkerEdges", withFour<SetMarkerEdges>},
    {"SetMarkerEnable", withFour<SetMarkerEnable>},
    {"SetMarkerHoldoffTime", withOne<SetMarkerHoldoffTime>},
    {"SetOflCompression", withOne<SetOflCompression>},
};

constexpr RowSetter rowSetters[] = {
    {"SetInputTrgMode", rowWithOne<SetInputTrgMode>},
    {"SetInputEdgeTrig", rowWithTwo<SetInputEdgeTrig>},
    {"SetInputCFD", rowWithTwo<SetInputCFD>},
    {"SetInputChannelOffset", rowWithOne<SetInputChannelOffset>},
    {"SetInputChannelEnable", rowWithOne<SetInputChannelEnable>},
    {"SetInputDeadTime", rowWithOne<SetInputDeadTime>},
};

struct Walk
{
    Device &device;
    const MeasContext &context;
    bool Answer = false; // of the last setter
};

struct Place
{
    std::string_view Section;
    const IniEntry &Key;
};

// The fields of a key, which stand together; none: there is no such key.
template <class Record>
std::span<const Field<Record>> fieldsOfKey(std::span<const Field<Record>> fields, std::string_view key)
{
    if (key.empty()) return {};
    const auto isOfKey = [&](const Field<Record> &field) { return field.Ini.Name == key; };
    const auto first = std::ranges::find_if(fields, isOfKey);
    return {first, std::find_if_not(first, fields.end(), isOfKey)};
}

template <class Record>
int32_t numberOf(const Field<Record> &field, std::string_view text)
{
    if (std::holds_alternative<TrigMode Record::*>(field.Member)) {
        if (text == "Edge") return 0;
        if (text == "CFD") return 1;
    }
    if constexpr (std::is_same_v<Record, DeviceConfig>)
        if (field.Member == MemberOf<DeviceConfig>(&DeviceConfig::StopCount))
            return static_cast<int32_t>(iniUnsigned(text, 0));
    return iniInteger(text, 0);
}

// As many as the key takes; further ones don't count. None: they are too few.
template <class Record>
std::optional<std::vector<int32_t>> numbersOf(std::span<const Field<Record>> fields, const Place &place)
{
    size_t count = 0;
    for (const Field<Record> &field : fields) count += iniFields(field.Ini.Default).size();
    const std::string_view value = place.Key.Value;
    if (count == 1) return std::vector{numberOf(fields.front(), value)};
    const auto texts = iniFields(value);
    if (texts.size() < count) {
        logErr(LogCategory::General, "Config: Too few numbers: [{}] '{}' '{}'", place.Section, place.Key.Name,
               value);
        return {};
    }
    std::vector<int32_t> numbers;
    for (size_t i = 0; i < count; ++i) numbers.push_back(numberOf(fields.front(), texts[i]));
    return numbers;
}

template <class Record>
void store(Device &device, Record &record, std::span<const Field<Record>> fields, Numbers values)
{
    LockedDevice locked(device);
    remember(locked, [&] {
        for (size_t i = 0; i < fields.size(); ++i)
            record.*std::get<int32_t Record::*>(fields[i].Member) = values[i];
    });
}

void warnUnknownKey(const Place &place)
{
    logWrn(LogCategory::General, "Unknown ini key: [{}] '{}' '{}'", place.Section, place.Key.Name,
           place.Key.Value);
}

// Stores, sets, or both. `call` gets the setter's entry in the table.
template <class Record, class Setter, class Call>
void actOnKey(Walk &walk, Record &record, std::span<const Field<Record>> fields, const Place &place,
              std::span<const Setter> setters, Call call)
{
    const auto numbers = numbersOf(fields, place);
    if (!numbers) return;
    const Field<Record> &field = fields.front();
    if (field.Ini.Does != IniKey::Effect::Sets) store(walk.device, record, fields, *numbers);
    if (field.Ini.Does == IniKey::Effect::Stores) return;
    const auto setter = std::ranges::find(setters, field.Setter, &Setter::Name);
    if (setter == setters.end()) return warnUnknownKey(place);
    walk.Answer = call(*setter, *numbers);
}

void actOnDevice(Walk &walk, const Place &place)
{
    const auto fields = fieldsOfKey(deviceFields(), place.Key.Name);
    if (fields.empty()) return warnUnknownKey(place);
    actOnKey<DeviceConfig, DeviceSetter>(walk, walk.device, fields, place, deviceSetters,
                                         [&](const DeviceSetter &setter, Numbers values) {
                                             return setter.Set(walk.device, walk.context, values);
                                         });
}

void nameRow(Device &device, ChannelRow &row, const std::string &name)
{
    LockedDevice locked(device);
    remember(locked, [&] { row.Name = name; });
}

// False: there is no such row.
bool actOnRow(Walk &walk, const Place &place, size_t input, bool canBeNamed)
{
    const auto fields = fieldsOfKey(channelFields(), place.Key.Name);
    const bool isName = !fields.empty() && fields.front().Member == MemberOf<ChannelRow>(&ChannelRow::Name);
    const auto found = forInput(walk.device, input, [&](ChannelRow &row) {
        if (fields.empty() || (isName && !canBeNamed))
            warnUnknownKey(place);
        else if (isName)
            nameRow(walk.device, row, place.Key.Value);
        else
            actOnKey<ChannelRow, RowSetter>(
                walk, row, fields, place, rowSetters,
                [&](const RowSetter &setter, Numbers values) { return setter.Set(walk.device, row, values); });
        return true;
    });
    return found.has_value();
}

void actOnChannel(Walk &walk, const Place &place)
{
    const int32_t input = iniInteger(place.Section.substr(std::string_view("Channel_").size()), 0);
    if (input >= 0 && input < valueOf(walk.device, &DeviceConfig::NumChans))
        actOnRow(walk, place, static_cast<size_t>(input), true);
}

void actOn(Walk &walk, const Place &place)
{
    if (place.Section == "Device")
        actOnDevice(walk, place);
    else if (place.Section == "All_Channels")
        for (size_t input = 0; actOnRow(walk, place, input, false);) ++input;
    else if (place.Section.find("Channel_") != std::string_view::npos)
        actOnChannel(walk, place);
    else
        logWrn(LogCategory::General, "Unknown ini section: [{}]", place.Section);
}

} // namespace

bool applyIniConfig(Device &device, const MeasContext &context, const IniText &text)
{
    if (!isInstrument(device)) return false;
    if (!device.IsInitialized) {
        logErr(LogCategory::General, "Config: Device must be initalized before setting the config!");
        return false;
    }
    Walk walk{device, context};
    for (const IniSection &section : text) {
        if (LogLevel.Config) logDeb(LogCategory::Progress, "INI Section {}", section.Name);
        for (const IniEntry &key : section.Keys) {
            if (LogLevel.Config) {
                logDeb(LogCategory::Progress, "INI Key {}", key.Name);
                logInf(LogCategory::Progress, "Ini entry: {} {} {}", section.Name, key.Name, key.Value);
            }
            actOn(walk, {section.Name, key});
        }
    }
    device.IsConfigured = true;
    return walk.Answer;
}

} // namespace Tessel
