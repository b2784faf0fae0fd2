#include "jobs/json_difference.h"

#include "program/visible_text.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

namespace Tessel::Cli {

namespace {

std::string shortText(const boost::json::value &value)
{
    const std::string text = boost::json::serialize(value);
    return text.size() > 60 ? text.substr(0, 60) + "..." : text;
}

std::string differenceIn(const boost::json::array &here, const boost::json::array &there)
{
    if (here.size() != there.size()) return fmt::format(": {} items against {}", here.size(), there.size());
    for (size_t i = 0; i < here.size(); ++i)
        if (const std::string what = firstDifference(here[i], there[i]); !what.empty())
            return fmt::format("[{}]{}", i, what);
    return "";
}

std::string differenceIn(const boost::json::object &here, const boost::json::object &there)
{
    for (const auto &member : here) {
        const boost::json::value *other = there.if_contains(member.key());
        const std::string what =
            other ? firstDifference(member.value(), *other) : std::string(": only one has it");
        if (!what.empty()) return fmt::format(".{}{}", visibleText(member.key()), what);
    }
    for (const auto &member : there)
        if (!here.contains(member.key())) return fmt::format(".{}: only one has it", visibleText(member.key()));
    return "";
}

} // namespace

std::string firstDifference(const boost::json::value &here, const boost::json::value &there)
{
    if (here.is_array() && there.is_array()) return differenceIn(here.get_array(), there.get_array());
    if (here.is_object() && there.is_object()) return differenceIn(here.get_object(), there.get_object());
    if (here == there) return "";
    return fmt::format(": {} against {}", shortText(here), shortText(there));
}

} // namespace Tessel::Cli
