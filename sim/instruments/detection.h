// From what reaches the detectors to what the inputs count: jitter, dead times, afterpulses, crosstalk, the
// level of the trigger, delays and offsets.
#pragma once

#include "sim/instruments/description.h"
#include "sim/instruments/event.h"
#include "sim/instruments/reorder.h"
#include "sim/instruments/settings.h"
#include "sim/instruments/truth.h"
#include "sim/random.h"

#include <cstdint>
#include <queue>
#include <vector>

namespace Tessel::Sim {

// What description and settings make of an input.
struct InputGate
{
    double JitterPs = 0;
    uint64_t DetectorDeadPs = 0, DeadPs = 0;
    double Afterpulsing = 0, AfterpulsePs = 0, Crosstalk = 0;
    uint8_t CrosstalkTo = 0;
    bool HasAfter = false;      // afterpulses or crosstalk
    bool IsBeyondLevel = false; // the pulse doesn't reach the level
    bool IsEnabled = true;
    int64_t ShiftPs = 0;
};

struct LaterEvent
{
    bool operator()(const Event &a, const Event &b) const { return isEarlier(b, a); }
};

struct Detection
{
    std::vector<InputGate> Gates;
    uint64_t ReachPs = 0; // of the jitter
    int64_t LeastShiftPs = 0;
    bool HasJitter = false;
    std::vector<uint64_t> DetectorFreePs, FreePs;                     // by input: dead before
    std::priority_queue<Event, std::vector<Event>, LaterEvent> After; // afterpulses and crosstalk to come
    Random Jitter, Draws;
};

// Does a pulse of this height make the trigger count?
bool isSeen(const InputSettings &settings, bool hasEdge, bool hasCfd, int32_t heightMv);

// From the leading edge of a pulse to the one that is triggered on.
int64_t edgeDelay(const InputSettings &settings, bool hasEdge, bool hasCfd, int32_t heightMv, double widthPs);

void setGates(Detection &detection, const InstrumentDescription &instrument, const Settings &settings);

Detection makeDetection(const InstrumentDescription &instrument, const Settings &settings, uint64_t run);

void addJitter(Detection &detection, std::vector<Event> &events, size_t from);

// Takes the arrivals before `endPs`, in their order, and appends what is counted, shifted by the delays.
void detect(Detection &detection, std::span<const Event> arrivals, uint64_t endPs, Truth &truth,
            std::vector<Event> &counted);

} // namespace Tessel::Sim
