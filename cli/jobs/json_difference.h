// Where two JSON values differ.
#pragma once

#include <boost/json/value.hpp>

#include <string>

namespace Tessel::Cli {

// "[3].counts[7]: 5 against 6" of the first difference; empty: none.
std::string firstDifference(const boost::json::value &here, const boost::json::value &there);

} // namespace Tessel::Cli
