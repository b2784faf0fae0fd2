// JSON read so that each number is the nearest there is, and a text that is written again is the same.
#pragma once

#include <boost/json/value.hpp>

#include <stdexcept>
#include <string_view>

namespace Tessel::Cli {

// What is wrong, with line and column.
struct JsonError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// Throws JsonError: also for a key that an object has twice, a number that is too large, and depths above 32.
boost::json::value parseExactJson(std::string_view text);

// Of an object with a list under this key: what it has up to that. Without such a list, all of it.
boost::json::value parseJsonUpTo(std::string_view text, std::string_view lastKey);

} // namespace Tessel::Cli
