#include "program/output_file.h"

#include "program/console.h"
#include "program/exit_codes.h"
#include "program/visible_text.h"

#include <climits>
#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Tessel::Cli {

namespace {

constexpr int mostLinks = 40; // as the kernel has it

// A handler of signals finds the names here. An import has up to 32 work files, other commands two at most.
struct WorkSlot
{
    std::atomic<bool> Taken{false};
    char Name[PATH_MAX] = {}; // constant while taken
};
WorkSlot workSlots[36];

const char *takeSlot(const std::string &name)
{
    for (WorkSlot &slot : workSlots) {
        if (slot.Taken || name.size() >= sizeof slot.Name) continue;
        slot.Name[name.copy(slot.Name, sizeof slot.Name - 1)] = '\0';
        slot.Taken = true;
        return slot.Name;
    }
    errno = ENAMETOOLONG;
    return nullptr;
}

void freeSlot(const char *name)
{
    for (WorkSlot &slot : workSlots)
        if (slot.Name == name) slot.Taken = false;
}

[[noreturn]] void failOn(const OutputFile &file, int error)
{
    throw Failure(Exit::Failed, fmt::format("{}: {}", file.Shown, std::strerror(error)));
}

// Short, so that it fits beside the longest name, and beyond anybody's guess.
std::string workName(const std::string &target)
{
    uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number)
        throw Failure(Exit::Failed, fmt::format("no random numbers: {}", std::strerror(errno)));
    const std::filesystem::path folder = std::filesystem::path(target).parent_path();
    return (folder / fmt::format(".tessel-{:016x}.part", number)).string();
}

// A file keeps its permissions; one that can't be written isn't replaced either.
void openWorkFile(OutputFile &file, mode_t *kept)
{
    if (kept && access(file.Target.c_str(), W_OK) != 0) failOn(file, errno);
    file.WorkName = takeSlot(workName(file.Target));
    if (!file.WorkName) failOn(file, errno);
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    file.Descriptor = open(file.WorkName, flags, kept ? *kept : 0666);
    if (file.Descriptor < 0) {
        const int error = errno;
        freeSlot(file.WorkName);
        failOn(file, error);
    }
    if (kept) fchmod(file.Descriptor, *kept);
}

bool isOpenDescriptor(const std::string &path)
{
    return path.starts_with("/proc/") || path.starts_with("/dev/fd/");
}

} // namespace

bool isStandardOutput(const std::string &path)
{
    if (path.empty() || path == "-") return true;
    const std::string target = behindLinks(path);
    return target == "/dev/fd/1" || target == "/proc/self/fd/1";
}

std::string behindLinks(const std::string &path)
{
    std::filesystem::path place(path);
    std::error_code problem;
    for (int i = 0; i < mostLinks && !isOpenDescriptor(place.string()); ++i) {
        const std::filesystem::path link = std::filesystem::read_symlink(place, problem);
        if (problem) break;
        place = place.parent_path() / link;
    }
    return place.string();
}

OutputFile::OutputFile(const std::string &path) : Shown(visibleText(path)), Target(behindLinks(path))
{
    struct stat status = {};
    const bool isThere = stat(Target.c_str(), &status) == 0;
    if (!isThere && errno != ENOENT) failOn(*this, errno);
    if (isStandardOutput(path)) {
        Shown = "standard output";
        Descriptor = fcntl(standardOutput(), F_DUPFD_CLOEXEC, 3);
    } else if ((isThere && !S_ISREG(status.st_mode)) || isOpenDescriptor(Target)) {
        Descriptor = open(Target.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOCTTY);
    } else {
        mode_t kept = status.st_mode & 0777;
        openWorkFile(*this, isThere ? &kept : nullptr);
    }
    if (Descriptor < 0) failOn(*this, errno);
}

OutputFile::~OutputFile()
{
    if (Descriptor >= 0) close(Descriptor);
    if (!WorkName) return;
    unlink(WorkName);
    freeSlot(WorkName);
}

void checkPlace(const std::string &path)
{
    std::error_code problem;
    const auto target = std::filesystem::status(behindLinks(path), problem);
    const bool isStream = exists(target) && !is_regular_file(target) && !is_directory(target);
    if (!isStream && !isStandardOutput(path)) OutputFile{path}; // and away again
}

void write(OutputFile &file, std::string_view piece)
{
    if (!writeAll(file.Descriptor, piece)) failOn(file, errno);
}

void complete(OutputFile &file)
{
    if (close(std::exchange(file.Descriptor, -1)) != 0) failOn(file, errno);
    if (!file.WorkName) return;
    if (std::rename(file.WorkName, file.Target.c_str()) != 0) failOn(file, errno);
    freeSlot(std::exchange(file.WorkName, nullptr));
}

void removeWorkFiles()
{
    for (const WorkSlot &slot : workSlots)
        if (slot.Taken) unlink(slot.Name);
}

} // namespace Tessel::Cli
