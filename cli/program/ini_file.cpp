#include "program/ini_file.h"

#include "program/console.h"
#include "program/session.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <string_view>
#include <unistd.h>

namespace Tessel::Cli {

IniOutcome applyIniText(const std::string &text, bool isLogShown)
{
    IniOutcome outcome;
    if (!isLogShown) {
        outcome.Log = std::make_unique<MemoryFile>("");
        dup2(outcome.Log->File.Number, STDOUT_FILENO);
    }
    setIniConfig(text.c_str());
    outcome.Failed = !libraryError().empty();
    return outcome;
}

namespace {

// "TIME TAG TEXT", in a colour or not: the first two have no blank.
struct LogLine
{
    std::string_view Tag, Text;
};

LogLine logLine(std::string_view line)
{
    const auto cut = [&line] {
        const std::string_view word = line.substr(0, line.find(' '));
        line.remove_prefix(std::min(word.size() + 1, line.size()));
        return word;
    };
    cut();
    const std::string_view tag = cut();
    return {tag, line};
}

} // namespace

void warnOfIni(const IniOutcome &outcome, const std::string &path)
{
    std::ifstream lines(outcome.Log ? outcome.Log->path() : "");
    bool hasBegun = false; // what was logged before it may have come late
    for (std::string each; std::getline(lines, each);) {
        const LogLine line = logLine(each);
        hasBegun |= line.Text.starts_with("setIniConfig text");
        if (hasBegun && (line.Tag == "WRN" || line.Tag == "ERR"))
            warn(fmt::format("--ini {}: {}", visibleText(path), visibleText(line.Text)));
    }
    if (outcome.Failed) error(fmt::format("--ini {}: not all of it is set", visibleText(path)));
}

} // namespace Tessel::Cli
