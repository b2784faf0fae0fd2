// The program's two outputs. Results go to what was standard output when the program started; descriptor 1
// itself is pointed elsewhere at once, because the library's log writes to it (a colour reset for every line,
// even with the console log off) and nothing of that may reach a result. Everything else goes to standard
// error.
#pragma once

#include <string>
#include <string_view>

namespace Tessel::Cli {

// Before anything else. From here on descriptor 1 leads nowhere.
void claimStandardOutput();

// Sends descriptor 1, and with it the library's log, to standard error.
void showLog();

// The descriptor of the standard output that the program was started with; -1: there was none.
int standardOutput();

// False with errno if the descriptor takes no more.
bool writeAll(int descriptor, std::string_view text);

// As it stands. A standard error that takes no more is nobody's loss.
void showOnStandardError(std::string_view text);

// Standard error is a terminal.
bool onTerminal();

// On a terminal, and neither NO_COLOR nor TERM=dumb is set.
bool withColour();

// While one lives, each line says that it is about this.
struct Subject
{
    explicit Subject(const std::string &name);
    ~Subject();
    Subject(const Subject &) = delete;
    Subject &operator=(const Subject &) = delete;
};

void setQuiet(bool quiet);
bool quiet();

// One line each, "tessel: ...". Notes are left out when quiet.
void note(std::string_view text);
void warn(std::string_view text);
void error(std::string_view text);

} // namespace Tessel::Cli
