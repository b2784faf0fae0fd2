// A file that an option names and that is read whole, as text.
#pragma once

#include <string>
#include <string_view>

namespace Tessel::Cli {

// At most 1 MiB, from a pipe too. Throws Failure NoDevice, which names option and file.
std::string fileText(std::string_view option, const std::string &path);

} // namespace Tessel::Cli
