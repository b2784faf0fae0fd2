// Settings of the inputs, one or all. Under the instrument's lock.
#include "sim/instruments/instrument.h"

namespace Tessel::Sim {

bool isIn(const ValueRange &range, int32_t value)
{
    return value >= range.Least && value <= range.Most;
}

int32_t setInputs(Instrument &instrument, int32_t channel, InputSetter set, int32_t first, int32_t second)
{
    std::vector<InputSettings> &inputs = instrument.Settings.Inputs;
    const bool isAll = channel == -1 && factsOf(instrument).TakesAllChannels;
    if (!isAll && (channel < 0 || static_cast<size_t>(channel) >= inputs.size())) return badArgument;
    for (size_t i = 0; i < inputs.size(); ++i)
        if (isAll || i == static_cast<size_t>(channel)) set(inputs[i], first, second);
    return applied(instrument);
}

int32_t setWithin(Instrument &instrument, const ValueRange &range, int32_t value, int32_t &setting)
{
    if (!isIn(range, value)) return badArgument;
    setting = value;
    return applied(instrument);
}

int32_t applied(Instrument &instrument)
{
    if (instrument.Run && !instrument.Run->IsOver)
        applySettings(*instrument.Run, instrument.What, instrument.Settings);
    return ok;
}

} // namespace Tessel::Sim
