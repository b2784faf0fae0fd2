// Texts from files and command lines, made fit to be shown: nothing in them moves the cursor, starts a new line
// or turns the direction of writing.
#pragma once

#include <string>
#include <string_view>

namespace Tessel::Cli {

// Control characters (C0, DEL, C1), marks of direction, and bytes that are no UTF-8, byte by byte as \xNN.
std::string visibleText(std::string_view text);

// The same with one blank for each, so that a caret below the text stays at its place.
std::string blankedText(std::string_view text);

bool isUtf8(std::string_view text);

// The name of a file for JSON, which has escapes of its own but holds only UTF-8.
std::string jsonName(std::string_view path);

} // namespace Tessel::Cli
