// A chain on the current device: its stages are added to a recording that was just opened, and tell which
// channels they made and what they counted. The main thread's.
#pragma once

#include "program/session.h"

#include <boost/json/array.hpp>

#include <string>
#include <vector>

namespace Tessel::Cli {

// The --chain options of a command, in their order: texts, or names of .json files.
struct ChainOptions
{
    std::vector<std::string> Texts;
};

// Throws Failure: usage, or NoDevice for a file that isn't there.
std::vector<ChainStage> readChain(const ChainOptions &options);

// Adds the stages; the recording then has the rows of their channels. What can't have an effect is warned of.
// Throws Failure if the library refuses one.
void placeChain(Recording &recording, const std::vector<ChainStage> &stages);

// Places where a stage looks for events that never come there, a sentence each.
std::vector<std::string> chainDoubts(const Recording &recording, size_t index);

// The stages as a chain file has them, with the channels that each makes ("makes") and, after a run, the rates
// of a countrate stage by row ("rates").
boost::json::array chainJson(const Recording &recording);

// The same for the comment lines of a CSV.
std::vector<std::string> chainNotes(const Recording &recording);

} // namespace Tessel::Cli
