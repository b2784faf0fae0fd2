#include "datafiles/header_writer.h"

#include "datafiles/custom_tags.h"
#include "datafiles/tag_reader.h"
#include "devices/families.h"
#include "devices/fields.h"
#include "log/file_handle.h"
#include "log/log.h"
#include "settings/version.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <initializer_list>
#include <type_traits>
#include <zlib.h>

namespace Tessel {

namespace {

constexpr double secondsPerPs = 1e-12;

double secondsPer(Unit unit)
{
    switch (unit) {
    case Unit::Picoseconds: return secondsPerPs;
    case Unit::Nanoseconds: return 1e-9;
    case Unit::Milliseconds: return 1e-3;
    case Unit::None:
    case Unit::MilliVolt: break;
    }
    return 1.0;
}

void logWriteError(std::string_view path, int error)
{
    logLastError(fmt::format("File: Write TGX header {}", path), error);
}

// The tags of a header in their order. The first one that the dictionary refuses ends them.
struct TagSink
{
    DictionaryState &dictionary;
    std::string bytes{};
    bool good = true;

    void write(uint32_t row, int32_t idx, const TagContent &content)
    {
        if (good) good = writeDictionaryTag(bytes, dictionary, row, idx, content) == TagResult::Written;
    }
    void number(uint32_t row, double value, int32_t idx = -1) { write(row, idx, {.Value = value}); }
    void text(uint32_t row, std::string_view value, int32_t idx = -1) { write(row, idx, {.Text = value}); }

    // A field in its regular form: each entry of a list by its position, times of a Float8 tag in seconds.
    template <class Record>
    void field(const Record &record, const Field<Record> &field, int32_t idx = -1)
    {
        if (field.Tag.Name.empty()) return;
        const uint32_t row = rowOfTag(field.Tag.Name);
        const double scale = TagDictionary[row].Type == TagType::Float8 ? secondsPer(field.Unit) : 1.0;
        visitValue(record, field, [&]<class T>(const T &value) {
            if constexpr (std::is_same_v<T, std::string>)
                text(row, value, idx);
            else if constexpr (std::is_same_v<T, std::vector<int32_t>>)
                for (size_t i = 0; i < value.size(); ++i) number(row, value[i], static_cast<int32_t>(i));
            else
                number(row, static_cast<double>(value) * scale, idx);
        });
    }
    void fields(const DeviceConfig &config, std::initializer_list<MemberOf<DeviceConfig>> members)
    {
        for (MemberOf<DeviceConfig> member : members) field(config, fieldOf(member));
    }

