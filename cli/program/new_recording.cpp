#include "program/new_recording.h"

#include "program/exit_codes.h"
#include "program/files.h"
#include "program/output_file.h"
#include "program/session.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <boost/json/object.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace Tessel::Cli {

namespace {

namespace fs = std::filesystem;

// The library would take a backslash for a separator, and give a name without the ending one of its own.
void checkName(const std::string &path)
{
    const auto refuse = [&](std::string_view why) {
        throw Failure(Exit::Usage, fmt::format("{}: {}", visibleText(path), why));
    };
    if (!path.ends_with(".tgx")) refuse("the name of a recording must end in .tgx");
    if (!isUtf8(path) || path.find('\\') != path.npos)
        refuse("the name of a recording must be UTF-8 without backslashes");
}

// Where the library says what a recording has lost, if it did. It replaces none that is there.
fs::path sideFile(const std::string &recording)
{
    return fs::path(recording).replace_extension(".losses.json");
}

// The library writes separators of its own.
std::string nativePath(std::string path)
{
    std::ranges::replace(path, '\\', '/');
    return path;
}

} // namespace

NewRecording newRecording(const std::string &path, bool force)
{
    checkName(path);
    NewRecording recording{.Shown = visibleText(path),
                           .Path = fs::absolute(behindLinks(path)).lexically_normal()};
    checkName(recording.Path);
    const auto fail = [](Exit code, const std::string &shown, std::string_view why) {
        throw Failure(code, fmt::format("{}: {}", shown, why));
    };
    for (const fs::path &file : {fs::path(recording.Path), sideFile(recording.Path)}) {
        std::error_code problem;
        const auto status = fs::symlink_status(file, problem);
        const std::string shown = file == recording.Path ? recording.Shown : visibleText(file.string());
        if (fs::exists(status) && !fs::is_regular_file(status))
            fail(Exit::Usage, shown, "is there and is no file");
        if (fs::exists(status) && !force) fail(Exit::Usage, shown, "is there already; --force replaces it");
    }
    const std::string folder = fs::path(recording.Path).parent_path();
    if (access(folder.c_str(), W_OK | X_OK) != 0)
        fail(Exit::Failed, recording.Shown, fmt::format("can't be created: {}", std::strerror(errno)));
    return recording;
}

void dropSideFile(const NewRecording &recording)
{
    std::error_code problem;
    fs::remove(sideFile(recording.Path), problem);
    if (problem)
        throw Failure(Exit::Failed,
                      fmt::format("{}: {}", visibleText(sideFile(recording.Path).string()), problem.message()));
}

void giveToLibrary(const NewRecording &recording)
{
    for (const fs::path &file : {fs::path(recording.Path), sideFile(recording.Path)}) {
        std::error_code problem;
        fs::remove(file, problem);
        if (problem)
            throw Failure(Exit::Failed, fmt::format("{}: {}", visibleText(file.string()), problem.message()));
    }
    setTGXFilePath(recording.Path.c_str());
}

Recorded recordedFile(const NewRecording &recording)
{
    Recorded file;
    file.Path = nativePath(std::string(deviceConfig().at("FileDevicePath").as_string()));
    if (file.Path.empty()) file.Path = recording.Path;
    file.Bytes = fileBytes(file.Path);
    const auto header = headerOf(LibraryPath(file.Path));
    if (!header) return file;
    file.NumRecords = (file.Bytes - header->at("dataStart").to_number<uint64_t>()) / sizeof(uint32_t);
    for (const auto &tag : header->at("tags").as_array())
        if (tag.at("name").as_string() == "TTResult_NumberOfRecords")
            file.IsClosed = tag.at("value").to_number<uint64_t>() == file.NumRecords;
    return file;
}

uint64_t fileBytes(const std::string &path)
{
    std::error_code problem;
    const auto bytes = fs::file_size(path, problem);
    return problem ? 0 : bytes;
}

} // namespace Tessel::Cli
