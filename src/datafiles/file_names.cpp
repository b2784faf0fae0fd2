#include "datafiles/file_names.h"

#include "datafiles/losses_file.h"
#include "log/folder.h"
#include "log/log.h"
#include "log/text.h"
#include "settings/system_ini.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <mutex>
#include <optional>

namespace Tessel {

namespace {

constexpr std::string_view defaultName = "default.tgx";

struct Wish
{
    std::mutex Lock;       // guards what follows
    std::string TgxFolder; // normal form; empty until asked for: the folder of the settings
    std::string TgxFileName{defaultName};
};

Wish &wish()
{
    static Wish &only = *new Wish; // outlives every run
    return only;
}

bool allDigits(std::string_view text)
{
    return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

// The next number; nothing if it doesn't fit.
std::optional<uint64_t> successor(std::string_view digits)
{
    constexpr uint64_t most = std::numeric_limits<uint64_t>::max();
    uint64_t number = 0;
    for (char c : digits) {
        auto digit = static_cast<uint64_t>(c - '0');
        if (number > (most - 1 - digit) / 10) return {};
        number = number * 10 + digit;
    }
    return number + 1;
}

// The name to try after `name`, which is taken; its extension is lost. Empty if the name has no stem.
std::string nextName(std::string_view name)
{
    std::string stem(name.substr(0, name.find('.')));
    if (stem.empty()) return {};
    size_t bar = stem.rfind('_');
    std::optional<uint64_t> number;
    if (bar != stem.npos && allDigits(stem.substr(bar + 1))) number = successor(stem.substr(bar + 1));
    return number ? fmt::format("{}_{}.tgx", stem.substr(0, bar), *number) : stem + "_1.tgx";
}

enum class Attempt { Made, Taken, Failed };

// Nothing, with an error in the log, if the system can't say.
std::optional<bool> isThere(const std::string &path)
{
    std::error_code error;
    bool exists = std::filesystem::exists(nativePath(path), error);
    if (!error) return exists;
    logLastError(fmt::format("exists \"{}\":", path), error.value());
    return std::nullopt;
}

// Of a recording that was moved away. A recording may have a name that leaves no room for that of a side file.
bool isSideFileThere(const std::string &recording)
{
    std::error_code ignored;
    return std::filesystem::exists(lossesPath(recording), ignored);
}

// A file that is there is never opened. What fails is logged, once.
Attempt makeFile(NewFile &made)
{
    std::optional<bool> there = isThere(made.Path);
    if (!there) return Attempt::Failed;
    if (*there || isSideFileThere(made.Path)) return Attempt::Taken;
    made.File = createToWrite(made.Path);
    if (made.File.isOpen()) return Attempt::Made;
    if (errno == EEXIST) return Attempt::Taken; // meanwhile, or by a link to nowhere
    logLastError(fmt::format("Device: Create Data File \"{}", made.Path), errno);
    return Attempt::Failed;
}

} // namespace

void setTgxFilePath(std::string_view path)
{
    std::string normal = normalPath(path);
    size_t last = normal.rfind('\\');
    std::string name = normal.substr(last == normal.npos ? 0 : last + 1);
    std::string folder;
    if (last != normal.npos) {
        size_t end = normal.find_last_not_of('\\', last);
        folder = end == normal.npos ? "\\" : normal.substr(0, end + 1);
    }
    std::lock_guard lock(wish().Lock);
    if (!folder.empty()) wish().TgxFolder = folder;
    wish().TgxFileName = name;
    if (LogLevel.Api) logInf(LogCategory::Progress, "(API setTGXFilePath '{}' '{}')", name, wish().TgxFolder);
}

NewFile checkFilePath()
{
    std::lock_guard lock(wish().Lock);
    std::string folder = wish().TgxFolder;
    if (folder.empty()) folder = settings().TgxFolder;
    if (folder.empty()) folder = settings().DataPath;
    std::string &wanted = wish().TgxFileName;
    if (wanted.empty()) wanted = defaultName;
    if (wanted.find('.') == wanted.npos) wanted += ".tgx";

    NewFile made;
    std::string name = wanted;
    auto nameIt = [&] { made.Path = normalPath(fmt::format("{}\\{}", folder, name)); };
    nameIt();
    if (createFolder(folder) != 0) return made;
    while (makeFile(made) == Attempt::Taken) {
        name = nextName(name);
        if (name.empty()) {
            logErr(LogCategory::General, "File: in checkFilePath {}", wanted);
            name = defaultName;
        }
        nameIt();
    }
    return made;
}

} // namespace Tessel
