// Detectors and inputs. One thread.
#include "sim/instruments/detection.h"

#include "sim/ziggurat.h"

#include <cmath>
#include <cstdlib>

namespace Tessel::Sim {

namespace {

constexpr double furthestJitter = 9; // sigma

bool usesCfd(const InputSettings &settings, bool hasEdge, bool hasCfd)
{
    return hasCfd && (!hasEdge || settings.TrigMode == 1);
}

InputGate gateOf(const InputDescription &input, const InputSettings &settings, bool hasEdge, bool hasCfd)
{
    InputGate gate;
    gate.JitterPs = input.JitterPs;
    gate.DetectorDeadPs = static_cast<uint64_t>(input.DetectorDeadPs);
    gate.DeadPs = static_cast<uint64_t>(settings.DeadTimePs);
    gate.Afterpulsing = input.Afterpulsing;
    gate.AfterpulsePs = input.AfterpulsePs;
    gate.Crosstalk = input.Crosstalk;
    gate.CrosstalkTo = static_cast<uint8_t>(input.CrosstalkTo);
    gate.HasAfter = input.Afterpulsing > 0 || input.Crosstalk > 0;
    gate.IsBeyondLevel = !isSeen(settings, hasEdge, hasCfd, input.HeightMv);
    gate.IsEnabled = settings.IsEnabled;
    gate.ShiftPs = static_cast<int64_t>(input.DelayPs) + settings.OffsetPs +
                   edgeDelay(settings, hasEdge, hasCfd, input.HeightMv, input.WidthPs);
    return gate;
}

// A detection may be followed by an afterpulse and may be seen by the neighbour, which both may go on so.
void drawAfter(Detection &detection, const InputGate &gate, const Event &event)
{
    if (gate.Afterpulsing > 0 && uniform(detection.Draws) < gate.Afterpulsing) {
        const double behindPs = exponential(detection.Draws) * gate.AfterpulsePs;
        detection.After.push({event.TimePs + gate.DetectorDeadPs + static_cast<uint64_t>(behindPs) + 1,
                              event.Channel, Cause::Afterpulse});
    }
    if (gate.Crosstalk > 0 && uniform(detection.Draws) < gate.Crosstalk)
        detection.After.push({event.TimePs, gate.CrosstalkTo, Cause::Crosstalk});
}

// push_back isn't inlined here, which would cost as much as the rest.
struct Growing
{
    std::vector<Event> &Events;
    size_t Count = 0;
};

inline void append(Growing &to, const Event &event)
{
    if (to.Count == to.Events.size()) to.Events.resize(2 * to.Count + 64);
    to.Events[to.Count++] = event;
}

inline void take(Detection &detection, const Event &event, Truth &truth, Growing &counted)
{
    const uint8_t channel = event.Channel;
    const InputGate &gate = detection.Gates[channel];
    ++truth.Inputs[channel].Made[static_cast<int>(event.Cause)];
    if (event.TimePs < detection.DetectorFreePs[channel]) return lose(truth, event, Loss::Detector);
    detection.DetectorFreePs[channel] = event.TimePs + gate.DetectorDeadPs;
    if (gate.HasAfter) drawAfter(detection, gate, event);
    if (gate.IsBeyondLevel) return lose(truth, event, Loss::Level);
    if (!gate.IsEnabled) return lose(truth, event, Loss::Disabled);
    if (event.TimePs < detection.FreePs[channel]) return lose(truth, event, Loss::DeadTime);
    detection.FreePs[channel] = event.TimePs + gate.DeadPs;
    const int64_t shifted = static_cast<int64_t>(event.TimePs) + gate.ShiftPs;
    if (shifted < 0) return lose(truth, event, Loss::Outside);
    append(counted, {static_cast<uint64_t>(shifted), channel, event.Cause});
}

void takeAfter(Detection &detection, uint64_t endPs, Truth &truth, Growing &counted)
{
    while (!detection.After.empty() && detection.After.top().TimePs < endPs) {
        const Event event = detection.After.top();
        detection.After.pop();
        take(detection, event, truth, counted);
    }
}

} // namespace

bool isSeen(const InputSettings &settings, bool hasEdge, bool hasCfd, int32_t heightMv)
{
    if (usesCfd(settings, hasEdge, hasCfd)) return std::abs(settings.Discriminator) <= std::abs(heightMv);
    return heightMv < 0 ? settings.Level <= 0 && settings.Level >= heightMv
                        : settings.Level >= 0 && settings.Level <= heightMv;
}

// Pulses go down or up by the sign of their height; edge 0 is the falling one.
int64_t edgeDelay(const InputSettings &settings, bool hasEdge, bool hasCfd, int32_t heightMv, double widthPs)
{
    if (usesCfd(settings, hasEdge, hasCfd)) return 0;
    const bool isTrailing = (settings.Edge == 0) == (heightMv > 0);
    return isTrailing ? static_cast<int64_t>(widthPs) : 0;
}

void setGates(Detection &detection, const InstrumentDescription &instrument, const Settings &settings)
{
    const FamilyFacts &facts = factsOf(instrument.Family);
    detection.Gates.clear();
    detection.LeastShiftPs = 0;
    double widest = 0;
    for (size_t i = 0; i < instrument.Inputs.size(); ++i) {
        const InputGate gate = gateOf(instrument.Inputs[i], settings.Inputs[i], facts.HasEdge, facts.HasCfd);
        detection.LeastShiftPs = std::min(detection.LeastShiftPs, gate.ShiftPs);
        widest = std::max(widest, gate.JitterPs);
        detection.Gates.push_back(gate);
    }
    detection.HasJitter = widest > 0;
    detection.ReachPs = static_cast<uint64_t>(furthestJitter * widest) + (widest > 0 ? 1 : 0);
}

Detection makeDetection(const InstrumentDescription &instrument, const Settings &settings, uint64_t run)
{
    Detection detection;
    setGates(detection, instrument, settings);
    detection.DetectorFreePs.assign(instrument.Inputs.size(), 0);
    detection.FreePs.assign(instrument.Inputs.size(), 0);
    detection.Jitter = makeRandom(instrument.Seed + run, 11);
    detection.Draws = makeRandom(instrument.Seed + run, 12);
    return detection;
}

void addJitter(Detection &detection, std::vector<Event> &events, size_t from)
{
    if (!detection.HasJitter) return;
    for (size_t i = from; i < events.size(); ++i) {
        const double sigma = detection.Gates[events[i].Channel].JitterPs;
        if (!(sigma > 0)) continue;
        const double deviate = std::clamp(normal(detection.Jitter), -furthestJitter, furthestJitter);
        const double shift = std::floor(sigma * deviate + 0.5);
        const int64_t time = static_cast<int64_t>(events[i].TimePs) + static_cast<int64_t>(shift);
        events[i].TimePs = static_cast<uint64_t>(std::max<int64_t>(time, 0));
    }
}

void detect(Detection &detection, std::span<const Event> arrivals, uint64_t endPs, Truth &truth,
            std::vector<Event> &counted)
{
    Growing growing{counted, counted.size()};
    counted.resize(counted.size() + arrivals.size());
    for (const Event &event : arrivals) {
        if (!detection.After.empty()) takeAfter(detection, event.TimePs, truth, growing);
        take(detection, event, truth, growing);
    }
    takeAfter(detection, endPs, truth, growing);
    counted.resize(growing.Count);
}

} // namespace Tessel::Sim
