// What a host does while calls to the system are refused: each scenario is prepared, then its calls are made
// with the shim armed, and then everything is to be as if nothing had happened.
#pragma once

#include "faults/shim.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Faults {

// All memory that the calls need. It is made before the shim is armed.
struct FaultHost
{
    FaultHost(const std::string &folder, const std::string &recordings);

    std::string Ini, Instrument, Recording, Large, Copy;
    std::vector<uint32_t> Words; // for the copy

    // Filled by the library.
    std::vector<char> Id, Text;
    std::vector<uint32_t> Counts;
    std::vector<double> X, Y;
    std::vector<uint64_t> Times;
    std::vector<uint8_t> Channels;
    uint64_t Count = 0;
    uint8_t Finished = 1;

    bool Told = false; // the library has told of a failure
};

struct Scenario
{
    const char *Name;
    void (*Prepare)(FaultHost &host);
    void (*Calls)(FaultHost &host);
    void (*Resume)(FaultHost &host); // to where the recording is the current device
};
std::span<const Scenario> scenarios();

// The recording, and a large one that is counted side by side, into a folder.
void writeRecordings(const std::string &folder);

// A hash of what the library has filled; 0 if it has told of a failure.
size_t claimed(FaultHost &host);

// A histogram per channel of the current device. Empty: it isn't what its parameters say.
std::vector<uint32_t> goodHistogram();

} // namespace Faults
