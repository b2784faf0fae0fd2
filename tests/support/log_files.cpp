#include "support/log_files.h"

#include <algorithm>
#include <cctype>
#include <fstream>

namespace TestSupport {

namespace {

// "261115_02:31:47.1234567 "
constexpr size_t stampLength = 24;

bool startsWithStamp(const std::string &line)
{
    return line.size() >= stampLength && line[6] == '_' && line[9] == ':' && line[15] == '.' &&
           std::isdigit(static_cast<unsigned char>(line[0])) && line[stampLength - 1] == ' ';
}

} // namespace

std::vector<std::string> logFileNames(const std::filesystem::path &folder)
{
    std::vector<std::string> names;
    std::error_code none;
    for (const auto &entry : std::filesystem::directory_iterator(folder, none))
        if (entry.path().extension() == ".log") names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> logLines(const std::filesystem::path &folder)
{
    std::vector<std::string> lines;
    for (const std::string &name : logFileNames(folder)) {
        std::ifstream file(folder / name);
        for (std::string line; std::getline(file, line);)
            lines.push_back(startsWithStamp(line) ? line.substr(stampLength) : line);
    }
    return lines;
}

size_t countLines(const std::vector<std::string> &lines, std::string_view part)
{
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [&](const std::string &line) {
        return line.find(part) != std::string::npos;
    }));
}

} // namespace TestSupport
