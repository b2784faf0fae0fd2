// Instruments: what there are, and the one that a command works on.
#pragma once

#include "program/session.h"

#include <string>
#include <vector>

namespace Tessel::Cli {

struct FoundInstruments
{
    std::vector<std::string> Ids; // in the order in which they were found, without recordings
    std::string Error;            // the last that a library reported; empty: none
};
FoundInstruments findInstruments();

// What getDeviceConfig says of an instrument that somebody else has open.
bool isBusy(const boost::json::object &config);

// The instrument that the options name, open and the current device. Throws Failure NoDevice.
std::string openInstrument(const HostOptions &options);

// "t2", "t3" or histogramMode; empty: T3.
constexpr const char *histogramMode = "histogram";
int32_t modeNumber(const std::string &mode);

// Brings the current device into a mode: 0 histograms, 2 T2, 3 T3. Throws Failure NoDevice.
void initInstrument(const std::string &id, int32_t measMode, int32_t refSource);

// Of the current device, now.
CountRates countRates(const Recording &recording);

// The text with the error that the library's last call logged, if it logged one.
std::string withReason(const std::string &text);

} // namespace Tessel::Cli
