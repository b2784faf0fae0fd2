#include "program/text_file.h"

#include "program/exit_codes.h"
#include "program/files.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <span>
#include <unistd.h>

namespace Tessel::Cli {

namespace {

constexpr int longestWaitMs = 2000; // for the next bytes of a pipe

// The next bytes, none at the end. A pipe may have no writer yet, or one that is silent.
size_t readNext(int file, std::span<char> to)
{
    pollfd waited = {file, POLLIN, 0};
    const int ready = poll(&waited, 1, longestWaitMs);
    if (ready == 0) throw Failure(Exit::NoDevice, "nothing to read for 2 s");
    const ssize_t got = ready < 0 ? -1 : read(file, to.data(), to.size());
    if (got < 0) throw Failure(Exit::NoDevice, std::strerror(errno));
    return static_cast<size_t>(got);
}

std::string readAll(const std::string &path, size_t most)
{
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (file.Number < 0) throw Failure(Exit::NoDevice, std::strerror(errno));
    constexpr size_t firstRoom = 65536;
    std::string text(std::min(most, firstRoom), '\0');
    size_t length = 0;
    while (const size_t got = readNext(file.Number, std::span(text).subspan(length))) {
        length += got;
        if (length > most) throw Failure(Exit::NoDevice, fmt::format("more than {} MiB", most >> 20));
        if (length == text.size()) text.resize(std::min(2 * length, most + 1));
    }
    text.resize(length);
    return text;
}

} // namespace

std::string fileText(std::string_view option, const std::string &path, size_t most)
{
    try {
        return readAll(path, most);
    } catch (const Failure &why) {
        throw Failure(why.Code, fmt::format("{} {}: {}", option, visibleText(path), why.what()));
    }
}

} // namespace Tessel::Cli
