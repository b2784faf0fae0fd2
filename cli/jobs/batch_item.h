// A recording of a batch: what is done with it, and what its result says, for the table.
#pragma once

#include "jobs/job.h"

#include <boost/json/object.hpp>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tessel::Cli {

enum class BatchState { Waiting, Done, Kept, Failed };

struct BatchItem
{
    std::string File, Result; // recording and result
    BatchState State = BatchState::Waiting;
    std::string Problem; // why it failed

    // Of the result; empty without one.
    boost::json::object Run; // as of a result
    std::optional<double> Seconds;
    std::vector<std::pair<std::string, double>> Rates; // counts or events per second, by name
};

std::string_view stateText(BatchState state);

// Where the result of a job on a recording is kept: another recording, job or version of the program has
// another place. Without the recording it throws Failure.
std::string resultPath(const std::string &folder, const std::string &file, const Job &job);

// Takes what the table says from a result; false: it is none of this job.
bool takeResult(BatchItem &item, std::string_view text, const Job &job);

// A line for each file, and all rates that there are.
std::string batchCsv(const std::vector<BatchItem> &items);
boost::json::object batchJson(const std::vector<BatchItem> &items, const Job &job);

} // namespace Tessel::Cli
