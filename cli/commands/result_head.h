// What the results of all measurements begin with: comment lines of a CSV, keys of a JSON.
#pragma once

#include "commands/measure.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel::Cli {

// The first comment lines of a CSV, and the last one: how much was read.
std::vector<std::string> firstNotes(const Measured &measured, std::string_view schema);
std::string lastNote(const Measured &measured);

// The keys that every result begins with: schema, program, job, file, device, mode, and chain if there is one.
boost::json::object recordingKeys(const Measured &measured, std::string_view schema);

// The same, rows, run, notes, files, of an instrument live, and recorded if the run writes a recording.
boost::json::object firstKeys(const Measured &measured, std::string_view schema);

boost::json::object ratesJson(const CountRates &rates);

// What is in the recording that the run writes: file, bytes, closed.
boost::json::object recordedJson(const Measured &measured);

uint64_t total(std::span<const uint32_t> counts);

// The rows of a result: row, name, total, counts.
using RowCounts = std::function<std::span<const uint32_t>(int64_t row)>;
boost::json::array channelsJson(const Recording &recording, const RowCounts &countsOf);

} // namespace Tessel::Cli
