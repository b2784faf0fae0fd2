// Makes a whole recording of one that a crash, or a full disc, cut off: a copy with its whole records, whose
// header says what can be told from them. The original is only read.
#pragma once

#include <string_view>

namespace Tessel {

// Writes the copy to `repaired`, over a file that is there. False, with an error in the log: there is nothing
// to repair, it can't be repaired, the copy is the original, or it can't be written and is removed.
bool repairFile(std::string_view path, std::string_view repaired);

} // namespace Tessel
