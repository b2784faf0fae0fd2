#include "config/device_json.h"

#include "devices/fields.h"
#include "devices/locked_device.h"
#include "log/log.h"
#include "session/tables.h"

#include <boost/json.hpp>

#include <span>
#include <type_traits>

namespace Tessel {

namespace {

using boost::json::array;
using boost::json::object;

template <class T>
boost::json::value valueText(const T &value, Meaning meaning)
{
    if constexpr (std::is_same_v<T, std::vector<int32_t>>)
        return array(value.begin(), value.end());
    else if constexpr (std::is_same_v<T, std::string>)
        return boost::json::string_view(value);
    else if constexpr (std::is_enum_v<T>)
        return static_cast<int32_t>(value);
    else if constexpr (std::is_same_v<T, uint32_t>)
        return meaning == Meaning::Set ? boost::json::value(static_cast<int32_t>(value)) : value;
    else
        return value;
}

std::string_view triggerText(TrigMode mode)
{
    switch (mode) {
    case TrigMode::Edge: return "Edge";
    case TrigMode::CFD: return "CFD";
    }
    return {};
}

// A trigger mode that has no text is left out.
template <class Record>
void addFields(object &text, const Record &record, std::span<const Field<Record>> fields)
{
    for (const Field<Record> &field : fields) {
        if (!field.IsInJson) continue;
        visitValue(record, field, [&]<class T>(const T &value) {
            if constexpr (!std::is_same_v<T, TrigMode>)
                text[field.Name] = valueText(value, field.Meaning);
            else if (std::string_view mode = triggerText(value); !mode.empty())
                text[field.Name] = mode;
        });
    }
}

template <class Row>
array rowTexts(const std::vector<Row> &rows, std::span<const Field<Row>> fields)
{
    array texts;
    for (const Row &row : rows) {
        object text;
        addFields(text, row, fields);
        texts.push_back(std::move(text));
    }
    return texts;
}

} // namespace

DeviceState stateOf(const Device &device)
{
    return {.Index = device.Index,
            .IsInitialized = device.IsInitialized,
            .IsOpen = device.IsOpen,
            .IsConfigured = device.IsConfigured,
            .Error = device.Error};
}

std::string stringifyJsonDevConfig(const DeviceConfig &config, const DeviceState &state)
{
    using Config = DeviceConfig;
    if (LogLevel.Config) logInf(LogCategory::Progress, "stringifyJsonDevConfig: \"{}\"", config.ID);
    object text;
    addFields(text, config, fieldsOf(&Config::DeviceType, &Config::ID));
    text["Index"] = state.Index;
    addFields(text, config, fieldsOf(&Config::Model, &Config::MarkerEna));
    text["ModsCfg"] = rowTexts(config.ModsCfg, moduleFields());
    text["ChansCfg"] = rowTexts(config.ChansCfg, channelFields());
    addFields(text, config, fieldsOf(&Config::MeasMode, &Config::HwFilteRowWidth));
    text["IsInitialized"] = state.IsInitialized;
    text["IsOpen"] = state.IsOpen;
    text["IsConfigured"] = state.IsConfigured;
    text["Error"] = state.Error;
    addFields(text, config, fieldsOf(&Config::LibType, &Config::Comment));
    return boost::json::serialize(text);
}

std::string stringifyJsonDevConfig(const Device &device)
{
    return stringifyJsonDevConfig(configOf(device), stateOf(device));
}

std::string stringifyDeviceIDs()
{
    array ids;
    for (const DeviceRef &target : allDevices()) ids.emplace_back(valueOf(target->device, &DeviceConfig::ID));
    return boost::json::serialize(ids);
}

} // namespace Tessel
