// What the handler of signals needs too calls only what a handler may call.
#include "program/terminal.h"

#include "program/console.h"
#include "program/frame.h"

#include <boost/algorithm/string/predicate.hpp>
#include <fmt/format.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Tessel::Cli {

namespace {

// The other screen without cursor and without the wrapping of long lines, which a window that becomes narrower
// in the middle of a picture would show; and back.
constexpr std::string_view enterCode = "\033[?1049h\033[?25l\033[?7l";
constexpr std::string_view leaveCode = "\033[?7h\033[?25h\033[?1049l";

// A terminal that knows these shows what lies between them at once; others pass over them.
constexpr std::string_view beginUpdate = "\033[?2026h", endUpdate = "\033[?2026l";

std::atomic<bool> shown{false};
static_assert(std::atomic<bool>::is_always_lock_free);

std::string_view environment(const char *name)
{
    const char *text = std::getenv(name);
    return text ? text : "";
}

} // namespace

TerminalSize terminalSize()
{
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) return {};
    return {size.ws_col, size.ws_row};
}

bool canDraw()
{
    const std::string_view terminal = environment("TERM");
    return onTerminal() && !terminal.empty() && terminal != "dumb";
}

bool withUnicode()
{
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"})
        if (const std::string_view locale = environment(name); !locale.empty())
            return boost::algorithm::icontains(locale, "utf-8") || boost::algorithm::icontains(locale, "utf8");
    return false;
}

Screen::Screen()
{
    enterScreen();
}

Screen::~Screen()
{
    leaveScreen();
}

void showFrame(const Frame &frame)
{
    std::string text(beginUpdate);
    for (int row = 0; row < frame.Rows; ++row)
        text += fmt::format("\033[{};1H{}", row + 1, rowText(frame, row));
    text += endUpdate;
    showOnStandardError(text);
}

void enterScreen()
{
    shown = true;
    showOnStandardError(enterCode);
}

bool leaveScreen()
{
    const bool wasShown = shown.exchange(false);
    if (wasShown) showOnStandardError(leaveCode);
    return wasShown;
}

} // namespace Tessel::Cli
