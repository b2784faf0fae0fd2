// A file that an option names and that is read whole, as text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Tessel::Cli {

// From a pipe too. Throws Failure NoDevice, which names option and file.
constexpr size_t mostText = 1 << 20; // bytes
std::string fileText(std::string_view option, const std::string &path, size_t most = mostText);

} // namespace Tessel::Cli
