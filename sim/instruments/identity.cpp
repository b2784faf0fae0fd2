// Opening, closing, and what an instrument says of itself. Under the instrument's lock.
#include "sim/instruments/instrument.h"

#include <fstream>

namespace Tessel::Sim {

namespace {

struct Warning
{
    int32_t Bit;
    const char *Text;
};
constexpr Warning warnings[] = {{1, "The sync rate is 0."},
                                {2, "The sync rate is below 100 per second."},
                                {4, "An enabled input counts nothing."},
                                {8, "An input counts more than a twentieth of the sync rate."},
                                {16, "An input has an offset."}};

int32_t inputWarnings(const Instrument &instrument)
{
    int32_t found = 0;
    const double sync = syncRate(instrument);
    for (size_t i = 0; i < instrument.What.Inputs.size(); ++i) {
        const InputSettings &input = instrument.Settings.Inputs[i];
        const double rate = inputRate(instrument, i);
        if (input.IsEnabled && rate < 1) found |= 4;
        if (instrument.Mode != 2 && rate > sync / 20 && sync > 0) found |= 8;
        if (input.OffsetPs != 0) found |= 16;
    }
    return found;
}

// The settings of an instrument that was just initialized.
Settings freshSettings(const InstrumentDescription &what)
{
    const FamilyFacts &facts = factsOf(what.Family);
    Settings settings;
    if (!facts.HasEdge || what.Triggers == 2) settings.Sync.TrigMode = 1;
    settings.Inputs.assign(what.Inputs.size(), settings.Sync);
    settings.LengthCode = facts.LengthCode.Most;
    for (FilterSettings *row = settings.RowFilters; row < settings.RowFilters + numFilterRows; ++row)
        row->MatchCount = 1;
    return settings;
}

} // namespace

const FamilyFacts &factsOf(const Instrument &instrument)
{
    return factsOf(instrument.What.Family);
}

int32_t openInstrument(Instrument &instrument)
{
    if (instrument.What.IsBusy) return busy;
    instrument.IsOpen = true;
    return ok;
}

int32_t closeInstrument(Instrument &instrument)
{
    if (instrument.Run) stopMeas(instrument);
    instrument.Run.reset();
    instrument.IsOpen = instrument.IsInitialized = false;
    return ok;
}

int32_t initialize(Instrument &instrument, int32_t mode, int32_t refSource)
{
    if (mode != 0 && mode != 2 && mode != 3) return badArgument;
    if (instrument.Run) stopMeas(instrument);
    instrument.Run.reset();
    instrument.Mode = mode;
    instrument.RefSource = refSource;
    instrument.Settings = freshSettings(instrument.What);
    instrument.IsInitialized = true;
    return ok;
}

int32_t moduleInfo(const Instrument &instrument, int32_t module, int32_t &model, int32_t &version)
{
    if (module < 0 || static_cast<size_t>(module) >= instrument.What.Modules.size()) return badArgument;
    model = instrument.What.Modules[static_cast<size_t>(module)].Model;
    version = instrument.What.Modules[static_cast<size_t>(module)].Version;
    return ok;
}

std::string debugText(const Instrument &instrument)
{
    std::string text = "Simulated " + instrument.What.Model + " " + instrument.What.Serial;
    text += "\nmode " + std::to_string(instrument.Mode) + ", reference " + std::to_string(instrument.RefSource);
    if (!instrument.Run) return text + "\nno measurement";
    const Measurement &run = *instrument.Run;
    text += "\nmeasurement " + std::to_string(run.Number) + (run.IsOver ? ", over" : ", active");
    text += "\nsimulated " + std::to_string(run.DonePs) + " ps";
    return text + "\nFIFO " + std::to_string(wordsWaiting(run.Recorder.Fifo)) + " of " +
           std::to_string(run.Recorder.Fifo.Capacity) + (run.Recorder.Fifo.HasOverflowed ? ", overflowed" : "");
}

// The folder ends in a separator of either kind.
int32_t saveDump(const Instrument &instrument, const char *folder)
{
    std::string path = folder;
    for (char &character : path)
        if (character == '\\') character = '/';
    std::ofstream file(path + instrument.What.Serial + "_dump.txt");
    file << debugText(instrument) << '\n';
    file.close();
    return file ? ok : noFile;
}

int32_t warningsOf(const Instrument &instrument)
{
    int32_t found = instrument.What.Warnings;
    const double sync = syncRate(instrument);
    if (instrument.Mode != 2 && sync < 1) found |= 1;
    if (instrument.Mode != 2 && sync >= 1 && sync < 100) found |= 2;
    return found | inputWarnings(instrument);
}

std::string warningsText(const Instrument &, int32_t bits)
{
    std::string text;
    for (const Warning &warning : warnings)
        if (bits & warning.Bit) text += std::string(text.empty() ? "" : "\n") + warning.Text;
    return text;
}

double resolution(const Instrument &instrument)
{
    const auto base = static_cast<uint64_t>(instrument.What.BaseResolutionPs);
    return static_cast<double>(instrument.Mode == 2 ? base : base << instrument.Settings.Binning);
}

} // namespace Tessel::Sim
