#include "config/settings_json.h"

#include "devices/enum_texts.h"
#include "devices/families.h"
#include "devices/library_versions.h"
#include "devices/libs/loader.h"
#include "devices/limits.h"
#include "log/text.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <sstream>
#include <type_traits>

namespace Tessel {

namespace {

using boost::json::array;
using boost::json::object;
using boost::json::value;

std::string_view unitText(Unit unit)
{
    switch (unit) {
    case Unit::None: break;
    case Unit::MilliVolt: return "mV";
    case Unit::Picoseconds: return "ps";
    case Unit::Nanoseconds: return "ns";
    case Unit::Milliseconds: return "ms";
    }
    return "";
}

// The words for 0, 1, ...; empty: it is a number.
template <class Record>
std::vector<std::string_view> choicesOf(const Field<Record> &field)
{
    if (std::holds_alternative<TrigMode Record::*>(field.Member)) return {"Edge", "CFD"};
    if (field.Setting.ends_with("edge")) return {"falling", "rising"};
    if (field.Setting.ends_with("enable")) return {"off", "on"};
    return {};
}

// What a row of settings belongs to: the device with its sync, or one input.
template <class Record>
struct Owner
{
    const DeviceConfig &Device;
    const Record &Has;
    int32_t Channel;   // from 0; -1: the device
    uint32_t Triggers; // the modes in which it can trigger
};

template <class Record>
bool canTrigger(const Owner<Record> &owner, const Field<Record> &field)
{
    if (std::holds_alternative<TrigMode Record::*>(field.Member)) return owner.Triggers == TrigFeature::Both;
    if (!field.OnlyIn) return true;
    return owner.Triggers & (*field.OnlyIn == TrigMode::Edge ? TrigFeature::Edge : TrigFeature::CFD);
}

template <class Record>
bool hasSetting(const Owner<Record> &owner, const Field<Record> &field)
{
    const auto family = static_cast<uint32_t>(owner.Device.LibType); // Undefined becomes a large number
    return !field.Setting.empty() && family < familyCount && (field.Families >> family & 1) &&
           (owner.Device.Features & field.Needs) == field.Needs && canTrigger(owner, field);
}

// Empty: the family has no such setting. The widest: nothing limits it.
template <class Record>
std::optional<Range> rangeOf(const Owner<Record> &owner, const Field<Record> &field)
{
    if (field.Limits.By == Limits::Rule::None) return field.Meaning == Meaning::Flag ? Range{0, 1} : unchecked;
    const Range range = limitsOf(owner.Device, field.Member);
    const bool isNone = field.Limits.By == Limits::Rule::Checked && range.Min == range.Max;
    const bool isRefused = range.Min == unchecked.Min && range.Max == unchecked.Max;
    if (isNone || isRefused) return {};
    return range;
}

// A dead time is remembered as it was asked for; the instrument has the nearest in the range, or none.
template <class Record, class Number>
int64_t numberOf(const Record &record, const Field<Record> &field, Number number, Range range)
{
    if (!field.Switch) return static_cast<int64_t>(number);
    if (record.*field.Switch != 1) return 0;
    return std::clamp(static_cast<int64_t>(number), range.Min, range.Max);
}

// All but the value.
template <class Record>
object settingText(const Owner<Record> &owner, const Field<Record> &field, Range range)
{
    object text = {{"key", field.Setting}, {"field", field.Name}, {"operation", field.Setter}};
    if (owner.Channel >= 0) text["key"] = fmt::format("ch{}.{}", owner.Channel + 1, field.Setting);
    if (owner.Channel >= 0) text["channel"] = owner.Channel;
    text["unit"] = unitText(field.Unit);
    if (range.Min != unchecked.Min) {
        text["min"] = range.Min;
        text["max"] = range.Max;
    }
    // The dead times of the SV40 family are always on.
    text["canBeOff"] = field.ZeroIsOff && !(field.Switch && owner.Device.LibType == LibType::SV40);
    if (const auto choices = choicesOf(field); !choices.empty())
        text["choices"] = array(choices.begin(), choices.end());
    text["inUse"] = !field.OnlyIn || *field.OnlyIn == triggerOf(owner.Has);
    return text;
}

template <class Record>
void addSetting(array &all, const Owner<Record> &owner, const Field<Record> &field, Range range)
{
    object text = settingText(owner, field, range);
    std::visit(
        [&](auto member) {
            const auto &held = owner.Has.*member;
            using Held = std::remove_cvref_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, std::vector<int32_t>>) {
                for (int number = 1; const int32_t element : held) {
                    text["key"] = fmt::format(fmt::runtime(field.Setting), number++);
                    text["value"] = element;
                    all.push_back(text);
                }
            } else if constexpr (std::is_arithmetic_v<Held> || std::is_same_v<Held, TrigMode>) {
                text["value"] = numberOf(owner.Has, field, held, range);
                all.push_back(std::move(text));
            }
        },
        field.Member);
}

template <class Record>
void addSettings(array &all, const Owner<Record> &owner, std::span<const Field<Record>> fields)
{
    for (const Field<Record> &field : fields) {
        if (!hasSetting(owner, field)) continue;
        if (const auto range = rangeOf(owner, field)) addSetting(all, owner, field, *range);
    }
}

array featureNames(uint32_t features)
{
    array names;
    std::istringstream text(featuresText(features));
    for (std::string name; text >> name;) names.emplace_back(name);
    return names;
}

} // namespace

std::string stringifySettings(const DeviceConfig &config)
{
    array settings;
    addSettings(settings, Owner<DeviceConfig>{config, config, -1, config.SyncTrigFeature}, deviceFields());
    for (int32_t channel = 0; const ChannelRow &row : config.ChansCfg)
        addSettings(settings, Owner<ChannelRow>{config, row, channel++, row.TrigFeature}, channelFields());
    return boost::json::serialize(object{{"family", libTypeText(config.LibType)},
                                         {"features", featureNames(config.Features)},
                                         {"settings", std::move(settings)}});
}

namespace {

value textOrNull(std::string_view text)
{
    return text.empty() ? value() : value(visible(text));
}

// Read when it is first wanted: a scan does so only for the log.
std::string versionOf(LibType type)
{
    Device device;
    device.LibType = type;
    for (const bool isRead : {false, true}) {
        if (isRead) GetLibraryVersion(device);
        for (const LibraryVersion &known : libraryVersions())
            if (known.Name == familyOf(type).Library) return known.Version;
    }
    return {};
}

object libraryText(LibType type)
{
    const InstrumentLibrary &library = *libraryOf(type);
    const LibraryLook look = lastLook(library);
    const bool isLoaded = !look.Places.empty() && look.Why.empty();
    array places;
    for (const std::string &place : look.Places) places.emplace_back(visible(place));
    return {{"family", libTypeText(type)},   {"file", library.FileName},
            {"places", std::move(places)},   {"loaded", isLoaded},
            {"path", textOrNull(look.Path)}, {"missing", textOrNull(look.Missing)},
            {"why", textOrNull(look.Why)},   {"version", isLoaded ? textOrNull(versionOf(type)) : value()}};
}

} // namespace

std::string stringifyLibraries()
{
    array all;
    for (LibType type : {LibType::ZP, LibType::CD, LibType::SV40, LibType::LM70, LibType::CD90})
        all.push_back(libraryText(type));
    return boost::json::serialize(all);
}

} // namespace Tessel
