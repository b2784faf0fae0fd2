// What the log says of a call into an instrument library that fails.
#pragma once

#include "devices/families.h"
#include "devices/libs/loader.h"

#include <fmt/format.h>

#include <string>

namespace TestSupport {

// How the line begins.
inline std::string failureLine(Tessel::LibType family, const std::string &operation, int32_t code)
{
    if (operation == "SaveDebugDump") return "WRN SaveDebugDump failed: ";
    const std::string prefix = Tessel::libraryOf(family)->Prefix;
    const bool isTransient = code >= -2 && operation != "OpenDevice";
    const std::string start =
        fmt::format("{}{} error ", isTransient ? "DEB " : "ERR Device: ", Tessel::familyOf(family).Library);
    if (operation == "CTCStatus") return fmt::format("{}({}): as told @", start, code);
    if (operation == "GetWarningsText") return start + "in " + prefix + "GetWarnings @";
    if (operation == "SetSyncCFD" && family == Tessel::LibType::CD) return start + "in CD_SetSyncEdgeTrg @";
    return start + "in " + prefix + operation;
}

} // namespace TestSupport
