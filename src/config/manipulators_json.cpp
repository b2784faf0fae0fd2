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
    case ManisType::Sort: return "Sort";
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

// What the host gave a stage, under the names that people use. A number of the host that has no word stays one.

boost::json::value wordOf(std::initializer_list<std::string_view> words, uint32_t number)
{
    return number < words.size() ? boost::json::value(words.begin()[number]) : boost::json::value(number);
}

boost::json::array channelsOf(const Manipulator &record, size_t first)
{
    return boost::json::array(record.InChans.begin() + static_cast<std::ptrdiff_t>(first),
                              record.InChans.end());
}

// Times of a stage may be negative, the ends of a span are not.
int64_t timeOf(const Manipulator &record, size_t which)
{
    return static_cast<int64_t>(record.Params.at(which));
}

boost::json::object givenText(const Manipulator &record)
{
    switch (record.Type) {
    case ManisType::Coincidence:
        return {{"stage", "coincidence"},
                {"channels", channelsOf(record, 0)},
                {"window", record.Params.at(0)},
                {"mode", wordOf({"sliding", "once"}, record.CoincMode)},
                {"time", wordOf({"first", "last", "average"}, record.TimeMode)},
                {"keep", record.KeepFlag}};
    case ManisType::Merge:
        return {{"stage", "merge"}, {"channels", channelsOf(record, 0)}, {"keep", record.KeepFlag}};
    case ManisType::Delay:
        return {{"stage", "delay"},
                {"channels", channelsOf(record, 0)},
                {"delay", timeOf(record, 0)},
                {"keep", record.KeepFlag}};
    case ManisType::Herald:
        return {{"stage", "herald"},
                {"herald", record.InChans.at(0)},
                {"channels", channelsOf(record, 1)},
                {"delay", timeOf(record, 0)},
                {"window", timeOf(record, 1)},
                {"inverted", record.Params2.at(0) != 0},
                {"keep", record.KeepFlag}};
    case ManisType::SubStream:
        return {{"stage", "substream"}, {"from", record.Params.at(0)}, {"to", record.Params.at(1)}};
    case ManisType::Sort: return {{"stage", "sort"}, {"window", record.Params.at(0)}};
    case ManisType::CountRate: return {{"stage", "countrate"}, {"window", timeOf(record, 0)}};
    case ManisType::ImportStream:
        return {{"stage", "import"},
                {"source", record.SourceId},
                {"start", record.Params2.at(0) != 0},
                {"channels", channelsOf(record, 0)},
                {"offset", timeOf(record, 0)}};
    case ManisType::Nothing:
    case ManisType::Store: break;
    }
    return {{"stage", typeText(record.Type)}};
}

} // namespace

std::string stringifyStages(MeasContext &context)
{
    ChainLocks locks(context);
    boost::json::array stages;
    for (const auto &record : context.Manis) {
        boost::json::object text = givenText(*record);
        if (record->ExitFlag) text["ended"] = true;
        stages.push_back(std::move(text));
    }
    return boost::json::serialize(boost::json::object{{"chain", std::move(stages)}});
}

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
