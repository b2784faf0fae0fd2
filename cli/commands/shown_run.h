// One run of a recording or an instrument, with what it shows meanwhile and the recording that it writes.
#pragma once

#include "commands/live_view.h"
#include "commands/measure.h"

#include <boost/json/object.hpp>

#include <functional>
#include <string>

namespace Tessel::Cli {

struct ShownRun
{
    std::function<void(const RunStart &)> Start;
    std::function<void(bool hasEnded)> Take; // the present result: also while the run goes on
    std::function<void(Frame &, const LiveState &)> Draw;
    std::function<boost::json::object()> Json;
    std::function<bool()> Fetch = nullptr;         // asked again and again; true: there was something to do
    std::function<std::string()> EndsBy = nullptr; // asked again and again; a text ends the run, and says why
};

// Sets what has become of the run. The result was taken at its end.
void runShown(const MeasureOptions &options, const HostOptions &host, const ShownRun &run, Measured &measured);

// Just before a run: what it takes as `save`. The library then knows where the recording goes.
uint8_t prepareRecording(const Measured &measured);

// After the run: what it has left in the recording and in the instrument.
void lookBack(Measured &measured);

// Says on standard error what became of the run and of its recording, and returns the exit code.
int reportRun(const Measured &measured);

} // namespace Tessel::Cli
