// Acquisition: start, stop, records, histograms, flags, warnings, times, rates.
#include "sim/instruments/exports/exporting.h"

using namespace Tessel::Sim;

OPERATION(StartMeas)(int32_t idx, int32_t acqTimeMs)
{
    return on("StartMeas", idx, [&](Instrument &instrument) { return startMeas(instrument, acqTimeMs); });
}

OPERATION(StopMeas)(int32_t idx)
{
    return on("StopMeas", idx, stopMeas);
}

OPERATION(CTCStatus)(int32_t idx, int32_t *status)
{
    return on("CTCStatus", idx, {status}, [&](Instrument &instrument) {
        *status = ctcStatus(instrument);
        return ok;
    });
}

#if ON_THESE(ON_CD | ON_SV40)
OPERATION(ReadFiFo)(int32_t idx, uint32_t *records, int32_t capacity, int32_t *count)
{
#else
OPERATION(ReadFiFo)(int32_t idx, uint32_t *records, int32_t *count)
{
    const auto capacity = static_cast<int32_t>(factsOf(thisFamily).ReadRecords);
#endif
    return on("ReadFiFo", idx, {Records{records, static_cast<size_t>(std::max(capacity, 0))}, count},
              [&](Instrument &instrument) {
                  if (capacity < 0) return badArgument;
                  return readFifo(instrument, {records, static_cast<size_t>(capacity)}, *count);
              });
}

#if ON_THESE(ON_ZP | ON_LM70 | ON_CD90)
OPERATION(GetAllHistograms)(int32_t idx, uint32_t *counts)
{
    return on("GetAllHistograms", idx, {Pointer{counts}},
              [&](Instrument &instrument) { return readHistograms(instrument, counts); });
}

OPERATION(GetAllCountRates)(int32_t idx, int32_t *sync, int32_t *rates)
{
    return on("GetAllCountRates", idx, {sync, rates}, [&](Instrument &instrument) {
        *sync = static_cast<int32_t>(syncRate(instrument) + 0.5);
        for (size_t i = 0; i < instrument.What.Inputs.size(); ++i)
            rates[i] = static_cast<int32_t>(inputRate(instrument, i) + 0.5);
        return ok;
    });
}
#else
OPERATION(GetHistogram)(int32_t idx, uint32_t *counts, int32_t channel, int32_t clear)
{
    return on("GetHistogram", idx, {Pointer{counts}},
              [&](Instrument &instrument) { return readHistogram(instrument, counts, channel, clear != 0); });
}

OPERATION(GetCountRate)(int32_t idx, int32_t channel, int32_t *rate)
{
    return on("GetCountRate", idx, {rate}, [&](Instrument &instrument) {
        if (channel < 0 || static_cast<size_t>(channel) >= instrument.What.Inputs.size()) return badArgument;
        *rate = static_cast<int32_t>(inputRate(instrument, static_cast<size_t>(channel)) + 0.5);
        return ok;
    });
}
#endif

OPERATION(ClearHistMem)(int32_t idx)
{
    return on("ClearHistMem", idx, clearHistograms);
}

OPERATION(GetFlags)(int32_t idx, int32_t *flags)
{
    return on("GetFlags", idx, {flags}, [&](Instrument &instrument) {
        *flags = flagsOf(instrument);
        return ok;
    });
}

OPERATION(GetWarnings)(int32_t idx, int32_t *warnings)
{
    return on("GetWarnings", idx, {warnings}, [&](Instrument &instrument) {
        *warnings = warningsOf(instrument);
        return ok;
    });
}

OPERATION(GetWarningsText)(int32_t idx, char *text, int32_t warnings)
{
    const TextOut out{text, longRoom};
    return on("GetWarningsText", idx, {out}, [&](Instrument &instrument) {
        copyText(out, warningsText(instrument, warnings));
        return ok;
    });
}

OPERATION(GetElapsedMeasTime)(int32_t idx, double *ms)
{
    return on("GetElapsedMeasTime", idx, {ms}, [&](Instrument &instrument) {
        *ms = elapsedMs(instrument);
        return ok;
    });
}

#if ON_THESE(ON_ZP | ON_CD90)
OPERATION(GetStartTime)(int32_t idx, uint32_t *high, uint32_t *middle, uint32_t *low)
{
    return on("GetStartTime", idx, {high, middle, low},
              [&](Instrument &instrument) { return startTime(instrument, *high, *middle, *low); });
}
#endif

OPERATION(GetSyncPeriod)(int32_t idx, double *seconds)
{
    return on("GetSyncPeriod", idx, {seconds}, [&](Instrument &instrument) {
        const double rate = syncRate(instrument);
        *seconds = rate > 0 ? 1 / rate : 0;
        return ok;
    });
}

OPERATION(GetSyncRate)(int32_t idx, int32_t *rate)
{
    return on("GetSyncRate", idx, {rate}, [&](Instrument &instrument) {
        *rate = static_cast<int32_t>(syncRate(instrument) + 0.5);
        return ok;
    });
}
