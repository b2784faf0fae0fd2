// A chain on the current device: its stages are added to a recording that was just opened, and what they made
// and counted becomes text. The main thread's.
#pragma once

#include "chain/chain_text.h"
#include "program/session.h"

#include <boost/json/array.hpp>

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Tessel::Cli {

// The --chain options of a command, in their order: texts, or names of .json files.
struct ChainOptions
{
    std::string Sort, From, To; // times; empty: not wanted
    std::vector<std::string> Texts;
};

// --chain may be given several times; each continues the one before.
void addChainOption(CLI::App &command, ChainOptions &options);

// Those that are names of files.
std::vector<std::string> chainFiles(const ChainOptions &options);

// Throws Failure: usage, or NoDevice for a file that isn't there.
std::vector<ChainStage> readChain(const ChainOptions &options);

// How many of these are of --sort, --from and --to; they come first.
size_t numInputStages(const ChainOptions &options);

// A stage on the device, and the channels that it made.
struct PlacedStage
{
    ChainStage Stage;
    int64_t FirstChannel = 0; // also the number of rows that the stage sees
    int64_t NumChannels = 0;  // that it made; 0 of a substream or countrate

    bool made(int64_t row) const { return row >= FirstChannel && row < FirstChannel + NumChannels; }
};

using PlacedChain = std::vector<PlacedStage>;

// Adds the stages; the recording then has the rows of their channels. A stage that can't have an effect is
// warned of. Throws Failure if the library refuses one.
PlacedChain placeChain(Recording &recording, const std::vector<ChainStage> &stages);

// The stages as a chain file has them, with the channels that each makes ("makes") and, after a run, the rates
// of a countrate stage by row ("rates").
boost::json::array chainJson(const PlacedChain &chain, bool withRates = true);

// The same for the comment lines of a CSV.
std::vector<std::string> chainNotes(const PlacedChain &chain, bool withRates = true);

} // namespace Tessel::Cli
