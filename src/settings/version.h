// The name and the version, as the log and file headers show them.
#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

namespace Tessel {

inline constexpr std::string_view programName = "Tessel";
inline constexpr int versionMajor = 1, versionMinor = 2, versionPatch = 3, versionBuild = 7;

inline std::string versionString() // "Tessel v1.2.3.7"
{
    return fmt::format("{} v{}.{}.{}.{}", programName, versionMajor, versionMinor, versionPatch, versionBuild);
}

} // namespace Tessel
