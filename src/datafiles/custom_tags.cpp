#include "datafiles/custom_tags.h"

#include "datafiles/tag.h"
#include "datafiles/tag_bytes.h"
#include "log/log.h"
#include "log/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace Tessel {

namespace {

CustomTag &addTag(CustomTags &tags, TagType type, std::string_view name, uint32_t idx)
{
    CustomTag &tag = tags.emplace_back();
    tag.Type = static_cast<uint32_t>(type);
    tag.Name = name;
    tag.Idx = idx;
    return tag;
}

// The tag's type, value and index, for the trace.
std::string valueForTrace(const CustomTag &tag)
{
    switch (static_cast<TagType>(tag.Type)) {
    case TagType::AnsiString: return fmt::format("MV_TAGTYPE_ANSISTRING {} {}", tag.AnsiValue, tag.Idx);
    case TagType::WideString: return fmt::format("MV_TAGTYPE_WIDESTRING {} {}", toUtf8(tag.WideValue), tag.Idx);
    case TagType::Bool8: return fmt::format("MV_TAGTYPE_BOOL8 {} {}", tag.Value != 0, tag.Idx);
    case TagType::Int8: return fmt::format("MV_TAGTYPE_INT8 {} {}", static_cast<int64_t>(tag.Value), tag.Idx);
    case TagType::Float8:
        return fmt::format("MV_TAGTYPE_FLOAT8 {} {}", std::bit_cast<double>(tag.Value), tag.Idx);
    case TagType::Empty8: return fmt::format("MV_TAGTYPE_EMPTY8 {} {}", tag.Value, tag.Idx);
    case TagType::Float8Array:
        return fmt::format("MV_TAGTYPE_FLOAT8ARRAY {}.. {}",
                           tag.ArrayValue.empty() ? 0.0 : tag.ArrayValue.front(), tag.Idx);
    case TagType::BinaryBlob:
        return fmt::format("MV_TAGTYPE_BINARYBLOB {}.. {}", tag.BlobValue.empty() ? 0 : tag.BlobValue.front(),
                           tag.Idx);
    default: return {};
    }
}

// Unlike the dictionary's: a bool is 0 or 1 in its first byte, a blob isn't rounded up to eight bytes.
void appendValue(std::string &header, const CustomTag &tag)
{
    switch (static_cast<TagType>(tag.Type)) {
    case TagType::AnsiString: return appendBlock(header, tag.AnsiValue, (tag.AnsiValue.size() + 8) / 8 * 8);
    case TagType::WideString: {
        std::string_view bytes = bytesOf(tag.WideValue.data(), tag.WideValue.size());
        return appendBlock(header, bytes, (bytes.size() + 9) / 8 * 8);
    }
    case TagType::Float8Array: {
        std::string_view bytes = bytesOf(tag.ArrayValue.data(), tag.ArrayValue.size());
        return appendBlock(header, bytes, bytes.size());
    }
    case TagType::BinaryBlob: {
        std::string_view bytes = bytesOf(tag.BlobValue.data(), tag.BlobValue.size()).substr(0, tag.Value);
        return appendBlock(header, bytes, bytes.size());
    }
    case TagType::Empty8: return appendNumber(header, uint64_t{0});
    case TagType::Bool8: return appendNumber(header, uint64_t{tag.Value != 0});
    default: return appendNumber(header, tag.Value);
    }
}

} // namespace

void addIntTag(CustomTags &tags, std::string_view name, int64_t value, uint32_t idx)
{
    addTag(tags, TagType::Int8, name, idx).Value = static_cast<uint64_t>(value);
    if (LogLevel.DataFile) logDeb(LogCategory::Progress, "DataFile::addTag: {} {} {}", name, value, idx);
}

void addDblTag(CustomTags &tags, std::string_view name, double value, uint32_t idx)
{
    addTag(tags, TagType::Float8, name, idx).Value = std::bit_cast<uint64_t>(value);
}

void addBoolTag(CustomTags &tags, std::string_view name, bool value, uint32_t idx)
{
    addTag(tags, TagType::Bool8, name, idx).Value = value;
}

void addEmptyTag(CustomTags &tags, std::string_view name, uint32_t idx)
{
    addTag(tags, TagType::Empty8, name, idx);
    if (LogLevel.DataFile) logDeb(LogCategory::Progress, "DataFile::addTag: {} {}", name, tags.size());
}

void addStringTag(CustomTags &tags, std::string_view name, std::string_view text, uint32_t idx)
{
    addTag(tags, TagType::AnsiString, name, idx).AnsiValue = text;
}

void addWStringTag(CustomTags &tags, std::string_view name, std::u16string_view text, uint32_t idx)
{
    addTag(tags, TagType::WideString, name, idx).WideValue = text;
}

void addFloatArrayTag(CustomTags &tags, std::string_view name, std::span<const double> values, uint32_t idx)
{
    addTag(tags, TagType::Float8Array, name, idx).ArrayValue.assign(values.begin(), values.end());
}

void addBBTag(CustomTags &tags, std::string_view name, const uint8_t *bytes, uint64_t count, uint32_t idx)
{
    if (!bytes) count = 0;
    std::vector<uint64_t> words(count);
    if (count != 0) std::memcpy(words.data(), bytes, count * sizeof(uint64_t));
    CustomTag &tag = addTag(tags, TagType::BinaryBlob, name, idx);
    tag.BlobValue = std::move(words);
    tag.Value = count;
}

void addCustomTags(std::string &header, std::span<const CustomTag> tags)
{
    if (LogLevel.DataFile) logDeb(LogCategory::Progress, "addCustomTags: {}", tags.size());
    for (const CustomTag &tag : tags) {
        std::string trace = valueForTrace(tag);
        if (trace.empty()) {
            logErr(LogCategory::General, "AddTag: tagtype {{:0X8}}");
            continue;
        }
        if (LogLevel.DataFile) logDeb(LogCategory::Progress, "addCustomTag: {} {}", tag.Name, trace);
        appendIdent(header, tag.Name, static_cast<int32_t>(tag.Idx), static_cast<TagType>(tag.Type));
        appendValue(header, tag);
    }
}

} // namespace Tessel
