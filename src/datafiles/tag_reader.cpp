#include "datafiles/tag_reader.h"

#include "log/file_handle.h"
#include "log/log.h"
#include "log/text.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <system_error>

namespace Tessel {

namespace {

template <class T>
T numberAt(std::string_view image, uint64_t offset)
{
    T number;
    std::memcpy(&number, image.data() + offset, sizeof number);
    return number;
}

std::string_view upToZero(std::string_view bytes)
{
    return bytes.substr(0, bytes.find('\0'));
}

// A calendar time, limited to the years that print with four digits.
std::tm calendarTime(double days)
{
    double seconds = (days - dateTimeOf1970) * secondsOfDay;
    if (std::isnan(seconds)) seconds = 0;
    auto time = static_cast<std::time_t>(std::clamp(seconds, -62135596800.0, 253402300799.0));
    std::tm parts{};
    gmtime_r(&time, &parts);
    return parts;
}

std::string bytesAsText(std::string_view block)
{
    std::string text;
    for (char byte : block) fmt::format_to(std::back_inserter(text), "{}, ", static_cast<uint8_t>(byte));
    return text;
}

std::string doublesAsText(std::string_view block)
{
    std::string text;
    for (uint64_t at = 0; at + sizeof(double) <= block.size(); at += sizeof(double))
        fmt::format_to(std::back_inserter(text), "{}, ", numberAt<double>(block, at));
    return text;
}

std::string valueForTrace(const TagRecord &tag, std::string_view image)
{
    switch (tag.TagType) {
    case TagType::Empty8: return "";
    case TagType::BitSet64: return fmt::format(" tValue: {:16x}", tag.TagValue);
    case TagType::Color8: return fmt::format(" tValue: {:32x}", tag.TagValue);
    case TagType::Float8: return fmt::format(" tValue: {:16.2e}", doubleOf(tag));
    case TagType::TDateTime: return fmt::format(" tValue: {:%d.%m.%y %H:%M:%S}", calendarTime(doubleOf(tag)));
    case TagType::AnsiString: return fmt::format(" tValue: {:s}", textOf(tag, image));
    case TagType::WideString: return fmt::format(" tValue: {:s}", wideTextOf(tag, image));
    case TagType::BinaryBlob: return fmt::format(" tValue: {:s}", bytesAsText(blockOf(tag, image)));
    case TagType::Float8Array: return fmt::format(" tValue: {:s}", doublesAsText(blockOf(tag, image)));
    case TagType::Bool8:
    case TagType::Int8: break;
    }
    return fmt::format(" tValue: {:16d}", static_cast<int64_t>(tag.TagValue));
}

// Hosts look for the first line. The system's reason, in errno, is one of its own.
void logReadError(std::string_view path)
{
    const int error = errno;
    logErr(LogCategory::General, "File: {} read Error!", path);
    if (error == 0) return;
    logErr(LogCategory::General, "File: {} can't be read: {}", path, std::generic_category().message(error));
}

} // namespace

std::optional<FileHead> readHead(std::string_view path, uint64_t limit)
{
    errno = 0;
    const FileHandle file = openToRead(path);
    const std::optional<uint64_t> size = file.isOpen() ? sizeOf(file) : std::nullopt;
    if (!size) {
        logReadError(path);
        return {};
    }
    FileHead head;
    head.FileSize = *size;
    if (head.FileSize == 0) {
        logErr(LogCategory::General, "File: {} empty!", path);
        return head;
    }
    head.Image.resize(std::min(head.FileSize, limit));
    if (readAt(file, head.Image.data(), head.Image.size(), 0) != static_cast<int64_t>(head.Image.size())) {
        logReadError(path);
        head.Image.clear();
        head.IsUnread = true;
    }
    return head;
}

TagRecord readTag(std::string_view image, std::string_view searchText, uint64_t offset)
{
    if (!searchText.empty()) offset = image.find(searchText, offset);
    if (offset > image.size() || image.size() - offset < tagSize) return {};

    TagRecord tag;
    tag.Name = upToZero(image.substr(offset, identSize));
    tag.Idx = numberAt<int32_t>(image, offset + 32);
    tag.TagType = static_cast<TagType>(numberAt<uint32_t>(image, offset + 36));
    tag.TagValue = numberAt<uint64_t>(image, offset + 40);
    tag.Next = offset + tagSize;
    if (!hasBlock(tag.TagType)) return tag;
    if (tag.TagValue > image.size() - tag.Next) return {};
    tag.Next += tag.TagValue;
    return tag;
}

uint64_t headerLength(std::string_view image)
{
    return readTag(image, headerEndName, 0).Next;
}

double doubleOf(const TagRecord &tag)
{
    return std::bit_cast<double>(tag.TagValue);
}

int32_t intOf(const TagRecord &tag)
{
    return static_cast<int32_t>(static_cast<uint32_t>(tag.TagValue));
}

std::string_view blockOf(const TagRecord &tag, std::string_view image)
{
    if (tag.Next > image.size() || tag.TagValue > tag.Next) return {};
    return image.substr(tag.Next - tag.TagValue, tag.TagValue);
}

std::string textOf(const TagRecord &tag, std::string_view image)
{
    std::string_view bytes = upToZero(blockOf(tag, image));
    std::string text;
    for (size_t end; (end = bytes.find("\r\n")) != bytes.npos; bytes.remove_prefix(end + 2))
        text.append(bytes.substr(0, end)).append("\\r\\n");
    return text.append(bytes);
}

std::string wideTextOf(const TagRecord &tag, std::string_view image)
{
    std::string_view block = blockOf(tag, image);
    std::u16string text(block.size() / sizeof(char16_t), u'\0');
    std::memcpy(text.data(), block.data(), text.size() * sizeof(char16_t));
    return toUtf8(std::u16string_view(text).substr(0, text.find(u'\0')));
}

std::string guidOf(std::string_view image)
{
    const TagRecord tag = readTag(image, "File_GUID", 0);
    return tag.Name.empty() ? std::string() : textOf(tag, image);
}

std::string_view magicOf(std::string_view image)
{
    return upToZero(image.substr(0, 8));
}

std::string_view versionOf(std::string_view image)
{
    return upToZero(image.substr(std::min<size_t>(8, image.size()), 8));
}

void printTag(const TagRecord &tag, std::string_view image)
{
    if (tag.Name.empty() || !LogLevel.DataFile) return;
    logInf(LogCategory::Progress, "Identifier: {:32s} Idx: {:16d} Type: {:16s}{}", tag.Name, tag.Idx,
           tagTypeName(tag.TagType), valueForTrace(tag, image));
}

} // namespace Tessel
