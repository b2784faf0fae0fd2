// From an assignment to the call that sends it. The main thread's.
#include "program/settings.h"

#include "program/console.h"
#include "program/exit_codes.h"
#include "program/instrument.h"
#include "program/nearest.h"
#include "program/units.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/json/array.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <span>

namespace Tessel::Cli {

namespace {

using Values = std::span<const int64_t>;

int32_t small(int64_t value)
{
    return static_cast<int32_t>(
        std::clamp<int64_t>(value, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
}

uint32_t smallCount(int64_t value)
{
    return static_cast<uint32_t>(std::clamp<int64_t>(value, 0, std::numeric_limits<uint32_t>::max()));
}

// One operation sends all its values; of an input, with the channel.
struct Operation
{
    std::string_view Name;
    bool (*Send)(int32_t channel, Values v);
};

template <bool (*set)(const char16_t *, int32_t)>
bool sendOne(int32_t, Values v)
{
    return set(nullptr, small(v[0]));
}
template <bool (*set)(const char16_t *, int32_t, int32_t)>
bool sendTwo(int32_t, Values v)
{
    return set(nullptr, small(v[0]), small(v[1]));
}
template <bool (*set)(const char16_t *, int32_t, int32_t, int32_t, int32_t)>
bool sendFour(int32_t, Values v)
{
    return set(nullptr, small(v[0]), small(v[1]), small(v[2]), small(v[3]));
}
template <bool (*set)(const char16_t *, int32_t, int32_t)>
bool sendToInput(int32_t channel, Values v)
{
    return set(nullptr, channel, small(v[0]));
}
template <bool (*set)(const char16_t *, int32_t, int32_t, int32_t)>
bool sendTwoToInput(int32_t channel, Values v)
{
    return set(nullptr, channel, small(v[0]), small(v[1]));
}

constexpr Operation operations[] = {
    {"SetSyncDiv", sendOne<setSyncDiv>},
    {"SetSyncTrgMode", sendOne<setSyncTrigMode>},
    {"SetSyncEdgeTrig", sendTwo<setSyncEdgeTrig>},
    {"SetSyncCFD", sendTwo<setSyncCFD>},
    {"SetSyncChannelOffset", sendOne<setSyncChannelOffset>},
    {"SetSyncChannelEnable", sendOne<setSyncChannelEnable>},
    {"SetSyncDeadTime", sendOne<setSyncDeadTime>},
    {"SetInputHysteresis", sendOne<setInputHysteresis>},
    {"SetTimingMode", sendOne<setTimingMode>},
    {"SetStopOverflow", [](int32_t, Values v) { return setStopOverflow(nullptr, smallCount(v[0])); }},
    {"SetBinning", sendOne<setBinning>},
    {"SetOffset", sendOne<setOffset>},
    {"SetHistoLength", sendOne<setHistoLength>},
    {"SetMeasControl",
     [](int32_t, Values v) { return setMeasControl(nullptr, small(v[0]), small(v[1]), small(v[2])); }},
    {"SetTriggerOutput", sendOne<setTriggerOutput>},
    {"SetMarkerEdges", sendFour<setMarkerEdges>},
    {"SetMarkerEnable", sendFour<setMarkerEnable>},
    {"SetMarkerHoldoffTime", sendOne<setMarkerHoldoffTime>},
    {"SetOflCompression", sendOne<setOflCompression>},
    {"SetInputTrgMode", sendToInput<setInputTrigMode>},
    {"SetInputEdgeTrig", sendTwoToInput<setInputEdgeTrig>},
    {"SetInputCFD", sendTwoToInput<setInputCFD>},
    {"SetInputChannelOffset", sendToInput<setInputChannelOffset>},
    {"SetInputChannelEnable", sendToInput<setInputChannelEnable>},
    {"SetInputDeadTime", sendToInput<setInputDeadTime>},
};

// "ch3.level" -> "level"; a key of the device stays.
std::string_view withoutChannel(const Setting &setting)
{
    const std::string_view key = setting.Key;
    return setting.Channel < 0 ? key : key.substr(key.find('.') + 1);
}

std::string forAllInputs(const Setting &setting)
{
    return fmt::format("ch*.{}", withoutChannel(setting));
}

Setting settingOf(const boost::json::object &text)
{
    Setting setting;
    setting.Key = text.at("key").as_string();
    setting.Field = text.at("field").as_string();
    setting.Operation = text.at("operation").as_string();
    if (const auto *channel = text.if_contains("channel")) setting.Channel = channel->to_number<int32_t>();
    setting.Unit = text.at("unit").as_string();
    setting.HasRange = text.contains("min");
    if (setting.HasRange) {
        setting.Min = text.at("min").to_number<int64_t>();
        setting.Max = text.at("max").to_number<int64_t>();
    }
    setting.CanBeOff = text.at("canBeOff").as_bool();
    setting.InUse = text.at("inUse").as_bool();
    if (const auto *choices = text.if_contains("choices"))
        for (const auto &choice : choices->as_array()) setting.Choices.emplace_back(choice.as_string());
    setting.Value = text.at("value").to_number<int64_t>();
    return setting;
}

constexpr const char *offText = "off";

} // namespace

std::vector<Setting> readSettings()
{
    std::vector<Setting> settings;
    const boost::json::value known = libraryText(TESSEL_TEXT_SETTINGS);
    for (const auto &text : known.at("settings").as_array()) settings.push_back(settingOf(text.as_object()));
    return settings;
}

std::string valueText(const Setting &setting, int64_t value)
{
    if (value >= 0 && static_cast<size_t>(value) < setting.Choices.size())
        return setting.Choices[static_cast<size_t>(value)];
    if (value == 0 && setting.CanBeOff) return offText;
    return fmt::format("{}{}{}", value, setting.Unit.empty() ? "" : " ", setting.Unit);
}

std::string rangeText(const Setting &setting)
{
    if (!setting.Choices.empty()) return fmt::format("{}", fmt::join(setting.Choices, ", "));
    if (!setting.HasRange) return "";
    return fmt::format("{}{} to {}{}{}", setting.CanBeOff ? "off, " : "", setting.Min, setting.Max,
                       setting.Unit.empty() ? "" : " ", setting.Unit);
}

namespace {

std::optional<int64_t> wordValue(const Setting &setting, std::string_view text)
{
    for (size_t choice = 0; choice < setting.Choices.size(); ++choice)
        if (boost::algorithm::iequals(text, setting.Choices[choice])) return static_cast<int64_t>(choice);
    if (text == offText && setting.CanBeOff) return 0;
    return {};
}

// What the text asks for, in the setting's unit.
int64_t askedValue(const Setting &setting, std::string_view text)
{
    if (const auto value = wordValue(setting, text)) return *value;
    const double value = parseQuantity(text, setting.Unit);
    const double whole = std::round(value);
    if (std::abs(value - whole) > 1e-6 || std::abs(whole) > 1e15)
        throw UnitError(text, 0,
                        fmt::format("whole {} are taken", setting.Unit.empty() ? "numbers" : setting.Unit));
    return static_cast<int64_t>(whole);
}

// With all values of the operation as they are, but for this one.
bool send(const std::vector<Setting> &settings, const Setting &changed, int64_t value)
{
    std::vector<int64_t> values;
    for (const Setting &setting : settings)
        if (setting.Operation == changed.Operation && setting.Channel == changed.Channel)
            values.push_back(&setting == &changed ? value : setting.Value);
    const auto *operation = std::ranges::find(operations, changed.Operation, &Operation::Name);
    return operation != std::end(operations) && operation->Send(changed.Channel, values);
}

struct Assignment
{
    std::string_view Whole, Key, Value;
};

Assignment readAssignment(std::string_view text)
{
    const size_t at = text.find('=');
    if (at == text.npos || at == 0)
        throw Failure(Exit::Usage, fmt::format("--set {}: KEY=VALUE is expected", visibleText(text)));
    return {text, text.substr(0, at), text.substr(at + 1)};
}

bool names(const Assignment &asked, const Setting &setting)
{
    return asked.Key == setting.Key || (setting.Channel >= 0 && asked.Key == forAllInputs(setting));
}

void sendAssignment(const Assignment &asked, const Setting &setting, const std::vector<Setting> &settings)
{
    int64_t value = 0;
    try {
        value = askedValue(setting, asked.Value);
    } catch (const UnitError &unreadable) {
        throw Failure(Exit::Usage, fmt::format("--set {}={}", setting.Key, unreadable.what()));
    }
    if (send(settings, setting, value)) return;
    const std::string refusal = fmt::format("--set {}: the instrument refuses it", visibleText(asked.Whole));
    const std::string why = withReason(refusal);
    throw Failure(Exit::Failed, why == refusal ? refusal + " in this mode" : why);
}

Clamped clampedFrom(int64_t value, const Setting &setting)
{
    return {setting.Key, valueText(setting, value), valueText(setting, setting.Value), rangeText(setting)};
}

std::vector<Clamped> clampedOf(const Assignment &asked, const std::vector<Setting> &settings)
{
    std::vector<Clamped> clamped;
    for (const Setting &setting : settings) {
        if (!names(asked, setting)) continue;
        const int64_t value = askedValue(setting, asked.Value);
        if (setting.Value != value) clamped.push_back(clampedFrom(value, setting));
    }
    return clamped;
}

std::string suggested(const Assignment &asked, const std::vector<Setting> &settings)
{
    std::vector<std::string> known;
    for (const Setting &setting : settings) {
        known.push_back(setting.Key);
        if (setting.Channel >= 0) known.push_back(forAllInputs(setting));
    }
    const std::string nearest = nearestName(asked.Key, known);
    return nearest.empty() ? "" : fmt::format("; did you mean {}?", nearest);
}

std::vector<Clamped> applySetting(const std::string &assignment)
{
    const Assignment asked = readAssignment(assignment);
    const std::vector<Setting> before = readSettings();
    bool isKnown = false;
    for (const Setting &setting : before) {
        if (!names(asked, setting)) continue;
        isKnown = true;
        sendAssignment(asked, setting, before);
    }
    if (!isKnown)
        throw Failure(Exit::Usage, fmt::format("--set {}: this instrument has no such setting{} (tessel config "
                                               "without --set shows all)",
                                               visibleText(assignment), suggested(asked, before)));
    const std::vector<Setting> after = readSettings();
    return clampedOf(asked, asked.Key.starts_with("ch*") ? merged(after) : after);
}

void warnOf(const Clamped &clamped)
{
    warn(fmt::format("{}: {} becomes {}{}", clamped.Key, clamped.Asked, clamped.Set,
                     clamped.Range.empty() ? "" : fmt::format(" (range {})", clamped.Range)));
}

} // namespace

std::vector<Clamped> applySettings(const std::vector<std::string> &assignments)
{
    std::vector<Clamped> all;
    for (const std::string &assignment : assignments)
        for (Clamped &clamped : applySetting(assignment)) {
            warnOf(clamped);
            all.push_back(std::move(clamped));
        }
    return all;
}

std::optional<Clamped> applyValue(const std::string &key, int64_t value, std::string_view from)
{
    const std::vector<Setting> before = readSettings();
    const auto setting = std::ranges::find(before, key, &Setting::Key);
    if (setting == before.end() || !setting->InUse || setting->Value == value) return {};
    if (!send(before, *setting, value)) {
        const std::string refusal = fmt::format("{}: {}: the instrument refuses it", from, key);
        const std::string why = withReason(refusal);
        if (why != refusal) throw Failure(Exit::Failed, why);
        warn(fmt::format("{}: {} can't be set in this mode", from, key));
        return {};
    }
    const std::vector<Setting> after = readSettings();
    const auto now = std::ranges::find(after, key, &Setting::Key);
    if (now == after.end() || now->Value == value) return {};
    const Clamped clamped = clampedFrom(value, *now);
    warnOf(clamped);
    return clamped;
}

void addSettingOption(CLI::App &command, std::vector<std::string> &assignments)
{
    command
        .add_option("--set", assignments,
                    "Set one setting of an instrument, as in tessel config; several times")
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false);
}

std::vector<Setting> merged(const std::vector<Setting> &settings)
{
    std::map<std::string_view, const Setting *> first; // of the inputs, by their key; null: they differ
    for (const Setting &setting : settings) {
        if (setting.Channel < 0) continue;
        const Setting *&known = first.try_emplace(withoutChannel(setting), &setting).first->second;
        if (known && (known->Value != setting.Value || known->InUse != setting.InUse)) known = nullptr;
    }
    std::vector<Setting> result;
    for (const Setting &setting : settings) {
        const Setting *same = setting.Channel < 0 ? nullptr : first.at(withoutChannel(setting));
        if (same && same != &setting) continue;
        result.push_back(setting);
        if (same) result.back().Key = forAllInputs(setting);
    }
    return result;
}

} // namespace Tessel::Cli
