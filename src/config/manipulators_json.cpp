#include "config/manipulators_json.h"

#include "log/log.h"
#include "manipulators/chain.h"

#include <boost/json.hpp>

namespace Tessel {

namespace {

std::string_view typeText(ManisType type)
{
    switch (type) {
    case ManisType::Nothing: return "Nothing";
    case ManisType::Store: return "Store";
    case ManisType::Coincidence: return "Coincidence";
    case ManisType::Merge: return "Merge";
    case ManisType::Delay: return "Delay";
    case ManisType::Herald: return "Herald";
    case ManisType::CountRate: return "CountRate";
    case ManisType::SubStream: return "SubStream";
    case ManisType::ImportStream: return "ImportStream";
    }
    logErr(LogCategory::General, "Config: undefined ManisType {}", static_cast<uint32_t>(type));
    return "undefined";
}

boost::json::object recordText(const Manipulator &record)
{
    boost::json::array channels;
    for (uint8_t channel : record.OutChans) channels.emplace_back(boost::json::object{{"Channel", channel}});
    boost::json::object text;
    text["Index"] = record.Index.load();
    text["Type"] = typeText(record.Type);
    text["Channels"] = std::move(channels);
    return text;
}

} // namespace

std::string stringifyManisConfig(MeasContext &context)
{
    ChainLocks locks(context);
    boost::json::array records;
    for (const auto &record : context.Manis) records.push_back(recordText(*record));
    boost::json::object text;
    text["ManisCfg"] = std::move(records);
    return boost::json::serialize(text);
}

} // namespace Tessel
