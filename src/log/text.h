// Texts: UTF-8 and UTF-16, control bytes made visible, and the two forms of a path.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Tessel {

// A broken sequence becomes U+FFFD; nothing throws.
std::string toUtf8(std::u16string_view text);
std::u16string toUtf16(std::string_view text);

// Controls (below 0x20, 0x7F to 0x9F), marks that turn the direction of a line, its separators U+2028 and
// U+2029, and bytes that are no UTF-8, byte by byte as \xNN: what a terminal or a reader of the log would act
// on.
std::string visible(std::string_view text);
// Whether the text has none of these.
bool isVisible(std::string_view text);

// The same for a text of several lines, which stay apart.
std::string visibleLines(std::string_view text);

// The text's longest beginning of at most `limit` bytes that ends between two characters.
std::string_view cutTo(std::string_view text, size_t limit);

// The form in which paths are kept and logged: both separators are '\'.
std::string normalPath(std::string_view path);

// The form in which a file is touched.
std::filesystem::path nativePath(std::string_view path);

} // namespace Tessel
