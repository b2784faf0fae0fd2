// The fields of a device's configuration, each described once: its member, meaning, range, and its names in the
// device JSON, a file header and an INI text. What writes, reads, limits or sets parameters goes by these
// tables, and spells out only what doesn't fit their form.
#pragma once

#include "records/device_config.h"

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>
#include <variant>

namespace Tessel {

// The member that has the value, and with it the type. Never null in a table.
template <class Record>
using MemberOf = std::variant<int32_t Record::*, uint32_t Record::*, uint64_t Record::*, double Record::*,
                              std::string Record::*, std::vector<int32_t> Record::*, DeviceType Record::*,
                              LibType Record::*, MeasMode Record::*, TrigMode Record::*>;

enum class Unit : int8_t { None, MilliVolt, Picoseconds, Nanoseconds, Milliseconds };

// What the type of a number doesn't say.
enum class Meaning : int8_t {
    Number,
    Flag, // 0 or 1; a tag of it holds true or false
    Set,  // bits; a negative number in JSON if the highest is set
};

inline constexpr size_t familyCount = 5; // ZP to CD90

struct Range
{
    int64_t Min = 0, Max = 0;
};

// Every value is in it: the family has no such operation, and refuses any value.
inline constexpr Range unchecked{std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()};

struct Limits
{
    enum class Rule : int8_t {
        None,     // the setter decides by itself
        InPlace,  // limited to the range; nothing is logged
        Checked,  // limited to the range, with a message if that changes the value
        BinSteps, // as Checked; the highest value is MaxBinSteps - 1, and MaxBinSteps at least 1
    };
    Rule By = Rule::None;
    std::string_view Text{};                   // of the parameter in that message
    std::array<Range, familyCount> OfFamily{}; // at the number of the LibType
    Range OfNoFamily{};                        // any other LibType
};

struct TagKey
{
    std::string_view Name{}; // of the first row of that name in the tag dictionary
    bool IsRead = true;      // false: written only
};

// Fields of one key stand in the order of the numbers in its value, "level,edge".
struct IniKey
{
    enum class Effect : int8_t { Sets, Stores, StoresAndSets };
    std::string_view Name{};
    std::string_view Default{}; // this field's part of it; {} stands for the number of the row
    Effect Does = Effect::Sets;
};

// The bit of each LibType.
inline constexpr uint32_t allFamilies = (1u << familyCount) - 1;
inline constexpr uint32_t familiesWithSyncSwitch = 0b11001; // ZP, LM70, CD90: they can switch the sync off

// An absent tag, INI key, setter or setting has an empty name.
template <class Record>
struct Field
{
    std::string_view Name{}; // the member's, and the key in JSON
    // As people set it: "sync.level"; of a channel behind its number, "ch1.level". {}: the element, from 1.
    std::string_view Setting{};
    MemberOf<Record> Member{};
    Tessel::Unit Unit = Unit::None;
    Tessel::Meaning Meaning = Meaning::Number;
    int32_t Record::*Switch = nullptr; // while this isn't 1, 0 is written in place of the value
    bool ZeroIsOff = false;            // 0 switches it off, though it is below the range
    std::optional<TrigMode> OnlyIn{};  // written in this trigger mode only
    bool IsInJson = true;
    std::optional<Range> Holds{}; // what is taken from a text, where the type would hold more
    TagKey Tag{};
    IniKey Ini{};
    std::string_view Setter{};       // of fields with one setter, the table has the order of its arguments
    uint32_t Needs = 0;              // features without which it can't be set
    uint32_t Families = allFamilies; // that can set it, beside what the range says
    Tessel::Limits Limits{};
};

using DeviceField = Field<DeviceConfig>;
using ChannelField = Field<ChannelRow>;
using ModuleField = Field<ModuleRow>;

// In the order of the JSON; fields that aren't in it come last.
std::span<const DeviceField> deviceFields();
std::span<const ChannelField> channelFields();
std::span<const ModuleField> moduleFields();

// The row of one member, and all rows from one member to another.
const DeviceField &fieldOf(MemberOf<DeviceConfig> member);
const ChannelField &fieldOf(MemberOf<ChannelRow> member);
std::span<const DeviceField> fieldsOf(MemberOf<DeviceConfig> first, MemberOf<DeviceConfig> last);

constexpr TrigMode triggerOf(const DeviceConfig &config)
{
    return config.SyncTrigMode;
}
constexpr TrigMode triggerOf(const ChannelRow &row)
{
    return row.TrigMode;
}

// Calls `take` with the value to be written, unless the field isn't written in the record's trigger mode.
template <class Record, class Take>
void visitValue(const Record &record, const Field<Record> &field, Take take)
{
    if constexpr (!std::is_same_v<Record, ModuleRow>)
        if (field.OnlyIn && *field.OnlyIn != triggerOf(record)) return;
    const bool isOff = field.Switch && record.*field.Switch != 1;
    std::visit(
        [&](auto member) {
            if (isOff)
                take(std::remove_cvref_t<decltype(record.*member)>{});
            else
                take(record.*member);
        },
        field.Member);
}

} // namespace Tessel
