// A table in a frame: names at the left, numbers in columns beside them.
#pragma once

#include "program/frame.h"

#include <string>
#include <vector>

namespace Tessel::Cli {

// The first line is the head. Columns that don't fit are left out from the right, of the names what is too
// long; lines that don't fit become a last one that says how many.
void putTable(Frame &frame, const Area &area, const std::vector<std::vector<std::string>> &lines);

} // namespace Tessel::Cli
