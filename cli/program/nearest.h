// The name that somebody probably meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Tessel::Cli {

// The known name with the fewest letters to change, or the first that begins with the wrong one; empty if more
// than a third of the letters would change.
std::string nearestName(std::string_view wrong, const std::vector<std::string> &known);

} // namespace Tessel::Cli
