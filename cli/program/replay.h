// A run on a recording: its start, the wait for its end, and how it ended.
#pragma once

#include "program/losses.h"
#include "program/session.h"

#include <boost/json/object.hpp>

#include <cstdint>
#include <functional>
#include <string>

namespace Tessel::Cli {

struct Outcome
{
    std::string StopReason;
    uint64_t NumRead = 0;  // records
    double Seconds = 0;    // by the clock of this computer
    double RunSeconds = 0; // that were measured, without what an instrument takes to settle
    int Signal = 0;        // that stopped the run; 0: none
    bool Ended = false;
    std::string Reached; // what was to end the run, if that did
    LossTexts Losses;
};

// Calls `start` with the finished byte, then waits for it, shows the progress, and stops the run on Ctrl-C (a
// second one ends the program at once).
// `meanwhile`: called again and again as long as the run goes on, and once after it; true if there was
// something to do.
Outcome replay(const Recording &recording,
               const std::function<void(int32_t acqTimeMs, uint8_t *finished)> &start,
               const std::function<bool()> &meanwhile = nullptr, bool showsProgress = true);

// Of the run that goes on, after this time.
Outcome outcomeSoFar(double seconds);

// Says on standard error what is missing, and returns the exit code.
int reportOutcome(const Recording &recording, const Outcome &outcome);

boost::json::object outcomeJson(const Recording &recording, const Outcome &outcome);

} // namespace Tessel::Cli
