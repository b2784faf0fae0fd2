// A result that was written with --json, or as the last line of --json-lines.
#pragma once

#include <boost/json/object.hpp>

#include <cstddef>
#include <functional>
#include <string>

namespace Tessel::Cli {

constexpr size_t mostResult = size_t(1) << 32; // bytes

// Throws Failure: NoDevice if the file can't be read, of usage if it is no result of a measurement.
boost::json::object readResult(const std::string &path);

// Runs a step that takes a result for what it says it is; where it isn't, throws a Failure with the name.
void trusting(const std::string &name, const std::function<void()> &step);

} // namespace Tessel::Cli
