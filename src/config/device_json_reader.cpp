// A device is filled from a text of another process or of a host. Each key stands alone: what is missing or
// wrong is logged, and its field keeps what it has. Numbers are bounded like those of a file.
#include "config/device_json.h"
#include "config/json_values.h"
#include "devices/families.h"
#include "devices/fields.h"
#include "devices/locked_device.h"
#include "log/log.h"
#include "log/text.h"
#include "session/tables.h"

#include <cmath>
#include <limits>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

namespace Tessel {

namespace {

using Config = DeviceConfig;

// What a text may say of a field: its own range, or all that its type holds.
template <class T, class Record>
Range rangeInText(const Field<Record> &field)
{
    using Signed = std::numeric_limits<int32_t>;
    if (field.Holds) return *field.Holds;
    if (!std::is_same_v<T, uint32_t>) return {Signed::min(), Signed::max()};
    return {field.Meaning == Meaning::Set ? Signed::min() : 0, std::numeric_limits<uint32_t>::max()};
}

void logOutOfRange(std::string_view key)
{
    logWrn(LogCategory::Device, "JSON: The value of \"{}\" is out of range and ignored", key);
}

template <class T, class Record>
void readNumber(const JsonObject &from, Record &record, T Record::*member, const Field<Record> &field)
{
    const auto number = JSONparseInt(from, field.Name);
    if (!number) return;
    const Range range = rangeInText<T>(field);
    if (*number < range.Min || *number > range.Max) return logOutOfRange(field.Name);
    record.*member = static_cast<T>(*number);
    if (field.Switch) record.*field.Switch = *number > 0;
}

void readReal(const JsonObject &from, double &value, std::string_view key)
{
    const auto number = JSONparseDbl(from, key);
    if (!number) return;
    if (!std::isfinite(*number)) return logOutOfRange(key);
    value = *number;
}

// The elements, if all of them are integers.
std::optional<std::vector<int32_t>> integersOf(const boost::json::array &elements, std::string_view key)
{
    std::vector<int32_t> integers;
    for (const auto &element : elements) {
        boost::json::error_code problem;
        integers.push_back(element.to_number<int32_t>(problem));
        if (!problem && integers.size() <= mostInputs) continue;
        logErr(LogCategory::Device, "JSON: Can't parse \"{}\" to int: {} in JSONparseJObject", key,
               problem ? problem.message() : "too many elements");
        return {};
    }
    return integers;
}

// Without an array the field is emptied; an array with a wrong element leaves it as it is.
void readIntegers(const JsonObject &from, std::vector<int32_t> &value, std::string_view key)
{
    const auto *elements = JSONparseJArray(from, key);
    if (!elements) return value.clear();
    if (auto integers = integersOf(*elements, key)) value = std::move(*integers);
}

void readText(const JsonObject &from, std::string &value, std::string_view key)
{
    if (auto text = JSONparseString(from, key)) value = std::move(*text);
}

template <class Record>
void readField(const JsonObject &from, Record &record, const Field<Record> &field)
{
    std::visit(
        [&](auto member) {
            auto &value = record.*member;
            using T = std::remove_cvref_t<decltype(value)>;
            if constexpr (std::is_same_v<T, double>)
                readReal(from, value, field.Name);
            else if constexpr (std::is_same_v<T, std::vector<int32_t>>)
                readIntegers(from, value, field.Name);
            else if constexpr (!std::is_same_v<T, std::string>)
                readNumber(from, record, member, field);
            else if constexpr (!std::is_same_v<Record, ModuleRow>) // which has no text: g++ sees one at its end
                readText(from, value, field.Name);
        },
        field.Member);
}

std::optional<TrigMode> triggerModeIn(const JsonObject &from, std::string_view key)
{
    const auto text = JSONparseString(from, key);
    if (text == "Edge") return TrigMode::Edge;
    if (text == "CFD") return TrigMode::CFD;
    return {};
}

void readFields(const JsonObject &from, Config &config, std::span<const DeviceField> fields)
{
    for (const DeviceField &field : fields) readField(from, config, field);
}

// Without a mode that has levels, mode and levels stay. The text is asked twice unless it says "Edge", and
// logged so.
void readSyncTrigger(const JsonObject &from, Config &config)
{
    const std::string_view key = fieldOf(&Config::SyncTrigMode).Name;
    auto mode = triggerModeIn(from, key);
    if (mode != TrigMode::Edge) mode = triggerModeIn(from, key);
    if (!mode) return;
    config.SyncTrigMode = *mode;
    for (const DeviceField &field : fieldsOf(&Config::SyncTrigLvl, &Config::SyncZeroxLvL))
        if (field.OnlyIn == mode) readField(from, config, field);
}

// What the text leaves out of a row is 0.
template <class Row>
void readRowField(const JsonObject &from, Row &row, const Field<Row> &field)
{
    std::visit([&](auto member) { row.*member = {}; }, field.Member);
    if (field.Switch) row.*field.Switch = 0;
    readField(from, row, field);
}

ModuleRow moduleIn(const JsonObject &from)
{
    ModuleRow row;
    const auto fields = moduleFields();
    for (auto field = fields.rbegin(); field != fields.rend(); ++field) readField(from, row, *field);
    return row;
}

// The levels of the other trigger mode are those of the row before; all of it, if the text has no mode.
ChannelRow channelIn(const JsonObject &from, ChannelRow row)
{
    const ChannelField &modeField = fieldOf(&ChannelRow::TrigMode);
    const auto mode = triggerModeIn(from, modeField.Name);
    if (!mode) return row;
    row.TrigMode = *mode;
    const auto fields = channelFields();
    for (auto field = fields.rbegin(); field != fields.rend(); ++field)
        if (&*field != &modeField && field->OnlyIn.value_or(*mode) == *mode) readRowField(from, row, *field);
    return row;
}

// A row for each element, made from it and its position.
template <class Row, class Make>
std::vector<Row> rowsIn(const JsonObject &from, std::string_view key, Make make)
{
    std::vector<Row> rows;
    const auto *elements = JSONparseJArray(from, key);
    if (!elements) return rows;
    if (elements->size() > mostInputs) logOutOfRange(key);
    for (const auto &element : *elements) {
        if (rows.size() == mostInputs) break;
        rows.push_back(make(objectOf(element), rows.size()));
    }
    return rows;
}

void readRows(const JsonObject &from, Config &config)
{
    config.ModsCfg =
        rowsIn<ModuleRow>(from, "ModsCfg", [](const JsonObject &row, size_t) { return moduleIn(row); });
    config.ChansCfg = rowsIn<ChannelRow>(from, "ChansCfg", [&](const JsonObject &row, size_t i) {
        return channelIn(row, i < config.ChansCfg.size() ? config.ChansCfg[i] : ChannelRow{});
    });
}

// Hosts find a device by its id, so one that has an id keeps it.
void readId(const JsonObject &from, Device &device)
{
    auto id = JSONparseString(from, "ID");
    if (!id || *id == device.ID) return;
    if (device.ID.empty())
        setId(device, std::move(*id));
    else
        logWrn(LogCategory::Device, "JSON: The text is of the device {} and not of {}",
               cutTo(*id, longestShown), device.ID);
}

void readState(const JsonObject &from, std::atomic<int32_t> &value, std::string_view key)
{
    using Signed = std::numeric_limits<int32_t>;
    const auto number = JSONparseInt(from, key);
    if (!number) return;
    if (*number < Signed::min() || *number > Signed::max()) return logOutOfRange(key);
    value = static_cast<int32_t>(*number);
}

void readState(const JsonObject &from, std::atomic<bool> &value, std::string_view key)
{
    if (const auto flag = JSONparseBool(from, key)) value = *flag;
}

// All behind the id, in the order of the text that is written.
void readRest(const JsonObject &from, Device &device)
{
    readState(from, device.Index, "Index");
    readFields(from, device, fieldsOf(&Config::Model, &Config::SyncDiv));
    readSyncTrigger(from, device);
    readFields(from, device, fieldsOf(&Config::SyncChannelOffset, &Config::StopCount));
    readFields(from, device, fieldsOf(&Config::Binning, &Config::Binning)); // again, and logged so
    readFields(from, device, fieldsOf(&Config::Offset, &Config::MarkerEna));
    readRows(from, device);
    readFields(from, device, fieldsOf(&Config::MeasMode, &Config::HwFilteRowWidth));
    readState(from, device.IsInitialized, "IsInitialized");
    readState(from, device.IsOpen, "IsOpen");
    readState(from, device.IsConfigured, "IsConfigured");
    readState(from, device.Error, "Error");
    readFields(from, device, fieldsOf(&Config::LibType, &Config::Comment));
}

} // namespace

void parseJsonDevConfig(Device &device, std::string_view text)
{
    if (text.empty()) return logErr(LogCategory::General, "Config: Can't parse empty string to device config!");
    if (LogLevel.Config) logInf(LogCategory::Progress, "parseJsonDevConfig: {}", cutTo(text, longestShown));
    boost::json::value value;
    const JsonObject from = parseJsonObject(text, value);
    LockedDevice locked(device);
    remember(locked,
             [&] { readFields(from, device, fieldsOf(&Config::FileDevicePath, &Config::FileDevicePath)); });
    readId(from, device);
    remember(locked, [&] { readRest(from, device); });
}

} // namespace Tessel
