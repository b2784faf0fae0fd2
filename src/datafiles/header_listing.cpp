#include "datafiles/header_listing.h"

#include "datafiles/tag_reader.h"
#include "log/text.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <cstring>

namespace Tessel {

namespace {

namespace json = boost::json;

// A text that JSON can take, whatever bytes are in the file.
std::string clean(std::string_view bytes)
{
    return toUtf8(toUtf16(bytes));
}

json::value numberOrNull(double number)
{
    return std::isfinite(number) ? json::value(number) : json::value(nullptr);
}

// A moment in ISO 8601, null if it lies outside the years 1 to 9999.
json::value moment(double days)
{
    using namespace std::chrono;
    double ms = std::round((days - dateTimeOf1970) * secondsOfDay * 1000);
    if (!(ms >= -62135596800000.0 && ms < 253402300800000.0)) return nullptr;
    sys_time<milliseconds> time{milliseconds(static_cast<int64_t>(ms))};
    sys_days day = floor<std::chrono::days>(time);
    year_month_day date(day);
    hh_mm_ss clock(time - day);
    return json::string(fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}", static_cast<int>(date.year()),
                                    static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                                    clock.hours().count(), clock.minutes().count(), clock.seconds().count(),
                                    clock.subseconds().count()));
}

json::array numbers(std::string_view block)
{
    json::array list;
    for (size_t at = 0; at + sizeof(double) <= block.size(); at += sizeof(double)) {
        double number;
        std::memcpy(&number, block.data() + at, sizeof number);
        list.push_back(numberOrNull(number));
    }
    return list;
}

std::string hexadecimal(std::string_view block)
{
    std::string text;
    for (char byte : block) fmt::format_to(std::back_inserter(text), "{:02x}", static_cast<uint8_t>(byte));
    return text;
}

json::value valueOf(const TagRecord &tag, std::string_view image)
{
    switch (tag.TagType) {
    case TagType::Empty8: return nullptr;
    case TagType::Bool8: return tag.TagValue != 0;
    case TagType::BitSet64:
    case TagType::Color8: return tag.TagValue;
    case TagType::Float8: return numberOrNull(doubleOf(tag));
    case TagType::TDateTime: return moment(doubleOf(tag));
    case TagType::AnsiString: {
        std::string_view block = blockOf(tag, image);
        return json::string(clean(block.substr(0, block.find('\0'))));
    }
    case TagType::WideString: return json::string(wideTextOf(tag, image));
    case TagType::Float8Array: return numbers(blockOf(tag, image));
    case TagType::BinaryBlob: return json::string(hexadecimal(blockOf(tag, image)));
    case TagType::Int8: break;
    }
    return static_cast<int64_t>(tag.TagValue);
}

json::array allTags(std::string_view image)
{
    json::array tags;
    for (uint64_t offset = preambleSize; offset < image.size();) {
        TagRecord tag = readTag(image, {}, offset);
        if (tag.Name.empty()) break;
        offset = tag.Next;
        tags.push_back(json::object{{"name", clean(tag.Name)},
                                    {"idx", tag.Idx},
                                    {"type", tagTypeName(tag.TagType)},
                                    {"value", valueOf(tag, image)}});
        if (tag.Name == headerEndName) break;
    }
    return tags;
}

} // namespace

std::optional<std::string> headerTagsAsJson(std::string_view path)
{
    std::optional<FileHead> head = readHead(path, headerImageLimit);
    if (!head || head->IsUnread) return {};
    uint64_t length = headerLength(head->Image);
    std::string_view image = head->Image;
    return json::serialize(json::object{{"magic", clean(magicOf(image))},
                                        {"version", clean(versionOf(image))},
                                        {"dataStart", length},
                                        {"fileSize", head->FileSize},
                                        {"tags", allTags(image.substr(0, length))}});
}

} // namespace Tessel
