#include "config/losses_json.h"

#include "datafiles/losses_file.h"

#include <boost/json.hpp>

namespace Tessel {

std::string stringifyLosses(const DeviceLosses &losses)
{
    boost::json::object text = lossesJson(losses.Result);
    text["order"] = {{"stepsBack", losses.StepsBack},
                     {"largestStepPs", losses.LargestStepPs},
                     {"sorted", losses.IsSorted},
                     {"unsorted", losses.Unsorted}};
    text["recording"] = nullptr;
    if (losses.Recording) text["recording"] = lossesJson(*losses.Recording);
    return boost::json::serialize(text);
}

} // namespace Tessel
