#include "datafiles/dictionary_writer.h"

#include "datafiles/tag_bytes.h"
#include "log/log.h"
#include "log/text.h"
#include "stream/rounding.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>

namespace Tessel {

namespace {

// Every failed check is logged here. A format may have line feeds of its own.
template <class... Args>
void logTgx(fmt::format_string<Args...> format, Args &&...args)
{
    const fmt::string_view text = format;
    if (LogLevel.DataFile)
        logInf(LogCategory::Progress, fmt::runtime("TGX: " + std::string(text.data(), text.size())),
               std::forward<Args>(args)...);
}

int32_t definedSizeOf(double value)
{
    return std::isnan(value) ? -1 : std::max(truncated<int32_t>(std::floor(value + 0.5)), -1);
}

// A pattern's %s, %3.3d, %2.2d or %8.8X replaced.
std::string withText(std::string_view pattern, std::string_view text)
{
    size_t percent = pattern.find('%');
    return fmt::format("{}{}{}", pattern.substr(0, percent), text, pattern.substr(percent + 2));
}

std::string withNumber(std::string_view pattern, int32_t number)
{
    size_t percent = pattern.find('%');
    int digits = pattern[percent + 1] - '0';
    bool hexadecimal = pattern[percent + 4] == 'X';
    std::string text =
        hexadecimal ? fmt::format("{:0{}X}", number, digits) : fmt::format("{:0{}d}", number, digits);
    return fmt::format("{}{}{}", pattern.substr(0, percent), text, pattern.substr(percent + 5));
}

// A number as small as its bytes say; only the low half of eight bytes counts.
std::optional<int32_t> extensionNumber(std::string_view bytes)
{
    int8_t byte;
    int16_t half;
    int32_t word;
    switch (bytes.size()) {
    case 1: std::memcpy(&byte, bytes.data(), sizeof byte); return byte;
    case 2: std::memcpy(&half, bytes.data(), sizeof half); return half;
    case 4:
    case 8: std::memcpy(&word, bytes.data(), sizeof word); return word;
    default: return {};
    }
}

int32_t checkExtension(const DictionaryState &state, const TagRow &tag, int32_t number)
{
    if (number < 0) {
        logTgx("Error:    {} : Illegal tag ident extension value ({})!", tag.Name, number);
        return TagResult::ExtensionNegative;
    }
    if (tag.ExtensionBound <= 0) return TagResult::Written;
    auto bounding = static_cast<uint32_t>(tag.ExtensionBound);
    int32_t size = state.DefinedSize[bounding];
    if (size == -1) {
        logTgx("Warning:  {} : Tag ident extension value {} might be out of range!\n"
               "            (Tag '{}' yet undefined)",
               tag.Name, number, TagDictionary[bounding].Name);
    } else if (size <= number) {
        logTgx("Error:    {} : Tag ident extension value {} out of bounds (0..{})!", tag.Name, number,
               size - 1);
        return TagResult::ExtensionOutOfBounds;
    }
    return TagResult::Written;
}

int32_t makeName(const DictionaryState &state, const TagRow &tag, std::optional<std::string_view> extension,
                 std::string &name)
{
    if (tag.ExtensionKind == ExtensionKind::None) {
        name = tag.Name;
        return TagResult::Written;
    }
    if (!extension) {
        logTgx("Error:    {} : Tag ident extension missing!", tag.Name);
        return TagResult::ExtensionMissing;
    }
    if (tag.ExtensionKind == ExtensionKind::Text) {
        name = withText(tag.Name, *extension);
        return TagResult::Written;
    }
    std::optional<int32_t> number = extensionNumber(*extension);
    if (!number) {
        logTgx("Error:    {} : Illegal tag ident extension length!", tag.Name);
        return TagResult::ExtensionLength;
    }
    int32_t result = checkExtension(state, tag, *number);
    if (result == TagResult::Written) name = withNumber(tag.Name, *number);
    return result;
}

int32_t checkIndex(const DictionaryState &state, const TagRow &tag, std::string_view name, int32_t idx)
{
    if (idx < -1 || (idx == -1 && tag.IndexBound != 0)) {
        logTgx("Error:    {}[{}] : Index out of bounds!", name, idx);
        return TagResult::IndexOutOfBounds;
    }
    if (tag.IndexBound == 0) return TagResult::Written;
    int32_t size = -tag.IndexBound;
    if (tag.IndexBound > 0) {
        auto bounding = static_cast<uint32_t>(tag.IndexBound);
        size = state.DefinedSize[bounding];
        if (size < 0) {
            logTgx("Warning:  {}[{}] : Index might be out of bounds!\n            (Tag '{}' yet undefined)",
                   name, idx, TagDictionary[bounding].Name);
            return TagResult::Written;
        }
    }
    if (idx < size) return TagResult::Written;
    logTgx("Error:    {}[{}] : Index out of bounds (0..{})!", name, idx, size - 1);
    return TagResult::IndexOutOfBounds;
}

void appendValue(std::string &out, TagType type, const TagContent &content)
{
    std::string_view text = content.Text;
    switch (type) {
    case TagType::Empty8: return appendNumber(out, uint64_t{0});
    case TagType::Bool8:
        return appendNumber(out, std::floor(std::abs(content.Value) + 0.5) > 0 ? ~uint64_t{0} : uint64_t{0});
    case TagType::Int8:
    case TagType::BitSet64:
    case TagType::Color8: return appendNumber(out, nearest<int64_t>(content.Value));
    case TagType::Float8:
    case TagType::TDateTime: return appendNumber(out, content.Value);
    case TagType::AnsiString: return appendBlock(out, text, (text.size() + 8) / 8 * 8);
    case TagType::WideString: {
        std::string_view bytes = bytesOf(content.WideText.data(), content.WideText.size());
        return appendBlock(out, bytes, (bytes.size() + 9) / 8 * 8);
    }
    case TagType::Float8Array:
    case TagType::BinaryBlob: return appendBlock(out, text, (text.size() + 7) / 8 * 8);
    }
}

} // namespace

int32_t writeDictionaryTag(std::string &out, DictionaryState &state, uint32_t row, int32_t idx,
                           const TagContent &content, std::optional<std::string_view> extension)
{
    if (row >= tagRowCount) return TagResult::NoSuchRow;
    const TagRow &tag = TagDictionary[row];
    if (state.FastLoadPending && !tag.FastLoad) {
        state.FastLoadPending = false;
        writeDictionaryTag(out, state, TagId::Fast_Load_End, -1, {});
    }
    std::string name;
    if (int32_t result = makeName(state, tag, extension, name); result != TagResult::Written) return result;
    if (tag.SizeDefining) state.DefinedSize[row] = definedSizeOf(content.Value);
    if (int32_t result = checkIndex(state, tag, name.substr(0, identSize - 1), idx);
        result != TagResult::Written)
        return result;

    TagContent written = content;
    std::string guid;
    if (row == TagId::File_GUID && content.Text.empty()) {
        guid = newGuid();
        if (guid.empty()) return TagResult::NoGuid;
        written.Text = guid;
    }
    appendIdent(out, name, idx, tag.Type);
    appendValue(out, tag.Type, written);
    if (row == TagId::Header_End) state.HeaderDone = true;
    return tag.LastVersion < dictionaryVersion ? TagResult::WrittenRetired : TagResult::Written;
}

void MVUTF_Start(DictionaryState &state)
{
    logTgx("MVUTF_Start");
    state = DictionaryState();
}

void MVUTF_Update(DictionaryState &state)
{
    state.FastLoadPending = false;
    logTgx("MVUTF_Update");
}

void MVUTF_End()
{
    logTgx("MVUTF_End");
}

std::string newGuid()
try {
    std::random_device device;
    std::array<std::random_device::result_type, std::mt19937::state_size> entropy;
    std::generate(entropy.begin(), entropy.end(), std::ref(device));
    std::seed_seq seed(entropy.begin(), entropy.end());
    std::mt19937 twister(seed);

    std::array<uint8_t, 16> bytes;
    for (size_t i = 0; i < bytes.size(); i += 4) {
        auto word = static_cast<uint32_t>(twister());
        std::memcpy(&bytes[i], &word, sizeof word);
    }
    bytes[6] = (bytes[6] & 0x0F) | 0x40; // version 4
    bytes[8] = (bytes[8] & 0x3F) | 0x80; // variant of RFC 4122
    std::string text = "{";
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += fmt::format("{:02X}", bytes[i]);
    }
    return text + "}";
} catch (const std::exception &) {
    return {};
}

} // namespace Tessel
