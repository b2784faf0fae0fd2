// An instrument's parameters as an INI file. What is wrong in it, only the library's log says in full: it is
// kept while the text is applied, and repeated once it is whole.
#pragma once

#include "program/files.h"

#include <memory>
#include <string>

namespace Tessel::Cli {

struct IniOutcome
{
    std::unique_ptr<MemoryFile> Log; // null: it is seen elsewhere
    bool Failed = false;             // not all of the text is set
};

// To the current device, an initialised instrument, in a session that logs messages. From here on the log is
// kept, unless it is shown.
IniOutcome applyIniText(const std::string &text, bool isLogShown);

// Repeats the warnings and errors of the text, in their order. The session has ended, and with it the log is
// whole.
void warnOfIni(const IniOutcome &outcome, const std::string &path);

} // namespace Tessel::Cli
