#include "settings/ini_text.h"

#include "log/file_handle.h"
#include "log/log.h"

#define SI_NO_CONVERSION  // bytes stay as they are
#define SI_IMPLEMENTATION // the header brings its own code along
#include <SimpleIni.h>
#include <boost/lexical_cast/try_lexical_convert.hpp>

#include <algorithm>
#include <cerrno>

namespace Tessel {

namespace {

constexpr size_t fileLimit = 16u << 20;

// One line of the text. The store keeps keys by section; `Order` is the place in the text across all sections.
struct Entry
{
    int Order;
    const char *Section;
    const char *Key; // null: the section's own line
    const char *Value;
};

std::vector<Entry> entriesInOrder(const CSimpleIniCaseA &store)
{
    std::vector<Entry> entries;
    CSimpleIniCaseA::TNamesDepend sections;
    store.GetAllSections(sections);
    for (const CSimpleIniCaseA::Entry &section : sections) {
        entries.push_back({section.nOrder, section.pItem, nullptr, nullptr});
        for (const auto &[key, value] : *store.GetSection(section.pItem))
            entries.push_back({key.nOrder, section.pItem, key.pItem, value});
    }
    std::sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) { return a.Order < b.Order; });
    return entries;
}

std::string_view trimmed(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

template <class Number>
std::optional<Number> parseNumber(std::string_view text)
{
    const std::string_view digits = trimmed(text);
    Number number{};
    if (!boost::conversion::try_lexical_convert(digits.data(), digits.size(), number)) return std::nullopt;
    return number;
}

} // namespace

std::optional<IniText> parseIni(std::string_view text)
{
    CSimpleIniCaseA store(true, true); // UTF-8; a repeated key is kept
    if (store.LoadData(text.data(), text.size()) < 0) return std::nullopt;

    IniText sections;
    const char *current = nullptr; // names are the store's own, so one address is one section
    for (const Entry &entry : entriesInOrder(store)) {
        if (entry.Section != current) sections.push_back({entry.Section, {}});
        current = entry.Section;
        if (entry.Key) sections.back().Keys.push_back({entry.Key, entry.Value});
    }
    return sections;
}

std::optional<std::string> readIniFile(std::string_view path)
{
    const FileHandle file = openToRead(path);
    if (!file.isOpen() || !sizeOf(file)) return std::nullopt;
    std::string text;
    for (;;) {
        char block[16384];
        const int64_t count = readAt(file, block, sizeof block, text.size());
        if (count < 0) return std::nullopt;
        text.append(block, static_cast<size_t>(count));
        if (text.size() > fileLimit) {
            errno = EFBIG;
            return std::nullopt;
        }
        if (static_cast<size_t>(count) < sizeof block) return text;
    }
}

std::optional<int32_t> parseInteger(std::string_view text)
{
    return parseNumber<int32_t>(text);
}

int32_t iniInteger(std::string_view text, int32_t fallback)
{
    if (const auto number = parseNumber<int32_t>(text)) return *number;
    logErr(LogCategory::General, "Log: Can't parse \"{}\" to integer", text);
    return fallback;
}

uint32_t iniUnsigned(std::string_view text, uint32_t fallback)
{
    if (const auto number = parseNumber<uint32_t>(text)) return *number;
    logErr(LogCategory::General, "Log: Can't parse \"{}\" to unsigned int", text);
    return fallback;
}

bool iniBoolean(std::string_view text, bool fallback)
{
    if (text == "True" || text == "true" || text == "1") return true;
    if (text == "False" || text == "false" || text == "0") return false;
    logErr(LogCategory::General, "Log: Can't parse \"{}\" to boolean", text);
    return fallback;
}

std::vector<std::string_view> iniFields(std::string_view text)
{
    std::vector<std::string_view> fields;
    for (size_t comma; (comma = text.find(',')) != std::string_view::npos; text.remove_prefix(comma + 1))
        fields.push_back(text.substr(0, comma));
    fields.push_back(text);
    return fields;
}

} // namespace Tessel
