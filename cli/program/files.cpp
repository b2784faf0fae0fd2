#include "program/files.h"

#include "program/console.h"
#include "program/exit_codes.h"
#include "program/output_file.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <boost/json/parse.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Tessel::Cli {

namespace {

// What a file is, by whichever name: device and inode.
using Identity = std::pair<dev_t, ino_t>;

std::optional<Identity> identityOf(bool isThere, const struct stat &status)
{
    if (!isThere || !S_ISREG(status.st_mode)) return std::nullopt;
    return Identity(status.st_dev, status.st_ino);
}

std::optional<Identity> inputIdentity(const std::string &path)
{
    struct stat status = {};
    return identityOf(stat(path.c_str(), &status) == 0, status);
}

std::optional<Identity> outputIdentity(const std::string &path)
{
    if (!isStandardOutput(path)) return inputIdentity(path);
    struct stat status = {};
    return identityOf(fstat(standardOutput(), &status) == 0, status);
}

bool isSame(const Output &output, const std::string &input)
{
    const auto identity = outputIdentity(output.Path);
    return identity && identity == inputIdentity(input);
}

// Also where neither is there yet.
bool isSame(const Output &output, const Output &other)
{
    const auto identity = outputIdentity(output.Path);
    if (identity) return identity == outputIdentity(other.Path);
    std::error_code problem;
    const auto place = [&](const Output &of) {
        return weakly_canonical(std::filesystem::absolute(behindLinks(of.Path)), problem);
    };
    if (isStandardOutput(output.Path) || isStandardOutput(other.Path)) return false;
    return place(output) == place(other) && !problem;
}

// Also a damaged one, by its name.
bool isRecording(const std::string &path)
{
    if (isStandardOutput(path) || !inputIdentity(path)) return false;
    if (behindLinks(path).ends_with(".tgx")) return true;
    const auto header = headerOf(LibraryPath(path)); // also of a text that has the name of a tag in it
    return header && header->at("magic").as_string() == "MVTTTR";
}

std::string pathOf(const Descriptor &file)
{
    return fmt::format("/proc/self/fd/{}", file.Number);
}

bool isPlain(const std::string &path)
{
    return isUtf8(path) && path.find('\\') == std::string::npos;
}

[[noreturn]] void refuseOutput(const Output &output, std::string_view why)
{
    const std::string name = isStandardOutput(output.Path)
                                 ? "standard output"
                                 : fmt::format("{} {}", output.Option, visibleText(output.Path));
    throw Failure(Exit::Usage, fmt::format("{}: {}", name, why));
}

} // namespace

Descriptor::~Descriptor()
{
    if (Number >= 0) close(Number);
}

MemoryFile::MemoryFile(std::string_view text) : File(memfd_create("tessel", MFD_CLOEXEC))
{
    if (File.Number < 0 || !writeAll(File.Number, text) || lseek(File.Number, 0, SEEK_SET) != 0)
        throw Failure(Exit::Failed, fmt::format("no file in memory: {}", std::strerror(errno)));
}

std::string MemoryFile::path() const
{
    return pathOf(File);
}

LibraryPath::LibraryPath(const std::string &path)
    : File(isPlain(path) ? -1 : open(path.c_str(), O_PATH | O_CLOEXEC)), Text(isName() ? path : pathOf(File))
{
}

std::optional<boost::json::object> headerOf(const LibraryPath &path)
{
    uint64_t needed = 0;
    std::vector<char> text(1 << 16);
    while (!tessel_getFileTags(path.Text.c_str(), text.data(), text.size(), &needed)) {
        if (needed <= text.size()) return std::nullopt;
        text.resize(needed);
    }
    boost::json::object header = boost::json::parse(text.data()).as_object();
    const auto dataStart = header.at("dataStart").to_number<uint64_t>();
    if (dataStart == 0 || dataStart > header.at("fileSize").to_number<uint64_t>()) return std::nullopt;
    return header;
}

void checkOutputs(const std::vector<std::string> &inputs, const std::vector<Output> &outputs, bool force)
{
    for (size_t i = 0; i < outputs.size(); ++i) {
        for (const std::string &input : inputs)
            if (isSame(outputs[i], input)) refuseOutput(outputs[i], "the command reads this file");
        for (size_t k = 0; k < i; ++k)
            if (isSame(outputs[i], outputs[k]))
                refuseOutput(outputs[i], fmt::format("{} writes this file", outputs[k].Option));
        if (!force && isRecording(outputs[i].Path))
            refuseOutput(outputs[i], "a recording, which only --force replaces");
    }
}

} // namespace Tessel::Cli
