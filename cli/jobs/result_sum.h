// Results of one job on several recordings as one result: raw counts are added up; what is computed of them is
// left to the measurement. Objects are as --json writes them.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <string>
#include <string_view>

namespace Tessel::Cli {

// Throws a usage Failure if results of the measurement can't be added up.
void checkSummable(std::string_view measurement);

// "g2" of a result that says so; throws Failure if it is none that can be run again, with `name` in front.
std::string measurementOf(const boost::json::object &result, const std::string &name);

// Adds the counts and files of `next`. Throws Failure, which says what differs: the sum is then none.
void addResult(boost::json::object &sum, const boost::json::object &next, const std::string &name);

// Once all are added: what is said of all files together. Exit code 4 is for a sum that isn't clean and whole.
void sayOfAll(boost::json::object &sum);
bool isCleanAndWhole(const boost::json::object &run);

} // namespace Tessel::Cli
