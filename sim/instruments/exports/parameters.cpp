// Parameters of the sync input, of the measurement and of the markers.
#include "sim/instruments/exports/exporting.h"

using namespace Tessel::Sim;

namespace {

constexpr ValueRange onOff{0, 1};
constexpr int32_t furthestOffsetPs = 99999;

} // namespace

OPERATION(SetSyncDiv)(int32_t idx, int32_t divider)
{
    return on("SetSyncDiv", idx, [&](Instrument &instrument) {
        return setWithin(instrument, factsOf(instrument).SyncDivider, divider, instrument.Settings.SyncDivider);
    });
}

#if ON_THESE(ON_LM70 | ON_CD90)
OPERATION(SetSyncTrgMode)(int32_t idx, int32_t mode)
{
    return on("SetSyncTrgMode", idx, [&](Instrument &instrument) {
        if (!isIn(onOff, mode)) return badArgument;
        if ((instrument.What.Triggers >> mode & 1) == 0) return notAvailable;
        return setWithin(instrument, onOff, mode, instrument.Settings.Sync.TrigMode);
    });
}
#endif

#if ON_THESE(ON_ZP | ON_SV40 | ON_LM70 | ON_CD90)
OPERATION(SetSyncEdgeTrg)(int32_t idx, int32_t level, int32_t edge)
{
    return on("SetSyncEdgeTrg", idx, [&](Instrument &instrument) {
        InputSettings &sync = instrument.Settings.Sync;
        if (!isIn(factsOf(instrument).EdgeLevel, level) || !isIn(onOff, edge)) return badArgument;
        if (thisFamily == FamilyId::SV40) sync.TrigMode = 0;
        sync.Level = level;
        sync.Edge = edge;
        return applied(instrument);
    });
}
#endif

#if ON_THESE(ON_CD | ON_SV40 | ON_LM70 | ON_CD90)
OPERATION(SetSyncCFD)(int32_t idx, int32_t discriminator, int32_t zeroCross)
{
    return on("SetSyncCFD", idx, [&](Instrument &instrument) {
        const FamilyFacts &facts = factsOf(instrument);
        InputSettings &sync = instrument.Settings.Sync;
        if (lacksCfd(instrument)) return notAvailable;
        if (!isIn(facts.Discriminator, discriminator) || !isIn(facts.ZeroCross, zeroCross)) return badArgument;
        if (thisFamily == FamilyId::SV40) sync.TrigMode = 1;
        sync.Discriminator = discriminator;
        sync.ZeroCross = zeroCross;
        return applied(instrument);
    });
}
#endif

OPERATION(SetSyncChannelOffset)(int32_t idx, int32_t offsetPs)
{
    return on("SetSyncChannelOffset", idx, [&](Instrument &instrument) {
        return setWithin(instrument, {-furthestOffsetPs, furthestOffsetPs}, offsetPs,
                         instrument.Settings.Sync.OffsetPs);
    });
}

#if ON_THESE(ON_ZP | ON_LM70 | ON_CD90)
OPERATION(SetSyncChannelEnable)(int32_t idx, int32_t enable)
{
    return on("SetSyncChannelEnable", idx, [&](Instrument &instrument) {
        instrument.Settings.Sync.IsEnabled = enable != 0;
        return applied(instrument);
    });
}

OPERATION(SetSyncDeadTime)(int32_t idx, int32_t isOn, int32_t deadTimePs)
{
    return on("SetSyncDeadTime", idx, [&](Instrument &instrument) {
        if (lacks(instrument, FeatureProgTd)) return notAvailable;
        if (!isIn(factsOf(instrument).DeadTime, deadTimePs)) return badArgument;
        instrument.Settings.Sync.DeadTimePs = isOn ? deadTimePs : 0;
        return applied(instrument);
    });
}

OPERATION(SetInputHysteresis)(int32_t idx, int32_t code)
{
    return on("SetInputHysteresis", idx, [&](Instrument &instrument) {
        if (lacks(instrument, FeatureProgHyst)) return notAvailable;
        return setWithin(instrument, onOff, code, instrument.Settings.HystCode);
    });
}

OPERATION(SetOflCompression)(int32_t idx, int32_t holdTimeMs)
{
    return on("SetOflCompression", idx, [&](Instrument &instrument) {
        return setWithin(instrument, {0, 255}, holdTimeMs, instrument.Settings.HoldTimeMs);
    });
}
#endif

