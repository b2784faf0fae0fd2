// What a job knows of the options of a measuring command.
#pragma once

#include <string_view>

namespace CLI {
class Option;
} // namespace CLI

namespace Tessel::Cli {

enum class OptionKind {
    Flag,
    Whole, // a number without a fraction
    Number,
    Choice,  // one of some words
    Several, // texts, may be given again
    Text,    // also times and rates, which have units
};

OptionKind kindOf(const CLI::Option &option);

// Of the measurement itself; not of its source, nor of where its result goes.
bool isParameter(const CLI::Option &option);
bool isSourceKey(std::string_view name);

} // namespace Tessel::Cli
