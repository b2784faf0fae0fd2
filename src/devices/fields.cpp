#include "devices/fields.h"

#include "devices/families.h"

#include <algorithm>

namespace Tessel {

namespace FieldTable { // its short names are its own

using Config = DeviceConfig;
using Row = ChannelRow;
using enum Unit;
using enum Meaning;

using FamilyRanges = std::array<Range, familyCount>; // in the order of LibType: ZP, CD, SV40, LM70, CD90

// One range for all families.
constexpr FamilyRanges all(Range range)
{
    return {range, range, range, range, range};
}

constexpr Limits inPlace(int64_t min, int64_t max)
{
    return {.By = Limits::Rule::InPlace, .OfFamily = all({min, max}), .OfNoFamily = {min, max}};
}

constexpr Limits checked(std::string_view text, FamilyRanges ofFamily, Range ofNoFamily = {})
{
    return {.By = Limits::Rule::Checked, .Text = text, .OfFamily = ofFamily, .OfNoFamily = ofNoFamily};
}

// A family without the operation mostly has a range all the same: the check comes before the refusal.
constexpr Range none{};
constexpr FamilyRanges edgeLevels{{{-1200, 1200}, none, {-1200, 1200}, {-1500, 1500}, {-1200, 1200}}};
constexpr FamilyRanges cfdLevels{{none, {0, 1000}, {-1200, 0}, {-1500, 0}, {-1200, 0}}};
constexpr FamilyRanges zeroCrossLevels{{none, {0, 40}, {-40, 0}, {-100, 0}, {-100, 0}}};
constexpr FamilyRanges channelOffsets = all({-99999, 99999});
constexpr FamilyRanges deadTimes{{{800, 160000}, none, {24000, 180000}, {800, 160000}, {800, 160000}}};

constexpr Range inputCounts{0, mostInputs};

constexpr DeviceField devices[] = {
    {.Name = "DeviceType", .Member = &Config::DeviceType},
    {.Name = "FileDevicePath", .Member = &Config::FileDevicePath},
    {.Name = "ID", .Member = &Config::ID, .Tag = {"HW_SerialNo"}},
    {.Name = "Model", .Member = &Config::Model, .Tag = {"HW_Type"}},
    {.Name = "PartNo", .Member = &Config::PartNo, .Tag = {"HW_PartNo"}},
    {.Name = "Version", .Member = &Config::Version, .Tag = {"HW_Version"}},
    {.Name = "Features", .Member = &Config::Features, .Meaning = Set, .Tag = {"HW_Features"}},
    {.Name = "BaseResolution",
     .Member = &Config::BaseResolution,
     .Unit = Picoseconds,
     .Tag = {"HW_BaseResolution"}},
    {.Name = "Resolution", .Member = &Config::Resolution, .Unit = Picoseconds, .Tag = {"MeasDesc_Resolution"}},
    {.Name = "Binning",
     .Setting = "binning",
     .Member = &Config::Binning,
     .Tag = {"MeasDesc_BinningFactor"},
     .Ini = {"Binning", "0"},
     .Setter = "SetBinning",
     .Limits = {.By = Limits::Rule::BinSteps, .Text = "binning"}},
    {.Name = "NumChans", .Member = &Config::NumChans, .Holds = inputCounts, .Tag = {"HW_InpChannels"}},
    {.Name = "NumMods", .Member = &Config::NumMods, .Holds = inputCounts},

    {.Name = "SyncDiv",
     .Setting = "sync.divider",
     .Member = &Config::SyncDiv,
     .Tag = {"HWSync_Divider"},
     .Ini = {"SyncDiv", "1"},
     .Setter = "SetSyncDiv",
     .Limits = checked("syncDiv", {{{1, 16}, {1, 16}, {1, 8}, {1, 8}, {1, 16}}}, {1, 1})},
    {.Name = "SyncTrigMode",
     .Setting = "sync.trigger",
     .Member = &Config::SyncTrigMode,
     .Tag = {"HWSync_TrgMode", false},
     .Ini = {"SyncTrigMode", "0"},
     .Setter = "SetSyncTrgMode"},
    {.Name = "SyncTrigLvl",
     .Setting = "sync.level",
     .Member = &Config::SyncTrigLvl,
     .Unit = MilliVolt,
     .OnlyIn = TrigMode::Edge,
     .Tag = {"HWSync_TrgLevel"},
     .Ini = {"SyncEdgeTrig", "0"},
     .Setter = "SetSyncEdgeTrig",
     .Limits = checked("trigLvlSync", edgeLevels)},
    {.Name = "SyncTrigEdge",
     .Setting = "sync.edge",
     .Member = &Config::SyncTrigEdge,
     .OnlyIn = TrigMode::Edge,
     .Tag = {"HWSync_TrgEdge"},
     .Ini = {"SyncEdgeTrig", "1"},
     .Setter = "SetSyncEdgeTrig"},
    {.Name = "SyncDiscrLvl",
     .Setting = "sync.cfd-level",
     .Member = &Config::SyncDiscrLvl,
     .Unit = MilliVolt,
     .OnlyIn = TrigMode::CFD,
     .Tag = {"HWSync_CFDLevel", false},
     .Ini = {"SyncCFD", "0"},
     .Setter = "SetSyncCFD",
     .Limits = checked("discrLvlSync", cfdLevels)},
    {.Name = "SyncZeroxLvL",
     .Setting = "sync.zero-cross",
     .Member = &Config::SyncZeroxLvL,
     .Unit = MilliVolt,
     .OnlyIn = TrigMode::CFD,
     .Tag = {"HWSync_CFDZeroCross", false},
     .Ini = {"SyncCFD", "1"},
     .Setter = "SetSyncCFD",
     .Limits = checked("zeroXLvlSync", zeroCrossLevels)},
    {.Name = "SyncChannelOffset",
     .Setting = "sync.offset",
     .Member = &Config::SyncChannelOffset,
     .Unit = Picoseconds,
     .Tag = {"HWSync_Offset"},
     .Ini = {"SyncChannelOffset", "0"},
     .Setter = "SetSyncChannelOffset",
     .Limits = checked("syncChannelOffset @{}", channelOffsets)},
    {.Name = "SyncChannelEnable",
     .Setting = "sync.enable",
     .Member = &Config::SyncChannelEnable,
     .Meaning = Flag,
     .Ini = {"SyncChannelEnable", "1"},
     .Setter = "SetSyncChannelEnable",
     .Families = familiesWithSyncSwitch},
    {.Name = "SyncDeadTime",
     .Setting = "sync.dead-time",
     .Member = &Config::SyncDeadTime,
     .Unit = Picoseconds,
     .Switch = &Config::SyncDeadTimeOn,
     .ZeroIsOff = true,
     .Tag = {"HWSync_TdCode", false},
     .Ini = {"SyncDeadTime", "800"},
     .Setter = "SetSyncDeadTime",
     .Needs = Feature::ProgTd,
     .Families = familiesWithSyncSwitch,
     .Limits = checked("syncDeadTime", deadTimes)},

    {.Name = "HystCode",
     .Setting = "hysteresis",
     .Member = &Config::HystCode,
     .Meaning = Flag,
     .Tag = {"HW_InputHysteresis"},
     .Ini = {"HystCode", "0"},
     .Setter = "SetInputHysteresis",
     .Needs = Feature::ProgHyst,
     .Limits = checked("hystCode", {{{0, 1}, none, none, {0, 1}, {0, 1}}})},
    {.Name = "TimingMode",
     .Setting = "timing-mode",
     .Member = &Config::TimingMode,
     .Tag = {"HW_Timingmode"},
     .Ini = {"TimingMode", "0"},
     .Setter = "SetTimingMode",
     .Needs = Feature::LowRes,
     .Limits = inPlace(0, 1)},
    {.Name = "StopCount",
     .Setting = "stop-count",
     .Member = &Config::StopCount,
     .ZeroIsOff = true,
     .Ini = {"StopCount", "4294967295"},
     .Setter = "SetStopOverflow",
     .Limits = checked("stopCount", all({1, 4294967295}), {1, 1})},
    {.Name = "Offset",
     .Setting = "offset",
     .Member = &Config::Offset,
     .Unit = Picoseconds,
     .Tag = {"MeasDesc_Offset"},
     .Ini = {"Offset", "0"},
     .Setter = "SetOffset",
     .Limits =
         checked("offset", {{{0, 100000000}, {0, 500000}, {0, 100000000}, {0, 100000000}, {0, 100000000}}})},
    {.Name = "LengthCode",
     .Setting = "length-code",
     .Member = &Config::LengthCode,
     .Ini = {"LengthCode", "-1"},
     .Setter = "SetHistoLength",
     .Limits = checked("lengthCode", {{{0, 6}, {0, 6}, {0, 5}, {0, 9}, {0, 7}}})},
    {.Name = "NumBins", .Member = &Config::NumBins, .Holds = Range{0, mostBins}},
    {.Name = "MeasControl",
     .Setting = "control.mode",
     .Member = &Config::MeasControl,
     .Ini = {"MeasControl", "0", IniKey::Effect::Stores},
     .Setter = "SetMeasControl"},
    {.Name = "StartEdge",
     .Setting = "control.start-edge",
     .Member = &Config::StartEdge,
     .Setter = "SetMeasControl"},
    {.Name = "StopEdge",
     .Setting = "control.stop-edge",
     .Member = &Config::StopEdge,
     .Setter = "SetMeasControl"},
    // The tag is a double, of which the low half is read: what was written doesn't come back.
    {.Name = "TriggerOutput",
     .Setting = "trigger-output",
     .Member = &Config::TriggerOutput,
     .Unit = Nanoseconds,
     .Tag = {"HWTriggerOut_Period"},
     .Ini = {"TriggerOutput", "0"},
     .Setter = "SetTriggerOutput",
     .Needs = Feature::TrigOut,
     .Limits = inPlace(0, 16777215)},
    {.Name = "MarkerHoldoffTime",
     .Setting = "marker.holdoff",
     .Member = &Config::MarkerHoldoffTime,
     .Tag = {"HWMarkers_HoldOff"},
     .Ini = {"MarkerHoldoffTime", "0"},
     .Setter = "SetMarkerHoldoffTime",
     .Needs = Feature::Markers,
     .Limits = checked("holdoffTime", {{{0, 25500}, {0, 0x80008}, {0, 25500}, {0, 25500}, {0, 25500}}})},
    {.Name = "HoldTime",
     .Setting = "overflow-hold",
     .Member = &Config::HoldTime,
     .Unit = Milliseconds,
     .Ini = {"HoldTime", "0"},
     .Setter = "SetOflCompression",
     .Limits = checked("holdTime", {{{0, 255}, unchecked, unchecked, {0, 255}, {0, 255}}})},
    {.Name = "MarkerEdges",
     .Setting = "marker{}.edge",
     .Member = &Config::MarkerEdges,
     .Meaning = Flag,
     .Tag = {"HWMarkers_RisingEdge"},
     .Ini = {"MarkerEdges", "0,0,0,0"},
     .Setter = "SetMarkerEdges",
     .Needs = Feature::Markers,
     .Limits = inPlace(0, 1)},
    {.Name = "MarkerEna",
     .Setting = "marker{}.enable",
     .Member = &Config::MarkerEna,
     .Meaning = Flag,
     .Tag = {"HWMarkers_Enabled"},
     .Ini = {"MarkerEnable", "0,0,0,0"},
     .Setter = "SetMarkerEnable",
     .Needs = Feature::Markers,
     .Limits = inPlace(0, 1)},

    {.Name = "MeasMode", .Member = &Config::MeasMode, .Tag = {"Measurement_Mode"}},
    {.Name = "RefSource", .Member = &Config::RefSource, .Tag = {"HW_RefClockSource", false}},
    {.Name = "HwFilteRowWidth", .Member = &Config::HwFilteRowWidth},
    {.Name = "LibType", .Member = &Config::LibType},
    {.Name = "Comment", .Member = &Config::Comment, .Tag = {"File_Comment"}},

    {.Name = "LedBrightness",
     .Member = &Config::LedBrightness,
     .IsInJson = false,
     .Setter = "SetLEDBrightness",
     .Limits = inPlace(0, 2)},
};

constexpr ChannelField channels[] = {
    {.Name = "Index", .Member = &Row::Index},
    {.Name = "Name",
     .Member = &Row::Name,
     .Tag = {"HWInpChan_Name"},
     .Ini = {"Name", "Channel {}", IniKey::Effect::Stores}},
    {.Name = "TrigMode",
     .Setting = "trigger",
     .Member = &Row::TrigMode,
     .Tag = {"HWInpChan_TrgMode", false},
     .Ini = {"TrigMode", "0"},
     .Setter = "SetInputTrgMode",
     .Needs = Feature::InputMode},
    {.Name = "TrigLvl",
     .Setting = "level",
     .Member = &Row::TrigLvl,
     .Unit = MilliVolt,
     .OnlyIn = TrigMode::Edge,
     .Tag = {"HWInpChan_TrgLevel"},
     .Ini = {"EdgeTrig", "-50", IniKey::Effect::StoresAndSets},
     .Setter = "SetInputEdgeTrig",
     .Limits = checked("trigLvl", edgeLevels)},
    {.Name = "TrigEdge",
     .Setting = "edge",
     .Member = &Row::TrigEdge,
     .OnlyIn = TrigMode::Edge,
     .Tag = {"HWInpChan_TrgEdge"},
     .Ini = {"EdgeTrig", "1", IniKey::Effect::StoresAndSets},
     .Setter = "SetInputEdgeTrig"},
    {.Name = "DiscrLvl",
     .Setting = "cfd-level",
     .Member = &Row::DiscrLvl,
     .Unit = MilliVolt,
     .OnlyIn = TrigMode::CFD,
     .Tag = {"HWInpChan_CFDLevel", false},
     .Ini = {"CFD", "50", IniKey::Effect::StoresAndSets},
     .Setter = "SetInputCFD",
     .Limits = checked("discrLvl", cfdLevels)},
    {.Name = "ZeroXLvl",
     .Setting = "zero-cross",
     .Member = &Row::ZeroXLvl,
     .Unit = MilliVolt,
     .OnlyIn = TrigMode::CFD,
     .Tag = {"HWInpChan_CFDZeroCross", false},
     .Ini = {"CFD", "20", IniKey::Effect::StoresAndSets},
     .Setter = "SetInputCFD",
     .Limits = checked("zerox", zeroCrossLevels)},
    {.Name = "ChanOffs",
     .Setting = "offset",
     .Member = &Row::ChanOffs,
     .Unit = Picoseconds,
     .Tag = {"HWInpChan_Offset"},
     .Ini = {"ChanOffs", "0"},
     .Setter = "SetInputChannelOffset",
     .Limits = checked("chanOffs", channelOffsets)},
    {.Name = "ChanEna",
     .Setting = "enable",
     .Member = &Row::ChanEna,
     .Meaning = Flag,
     .Tag = {"HWInpChan_Enabled"},
     .Ini = {"ChanEna", "1"},
     .Setter = "SetInputChannelEnable"},
    {.Name = "DeadTime",
     .Setting = "dead-time",
     .Member = &Row::DeadTime,
     .Unit = Picoseconds,
     .Switch = &Row::DeadTimeOn,
     .ZeroIsOff = true,
     .Tag = {"HWInpChan_TdCode"},
     .Ini = {"DeadTime", "800"},
     .Setter = "SetInputDeadTime",
     .Needs = Feature::ProgTd,
     .Limits = checked("deadTime", deadTimes)},
    {.Name = "TrigFeature", .Member = &Row::TrigFeature},
};

constexpr ModuleField modules[] = {
    {.Name = "Index", .Member = &ModuleRow::Index},
    {.Name = "ModelCode", .Member = &ModuleRow::ModelCode},
    {.Name = "VersionCode", .Member = &ModuleRow::VersionCode},
};

// No two rows share a name, a member, a tag or a setting.
template <class Record>
constexpr bool isDistinct(std::span<const Field<Record>> fields)
{
    for (size_t i = 0; i < fields.size(); ++i)
        for (size_t j = 0; j < i; ++j) {
            const Field<Record> &one = fields[i], &other = fields[j];
            if (one.Name == other.Name || one.Member == other.Member) return false;
            if (!one.Tag.Name.empty() && one.Tag.Name == other.Tag.Name) return false;
            if (!one.Setting.empty() && one.Setting == other.Setting) return false;
        }
    return true;
}
static_assert(isDistinct<DeviceConfig>(devices));
static_assert(isDistinct<ChannelRow>(channels));
static_assert(isDistinct<ModuleRow>(modules));

} // namespace FieldTable

std::span<const DeviceField> deviceFields()
{
    return FieldTable::devices;
}

std::span<const ChannelField> channelFields()
{
    return FieldTable::channels;
}

std::span<const ModuleField> moduleFields()
{
    return FieldTable::modules;
}

const DeviceField &fieldOf(MemberOf<DeviceConfig> member)
{
    return *std::ranges::find(FieldTable::devices, member, &DeviceField::Member);
}

const ChannelField &fieldOf(MemberOf<ChannelRow> member)
{
    return *std::ranges::find(FieldTable::channels, member, &ChannelField::Member);
}

std::span<const DeviceField> fieldsOf(MemberOf<DeviceConfig> first, MemberOf<DeviceConfig> last)
{
    return {&fieldOf(first), &fieldOf(last) + 1};
}

} // namespace Tessel
