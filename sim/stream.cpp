// From photons to record words. One thread.
#include "sim/stream.h"

namespace Tessel::Sim {

namespace {

constexpr size_t photonsPerBatch = 1 << 16;

// T2: the sync events up to `timePs`.
void addSyncs(WordStream &stream, uint64_t timePs)
{
    if (!(stream.Params.SyncPeriodPs > 0)) return;
    const auto resolution = static_cast<uint64_t>(stream.Params.ResolutionPs);
    for (uint64_t at; (at = timeOf(stream.Pulses, stream.NextSync, 0)) <= timePs; ++stream.NextSync)
        addT2Sync(stream.Writer, at / resolution);
}

void addT3Batch(WordStream &stream)
{
    PulsedLight &light = std::get<PulsedLight>(stream.Light);
    nextPhotons(light, photonsPerBatch, stream.Photons);
    for (const PulsedPhoton &photon : stream.Photons)
        addT3Photon(stream.Writer, photon.Channel, photon.Pulse,
                    static_cast<uint32_t>(photon.DelayPs / stream.Params.ResolutionPs));
    stream.IsOver = stream.Photons.empty();
    if (stream.IsOver)
        addOverflows(stream.Writer, light.Params.NumPulses);
    else
        stream.Fraction =
            static_cast<double>(stream.Photons.back().Pulse) / static_cast<double>(light.Params.NumPulses);
}

void nextArrivals(WordStream &stream)
{
    if (CwLight *light = std::get_if<CwLight>(&stream.Light))
        return nextArrivals(*light, photonsPerBatch, stream.Arrivals);
    nextPhotons(std::get<PulsedLight>(stream.Light), photonsPerBatch, stream.Photons);
    stream.Arrivals.clear();
    for (const PulsedPhoton &photon : stream.Photons)
        stream.Arrivals.push_back({timeOf(stream.Pulses, photon.Pulse, photon.DelayPs), photon.Channel});
}

void addT2Batch(WordStream &stream)
{
    const auto resolution = static_cast<uint64_t>(stream.Params.ResolutionPs);
    nextArrivals(stream);
    for (const Arrival &arrival : stream.Arrivals) {
        addSyncs(stream, arrival.TimePs);
        addT2Photon(stream.Writer, arrival.Channel, arrival.TimePs / resolution);
    }
    stream.IsOver = stream.Arrivals.empty();
    if (stream.IsOver) {
        addSyncs(stream, stream.Params.DurationPs - 1);
        addOverflows(stream.Writer, stream.Params.DurationPs / resolution);
    } else {
        stream.Fraction =
            static_cast<double>(stream.Arrivals.back().TimePs) / static_cast<double>(stream.Params.DurationPs);
    }
}

} // namespace

WordStream makeWordStream(const StreamParams &params)
{
    WordStream stream;
    stream.Params = params;
    stream.Pulses = pulseTimes(params.SyncPeriodPs);
    stream.Writer = params.MeasMode == 3 ? makeT3Words() : makeT2Words();
    if (const CwParams *cw = std::get_if<CwParams>(&params.Light))
        stream.Light = makeCwLight(*cw);
    else
        stream.Light = makePulsedLight(std::get<PulsedParams>(params.Light));
    return stream;
}

bool nextWords(WordStream &stream)
{
    stream.Writer.Words.clear();
    if (stream.IsOver) return false;
    stream.Params.MeasMode == 3 ? addT3Batch(stream) : addT2Batch(stream);
    if (stream.IsOver) stream.Fraction = 1;
    return true;
}

} // namespace Tessel::Sim
