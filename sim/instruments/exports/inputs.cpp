// Parameters of the inputs.
#include "sim/instruments/exports/exporting.h"

using namespace Tessel::Sim;

namespace {

[[maybe_unused]] constexpr ValueRange zeroOrOne{0, 1}; // not of every family
constexpr int32_t furthestShiftPs = 99999;

} // namespace

#if ON_THESE(ON_LM70 | ON_CD90)
OPERATION(SetInputTrgMode)(int32_t idx, int32_t channel, int32_t mode)
{
    return on("SetInputTrgMode", idx, [&](Instrument &instrument) {
        if (lacks(instrument, FeatureInputMode)) return notAvailable;
        if (!isIn(zeroOrOne, mode)) return badArgument;
        if ((instrument.What.Triggers >> mode & 1) == 0) return notAvailable;
        return setInputs(
            instrument, channel, [](InputSettings &input, int32_t to, int32_t) { input.TrigMode = to; }, mode);
    });
}
#endif

#if ON_THESE(ON_ZP | ON_SV40 | ON_LM70 | ON_CD90)
OPERATION(SetInputEdgeTrg)(int32_t idx, int32_t channel, int32_t level, int32_t edge)
{
    return on("SetInputEdgeTrg", idx, [&](Instrument &instrument) {
        if (!isIn(factsOf(instrument).EdgeLevel, level) || !isIn(zeroOrOne, edge)) return badArgument;
        const InputSetter set = [](InputSettings &input, int32_t toLevel, int32_t toEdge) {
            if (thisFamily == FamilyId::SV40) input.TrigMode = 0;
            input.Level = toLevel;
            input.Edge = toEdge;
        };
        return setInputs(instrument, channel, set, level, edge);
    });
}
#endif

#if ON_THESE(ON_CD | ON_SV40 | ON_LM70 | ON_CD90)
OPERATION(SetInputCFD)(int32_t idx, int32_t channel, int32_t discriminator, int32_t zeroCross)
{
    return on("SetInputCFD", idx, [&](Instrument &instrument) {
        const FamilyFacts &facts = factsOf(instrument);
        if (lacksCfd(instrument)) return notAvailable;
        if (!isIn(facts.Discriminator, discriminator) || !isIn(facts.ZeroCross, zeroCross)) return badArgument;
        const InputSetter set = [](InputSettings &input, int32_t toDiscriminator, int32_t toZeroCross) {
            if (thisFamily == FamilyId::SV40) input.TrigMode = 1;
            input.Discriminator = toDiscriminator;
            input.ZeroCross = toZeroCross;
        };
        return setInputs(instrument, channel, set, discriminator, zeroCross);
    });
}
#endif

OPERATION(SetInputChannelOffset)(int32_t idx, int32_t channel, int32_t offsetPs)
{
    return on("SetInputChannelOffset", idx, [&](Instrument &instrument) {
        if (!isIn({-furthestShiftPs, furthestShiftPs}, offsetPs)) return badArgument;
        return setInputs(
            instrument, channel, [](InputSettings &input, int32_t to, int32_t) { input.OffsetPs = to; },
            offsetPs);
    });
}

OPERATION(SetInputChannelEnable)(int32_t idx, int32_t channel, int32_t enable)
{
    return on("SetInputChannelEnable", idx, [&](Instrument &instrument) {
        return setInputs(
            instrument, channel, [](InputSettings &input, int32_t to, int32_t) { input.IsEnabled = to != 0; },
            enable);
    });
}

#if ON_THESE(ON_SV40)
OPERATION(SetInputDeadTime)(int32_t idx, int32_t channel, int32_t code)
{
    return on("SetInputDeadTime", idx, [&](Instrument &instrument) {
        constexpr int32_t deadTimesPs[] = {24000, 44000, 66000, 88000, 112000, 135000, 160000, 180000};
        if (lacks(instrument, FeatureProgTd)) return notAvailable;
        if (!isIn(factsOf(instrument).DeadTime, code)) return badArgument;
        return setInputs(
            instrument, channel, [](InputSettings &input, int32_t to, int32_t) { input.DeadTimePs = to; },
            deadTimesPs[code]);
    });
}
#elif ON_THESE(ON_ZP | ON_LM70 | ON_CD90)
OPERATION(SetInputDeadTime)(int32_t idx, int32_t channel, int32_t isOn, int32_t deadTimePs)
{
    return on("SetInputDeadTime", idx, [&](Instrument &instrument) {
        if (lacks(instrument, FeatureProgTd)) return notAvailable;
        if (!isIn(factsOf(instrument).DeadTime, deadTimePs)) return badArgument;
        return setInputs(
            instrument, channel, [](InputSettings &input, int32_t to, int32_t) { input.DeadTimePs = to; },
            isOn ? deadTimePs : 0);
    });
}
#endif
