#include "support/fake.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstdlib>
#include <dlfcn.h>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace TestSupport {

namespace {

[[maybe_unused]] const int folderIsSet = setenv("TESSEL_INSTRUMENT_PATH", TESSEL_FAKES_FOLDER, 1);

const FakeControl *controlOf(std::string_view library)
{
    // The handle stays open: the library under test has the same object loaded.
    void *handle = dlopen(fmt::format("{}/{}", TESSEL_FAKES_FOLDER, library).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) throw std::runtime_error(dlerror());
    return reinterpret_cast<const FakeControl *(*)()>(dlsym(handle, "fake_control"))();
}

} // namespace

Fake::Fake(std::string_view library, int32_t instruments) : told(controlOf(library))
{
    told->reset(instruments);
}

std::vector<std::string> Fake::journal() const
{
    std::istringstream text(told->journal());
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

std::string Fake::newCalls()
{
    const std::vector<std::string> lines = journal();
    const size_t first = std::min(std::exchange(seen, lines.size()), lines.size());
    return fmt::format("{}", fmt::join(lines.begin() + static_cast<ptrdiff_t>(first), lines.end(), "; "));
}

} // namespace TestSupport
