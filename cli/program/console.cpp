// Standard output and standard error of the program. The main thread's.
#include "program/console.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <unistd.h>

namespace Tessel::Cli {

namespace {

int resultDescriptor = -1;
bool isQuiet = false;
std::string subject; // with a colon; empty: of nothing in particular

void line(std::string_view colour, std::string_view lead, std::string_view text)
{
    const bool colours = !colour.empty() && withColour();
    fmt::memory_buffer shown; // "not enough memory" needs none
    fmt::format_to(std::back_inserter(shown), "tessel: {}{}{}{}{}\n", colours ? colour : "", lead,
                   colours ? "\033[0m" : "", subject, text);
    showOnStandardError({shown.data(), shown.size()});
}

} // namespace

void claimStandardOutput()
{
    resultDescriptor = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3); // -1 if the program was started without one
    int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    while (nowhere >= 0 && nowhere <= STDERR_FILENO) // fills what the program was started without
        nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nowhere < 0) return;
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
}

void showLog()
{
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

int standardOutput()
{
    return resultDescriptor;
}

bool writeAll(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

void showOnStandardError(std::string_view text)
{
    writeAll(STDERR_FILENO, text);
}

bool onTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

bool withColour()
{
    const char *plain = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    return onTerminal() && !(plain && *plain) && !(terminal && std::string_view(terminal) == "dumb");
}

Subject::Subject(const std::string &name)
{
    subject = name + ": ";
}

Subject::~Subject()
{
    subject.clear();
}

void setQuiet(bool on)
{
    isQuiet = on;
}
bool quiet()
{
    return isQuiet;
}

void note(std::string_view text)
{
    if (!isQuiet) line("", "", text);
}

void warn(std::string_view text)
{
    line("\033[33m", "warning: ", text);
}
void error(std::string_view text)
{
    line("", "", text);
}

} // namespace Tessel::Cli
