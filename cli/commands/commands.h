// The commands. Each registers its options and returns what runs it; the result is the exit code.
#pragma once

#include "program/session.h"

#include <boost/json/object.hpp>

#include <functional>

namespace CLI {
class App;
} // namespace CLI

namespace Tessel::Cli {

struct Command
{
    CLI::App *App = nullptr;
    std::function<int(const HostOptions &)> Run;

    // Of measurements whose results can be added up: writes the sum as Run writes a result; gives `code`, if
    // nothing is missing beyond it.
    std::function<int(boost::json::object sum, int code)> WriteSum = nullptr;
};

Command addInfo(CLI::App &program);
Command addSimulate(CLI::App &program);
Command addHistogram(CLI::App &program);
Command addChain(CLI::App &program);
Command addConfig(CLI::App &program);
Command addDevices(CLI::App &program);
Command addG2(CLI::App &program);
Command addFcs(CLI::App &program);
Command addFold(CLI::App &program);
Command addImport(CLI::App &program);
Command addRates(CLI::App &program);
Command addRecord(CLI::App &program);
Command addRun(CLI::App &program);
Command addBatch(CLI::App &program);
Command addRerun(CLI::App &program);
Command addMerge(CLI::App &program);
Command addStart(CLI::App &program);
Command addTrace(CLI::App &program);
Command addHist2d(CLI::App &program);
Command addUnfold(CLI::App &program);
Command addVerify(CLI::App &program);
Command addRepair(CLI::App &program);
Command addServe(CLI::App &program);

} // namespace Tessel::Cli
