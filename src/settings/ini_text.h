// An INI text as the list of its sections and keys, and the numbers that its values hold.
//
// Lines are `key = value` below a `[section]`; a line that starts with ';' or '#' is a comment; blanks around
// names and values don't count. Case matters in names. Nothing is merged or overwritten: a section or key that
// occurs twice is in the list twice, so acting on the list is acting in the order of the text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel {

struct IniEntry
{
    std::string Name;
    std::string Value;
};

struct IniSection
{
    std::string Name; // empty: keys above the first section line
    std::vector<IniEntry> Keys;
};

using IniText = std::vector<IniSection>;

// Nothing if the store refuses the text. A byte order mark is skipped; a NUL byte ends the text.
std::optional<IniText> parseIni(std::string_view text);

// The bytes of a regular file of at most 16 MiB, path in either form. Nothing on failure, with the reason in
// errno.
std::optional<std::string> readIniFile(std::string_view path);

// The value, or the fallback with an error in the log.
int32_t iniInteger(std::string_view text, int32_t fallback);
uint32_t iniUnsigned(std::string_view text, uint32_t fallback);
bool iniBoolean(std::string_view text, bool fallback);

// The value; nothing is logged.
std::optional<int32_t> parseInteger(std::string_view text);

// The fields between the commas; an empty text is one empty field.
std::vector<std::string_view> iniFields(std::string_view text);

} // namespace Tessel
