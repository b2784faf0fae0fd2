// The side file of a recording that lost something: NAME.losses.json beside NAME.tgx. A recording without one
// lost nothing, or was never closed.
//
//   {"schema": "tessel.losses/1", "recording": "{its File_GUID}", "verdict": "invalid",
//    "losses": {"readBuffer": {"unit": "words", "occasions": 2, "lost": 2048, "first": 1.25, "last": 3.5},
//    ...}}
//
// `first`, `last`: s since the run began. `lost`: null where nobody can know. A place where nothing was lost
// isn't there.
#pragma once

#include "records/losses.h"

#include <boost/json/object.hpp>

#include <string>
#include <string_view>

namespace Tessel {

// "clean", "lossy", "invalid".
std::string_view verdictText(Verdict verdict);

// {"verdict", "losses"}, and "problem" if there is one.
boost::json::object lossesJson(const LossReport &report);

std::string lossesPath(std::string_view recording);

// At the end of a recording, whose header is on the disc, with what lossesOfRecording gives: writes the side
// file, if something was lost. It is whole or not there, and replaces no file. False, with an error in the log:
// it can't be written. `isTold`: the log has an error of the recording's disc already, and gets none.
bool writeLosses(std::string_view recording, const LossReport &report, bool isTold = false) noexcept;

// What the side file says. One that says nothing, or that is of another recording, is a warning in the log and
// counts as none. `guid`: of the recording.
LossReport readLosses(std::string_view recording, std::string_view guid);

} // namespace Tessel
