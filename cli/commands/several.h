// The result of several recordings, from their JSON: of one call of a measuring command, and of `tessel merge`.
#pragma once

#include "commands/measure.h"
#include "commands/result_head.h"

#include <boost/json/object.hpp>

#include <cstdint>
#include <vector>

namespace Tessel::Cli {

// What a result says of its recording, with the run on it.
boost::json::object fileEntry(const Measured &measured, const Measurement &measurement);

// Per second and by the name of their column, of all that a row has counted in this time; none: nothing is
// there.
boost::json::object ratesOfRows(const Recording &recording, double seconds, const RowCounts &countsOf);

// How long the recording, or the run of an instrument, is by what it says of itself; 0: it doesn't say.
double secondsOf(const Measured &measured);

// Measures the recordings one after the other, up to one that is stopped. The exit code is the worst of theirs.
int measureSeveral(const MeasureOptions &options, const HostOptions &host, const Measurement &measurement);

// The counts of a result, `count` of them. Throws Failure.
std::vector<uint32_t> countsIn(const boost::json::value &counts, uint64_t count);

// Whole numbers of a result.
std::vector<uint64_t> numbersIn(const boost::json::value &numbers);

// Normalises what was added up, and writes it. Returns `code`, or that data are missing if nothing is there to
// normalise.
int writeSum(const MeasureOptions &options, const Measurement &measurement, boost::json::object sum, int code);

} // namespace Tessel::Cli