    // Where the next tag will stand.
    uint64_t position() const { return bytes.size(); }
};

// Days since 30 December 1899 in universal time, less one hour while daylight saving is in force here: that
// is how files of this kind are stamped.
double creatingTimeNow()
{
    using namespace std::chrono;
    int64_t ms = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    auto seconds = static_cast<std::time_t>(ms / 1000);
    std::tm local{};
    localtime_r(&seconds, &local);
    double wholeSeconds = static_cast<double>(seconds) - (local.tm_isdst > 0 ? 3600.0 : 0.0);
    return dateTimeOf1970 + wholeSeconds / secondsOfDay + static_cast<double>(ms % 1000) / 86400000.0;
}

// T2: the resolution given, in seconds. T3: the sync period, 0 if there is no sync.
double globalResolution(const DeviceConfig &config, const MeasContext &context, double t2ResolutionPs)
{
    switch (config.MeasMode) {
    case MeasMode::T2: return t2ResolutionPs * secondsPerPs;
    case MeasMode::T3: {
        double rate = context.Description.AveSyncRate;
        return rate != 0.0 ? 1.0 / rate : 0.0;
    }
    case MeasMode::Histogramming: break;
    }
    return 0.0;
}

void writeFileTags(TagSink &sink, HeaderInWork &header, const DeviceConfig &config, const MeasContext &context)
{
    sink.text(TagId::File_GUID, "");
    sink.text(TagId::CreatorSW_Name, programName);
    sink.text(TagId::CreatorSW_Version, versionString());
    sink.number(TagId::File_CreatingTime, creatingTimeNow());
    if (!config.Comment.empty()) sink.fields(config, {&DeviceConfig::Comment});
    sink.fields(config, {&DeviceConfig::MeasMode});
    sink.number(TagId::Measurement_SubMode, context.Description.MeasSubMode);
    header.Positions.StopReason = sink.position();
    sink.number(TagId::TTResult_StopReason, static_cast<int32_t>(context.Description.StopReason.load()));

    sink.number(TagId::CreatorSW_Modules, static_cast<double>(header.Libraries.size()));
    int32_t idx = 0;
    for (const LibraryVersion &library : header.Libraries) {
        sink.text(TagId::CreatorSW_ModuleName, library.Name, idx);
        sink.text(TagId::CreatorSW_ModuleVers, library.Version, idx++);
    }
    if (uint32_t type = recordTypeOf(config)) sink.number(TagId::TTResultFormat_TTTRRecType, type);
    sink.number(TagId::TTResultFormat_BitsPerRecord, 32);
    sink.number(TagId::CreatorSW_SVNBuild, versionBuild);
}

void writeHardwareTags(TagSink &sink, const DeviceConfig &config)
{
    using Config = DeviceConfig;
    sink.fields(config, {&Config::Model, &Config::PartNo, &Config::Version, &Config::ID, &Config::Features,
                         &Config::BaseResolution, &Config::NumChans});
    sink.number(TagId::HW_RefClockSource, refSourceCode(config));
    sink.fields(config, {&Config::TriggerOutput, &Config::HystCode, &Config::TimingMode});
    for (const DeviceField &field : fieldsOf(&Config::SyncDiv, &Config::SyncDeadTime))
        sink.field(config, field);
}

void writeChannelTags(TagSink &sink, const ChannelRow &row)
{
    for (const ChannelField &field : channelFields()) sink.field(row, field, row.Index);
}

void writeMeasurementTags(TagSink &sink, const DeviceConfig &config, const MeasContext &context)
{
    using Config = DeviceConfig;
    sink.fields(config, {&Config::Resolution});
    sink.number(TagId::MeasDesc_BinningFactor, std::ldexp(1.0, config.Binning));
    sink.fields(config, {&Config::Offset});
    sink.number(TagId::MeasDesc_AcquisitionTime, context.Description.AcqTime);
    sink.number(TagId::HW_Markers, static_cast<double>(config.MarkerEdges.size()));
    sink.fields(config, {&Config::MarkerEdges, &Config::MarkerEna, &Config::MarkerHoldoffTime});
}

// Bit 8 of a mask is the sync's, as instruments take it.
void writeFilterTags(TagSink &sink, const DeviceConfig &config, const MainFilter &filter)
{
    constexpr int32_t syncBit = 8;
    auto bit = [](uint32_t mask, int32_t at) { return at < 32 ? mask >> at & 1 : 0; };
    sink.number(TagId::HW_MainFilt_Enabled, filter.FilterEnabled != 0);
    sink.number(TagId::HW_MainFilt_Inverse, filter.FilterInverse != 0);
    sink.number(TagId::HW_MainFilt_MatchCount, filter.FilterMatchCnt);
    sink.number(TagId::HW_MainFilt_TimeRange, filter.FilterTimeRange);
    sink.number(TagId::HW_MainFiltSync_Used, bit(filter.FilterMask1, syncBit));
    sink.number(TagId::HW_MainFiltSync_Pass, bit(filter.FilterMask2, syncBit));
    for (int32_t i = 0; i < config.NumChans; ++i) {
        sink.number(TagId::HW_MainFiltChan_Used, bit(filter.FilterMask1, i), i);
        sink.number(TagId::HW_MainFiltChan_Pass, bit(filter.FilterMask2, i), i);
    }
}

// The rate of input `idx`, kept `shift` entries further; 0 where the array has no such entry.
double rateOf(const MeasContext &context, int32_t idx, int32_t shift)
{
    auto entry = static_cast<size_t>(idx) + static_cast<size_t>(shift);
    return entry < context.CountRates.size() ? context.CountRates[entry].load() : 0;
}

// All of these are written again at the end of the recording.
void writeResultTags(TagSink &sink, PatchPositions &positions, const DeviceConfig &config,
                     const MeasContext &context)
{
    positions.GlobalResolution = sink.position();
    sink.number(TagId::MeasDesc_GlobalResolution, globalResolution(config, context, config.BaseResolution));
    positions.SyncRate = sink.position();
    sink.number(TagId::TTResult_SyncRate, context.Description.AveSyncRate);
    positions.InputRates = sink.position();
    // At first the rates are those one entry up; the overwrite takes the entry itself.
    for (int32_t i = 0; i < config.NumChans; ++i)
        sink.number(TagId::TTResult_InputRate, rateOf(context, i, 1), i);
    positions.StopAfter = sink.position();
    sink.number(TagId::TTResult_StopAfter, 0);
    positions.NumberOfRecords = sink.position();
    sink.number(TagId::TTResult_NumberOfRecords, 0);
    positions.WarningFlags = sink.position();
    sink.number(TagId::TTResult_MDescWarningFlags, 0);
    for (size_t i = 0; i < positions.StartTime.size(); ++i) {
        positions.StartTime[i] = sink.position();
        sink.number(TagId::MeasDesc_StartTime, context.Description.StartWords[i], static_cast<int32_t>(i));
    }
}

std::string openingBytes(HeaderInWork &header, const DeviceConfig &config, const MeasContext &context)
{
    TagSink sink{.dictionary = header.Dictionary};
    sink.bytes.append(fileMagic).append(fileVersion);
    writeFileTags(sink, header, config, context);
    writeHardwareTags(sink, config);
    for (const ChannelRow &row : config.ChansCfg) writeChannelTags(sink, row);
    writeMeasurementTags(sink, config, context);
    if (context.Filter.FilterEnabled) writeFilterTags(sink, config, context.Filter);
    writeResultTags(sink, header.Positions, config, context);
    if (sink.good) addCustomTags(sink.bytes, header.CustomTags);
    sink.number(TagId::Header_End, 0);
    return std::move(sink.bytes);
}

// Readers take the first occurrence of `Header_End` for the end, and look no further than their image.
bool isReadable(const HeaderInWork &header, std::string_view bytes)
{
    if (!header.Dictionary.HeaderDone) return false;
    bool ends = bytes.find(headerEndName) == bytes.size() - tagSize;
    if (!ends)
        logErr(LogCategory::General, "File: a text in the header of {} holds the name {}", header.Path,
               headerEndName);
    if (bytes.size() > headerImageLimit)
        logErr(LogCategory::General, "File: the header of {} has {} bytes, only {} can be read back",
               header.Path, bytes.size(), headerImageLimit);
    return ends && bytes.size() <= headerImageLimit;
}

// False, with errno: the system didn't take all of it.
bool writeOpening(HeaderInWork &header, std::FILE *file, const DeviceConfig &config, const MeasContext &context)
{
    std::string bytes = openingBytes(header, config, context);
    header.Length = bytes.size();
    header.Complete = isReadable(header, bytes);
    return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

// Writes tags over those at their positions, each of which has the same length as at first. A header that was
// cut short lacks some of them and is left alone. False as above.
bool writeFinal(HeaderInWork &header, std::FILE *file, const DeviceConfig &config, const MeasContext &context)
{
    const PatchPositions &positions = header.Positions;
    const MeasDescription &description = context.Description;
    header.Complete = header.Dictionary.HeaderDone;
    bool good = true;
    auto overwrite = [&](uint64_t position, uint32_t row, double value, int32_t idx = -1) {
        TagSink sink{.dictionary = header.Dictionary};
        sink.number(row, value, idx);
        header.Complete = header.Complete && sink.good;
        if (!header.Complete || !good) return;
        good = fseeko(file, static_cast<off_t>(position), SEEK_SET) == 0 &&
               std::fwrite(sink.bytes.data(), 1, sink.bytes.size(), file) == sink.bytes.size();
    };
    overwrite(positions.StopAfter, TagId::TTResult_StopAfter, description.StopAfter);
    overwrite(positions.StopReason, TagId::TTResult_StopReason,
              static_cast<int32_t>(description.StopReason.load()));
    for (size_t i = 0; i < positions.StartTime.size(); ++i)
        overwrite(positions.StartTime[i], TagId::MeasDesc_StartTime, description.StartWords[i],
                  static_cast<int32_t>(i));
    overwrite(positions.GlobalResolution, TagId::MeasDesc_GlobalResolution,
              globalResolution(config, context, config.Resolution));
    overwrite(positions.SyncRate, TagId::TTResult_SyncRate, description.AveSyncRate);
    for (int32_t i = 0; i < config.NumChans; ++i)
        overwrite(positions.InputRates + static_cast<uint64_t>(i) * tagSize, TagId::TTResult_InputRate,
                  rateOf(context, i, 0), i);
    overwrite(positions.NumberOfRecords, TagId::TTResult_NumberOfRecords,
              static_cast<double>(description.NumRecs));
    overwrite(positions.WarningFlags, TagId::TTResult_MDescWarningFlags, description.WarningsFlag);
    return good;
}

} // namespace

bool writeHeader(HeaderInWork &header, const DeviceConfig &config, const MeasContext &context, bool update)
{
    header.Complete = false;
    if (update) {
        MVUTF_Update(header.Dictionary);
    } else {
        MVUTF_Start(header.Dictionary);
        header.Positions = {};
    }
    FileStream file = openStream(header.Path, update ? "rb+" : "wb+");
    if (!file) {
        logWriteError(header.Path, errno);
        MVUTF_End();
        return true;
    }
    bool written = update ? writeFinal(header, file.get(), config, context)
                          : writeOpening(header, file.get(), config, context);
    written = close(std::move(file)) && written;
    MVUTF_End();
    const bool sealed = written && sealHeader(header.Path);
    header.Complete = header.Complete && sealed;
    return written;
}

uint32_t headerCrc(std::string header)
{
    header[0] = 0x02;
    header[1] = 0x04;
    return static_cast<uint32_t>(crc32(0, reinterpret_cast<const Bytef *>(header.data()),
                                       static_cast<uInt>(header.size() - sizeof(uint32_t))));
}

bool sealHeader(std::string_view path)
{
    std::optional<FileHead> head = readHead(path, sealImageLimit);
    uint64_t length = head ? headerLength(head->Image) : 0;
    if (length == 0) {
        logErr(LogCategory::General, "File: failed to create");
        return false;
    }
    head->Image.resize(length);
    uint32_t crc = headerCrc(std::move(head->Image));
    FileStream file = openStream(path, "rb+");
    bool written = file && fseeko(file.get(), static_cast<off_t>(length - sizeof crc), SEEK_SET) == 0 &&
                   std::fwrite(&crc, sizeof crc, 1, file.get()) == 1;
    if (file && !close(std::move(file))) written = false;
    if (!written) logWriteError(path, errno);
    return written;
}

} // namespace Tessel
