// The records of a simulated light source, from the light to the words of a file.
#pragma once

#include "program/progress.h"
#include "sim/simulation.h"
#include "sim/source_words.h"
#include "tessel.h"

#include <cstdint>
#include <string>

namespace Tessel::Cli {

// The file in work. Words are handed over in large pieces.
struct Sink
{
    std::string Path;
    tessel_recording *File = nullptr;
    WordWriter Words;
    Progress Shown{"simulate"};
    uint64_t NumWords = 0;
};

// Ends early on Ctrl-C. Throws Failure if the file takes no more.
void writeRecords(const Simulation &wanted, Sink &sink);

} // namespace Tessel::Cli
