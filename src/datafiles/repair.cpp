#include "datafiles/repair.h"

#include "datafiles/header_writer.h"
#include "datafiles/losses_file.h"
#include "datafiles/verification.h"
#include "log/file_handle.h"
#include "log/log.h"
#include "log/text.h"
#include "stream/rounding.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>

namespace Tessel {

namespace {

constexpr uint64_t copyBlock = 1048576; // bytes

bool refuseRepair(std::string_view path, std::string_view why)
{
    logErr(LogCategory::General, "File: {} can't be repaired: {}", path, why);
    return false;
}

// Empty: it can be repaired.
std::string_view faultBeyondRepair(const Verification &file)
{
    for (const FileFault kind : {FileFault::Header, FileFault::Mode, FileFault::Foreign})
        if (hasFault(file, kind)) return std::ranges::find(file.Faults, kind, &Fault::Kind)->Text;
    if (!file.CountIsSettable) return "its header has no place for the number of records";
    if (file.Records == 0) return "it holds no records";
    const auto isRepaired = [](const Fault &fault) {
        return fault.Kind >= FileFault::Crc && fault.Kind <= FileFault::EmptyEnd;
    };
    if (std::ranges::none_of(file.Faults, isRepaired))
        return "its header is whole and fits its records, nothing was cut off";
    return {};
}

// The header in work, tag by tag: each keeps its length.
struct HeaderRepair
{
    std::string Bytes;
    std::vector<PlacedTag> Tags;

    // As the reader takes these: the last of a name, a whole number whatever the type.
    void set(std::string_view name, double value, std::optional<int32_t> idx = {})
    {
        const auto number = nearest<int64_t>(value);
        for (const PlacedTag &placed : Tags)
            if (placed.Tag.Name == name && idx.value_or(placed.Tag.Idx) == placed.Tag.Idx &&
                !hasBlock(placed.Tag.TagType))
                std::memcpy(Bytes.data() + placed.Offset + 40, &number, sizeof number);
    }

    void seal()
    {
        const uint32_t crc = headerCrc(Bytes);
        std::memcpy(Bytes.data() + Bytes.size() - sizeof crc, &crc, sizeof crc);
    }
};

// What the end of the run would have written, as far as the records tell it. Of a T3 recording they don't tell
// the sync rate, which its opening header has.
void tellRun(HeaderRepair &header, const Verification &file)
{
    const double seconds = durationPs(file) / 1e12;
    header.set("TTResult_StopAfter", std::round(seconds * 1e3));
    if (seconds <= 0) return;
    const auto rateOf = [&](size_t code) { return static_cast<double>(file.Words.Events[code]) / seconds; };
    for (const PlacedTag &placed : header.Tags)
        if (placed.Tag.Name == "TTResult_InputRate" && placed.Tag.Idx >= 0 && placed.Tag.Idx < 64)
            header.set(placed.Tag.Name, rateOf(static_cast<size_t>(placed.Tag.Idx) + 1), placed.Tag.Idx);
}

std::string repairedHeader(const Verification &file)
{
    HeaderRepair header{file.Header, tagsOf(file.Header).value()};
    header.set("TTResult_NumberOfRecords", static_cast<double>(file.Records));
    if (hasFault(file, FileFault::NotClosed)) tellRun(header, file);
    if (hasFault(file, FileFault::CutShort))
        header.set("TTResult_StopReason", static_cast<double>(StopReason::FileError));
    header.seal();
    return std::move(header.Bytes);
}

bool writeCopy(const Verification &file, std::string_view repaired)
{
    const std::string header = repairedHeader(file);
    const FileHandle source = openToRead(file.Path);
    FileStream out = openStream(repaired, "wb");
    if (!out) return false;
    bool good = std::fwrite(header.data(), 1, header.size(), out.get()) == header.size();
    std::string block(copyBlock, '\0');
    const uint64_t end = header.size() + file.Records * sizeof(uint32_t);
    for (uint64_t done = header.size(); good && done < end;) {
        const uint64_t count = std::min(end - done, copyBlock);
        good = readAt(source, block.data(), count, done) == static_cast<int64_t>(count) &&
               std::fwrite(block.data(), 1, count, out.get()) == count;
        done += count;
    }
    return close(std::move(out)) && good;
}

} // namespace

bool repairFile(std::string_view path, std::string_view repaired)
{
    std::error_code problem;
    if (std::filesystem::equivalent(nativePath(path), nativePath(repaired), problem))
        return refuseRepair(path, "the copy would replace it");
    const std::optional<Verification> file = verifyFile(path);
    if (!file) return false;
    if (const std::string_view why = faultBeyondRepair(*file); !why.empty()) return refuseRepair(path, why);
    if (writeCopy(*file, repaired)) return writeLosses(repaired, file->Losses);
    const int error = errno;
    std::filesystem::remove(nativePath(repaired), problem);
    logLastError(fmt::format("File: {} can't be written:", repaired), error);
    return false;
}

} // namespace Tessel
