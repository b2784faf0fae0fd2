#include "config/description_json.h"

#include "devices/enum_texts.h"
#include "log/log.h"

#include <boost/json.hpp>

namespace Tessel {

std::string stringifyMeasDescription(const MeasDescription &description)
{
    if (LogLevel.Config) logInf(LogCategory::Progress, "stringifyMeasDescription");
    boost::json::object text;
    text["AcqTime"] = description.AcqTime.load();
    text["AveSyncRate"] = description.AveSyncRate.load();
    text["AveSyncPeriod"] = description.AveSyncPeriod.load();
    text["StopReason"] = stopReasonText(description.StopReason);
    text["StopAfter"] = description.StopAfter.load();
    text["WarningsFlag"] = description.WarningsFlag.load();
    text["NumRecs"] = description.NumRecs.load();
    return boost::json::serialize(text);
}

} // namespace Tessel
