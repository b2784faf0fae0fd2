#include "program/visible_text.h"

#include <boost/locale/utf.hpp>
#include <fmt/format.h>

namespace Tessel::Cli {

namespace {

namespace utf = boost::locale::utf;

struct Character
{
    std::string_view Bytes; // one byte of what is no UTF-8
    bool Good, Shown;
};

bool turnsDirection(utf::code_point code)
{
    return code == 0x61C || code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
           (code >= 0x2066 && code <= 0x2069);
}

// Of a text that isn't empty.
Character firstCharacter(std::string_view text)
{
    const char *after = text.data();
    const utf::code_point code = utf::utf_traits<char>::decode(after, text.data() + text.size());
    if (!utf::is_valid_codepoint(code)) return {text.substr(0, 1), false, false};
    const bool isControl = code < 0x20 || (code >= 0x7F && code <= 0x9F);
    return {text.substr(0, static_cast<size_t>(after - text.data())), true,
            !isControl && !turnsDirection(code)};
}

template <class Use>
void eachCharacter(std::string_view text, Use use)
{
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        use(character);
        text.remove_prefix(character.Bytes.size());
    }
}

} // namespace

std::string visibleText(std::string_view text)
{
    std::string result;
    eachCharacter(text, [&](const Character &character) {
        if (character.Shown)
            result += character.Bytes;
        else
            for (const char byte : character.Bytes)
                result += fmt::format("\\x{:02X}", static_cast<unsigned char>(byte));
    });
    return result;
}

std::string blankedText(std::string_view text)
{
    std::string result;
    eachCharacter(text, [&](const Character &character) { result += character.Shown ? character.Bytes : " "; });
    return result;
}

bool isUtf8(std::string_view text)
{
    bool good = true;
    eachCharacter(text, [&](const Character &character) { good = good && character.Good; });
    return good;
}

std::string jsonName(std::string_view path)
{
    return isUtf8(path) ? std::string(path) : visibleText(path);
}

} // namespace Tessel::Cli
