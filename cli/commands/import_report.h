// What `tessel import` says of what it has made: to people, and as JSON.
#pragma once

#include "columns/event_table.h"
#include "columns/survey.h"
#include "commands/import_files.h"
#include "commands/import_plan.h"

#include <boost/json/object.hpp>

namespace Tessel::Cli {

// What became of the table.
struct Imported
{
    EventTable Table;
    ImportUnits Units;
    Cli::Scaling Scaling;
    Survey Found;
    ImportFiles Files;
    double Seconds = 0;
};

void noteImport(const Imported &imported);
boost::json::object importJson(const Imported &imported);

} // namespace Tessel::Cli
