// What a result should be doubted for, a sentence each, with the nearest value that is free of it. Pure.
#pragma once

#include "program/session.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tessel::Cli {

// Each adds a sentence if there is one to say.

// T3: a replay goes by a period of whole picoseconds.
void doubtPeriod(std::vector<std::string> &notes, const Recording &recording);

// A replay goes by units of whole picoseconds.
void doubtResolution(std::vector<std::string> &notes, const Recording &recording);

// Bins that aren't whole steps of the instrument hold more steps here than there.
void doubtBinWidth(std::vector<std::string> &notes, const char *option, double widthPs,
                   const Recording &recording);

// A window that its bins don't fill: they cover `coveredPs`.
void doubtWindow(std::vector<std::string> &notes, const char *option, uint64_t windowPs, uint64_t coveredPs);

// Counts at times since the sync that there can't be, up to `lastPs`.
void doubtDtimes(std::vector<std::string> &notes, uint64_t beyond, double lastPs, double periodPs);

// Of a channel, in the histogram of a T3 stream: what comes after the first event of a period isn't seen.
void doubtPileUp(std::vector<std::string> &notes, const std::string &channel, double events, double periods);

// Inputs that are dead for much of the time, where their dead times are known.
void doubtDeadTimes(std::vector<std::string> &notes, const Recording &recording);

} // namespace Tessel::Cli
