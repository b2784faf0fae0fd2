// A device's configuration as a JSON file: what getDeviceConfig gives, or the result of `tessel config --json`,
// which holds it. What can be set goes to the current device, an initialised instrument.
#pragma once

#include "program/settings.h"

#include <boost/json/object.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel::Cli {

// The configuration in the file that --load names. Throws Failure: NoDevice if the file can't be read, of usage
// if it is none.
boost::json::object readDeviceFile(const std::string &path);

// A whole number of the configuration; nothing: it has none there.
std::optional<int32_t> numberIn(const boost::json::object &config, std::string_view key);

// All settings of the configuration that the instrument has, and the names of its inputs. What isn't in it
// stays. Throws Failure of usage before anything is sent if one can't be understood; else as --set does.
std::vector<Clamped> applyDeviceFile(const boost::json::object &config, const std::string &path);

} // namespace Tessel::Cli
