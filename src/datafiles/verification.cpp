#include "datafiles/verification.h"

#include "datafiles/file_device.h"
#include "datafiles/header_writer.h"
#include "datafiles/losses_file.h"
#include "devices/families.h"
#include "log/file_handle.h"
#include "log/log.h"
#include "log/text.h"
#include "records/context.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <numeric>

namespace Tessel {

namespace {

namespace json = boost::json;

// "1 event", "2 events".
std::string counted(uint64_t count, std::string_view noun)
{
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

constexpr uint64_t wordBytes = sizeof(uint32_t);
constexpr uint64_t blockWords = 262144;
constexpr uint64_t emptyEndWords = 1024; // fewer zeros at the end may be events; a page of them isn't

// A block of the file's words.
struct BlockReader
{
    const FileHandle &File;
    uint64_t DataStart = 0;
    std::vector<uint32_t> Words = std::vector<uint32_t>(blockWords);

    // False: the disc refuses them, or they are gone.
    bool read(uint64_t first, uint64_t count)
    {
        const auto bytes = static_cast<int64_t>(count * wordBytes);
        return readAt(File, reinterpret_cast<char *>(Words.data()), count * wordBytes,
                      DataStart + first * wordBytes) == bytes;
    }
};

void add(Verification &file, FileFault kind, std::string text)
{
    file.Faults.push_back({kind, std::move(text)});
}

// How many of the words are zeros at the end of them; nothing if they can't be read.
std::optional<uint64_t> zerosAtEnd(BlockReader &reader, uint64_t words)
{
    uint64_t zeros = 0;
    while (zeros < words) {
        const uint64_t count = std::min(words - zeros, blockWords);
        if (!reader.read(words - zeros - count, count)) return std::nullopt;
        const auto end = reader.Words.rend();
        const auto from = end - static_cast<std::ptrdiff_t>(count);
        const auto last = std::find_if(from, end, [](uint32_t word) { return word != 0; });
        zeros += static_cast<uint64_t>(last - from);
        if (last != end) break;
    }
    return zeros;
}

bool scanRecords(Verification &file, const FileHandle &handle, const Device &device)
{
    const uint64_t bytes = file.FileSize - file.Header.size();
    file.PartBytes = bytes % wordBytes;
    file.Records = bytes / wordBytes;
    BlockReader reader{handle, file.Header.size()};
    const std::optional<uint64_t> zeros = zerosAtEnd(reader, file.Records);
    if (!zeros) return false;
    if (*zeros >= emptyEndWords) file.EmptyRecords = *zeros;
    file.Records -= file.EmptyRecords;
    WordScanner scanner({.Mode = device.MeasMode,
                         .NumChans = static_cast<uint32_t>(std::max(device.NumChans, 0)),
                         .IgnoresCode18 = familyOf(device.LibType).IgnoresCode18});
    bool good = true;
    for (uint64_t done = 0; good && done < file.Records; done += blockWords) {
        const uint64_t count = std::min(file.Records - done, blockWords);
        good = reader.read(done, count);
        if (good) scanner.scan({reader.Words.data(), count});
    }
    file.Words = scanner.found();
    return good;
}

const TagRecord *lastTag(const std::vector<PlacedTag> &tags, std::string_view name)
{
    const auto found = std::find_if(tags.rbegin(), tags.rend(),
                                    [&](const PlacedTag &placed) { return placed.Tag.Name == name; });
    return found == tags.rend() ? nullptr : &found->Tag;
}

void readHeaderFacts(Verification &file, const std::vector<PlacedTag> &tags, const Device &device,
                     const MeasDescription &description)
{
    if (const TagRecord *count = lastTag(tags, "TTResult_NumberOfRecords")) {
        file.Claimed = count->TagValue;
        file.CountIsSettable = !hasBlock(count->TagType);
    }
    file.Mode = device.MeasMode;
    const bool isKnown = file.Mode == MeasMode::T3
                             ? description.AveSyncRate > 0
                             : lastTag(tags, "HW_BaseResolution") || lastTag(tags, "MeasDesc_GlobalResolution");
    if (isKnown && device.SyncPeriodPs > 0) file.UnitPs = static_cast<double>(device.SyncPeriodPs);
    file.RunMs = description.StopAfter > 0 ? description.StopAfter.load() : description.AcqTime.load();
}

void judgeHeader(Verification &file, StopReason stopReason)
{
    const uint32_t crc = storedCrc(file.Header);
    if (crc != headerCrc(file.Header))
        add(file, FileFault::Crc,
            crc == 0 ? "the header was never sealed: it has no CRC"
                     : "the header doesn't match its CRC: it was changed, or not sealed at its last change");
    const uint64_t held = file.Records + file.EmptyRecords;
    if (file.Claimed.value_or(0) == 0) {
        if (held > 0 || (file.Claimed && stopReason == StopReason::Unknown))
            add(file, FileFault::NotClosed,
                fmt::format("the recording was not closed: its header counts no records, the file holds {}",
                            held));
    } else if (*file.Claimed > file.Records) {
        add(file, FileFault::CutShort,
            fmt::format("the file is cut short: its header says {}, it holds {}",
                        counted(*file.Claimed, "record"), file.Records));
    } else if (*file.Claimed < held) {
        add(file, FileFault::TooLong,
            fmt::format("the file holds {}, its header says {}", counted(held, "record"), *file.Claimed));
    }
    if (file.PartBytes > 0)
        add(file, FileFault::PartRecord,
            fmt::format("{} after the last whole record", counted(file.PartBytes, "byte")));
    if (file.EmptyRecords > 0)
        add(file, FileFault::EmptyEnd,
            fmt::format("the file ends in {}, which nothing was written to",
                        counted(file.EmptyRecords, "empty record")));
}

void judgeRecords(Verification &file)
{
    const WordScan &words = file.Words;
    if (file.UnitPs == 0)
        add(file, FileFault::TimeUnit,
            file.Mode == MeasMode::T3
                ? "the header has no sync rate: the times of events are unknown, their dtimes are right"
                : "the header has no resolution: the times of events are unknown");
    if (words.Invalid > 0)
        add(file, FileFault::Invalid,
            fmt::format("{} of channels or kinds that the device hasn't got",
                        counted(words.Invalid, "record")));
    if (words.StepsBack > 0)
        add(file, FileFault::Order,
            fmt::format("{} earlier than the one before", counted(words.StepsBack, "event")));
    if (words.IdleOverflows > 0)
        add(file, FileFault::Overflows,
            fmt::format("{} without an effect on time", counted(words.IdleOverflows, "overflow record")));
    constexpr double psPerMs = 1e9, tolerance = 1.01, toleranceMs = 1000; // of clocks, and of a start
    if (file.RunMs > 0 && durationPs(file) > (file.RunMs * tolerance + toleranceMs) * psPerMs)
        add(file, FileFault::Overflows,
            fmt::format("the times reach {:.3f} s, but the run took {:.3f} s", durationPs(file) / 1e12,
                        file.RunMs / 1e3));
}

bool isForeign(const Verification &file)
{
    return file.Words.Invalid > file.Words.Words / 2;
}

// False: part of the file can't be read.
bool verifyContent(Verification &file, const FileHandle &handle, const std::vector<PlacedTag> &tags)
{
    Device device;
    MeasContext context;
    if (!readTgxFile(file.Path, device, context, false)) return false;
    readHeaderFacts(file, tags, device, context.Description);
    if (file.Mode != MeasMode::T2 && file.Mode != MeasMode::T3) {
        add(file, FileFault::Mode,
            fmt::format("a recording of mode {} has no records that could be read",
                        static_cast<int32_t>(file.Mode)));
        return true;
    }
    if (!scanRecords(file, handle, device)) {
        logErr(LogCategory::General, "File: {} read Error!", file.Path);
        return false;
    }
    if (isForeign(file))
        add(file, FileFault::Foreign, "most of its records can't come from the device of its header");
    const StopReason stopReason = context.Description.StopReason;
    judgeHeader(file, stopReason);
    judgeRecords(file);
    if (stopReason == StopReason::FileError)
        add(file, FileFault::FileError, "records are missing, by the stop reason of its run");
    file.Losses = context.FileLosses;
    if (file.Losses.Verdict != Verdict::Clean)
        add(file, FileFault::Losses,
            fmt::format("its run lost something, the recording is {}: {}", verdictText(file.Losses.Verdict),
                        json::serialize(lossesJson(file.Losses).at("losses"))));
    return true;
}

std::string_view nameOf(FileFault kind)
{
    switch (kind) {
    case FileFault::Header: return "header";
    case FileFault::Mode: return "mode";
    case FileFault::Foreign: return "foreign";
    case FileFault::Crc: return "crc";
    case FileFault::NotClosed: return "notClosed";
    case FileFault::CutShort: return "cutShort";
    case FileFault::TooLong: return "tooLong";
    case FileFault::PartRecord: return "partRecord";
    case FileFault::EmptyEnd: return "emptyEnd";
    case FileFault::TimeUnit: return "timeUnit";
    case FileFault::Invalid: return "invalid";
    case FileFault::Order: return "order";
    case FileFault::Overflows: return "overflows";
    case FileFault::FileError: return "fileError";
    case FileFault::Losses: return "losses";
    }
    return "";
}

json::value orNull(bool isKnown, json::value value)
{
    return isKnown ? value : json::value(nullptr);
}

uint64_t eventsBetween(const WordScan &words, size_t first, size_t end)
{
    return std::accumulate(words.Events.begin() + first, words.Events.begin() + end, uint64_t{0});
}

json::object countsAsJson(const WordScan &words)
{
    json::array inputs;
    for (size_t code = 1; code <= 64; ++code) inputs.push_back(words.Events[code]);
    while (!inputs.empty() && inputs.back() == 0) inputs.pop_back();
    return {{"sync", words.Events[ChannelCode::Sync]},
            {"inputs", inputs},
            {"markers", eventsBetween(words, ChannelCode::Special, ChannelCode::Overflow)},
            {"overflows", words.Events[ChannelCode::Overflow]},
            {"invalid", words.Invalid},
            {"ignored", words.Ignored}};
}

} // namespace

std::optional<Verification> verifyFile(std::string_view path)
{
    std::optional<FileHead> head = readHead(path, headerImageLimit);
    if (!head || head->IsUnread) return std::nullopt;
    const FileHandle handle = openToRead(path);
    Verification file{.Path = normalPath(path), .FileSize = head->FileSize};
    head->Image.resize(headerLength(head->Image));
    const auto tags = tagsOf(head->Image);
    if (!tags) {
        add(file, FileFault::Header, "not a recording, or one whose header isn't whole");
        return file;
    }
    file.Header = std::move(head->Image);
    if (!verifyContent(file, handle, *tags)) return std::nullopt;
    return file;
}

bool hasFault(const Verification &file, FileFault kind)
{
    return std::ranges::find(file.Faults, kind, &Fault::Kind) != file.Faults.end();
}

Verdict verdictOf(const Verification &file)
{
    if (file.Faults.empty()) return Verdict::Clean;
    if (file.Losses.Verdict == Verdict::Invalid) return Verdict::Invalid;
    const bool isUsable =
        std::ranges::all_of(file.Faults, [](const Fault &fault) { return fault.Kind > FileFault::Foreign; });
    return isUsable ? Verdict::Lossy : Verdict::Invalid;
}

double durationPs(const Verification &file)
{
    return static_cast<double>(file.Words.LatestTime) * file.UnitPs;
}

std::string verificationAsJson(const Verification &file)
{
    const bool isT3 = file.Mode == MeasMode::T3, hasHeader = !file.Header.empty();
    json::array faults;
    for (const Fault &fault : file.Faults)
        faults.push_back(json::object{{"fault", nameOf(fault.Kind)}, {"text", fault.Text}});
    const bool hasFirst = file.Words.FirstFault != WordScan::none;
    return json::serialize(
        json::object{{"verdict", verdictText(verdictOf(file))},
                     {"faults", faults},
                     {"fileSize", file.FileSize},
                     {"headerSize", file.Header.size()},
                     {"crc", orNull(hasHeader, !hasFault(file, FileFault::Crc))},
                     {"mode", orNull(hasHeader, static_cast<int32_t>(file.Mode))},
                     {"records", file.Records},
                     {"recordsByHeader", orNull(file.Claimed.has_value(), file.Claimed.value_or(0))},
                     {"partBytes", file.PartBytes},
                     {"emptyRecords", file.EmptyRecords},
                     {"events", countsAsJson(file.Words)},
                     {"stepsBack", file.Words.StepsBack},
                     {"idleOverflows", file.Words.IdleOverflows},
                     {"firstFaultyRecord", orNull(hasFirst, file.Words.FirstFault)},
                     {isT3 ? "syncPeriodPs" : "timeTagPs", orNull(file.UnitPs > 0, file.UnitPs)},
                     {"durationMs", orNull(file.UnitPs > 0, durationPs(file) / 1e9)},
                     {"runMs", orNull(file.RunMs > 0, file.RunMs)},
                     {"losses", lossesJson(file.Losses).at("losses")}});
}

std::optional<std::vector<PlacedTag>> tagsOf(std::string_view header)
{
    std::vector<PlacedTag> tags;
    for (uint64_t offset = preambleSize; offset < header.size();) {
        tags.push_back({readTag(header, {}, offset), offset});
        const TagRecord &tag = tags.back().Tag;
        if (tag.Name.empty()) break;
        offset = tag.Next;
        if (tag.Name == headerEndName && offset == header.size()) return tags;
    }
    return std::nullopt;
}

uint32_t storedCrc(std::string_view header)
{
    uint32_t crc = 0;
    std::memcpy(&crc, header.data() + header.size() - sizeof crc, sizeof crc);
    return crc;
}

} // namespace Tessel
