// Identity and lifecycle.
#include "sim/instruments/exports/exporting.h"

using namespace Tessel::Sim;

namespace {

// Before anything is initialized.
template <class Body>
int32_t onAny(std::string_view op, int32_t idx, Needs needed, const std::array<Out, 4> &outs, const Body &body)
{
    return perform(thisFamily, {.Op = op, .Idx = idx, .Needed = needed, .Outs = outs}, body);
}

// What is wrong with the description, as there is no instrument then that could say it.
std::string explained(int32_t code)
{
    const std::string mistake = code == badDescription ? descriptionMistake() : "";
    return mistake.empty() ? std::string(textOf(code)) : mistake;
}

int32_t debugInfo(std::string_view op, int32_t idx, char *text)
{
    const TextOut out{text, longRoom};
    const std::string mistake = descriptionMistake();
    if (!mistake.empty() && text) return copyText(out, mistake), ok;
    return onAny(op, idx, Needs::Nothing, {out}, [&](Instrument &instrument) {
        copyText(out, debugText(instrument));
        return ok;
    });
}

} // namespace

OPERATION(GetLibraryVersion)(char *text)
{
    const TextOut out{text, shortRoom};
    return onAny("GetLibraryVersion", anyInstrument, Needs::Nothing, {out}, [&] {
        copyText(out, "1.0 simulated");
        return ok;
    });
}

OPERATION(GetErrorString)(char *text, int32_t code)
{
    const TextOut out{text, shortRoom};
    return onAny("GetErrorString", anyInstrument, Needs::Nothing, {out}, [&] {
        copyText(out, explained(code));
        return ok;
    });
}

OPERATION(OpenDevice)(int32_t idx, char *serial)
{
    const TextOut out{serial, shortRoom};
    return onAny("OpenDevice", idx, Needs::Nothing, {out}, [&](Instrument &instrument) {
        copyText(out, instrument.What.Serial);
        return openInstrument(instrument);
    });
}

OPERATION(CloseDevice)(int32_t idx)
{
    return onAny("CloseDevice", idx, Needs::Open, {}, closeInstrument);
}

#if ON_THESE(ON_SV40)
OPERATION(Initialize)(int32_t idx, int32_t mode)
{
    const int32_t refSource = 0;
#else
OPERATION(Initialize)(int32_t idx, int32_t mode, int32_t refSource)
{
#endif
    return onAny("Initialize", idx, Needs::Open, {},
                 [&](Instrument &instrument) { return initialize(instrument, mode, refSource); });
}

#if ON_THESE(ON_CD)
OPERATION(Calibrate)(int32_t idx)
{
    return on("Calibrate", idx, [](Instrument &) { return ok; });
}
#endif

OPERATION(GetHardwareInfo)(int32_t idx, char *model, char *partNo, char *version)
{
    const TextOut models{model, nameRoom}, partNos{partNo, nameRoom}, versions{version, nameRoom};
    return onAny("GetHardwareInfo", idx, Needs::Open, {models, partNos, versions}, [&](Instrument &instrument) {
        copyText(models, instrument.What.Model);
        copyText(partNos, instrument.What.PartNo);
        copyText(versions, instrument.What.Version);
        return ok;
    });
}

OPERATION(GetFeatures)(int32_t idx, int32_t *bits)
{
    return onAny("GetFeatures", idx, Needs::Open, {bits}, [&](Instrument &instrument) {
        *bits = static_cast<int32_t>(instrument.What.Features);
        return ok;
    });
}

#if ON_THESE(ON_CD90)
OPERATION(GetSyncFeatures)(int32_t idx, int32_t *bits)
{
    return onAny("GetSyncFeatures", idx, Needs::Open, {bits}, [&](Instrument &instrument) {
        *bits = static_cast<int32_t>(instrument.What.Triggers);
        return ok;
    });
}

OPERATION(GetInputFeatures)(int32_t idx, int32_t channel, int32_t *bits)
{
    return onAny("GetInputFeatures", idx, Needs::Open, {bits}, [&](Instrument &instrument) {
        if (channel < 0 || static_cast<size_t>(channel) >= instrument.What.Inputs.size()) return badArgument;
        *bits = static_cast<int32_t>(instrument.What.Triggers);
        return ok;
    });
}
#endif

OPERATION(GetBaseResolution)(int32_t idx, double *resolutionPs, int32_t *steps)
{
    return onAny("GetBaseResolution", idx, Needs::Open, {resolutionPs, steps}, [&](Instrument &instrument) {
        *resolutionPs = instrument.What.BaseResolutionPs;
        *steps = instrument.What.BinningSteps;
        return ok;
    });
}

OPERATION(GetResolution)(int32_t idx, double *resolutionPs)
{
    return on("GetResolution", idx, {resolutionPs}, [&](Instrument &instrument) {
        *resolutionPs = resolution(instrument);
        return ok;
    });
}

OPERATION(GetNumOfInputChannels)(int32_t idx, int32_t *count)
{
    return onAny("GetNumOfInputChannels", idx, Needs::Open, {count}, [&](Instrument &instrument) {
        *count = static_cast<int32_t>(instrument.What.Inputs.size());
        return ok;
    });
}

#if ON_THESE(ON_ZP | ON_CD | ON_CD90)
OPERATION(GetNumOfModules)(int32_t idx, int32_t *count)
{
    return onAny("GetNumOfModules", idx, Needs::Open, {count}, [&](Instrument &instrument) {
        *count = static_cast<int32_t>(instrument.What.Modules.size());
        return ok;
    });
}

OPERATION(GetModuleInfo)(int32_t idx, int32_t module, int32_t *model, int32_t *version)
{
    return onAny("GetModuleInfo", idx, Needs::Open, {model, version},
                 [&](Instrument &instrument) { return moduleInfo(instrument, module, *model, *version); });
}
#endif

#if ON_THESE(ON_ZP | ON_LM70 | ON_CD90)
OPERATION(GetDebugInfo)(int32_t idx, char *text)
{
    return debugInfo("GetDebugInfo", idx, text);
}

OPERATION(SaveDebugDump)(int32_t idx, const char *folder)
{
    return onAny("SaveDebugDump", idx, Needs::Nothing, {Pointer{folder}},
                 [&](Instrument &instrument) { return saveDump(instrument, folder); });
}
#else
OPERATION(GetHardwareDebugInfo)(int32_t idx, char *text)
{
    return debugInfo("GetHardwareDebugInfo", idx, text);
}
#endif
