// Standard output as the log uses it. It belongs to the host, so it may be closed, full, or a pipe that nobody
// reads: a write gives up after a short time, and never raises SIGPIPE. Any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tessel {

// Escape sequence of a colour number: 0 resets, 1 to 8 are black, red, green, yellow, blue, magenta, cyan,
// white, then in blocks of eight bold, underlined, bright, bright and bold, background, bright background.
// Empty above 56.
std::string colourSequence(uint32_t number);

// How long a line that nobody takes is held before it is dropped.
inline constexpr std::chrono::milliseconds consolePatience{100};

// False if the text, or the rest of it, was dropped.
bool writeConsole(std::string_view text, std::chrono::milliseconds patience = consolePatience);

// Looks whether there is a standard output. If there is none, its number may be given to any file of the
// process, a data file too, so nothing is written until a later look finds one.
void lookForConsole();

} // namespace Tessel
