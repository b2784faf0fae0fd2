// The results of the libraries' operations, and their texts.
#pragma once

#include <cstdint>
#include <string_view>

namespace Tessel::Sim {

constexpr int32_t ok = 0;
constexpr int32_t noInstrument = -1, busy = -2, badDescription = -3, notOpen = -4, notInitialized = -5;
constexpr int32_t badArgument = -6, notAvailable = -7, wrongMode = -8, notMeasuring = -9, nullPointer = -10;
constexpr int32_t noFile = -11, outOfMemory = -12, failed = -13;
constexpr int32_t lost = -36;

constexpr std::string_view textOf(int32_t code)
{
    switch (code) {
    case ok: return "no error";
    case noInstrument: return "no instrument at this port";
    case busy: return "the instrument is in use";
    case badDescription: return "the description of the instruments is wrong";
    case notOpen: return "the instrument isn't open";
    case notInitialized: return "the instrument isn't initialized";
    case badArgument: return "an argument is out of its range";
    case notAvailable: return "the instrument can't do this";
    case wrongMode: return "not in this mode of measurement";
    case notMeasuring: return "there is no measurement";
    case nullPointer: return "a pointer is null";
    case noFile: return "the file can't be written";
    case outOfMemory: return "out of memory";
    case failed: return "the simulation failed";
    case lost: return "the instrument is lost";
    default: return "unknown error";
    }
}

} // namespace Tessel::Sim
