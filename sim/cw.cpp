// Generator of light under continuous excitation. One thread.
#include "sim/cw.h"

#include "sim/ziggurat.h"

#include <algorithm>

namespace Tessel::Sim {

namespace {

constexpr double furthestJitter = 9; // sigma; one in 10^18 would go further

double drawInterval(CwStream &stream)
{
    switch (stream.Form) {
    case Interval::One: break;
    case Interval::Sum:
        return exponential(stream.Generator) * stream.MeanPs[0] +
               exponential(stream.Generator) * stream.MeanPs[1];
    case Interval::Either:
        return exponential(stream.Generator) *
               stream.MeanPs[uniform(stream.Generator) < stream.FirstShare ? 0 : 1];
    }
    return exponential(stream.Generator) * stream.MeanPs[0];
}

void advance(CwStream &stream, uint64_t endPs)
{
    if (stream.Source) {
        stream.NextPs = nextPhoton(*stream.Source, endPs);
        return;
    }
    const double gap = drawInterval(stream) + stream.NextRest;
    const double whole = std::floor(gap);
    stream.NextRest = gap - whole;
    if (whole >= static_cast<double>(endPs - stream.NextPs))
        stream.NextPs = UINT64_MAX;
    else
        stream.NextPs += static_cast<uint64_t>(whole);
}

double sum(const std::vector<double> &values)
{
    double total = 0;
    for (const double value : values) total += value;
    return total;
}

void start(CwStream &stream, const std::vector<double> &rates, const CwParams &params, uint64_t number)
{
    stream.Generator = makeRandom(params.Seed, number);
    if (!(sum(rates) > 0)) return;
    stream.Channels = makeAliasTable(rates);
    stream.NextPs = 0;
    advance(stream, params.DurationPs);
}

void setPoissonian(CwStream &stream, double rate)
{
    stream.MeanPs[0] = 1e12 / rate;
}

// a and b are the roots of x^2 - x / tr + R / tr.
void setAntibunched(CwStream &stream, double rate, double recoveryPs)
{
    const double sumOfRates = 1 / recoveryPs, ratePerPs = rate * 1e-12;
    const double root = std::sqrt(std::max(0.0, sumOfRates * sumOfRates - 4 * ratePerPs * sumOfRates));
    const double fast = (sumOfRates + root) / 2;
    stream.Form = Interval::Sum;
    stream.MeanPs[0] = fast / (ratePerPs * sumOfRates); // 1 / slow, without the cancellation
    stream.MeanPs[1] = 1 / fast;
}

// Rates as above; their mean intervals, weighted, give 1 / R.
void setBunched(CwStream &stream, double rate, double correlationPs)
{
    const double ratePerPs = rate * 1e-12, bright = 2 * ratePerPs;
    const double sumOfRates = bright + 1 / correlationPs, product = ratePerPs / correlationPs;
    const double fast = (sumOfRates + std::sqrt(std::max(0.0, sumOfRates * sumOfRates - 4 * product))) / 2;
    const double slow = product / fast;
    stream.Form = Interval::Either;
    stream.MeanPs[0] = 1 / fast;
    stream.MeanPs[1] = 1 / slow;
    stream.FirstShare = (bright - slow) / (fast - slow);
}

Arrival take(CwLight &light)
{
    CwStream &signal = light.Signal, &background = light.Background;
    const bool ofSignal = signal.NextPs != background.NextPs ? signal.NextPs < background.NextPs
                                                             : signal.NextRest <= background.NextRest;
    CwStream &stream = ofSignal ? signal : background;
    const Arrival arrival{stream.NextPs, static_cast<uint8_t>(pick(stream.Channels, stream.Generator))};
    advance(stream, light.Params.DurationPs);
    return arrival;
}

uint64_t nextTime(const CwLight &light)
{
    return std::min(light.Signal.NextPs, light.Background.NextPs);
}

void setSignal(CwStream &signal, const CwParams &params)
{
    const double rate = sum(params.SignalRates);
    if (!(rate > 0)) return;
    switch (params.Kind) {
    case CwKind::Poissonian: setPoissonian(signal, rate); break;
    case CwKind::Antibunched: setAntibunched(signal, rate, params.RecoveryPs); break;
    case CwKind::Bunched: setBunched(signal, rate, params.CorrelationPs); break;
    case CwKind::Diffusing:
        signal.Source = makeMolecules(params.Molecules, params.DiffusionPs, rate, params.Seed);
        break;
    }
}

// A jittered arrival may go once no later one can come before it.
bool pendingIsNext(const CwLight &light)
{
    if (light.Pending.empty()) return false;
    const uint64_t next = nextTime(light);
    const auto reach = static_cast<uint64_t>(furthestJitter * light.Params.SigmaPs) + 1;
    return next == UINT64_MAX || light.Pending.top().TimePs + reach <= next;
}

uint64_t jittered(CwLight &light, uint64_t timePs)
{
    const double deviate = std::clamp(normal(light.Jitter), -furthestJitter, furthestJitter);
    const double shift = std::floor(light.Params.SigmaPs * deviate + 0.5);
    const uint64_t last = light.Params.DurationPs - 1;
    if (shift < 0) return timePs - std::min(timePs, static_cast<uint64_t>(-shift));
    return std::min(timePs + static_cast<uint64_t>(shift), last);
}

} // namespace

double saturationRate(double recoveryPs)
{
    return 1e12 / (4 * recoveryPs);
}

CwLight makeCwLight(const CwParams &params)
{
    CwLight light;
    light.Params = params;
    light.Jitter = makeRandom(params.Seed, 3);
    if (params.Kind == CwKind::Poissonian) { // a sum of Poissonian streams is one
        std::vector<double> rates = params.SignalRates;
        for (size_t i = 0; i < rates.size(); ++i) rates[i] += params.BackgroundRates[i];
        setPoissonian(light.Signal, sum(rates));
        start(light.Signal, rates, params, 1);
        return light;
    }
    setSignal(light.Signal, params);
    setPoissonian(light.Background, sum(params.BackgroundRates));
    start(light.Signal, params.SignalRates, params, 1);
    start(light.Background, params.BackgroundRates, params, 2);
    return light;
}

void nextArrivals(CwLight &light, size_t count, std::vector<Arrival> &arrivals)
{
    arrivals.clear();
    while (arrivals.size() < count) {
        if (light.Params.SigmaPs > 0) {
            if (pendingIsNext(light)) {
                arrivals.push_back(light.Pending.top());
                light.Pending.pop();
                continue;
            }
            if (nextTime(light) == UINT64_MAX) return;
            Arrival arrival = take(light);
            arrival.TimePs = jittered(light, arrival.TimePs);
            light.Pending.push(arrival);
        } else {
            if (nextTime(light) == UINT64_MAX) return;
            arrivals.push_back(take(light));
        }
    }
}

} // namespace Tessel::Sim
