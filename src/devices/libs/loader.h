// Loading the instrument libraries. One that is loaded stays to the end of the process.
//
// They are looked for in the folders of the environment variable TESSEL_INSTRUMENT_PATH, absolute ones only,
// and where it isn't set, where the system's loader looks.
#pragma once

#include "devices/libs/common.h"
#include "records/enums.h"

#include <string>
#include <vector>

namespace Tessel {

// Null: the type is none of the five families.
CommonOperations *libraryOf(LibType type);

// Loads the library if it isn't loaded yet. False: it isn't there, or lacks an operation that the family must
// have, which is one line in the log and no error. The next call tries again.
bool loadLibrary(InstrumentLibrary &library);

// How a look for a library ended.
struct LibraryLook
{
    std::vector<std::string> Places; // in this order; a bare name: where the system's loader looks
    std::string Path;                // of the file that was found
    std::string Missing;             // the operation that it lacks
    std::string Why;                 // the library isn't loaded; empty: it is, or nobody has looked for it
};
// The last one.
LibraryLook lastLook(const InstrumentLibrary &library);

} // namespace Tessel
