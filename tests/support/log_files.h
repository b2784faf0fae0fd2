// What a folder's log files hold, for tests that look at the log as a host does.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

// The lines of all *.log files below `folder`, files in the order of their names, stamps cut off: "WRN the
// text".
std::vector<std::string> logLines(const std::filesystem::path &folder);

// How many of the lines hold `part`.
size_t countLines(const std::vector<std::string> &lines, std::string_view part);

// The names of the *.log files, sorted.
std::vector<std::string> logFileNames(const std::filesystem::path &folder);

} // namespace TestSupport
