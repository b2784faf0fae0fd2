// The terminal on standard error, as far as pictures in it go: its size, what it can show, and its other
// screen.
#pragma once

namespace Tessel::Cli {

struct Frame;

struct TerminalSize
{
    int Columns = 80, Rows = 24;
    bool operator==(const TerminalSize &) const = default;
};

// Now; it changes whenever the user wants. A terminal that doesn't know its own has 80 x 24.
TerminalSize terminalSize();

// Standard error is a terminal that can place its cursor.
bool canDraw();

// The environment asks for UTF-8.
bool withUnicode();

// The terminal's other screen, without a cursor, while one lives; what stood on the first comes back. Also when
// a signal ends the program or stops it for a while.
struct Screen
{
    Screen();
    ~Screen();
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;
};

// The whole screen in one piece, so that no half of a picture is ever seen.
void showFrame(const Frame &frame);

// Safe in a handler of signals. Back to the first screen; false: it wasn't left.
bool leaveScreen();
void enterScreen();

} // namespace Tessel::Cli