#if ON_THESE(ON_SV40)
OPERATION(SetTimingMode)(int32_t idx, int32_t mode)
{
    return on("SetTimingMode", idx, [&](Instrument &instrument) {
        if (lacks(instrument, FeatureLowRes)) return notAvailable;
        return setWithin(instrument, onOff, mode, instrument.Settings.TimingMode);
    });
}
#endif

OPERATION(SetStopOverflow)(int32_t idx, int32_t stops, uint32_t stopCount)
{
    return on("SetStopOverflow", idx, [&](Instrument &instrument) {
        if (stopCount < 1) return badArgument;
        instrument.Settings.StopsAtOverflow = stops != 0;
        instrument.Settings.StopCount = stopCount;
        return ok;
    });
}

OPERATION(SetBinning)(int32_t idx, int32_t binning)
{
    return on("SetBinning", idx, [&](Instrument &instrument) {
        if (instrument.Mode == 2) return wrongMode;
        return setWithin(instrument, {0, instrument.What.BinningSteps - 1}, binning,
                         instrument.Settings.Binning);
    });
}

OPERATION(SetOffset)(int32_t idx, int32_t offsetPs)
{
    return on("SetOffset", idx, [&](Instrument &instrument) {
        if (instrument.Mode == 2) return wrongMode;
        return setWithin(instrument, factsOf(instrument).Offset, offsetPs, instrument.Settings.OffsetPs);
    });
}

OPERATION(SetHistoLen)(int32_t idx, int32_t code, int32_t *bins)
{
    return on("SetHistoLen", idx, {bins}, [&](Instrument &instrument) {
        if (instrument.Mode != 0) return wrongMode;
        *bins = 1024 << (isIn(factsOf(instrument).LengthCode, code) ? code : 0);
        return setWithin(instrument, factsOf(instrument).LengthCode, code, instrument.Settings.LengthCode);
    });
}

OPERATION(SetMeasControl)(int32_t idx, int32_t control, int32_t startEdge, int32_t stopEdge)
{
    return on("SetMeasControl", idx, [&](Instrument &instrument) {
        Settings &settings = instrument.Settings;
        if (!isIn(onOff, startEdge) || !isIn(onOff, stopEdge)) return badArgument;
        settings.StartEdge = startEdge;
        settings.StopEdge = stopEdge;
        return setWithin(instrument, factsOf(instrument).Control, control, settings.Control);
    });
}

#if ON_THESE(ON_ZP | ON_SV40 | ON_LM70 | ON_CD90)
OPERATION(SetTriggerOutput)(int32_t idx, int32_t period)
{
    return on("SetTriggerOutput", idx, [&](Instrument &instrument) {
        if (lacks(instrument, FeatureTrigOut)) return notAvailable;
        return setWithin(instrument, {0, 16777215}, period, instrument.Settings.TriggerOutput);
    });
}
#endif

#if ON_THESE(ON_CD90)
OPERATION(SetLEDBrightness)(int32_t idx, int32_t level)
{
    return on("SetLEDBrightness", idx, [&](Instrument &instrument) {
        return setWithin(instrument, {0, 2}, level, instrument.Settings.LedBrightness);
    });
}
#endif

OPERATION(SetMarkerEdges)(int32_t idx, int32_t edge1, int32_t edge2, int32_t edge3, int32_t edge4)
{
    return on("SetMarkerEdges", idx, [&](Instrument &instrument) {
        const int32_t edges[] = {edge1, edge2, edge3, edge4};
        if (lacks(instrument, FeatureMarkers)) return notAvailable;
        for (int32_t edge : edges)
            if (!isIn(onOff, edge)) return badArgument;
        for (size_t i = 0; i < 4; ++i) instrument.Settings.Markers[i].Edge = edges[i];
        return applied(instrument);
    });
}

OPERATION(SetMarkerEnable)(int32_t idx, int32_t enable1, int32_t enable2, int32_t enable3, int32_t enable4)
{
    return on("SetMarkerEnable", idx, [&](Instrument &instrument) {
        const int32_t enables[] = {enable1, enable2, enable3, enable4};
        if (lacks(instrument, FeatureMarkers)) return notAvailable;
        for (size_t i = 0; i < 4; ++i) instrument.Settings.Markers[i].IsEnabled = enables[i] != 0;
        return applied(instrument);
    });
}

OPERATION(SetMarkerHoldoffTime)(int32_t idx, int32_t holdoffNs)
{
    return on("SetMarkerHoldoffTime", idx, [&](Instrument &instrument) {
        if (lacks(instrument, FeatureMarkers)) return notAvailable;
        return setWithin(instrument, factsOf(instrument).Holdoff, holdoffNs,
                         instrument.Settings.MarkerHoldoffNs);
    });
}
