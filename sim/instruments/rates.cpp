// Count rates. Those of the inputs are what light and settings lead to expect; those behind the event filter
// are counted. Under the instrument's lock.
#include "sim/instruments/instrument.h"

#include <algorithm>
#include <cmath>

namespace Tessel::Sim {

double syncRate(const Instrument &instrument)
{
    const SyncClock clock = syncClock(instrument.What, instrument.Settings);
    return clock.IsThere ? clock.PerPs * 1e12 : 0;
}

double inputRate(const Instrument &instrument, size_t input)
{
    const InputDescription &what = instrument.What.Inputs[input];
    const InputSettings &settings = instrument.Settings.Inputs[input];
    const FamilyFacts &facts = factsOf(instrument);
    if (!settings.IsEnabled || !isSeen(settings, facts.HasEdge, facts.HasCfd, what.HeightMv)) return 0;
    const double atRandom = (what.RateCps + what.DarkCps) / (1 - what.Afterpulsing);
    const double deadPs = std::max(what.DetectorDeadPs, static_cast<double>(settings.DeadTimePs));
    const double periodic = what.SignalPeriodPs > 0 ? 1e12 / what.SignalPeriodPs : 0;
    return atRandom / (1 + atRandom * deadPs * 1e-12) + periodic;
}

int32_t filteredRates(Instrument &instrument, bool afterMain, int32_t &sync, int32_t *rates)
{
    if ((instrument.What.Features & FeatureFilter) == 0) return notAvailable;
    const bool isMeasuring = instrument.Run && !instrument.Run->IsOver;
    if (isMeasuring) flagsOf(instrument); // time passes
    sync = static_cast<int32_t>(syncRate(instrument) + 0.5);
    for (size_t i = 0; i < instrument.What.Inputs.size(); ++i) {
        if (!instrument.Run)
            rates[i] = 0;
        else
            rates[i] = afterMain ? instrument.Run->MainRates[i] : instrument.Run->RowRates[i];
    }
    return ok;
}

} // namespace Tessel::Sim
