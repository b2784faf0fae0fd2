#include "log/text.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tessel {

namespace {

constexpr char32_t replacement = 0xFFFD;

struct Decoded
{
    char32_t Code;
    size_t Length; // bytes taken; of a broken sequence, those that could have begun a good one
    bool Good;
};

// What a lead byte asks for: the number of bytes after it, and the bounds of the first of these. The bounds
// exclude overlong forms, surrogates and codes above 10FFFF.
struct Lead
{
    size_t Tail;
    unsigned char Low, High;
};

Lead leadOf(unsigned char byte)
{
    if (byte >= 0xC2 && byte <= 0xDF) return {1, 0x80, 0xBF};
    if (byte == 0xE0) return {2, 0xA0, 0xBF};
    if (byte == 0xED) return {2, 0x80, 0x9F};
    if (byte >= 0xE1 && byte <= 0xEF) return {2, 0x80, 0xBF};
    if (byte == 0xF0) return {3, 0x90, 0xBF};
    if (byte >= 0xF1 && byte <= 0xF3) return {3, 0x80, 0xBF};
    if (byte == 0xF4) return {3, 0x80, 0x8F};
    return {0, 0, 0};
}

// The first code of a text that isn't empty.
Decoded decodeUtf8(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) return {first, 1, true};
    Lead lead = leadOf(first);
    if (lead.Tail == 0) return {replacement, 1, false};

    char32_t code = first & (0x3Fu >> lead.Tail);
    for (size_t i = 1; i <= lead.Tail; i++) {
        const auto byte = i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
        if (byte < lead.Low || byte > lead.High) return {replacement, i, false};
        code = code << 6 | (byte & 0x3Fu);
        lead.Low = 0x80;
        lead.High = 0xBF;
    }
    return {code, lead.Tail + 1, true};
}

void appendUtf8(std::string &text, char32_t code)
{
    const auto tail = [&](int shift) { text += static_cast<char>(0x80 | (code >> shift & 0x3F)); };
    if (code < 0x80) {
        text += static_cast<char>(code);
    } else if (code < 0x800) {
        text += static_cast<char>(0xC0 | code >> 6);
        tail(0);
    } else if (code < 0x10000) {
        text += static_cast<char>(0xE0 | code >> 12);
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0 | code >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

bool isHighSurrogate(char16_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(char16_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

bool isActedOn(char32_t code)
{
    return code < 0x20 || (code >= 0x7F && code <= 0x9F) || code == 0x61C || code == 0x200E || code == 0x200F ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

bool isShown(const Decoded &decoded)
{
    return decoded.Good && !isActedOn(decoded.Code);
}

} // namespace

std::string toUtf8(std::u16string_view text)
{
    std::string result;
    result.reserve(text.size());
    for (size_t i = 0; i < text.size(); i++) {
        const char16_t unit = text[i];
        if (isHighSurrogate(unit) && i + 1 < text.size() && isLowSurrogate(text[i + 1])) {
            appendUtf8(result,
                       0x10000u + (char32_t{unit} - 0xD800u) * 0x400u + (char32_t{text[i + 1]} - 0xDC00u));
            i++;
        } else {
            appendUtf8(result, isHighSurrogate(unit) || isLowSurrogate(unit) ? replacement : char32_t{unit});
        }
    }
    return result;
}

std::u16string toUtf16(std::string_view text)
{
    std::u16string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const Decoded next = decodeUtf8(text);
        if (next.Code < 0x10000) {
            result += static_cast<char16_t>(next.Code);
        } else {
            result += static_cast<char16_t>(0xD800 + ((next.Code - 0x10000) >> 10));
            result += static_cast<char16_t>(0xDC00 + ((next.Code - 0x10000) & 0x3FF));
        }
        text.remove_prefix(next.Length);
    }
    return result;
}

std::string visible(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const Decoded next = decodeUtf8(text);
        const std::string_view bytes = text.substr(0, next.Length);
        if (isShown(next)) {
            result += bytes;
        } else {
            for (const char byte : bytes) result += fmt::format("\\x{:02X}", static_cast<unsigned char>(byte));
        }
        text.remove_prefix(next.Length);
    }
    return result;
}

std::string visibleLines(std::string_view text)
{
    std::string result;
    for (;;) {
        const size_t end = text.find('\n');
        result += visible(text.substr(0, end));
        if (end == std::string_view::npos) return result;
        result += '\n';
        text.remove_prefix(end + 1);
    }
}

bool isVisible(std::string_view text)
{
    while (!text.empty()) {
        const Decoded next = decodeUtf8(text);
        if (!isShown(next)) return false;
        text.remove_prefix(next.Length);
    }
    return true;
}

std::string_view cutTo(std::string_view text, size_t limit)
{
    if (text.size() <= limit) return text;
    size_t end = limit;
    while (end > 0 && limit - end < 4 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) end--;
    return text.substr(0, end);
}

std::string normalPath(std::string_view path)
{
    std::string result(path);
    std::replace(result.begin(), result.end(), '/', '\\');
    return result;
}

std::filesystem::path nativePath(std::string_view path)
{
    std::string result(path);
    std::replace(result.begin(), result.end(), '\\', '/');
    return result;
}

} // namespace Tessel
