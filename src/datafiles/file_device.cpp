#include "datafiles/file_device.h"

#include "datafiles/losses_file.h"
#include "datafiles/tag_reader.h"
#include "devices/families.h"
#include "devices/fields.h"
#include "log/log.h"
#include "log/text.h"
#include "stream/rounding.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <span>
#include <type_traits>

namespace Tessel {

namespace {

constexpr int32_t entryLimit = mostInputs + 1; // of rows, markers and counts
constexpr double psPerSecond = 1e12;

struct TagWalk
{
    Device &device;
    MeasContext &context;
    std::string_view image;
    std::string fileName; // without folder
    bool countWarned = false, indexWarned = false;
};

// A value that is no number, or out of all range, leaves the field as it is.
std::optional<double> finite(double value)
{
    return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

std::optional<double> picoseconds(const TagRecord &tag)
{
    return finite(std::round(doubleOf(tag) * psPerSecond));
}

// Texts of a device are UTF-8, whatever is in the file.
std::string text(const TagWalk &reading, const TagRecord &tag)
{
    return toUtf8(toUtf16(textOf(tag, reading.image)));
}

bool inRange(TagWalk &reading, const TagRecord &tag, int32_t number, int32_t limit, bool &warned)
{
    if (number >= 0 && number < limit) return true;
    if (!warned)
        logWrn(LogCategory::General, "File: {} [{}] value {} is out of range and ignored in {}", tag.Name,
               tag.Idx, intOf(tag), reading.device.FileDevicePath);
    warned = true;
    return false;
}

bool countInRange(TagWalk &reading, const TagRecord &tag)
{
    return inRange(reading, tag, intOf(tag), entryLimit, reading.countWarned);
}

bool indexBelow(TagWalk &reading, const TagRecord &tag, size_t limit)
{
    return inRange(reading, tag, tag.Idx, static_cast<int32_t>(limit), reading.indexWarned);
}

template <class T>
T *grownTo(std::vector<T> &entries, const TagRecord &tag)
{
    auto index = static_cast<size_t>(tag.Idx);
    if (index >= entries.size()) entries.resize(index + 1);
    return &entries[index];
}

// The row of the tag's channel; null if there can be none.
ChannelRow *channelOf(TagWalk &reading, const TagRecord &tag)
{
    if (!indexBelow(reading, tag, entryLimit)) return nullptr;
    ChannelRow *row = grownTo(reading.device.ChansCfg, tag);
    row->Index = tag.Idx;
    return row;
}

// The value of a field in its regular form, by the type of its member.
template <class Record>
void setField(TagWalk &reading, const TagRecord &tag, Record &record, const Field<Record> &field)
{
    std::visit(
        [&](auto member) {
            auto &value = record.*member;
            using T = std::remove_cvref_t<decltype(value)>;
            if constexpr (std::is_same_v<T, std::string>) {
                value = text(reading, tag);
            } else if constexpr (std::is_same_v<T, double>) {
                if (std::optional<double> ps = picoseconds(tag)) value = *ps;
            } else if constexpr (std::is_same_v<T, std::vector<int32_t>>) {
                if (indexBelow(reading, tag, entryLimit)) *grownTo(value, tag) = intOf(tag) != 0;
            } else {
                value = static_cast<T>(field.Meaning == Meaning::Flag ? intOf(tag) != 0 : intOf(tag));
            }
        },
        field.Member);
}

// The field of a table that a tag sets; null if there is none.
template <class Record>
const Field<Record> *readField(std::span<const Field<Record>> fields, const TagRecord &tag)
{
    auto named = [&tag](const Field<Record> &field) { return field.Tag.IsRead && field.Tag.Name == tag.Name; };
    auto field = std::ranges::find_if(fields, named);
    return field == fields.end() ? nullptr : &*field;
}

void fileComment(TagWalk &reading, const TagRecord &tag)
{
    std::string comment = text(reading, tag);
    for (size_t at = 0; (at = comment.find("\\\\", at)) != comment.npos; ++at) comment.erase(at, 1);
    reading.device.Comment = comment;
}

void measurementMode(TagWalk &reading, const TagRecord &tag)
{
    Device &device = reading.device;
    device.MeasMode = static_cast<MeasMode>(intOf(tag));
    switch (device.MeasMode) {
    case MeasMode::Histogramming:
    case MeasMode::T2: device.NumBins = uint64_t{1} << (device.LengthCode + 10); break;
    case MeasMode::T3: device.NumBins = 32768; break;
    }
}

// The record format follows from family and mode alone.
void recordType(TagWalk &, const TagRecord &tag)
{
    auto type = static_cast<uint32_t>(tag.TagValue);
    if (type == 0x00010203 || type == 0x00010303)
        logErr(LogCategory::General, "File: TTResultFormat_TTTRRecType {:08x} unsupported record type!", type);
}

void hardwareType(TagWalk &reading, const TagRecord &tag)
{
    Device &device = reading.device;
    device.Model = text(reading, tag);
    std::optional<LibType> family = familyOfModel(device.Model);
    device.LibType = family.value_or(LibType::LM70);
    if (!family) logErr(LogCategory::Device, "File: Not supported HW_Type: {}!", device.Model);
}

void serialNumber(TagWalk &reading, const TagRecord &tag)
{
    std::string serial;
    switch (tag.TagType) {
    case TagType::AnsiString: serial = text(reading, tag); break;
    case TagType::Int8: serial = fmt::format("{}", intOf(tag)); break;
    default: return;
    }
    size_t room = idSizeLimit - 2 - std::min(reading.fileName.size(), idSizeLimit - 2);
    if (serial.size() > room) {
        while (room > 0 && (serial[room] & 0xC0) == 0x80) --room; // not inside a character
        serial.resize(room);
    }
    reading.device.ID = fmt::format("{}@{}", serial, reading.fileName);
}

void baseResolution(TagWalk &reading, const TagRecord &tag)
{
    std::optional<double> resolution = picoseconds(tag);
    if (!resolution) return;
    reading.device.BaseResolution = *resolution;
    if (reading.device.MeasMode == MeasMode::T2) reading.device.SyncPeriodPs = truncated<int64_t>(*resolution);
    reading.context.ResolutionPs = truncated<uint64_t>(*resolution);
}

void inputChannels(TagWalk &reading, const TagRecord &tag)
{
    if (!countInRange(reading, tag)) return;
    Device &device = reading.device;
    device.NumChans = intOf(tag);
    device.ChansCfg.resize(static_cast<size_t>(device.NumChans));
    for (size_t i = 0; i < device.ChansCfg.size(); ++i) {
        device.ChansCfg[i].Index = static_cast<int32_t>(i);
        if (device.ChansCfg[i].Name.empty()) device.ChansCfg[i].Name = fmt::format("Channel {}", i + 1);
    }
}

// A name makes no row, unlike the other tags of a channel.
void channelName(TagWalk &reading, const TagRecord &tag)
{
    if (!indexBelow(reading, tag, reading.device.ChansCfg.size())) return;
    ChannelRow &row = reading.device.ChansCfg[static_cast<size_t>(tag.Idx)];
    row.Index = tag.Idx;
    row.Name = text(reading, tag);
}

// Files of the SV40 family are taken to hold the code of a dead time.
void channelDeadTime(TagWalk &reading, const TagRecord &tag)
{
    ChannelRow *row = channelOf(reading, tag);
    if (!row) return;
    const int32_t value = intOf(tag);
    row->DeadTime = reading.device.LibType == LibType::SV40
                        ? DeadTimeTable[static_cast<size_t>(std::clamp(value, 0, 7))]
                        : value;
}

void binningFactor(TagWalk &reading, const TagRecord &tag)
{
    if (intOf(tag) > 0) reading.device.Binning = nearest<int32_t>(std::log2(intOf(tag)));
}

void creatingTime(TagWalk &reading, const TagRecord &tag)
{
    if (auto seconds = finite(std::trunc((doubleOf(tag) - dateTimeOf1970) * secondsOfDay)))
        reading.context.Description.CreatingTime = truncated<int64_t>(*seconds * 1e7);
}

void markerCount(TagWalk &reading, const TagRecord &tag)
{
    if (!countInRange(reading, tag)) return;
    auto count = static_cast<size_t>(intOf(tag));
    reading.device.MarkerEdges.resize(count);
    reading.device.MarkerEna.resize(count);
}

void globalResolution(TagWalk &reading, const TagRecord &tag)
{
    Device &device = reading.device;
    std::optional<double> period = picoseconds(tag);
    if (!period || doubleOf(tag) == 0.0) return;
    if (device.MeasMode == MeasMode::T3) {
        if (auto rate = finite(1.0 / doubleOf(tag))) reading.context.Description.AveSyncRate = *rate;
        device.SyncPeriodPs = truncated<int64_t>(*period);
    } else if (device.MeasMode == MeasMode::T2) {
        device.SyncPeriodPs = truncated<int64_t>(*period);
    }
}

void syncRate(TagWalk &reading, const TagRecord &tag)
{
    MeasDescription &description = reading.context.Description;
    if (intOf(tag) != 0) {
        description.AveSyncRate = intOf(tag);
        if (reading.device.MeasMode == MeasMode::T3)
            reading.device.SyncPeriodPs = nearest<int64_t>(psPerSecond / intOf(tag));
    }
    reading.context.SyncRate = nearest<int32_t>(description.AveSyncRate.load());
}

void inputRate(TagWalk &reading, const TagRecord &tag)
{
    if (indexBelow(reading, tag, reading.context.CountRates.size()))
        reading.context.CountRates[static_cast<size_t>(tag.Idx)] = intOf(tag);
}

void startTime(TagWalk &reading, const TagRecord &tag)
{
    if (tag.Idx >= 0 && tag.Idx < 3)
        reading.context.Description.StartWords[static_cast<size_t>(tag.Idx)] =
            static_cast<uint32_t>(tag.TagValue);
}

struct Effect
{
    std::string_view Name;
    void (*Apply)(TagWalk &, const TagRecord &);
};

// The tags that do more than set a field, or set one in another form.
constexpr Effect effects[] = {
    {"File_Comment", fileComment},
    {"Measurement_Mode", measurementMode},
    {"Measurement_SubMode",
     [](TagWalk &r, const TagRecord &t) { r.context.Description.MeasSubMode = intOf(t); }},
    {"TTResultFormat_TTTRRecType", recordType},
    {"HW_Type", hardwareType},
    {"HW_SerialNo", serialNumber},
    {"HW_BaseResolution", baseResolution},
    {"HW_InpChannels", inputChannels},
    {"HWInpChan_Name", channelName},
    {"HWInpChan_TdCode", channelDeadTime},
    {"MeasDesc_BinningFactor", binningFactor},
    {"MeasDesc_AcquisitionTime",
     [](TagWalk &r, const TagRecord &t) { r.context.Description.AcqTime = intOf(t); }},
    {"TTResult_StopAfter", [](TagWalk &r, const TagRecord &t) { r.context.Description.StopAfter = intOf(t); }},
    {"TTResult_MDescWarningFlags",
     [](TagWalk &r, const TagRecord &t) { r.context.Description.WarningsFlag = intOf(t); }},
    {"File_CreatingTime", creatingTime},
    {"TTResult_StopReason",
     [](TagWalk &r, const TagRecord &t) {
         r.context.Description.StopReason = static_cast<StopReason>(intOf(t));
     }},
    {"HW_Markers", markerCount},
    {"MeasDesc_GlobalResolution", globalResolution},
    {"TTResult_SyncRate", syncRate},
    {"TTResult_InputRate", inputRate},
    {"MeasDesc_StartTime", startTime},
    {"TTResult_NumberOfRecords",
     [](TagWalk &r, const TagRecord &t) { r.context.Description.NumRecs = t.TagValue; }},
};

// A tag of any other name has no effect; a name that occurs twice acts twice.
void applyTag(TagWalk &reading, const TagRecord &tag)
{
    auto effect = std::ranges::find(effects, std::string_view(tag.Name), &Effect::Name);
    if (effect != std::end(effects)) return effect->Apply(reading, tag);
    DeviceConfig &config = reading.device;
    if (const DeviceField *field = readField(deviceFields(), tag))
        return setField(reading, tag, config, *field);
    const ChannelField *field = readField(channelFields(), tag);
    ChannelRow *row = field ? channelOf(reading, tag) : nullptr;
    if (row) setField(reading, tag, *row, *field);
}

void walk(TagWalk &reading)
{
    uint64_t offset = preambleSize;
    while (offset < reading.image.size()) {
        TagRecord tag = readTag(reading.image, {}, offset);
        if (tag.Name.empty()) {
            logWrn(LogCategory::General, "Empty Tag @ OpenTGXFile {}", reading.device.FileDevicePath);
            return;
        }
        offset = tag.Next;
        printTag(tag, reading.image);
        if (tag.Name == headerEndName) return;
        applyTag(reading, tag);
    }
}

// The last run of a file device is the recording itself. Unless its tags say otherwise, it was made just now.
void startDescription(MeasDescription &description)
{
    using namespace std::chrono;
    int64_t now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    description.StartTime = description.CreatingTime = now * 10;
    auto words = static_cast<uint64_t>(now);
    description.StartWords = {static_cast<uint32_t>(words), static_cast<uint32_t>(words >> 32), 0};
}

} // namespace

bool readTgxFile(std::string_view path, Device &device, MeasContext &context, bool makesUnread)
{
    std::string normal = normalPath(path);
    if (LogLevel.DataFile) logDeb(LogCategory::Progress, "OpenTGXFile {}", normal);
    std::optional<FileHead> head = readHead(normal, headerImageLimit);
    if (!head || (head->IsUnread && !makesUnread)) return false;
    if (LogLevel.DataFile)
        logInf(LogCategory::Progress, "Preamble: {} v{}", magicOf(head->Image), versionOf(head->Image));

    uint64_t length = headerLength(head->Image);
    device.DeviceType = DeviceType::File;
    device.FileDevicePath = normal;
    device.DataStart = length;
    startDescription(context.Description);
    TagWalk reading{.device = device,
                    .context = context,
                    .image = std::string_view(head->Image).substr(0, length),
                    .fileName = toUtf8(toUtf16(normal.substr(normal.rfind('\\') + 1)))};
    walk(reading);
    context.FileLosses = readLosses(normal, guidOf(reading.image));
    device.IsConfigured = true;
    return true;
}

} // namespace Tessel
