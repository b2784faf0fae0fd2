// Which column of a source is what.
#pragma once

#include "columns/event_table.h"

#include <string>
#include <vector>

namespace Tessel::Cli {

// What a source has of columns; of names none, one for each, or fewer.
struct ColumnOffer
{
    std::string Shown;
    std::vector<std::string> Names = {};
    size_t Count = 0;
};

// By the options, else by the names, else times and channels in this order. Throws a usage Failure.
TextColumns chosenColumns(const TableOptions &options, const ColumnOffer &offer);

// "times: time_ns, channels: column 2".
std::string takenText(const ColumnOffer &offer, const TextColumns &columns);

std::string inSmallLetters(std::string text);

} // namespace Tessel::Cli
