// The windows of a measurement. One thread.
#include "sim/instruments/measurement.h"

#include <algorithm>
#include <cmath>

namespace Tessel::Sim {

namespace {

constexpr double eventsPerWindow = 4096;
constexpr double longestWindowPs = 1e9, shortestWindowPs = 1e5;
constexpr uint64_t rateGatePs = 100000000000;
constexpr uint64_t psPerMs = 1000000000;

int64_t syncShift(const InstrumentDescription &instrument, const Settings &settings)
{
    const FamilyFacts &facts = factsOf(instrument.Family);
    return static_cast<int64_t>(instrument.Sync.DelayPs) + settings.Sync.OffsetPs +
           edgeDelay(settings.Sync, facts.HasEdge, facts.HasCfd, instrument.Sync.HeightMv,
                     instrument.Sync.WidthPs);
}

// Takes what all sources have before `endPs` into one list in order.
void gather(std::vector<Source> &sources, uint64_t endPs, std::vector<Event> &mixed, std::vector<Event> &taken,
            std::vector<Event> &work)
{
    mixed.clear();
    for (Source &source : sources) {
        taken.clear();
        takeBefore(source, endPs, taken);
        if (taken.empty()) continue;
        work.resize(mixed.size() + taken.size());
        std::merge(mixed.begin(), mixed.end(), taken.begin(), taken.end(), work.begin(), isEarlier);
        mixed.swap(work);
    }
}

void addMarkers(Measurement &m, uint64_t endPs, std::vector<Event> &events)
{
    for (MarkerInput &marker : m.Markers) {
        m.Taken.clear();
        takeBefore(marker.Source, endPs, m.Taken);
        for (const Event &event : m.Taken) {
            if (!marker.IsEnabled || event.TimePs < marker.FreePs) continue;
            marker.FreePs = event.TimePs + marker.HoldoffPs;
            events.push_back(event);
        }
    }
}

void addSyncs(Measurement &m, uint64_t endPs, std::vector<Event> &events)
{
    const SyncClock &sync = m.Recorder.Sync;
    if (m.Recorder.Mode != 2 || !sync.IsThere) return;
    for (;; m.NextSync += m.SyncDivider) {
        const uint64_t timePs = timeOf(sync.Times, m.NextSync, 0) + sync.ShiftPs;
        if (timePs >= endPs) return;
        events.push_back({timePs, syncChannel, Cause::Signal});
    }
}

// With syncs and markers, in order. Those two are known up to any time, so no reordering is left.
std::span<const Event> merged(Measurement &m, std::span<const Event> counted, uint64_t endPs)
{
    std::vector<Event> &others = m.Mixed;
    others.clear();
    addSyncs(m, endPs, others);
    const size_t numSyncs = others.size();
    addMarkers(m, endPs, others);
    if (others.empty()) return counted;
    if (others.size() > numSyncs) std::stable_sort(others.begin(), others.end(), isEarlier);
    m.Taken.resize(counted.size() + others.size());
    std::merge(counted.begin(), counted.end(), others.begin(), others.end(), m.Taken.begin(), isEarlier);
    return m.Taken;
}

bool hasFilter(const EventFilter &filter)
{
    return filter.HasRows || filter.Main.IsOn || !filter.RowStage.Window.empty() ||
           !filter.MainStage.Window.empty();
}

void updateRates(Measurement &m, uint64_t endPs)
{
    if (endPs < m.RatesSincePs + rateGatePs) return;
    const double seconds = static_cast<double>(endPs - m.RatesSincePs) * 1e-12;
    for (int i = 0; i < maxChannels; ++i) {
        m.RowRates[i] = static_cast<int32_t>(static_cast<double>(m.Filter.RowCounts[i]) / seconds + 0.5);
        m.MainRates[i] = static_cast<int32_t>(static_cast<double>(m.Filter.MainCounts[i]) / seconds + 0.5);
        m.Filter.RowCounts[i] = m.Filter.MainCounts[i] = 0;
    }
    m.RatesSincePs = endPs;
}

// The closed gate of an external signal.
void dropOutsideGate(Measurement &m)
{
    std::erase_if(m.Passed, [&](const Event &event) {
        const bool isOutside =
            event.Channel < syncChannel && (event.TimePs < m.GateFromPs || event.TimePs >= m.GateToPs);
        if (isOutside) lose(m.Truth, event, Loss::Outside);
        return isOutside;
    });
}

std::span<const Event> filtered(Measurement &m, std::span<const Event> events, uint64_t knownPs)
{
    const bool hasGate = m.GateFromPs != UINT64_MAX, isFiltered = hasFilter(m.Filter);
    m.Passed.clear();
    if (isFiltered)
        filterEvents(m.Filter, events, knownPs, m.Truth, m.Passed);
    else
        for (const Event &event : events)
            ++m.Filter.MainCounts[event.Channel], ++m.Filter.RowCounts[event.Channel];
    if (!hasGate && !isFiltered) return events;
    if (!isFiltered) m.Passed.assign(events.begin(), events.end());
    if (hasGate) dropOutsideGate(m);
    return m.Passed;
}

void deliver(Measurement &m, std::span<const Event> events, uint64_t endPs)
{
    if (m.FilterTests)
        for (const Event &event : events) lose(m.Truth, event, Loss::FilterTest);
    else
        record(m.Recorder, events, endPs, m.Truth);
    updateRates(m, endPs);
}

// An offset that is changed while the measurement runs may put an event before those that are recorded.
void keepOrder(Measurement &m)
{
    for (Event &event : m.Counted.Events) {
        if (event.TimePs >= m.KnownPs) return;
        event.TimePs = m.KnownPs;
    }
}

// Everything before `endPs` gets recorded. Jitter and negative offsets bring events forward, and the filter
// looks ahead: so much further the sources are read.
void passWindow(Measurement &m, uint64_t endPs)
{
    const uint64_t knownPs = endPs + lookAheadPs(m.Filter);
    const uint64_t detectedPs = knownPs + static_cast<uint64_t>(-m.Detection.LeastShiftPs);
    const size_t waiting = m.Arrivals.Events.size();
    gather(m.Sources, detectedPs + m.Detection.ReachPs, m.Mixed, m.Taken, m.Work);
    m.Arrivals.Events.insert(m.Arrivals.Events.end(), m.Mixed.begin(), m.Mixed.end());
    addJitter(m.Detection, m.Arrivals.Events, waiting);
    sortNew(m.Arrivals);
    const std::span<const Event> arrivals = before(m.Arrivals, detectedPs);
    detect(m.Detection, arrivals, detectedPs, m.Truth, m.Counted.Events);
    dropFirst(m.Arrivals, arrivals.size());
    sortNew(m.Counted);
    keepOrder(m);
    const std::span<const Event> counted = before(m.Counted, knownPs);
    deliver(m, filtered(m, merged(m, counted, knownPs), knownPs), endPs);
    dropFirst(m.Counted, counted.size());
    m.KnownPs = std::max(m.KnownPs, knownPs);
    m.DonePs = endPs;
}

double windowPs(const Measurement &m)
{
    double ratePerPs = 0;
    for (const Source &source : m.Sources) ratePerPs += source.RatePerPs;
    if (m.Recorder.Mode == 2) ratePerPs += m.Recorder.Sync.PerPs / static_cast<double>(m.SyncDivider);
    return std::clamp(eventsPerWindow / std::max(ratePerPs, 1e-12), shortestWindowPs, longestWindowPs);
}

// What each code of the measurement control makes of the acquisition time and of the control signal.
void setControl(Measurement &m, const InstrumentDescription &instrument, int32_t control, uint64_t acqTimeMs)
{
    const ControlDescription &signal = instrument.Control;
    m.EndPs = acqTimeMs * psPerMs;
    switch (control) {
    case 0: break;
    case 1: // the signal is the gate
        m.GateFromPs = static_cast<uint64_t>(signal.DelayPs);
        m.GateToPs = static_cast<uint64_t>(signal.DelayPs + signal.LengthPs);
        break;
    case 2: // starts at the signal, ends by the timer
    case 4: m.DuePs = -signal.DelayPs; break;
    case 3: // starts with the signal and ends with it
    case 5:
        m.DuePs = -signal.DelayPs;
        m.EndPs = static_cast<uint64_t>(signal.LengthPs);
        break;
    default: m.EndPs = UINT64_MAX; // started and stopped by software
    }
}

void setRecorder(Recorder &recorder, const InstrumentDescription &instrument, const Settings &settings,
                 int mode)
{
    const auto base = static_cast<uint64_t>(instrument.BaseResolutionPs);
    recorder.Mode = mode;
    recorder.Resolution = divisor(mode == 2 ? base : base << settings.Binning);
    recorder.OffsetPs = static_cast<uint64_t>(settings.OffsetPs);
    recorder.Fifo.Writer = mode == 2 ? makeT2Words() : makeT3Words();
    const bool compresses = factsOf(instrument.Family).CompressesOverflows;
    if (!compresses) recorder.Fifo.Writer.MostWraps = 1;
    recorder.Fifo.HoldPs = compresses ? static_cast<uint64_t>(settings.HoldTimeMs) * psPerMs : 0;
    recorder.Fifo.Capacity = instrument.Pace > 0 ? instrument.FifoRecords : SIZE_MAX / 2; // free: it waits
    if (mode != 0) return;
    recorder.Histograms.Bins = uint64_t(1024) << settings.LengthCode;
    recorder.Histograms.Counts.assign(instrument.Inputs.size() * recorder.Histograms.Bins, 0);
    if (settings.StopsAtOverflow) recorder.Histograms.StopCount = settings.StopCount;
}

} // namespace

// A dead sync input registers every n-th pulse.
SyncClock syncClock(const InstrumentDescription &instrument, const Settings &settings)
{
    const FamilyFacts &facts = factsOf(instrument.Family);
    SyncClock clock;
    clock.IsThere = instrument.Sync.IsThere && settings.Sync.IsEnabled &&
                    isSeen(settings.Sync, facts.HasEdge, facts.HasCfd, instrument.Sync.HeightMv);
    const double period = instrument.Sync.PeriodPs;
    const double step = std::max(1.0, std::ceil(settings.Sync.DeadTimePs / period));
    clock.Times = pulseTimes(period * step);
    clock.PerPs = 1 / (period * step);
    // A sync before the start isn't seen: number 0 is the first one behind it.
    const int64_t shift = syncShift(instrument, settings);
    const double before = shift < 0 ? std::ceil(static_cast<double>(-shift) / (period * step)) : 0;
    clock.ShiftPs = static_cast<uint64_t>(static_cast<double>(shift) + before * period * step);
    return clock;
}

Measurement startMeasurement(const InstrumentDescription &instrument, const Settings &settings, int mode,
                             uint64_t acqTimeMs, uint64_t number)
{
    Measurement m;
    m.Number = number;
    m.Sources = inputSources(instrument, number);
    m.Detection = makeDetection(instrument, settings, number);
    m.Recorder.Sync = syncClock(instrument, settings);
    m.SyncDivider = static_cast<uint64_t>(settings.SyncDivider);
    for (size_t i = 0; i < instrument.Markers.size() && mode != 0; ++i) {
        MarkerInput marker;
        marker.Source = markerSource(instrument.Markers[i], static_cast<int>(i), settings.Markers[i].Edge == 1,
                                     instrument.Seed + number);
        m.Markers.push_back(std::move(marker));
    }
    setRecorder(m.Recorder, instrument, settings, mode);
    setControl(m, instrument, settings.Control, acqTimeMs);
    applySettings(m, instrument, settings);
    m.WindowPs = static_cast<uint64_t>(windowPs(m));
    m.LookedAt = std::chrono::steady_clock::now();
    return m;
}

void applySettings(Measurement &m, const InstrumentDescription &instrument, const Settings &settings)
{
    setGates(m.Detection, instrument, settings);
    setFilter(m.Filter, settings, filterRowWidth(instrument));
    m.FilterTests = settings.FilterTests;
    for (size_t i = 0; i < m.Markers.size(); ++i) {
        m.Markers[i].IsEnabled = settings.Markers[i].IsEnabled;
        m.Markers[i].HoldoffPs = static_cast<uint64_t>(settings.MarkerHoldoffNs) * 1000;
    }
}

void advanceTo(Measurement &m, uint64_t timePs, size_t mostWords, int windows)
{
    for (; !m.IsOver && windows > 0; --windows) {
        const uint64_t endPs = std::min(m.DonePs + m.WindowPs, m.EndPs);
        if (endPs > timePs || wordsWaiting(m.Recorder.Fifo) >= mostWords) return;
        passWindow(m, endPs);
        m.IsOver = endPs == m.EndPs || m.Recorder.Histograms.HasReachedStop;
    }
}

Truth settled(const Measurement &m)
{
    Truth truth = m.Truth;
    const auto forget = [&](std::span<const Event> events) {
        for (const Event &event : events)
            if (event.Channel < syncChannel) --truth.Inputs[event.Channel].Made[static_cast<int>(event.Cause)];
    };
    forget(m.Counted.Events);
    for (const FilterStage *stage : {&m.Filter.RowStage, &m.Filter.MainStage})
        forget(std::span(stage->Window).subspan(stage->Undecided));
    return truth;
}

} // namespace Tessel::Sim
