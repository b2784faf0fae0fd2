#include "jobs/option_kind.h"

#include "jobs/job.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace Tessel::Cli {

OptionKind kindOf(const CLI::Option &option)
{
    const std::string type = option.get_type_name();
    if (option.get_items_expected_max() == 0) return OptionKind::Flag;
    if (option.get_items_expected_max() > 1) return OptionKind::Several;
    if (type == "CHANNEL" || type.find("..") != type.npos) return OptionKind::Whole;
    if (type == "FLOAT") return OptionKind::Number;
    return type.find('|') != type.npos ? OptionKind::Choice : OptionKind::Text;
}

bool isSourceKey(std::string_view name)
{
    const auto keys = sourceKeys();
    return std::ranges::find(keys, name) != keys.end();
}

bool isParameter(const CLI::Option &option)
{
    if (option.get_lnames().empty()) return false;
    const std::string &name = option.get_lnames().front();
    return !isSourceKey(name) && !isOutside(name);
}

} // namespace Tessel::Cli
