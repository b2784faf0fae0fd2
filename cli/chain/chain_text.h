// Chains of stages as people write them: one line of text, or a JSON file of the same words. Pure functions.
//
//   coincidence(1,2; 10ns; once; average; keep) | merge(1,3; keep)
//
// Stages stand in the order of the stream, with `|` or a new line between them. Fields are separated by `;`:
// first the values in their order (or by name, as in `window 10ns`), then words. Times are rounded to whole
// picoseconds; a number without a unit is in ps.
#pragma once

#include <boost/json/object.hpp>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel::Cli {

enum class StageKind { Coincidence, Merge, Delay, Herald, SubStream, CountRate, Sort };

// Numbered as addMCoincidence takes them.
enum class CoincidenceMode : uint32_t { Sliding, Once };
enum class CoincidenceTime : uint32_t { First, Last, Average };

struct ChainStage
{
    StageKind Kind = StageKind::Merge;
    std::vector<int32_t> Channels; // members; of a delay the one, of a herald the gated ones
    int32_t Herald = 0;
    int64_t WindowPs = 0;
    int64_t DelayPs = 0; // may be negative
    int64_t FromPs = 0, ToPs = 0;
    CoincidenceMode Mode = CoincidenceMode::Sliding;
    CoincidenceTime Time = CoincidenceTime::Last;
    bool Inverted = false, Keep = false;

    bool operator==(const ChainStage &) const = default;
};

// Its text is of three lines: what is wrong, the line of the chain, and a caret below the character.
struct ChainError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// At least one stage. Throws ChainError.
std::vector<ChainStage> parseChain(std::string_view text);

// {"chain": [{"stage": "coincidence", "channels": [1, 2], "window": "10ns", "mode": "once"}, ...]}. Keys beside
// "chain", and what `tessel chain --json` adds to a stage, are passed over. Throws ChainError.
std::vector<ChainStage> parseChainJson(std::string_view text);

std::string_view stageName(StageKind kind);

// As parseChain and parseChainJson read it.
std::string stageText(const ChainStage &stage);
boost::json::object stageJson(const ChainStage &stage);

// One line per stage: how it is written.
std::string stageForms();

} // namespace Tessel::Cli
