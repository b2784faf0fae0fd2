// The instruments of this library, as the description has them. The table and its description live as long as
// the process: a call that hangs for good may still use them when the process ends.
#include "sim/instruments/library.h"

#include "sim/instruments/description.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Tessel::Sim {

namespace {

constexpr const char *variable = "TESSEL_SIM_INSTRUMENTS";

struct Table
{
    std::mutex Lock; // guards all below; no instrument's lock is taken for long under it
    bool IsRead = false;
    std::string Path, Text, Mistake;
    std::vector<std::shared_ptr<Instrument>> Instruments;
    std::shared_ptr<LibraryFaults> Faults = std::make_shared<LibraryFaults>();
};

Table &table()
{
    static Table &theTable = *new Table;
    return theTable;
}

std::string textOfFile(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error(path + ": can't be read");
    return {std::istreambuf_iterator<char>(file), {}};
}

bool isInUse(const Table &all)
{
    for (const auto &instrument : all.Instruments) {
        const std::unique_lock held(instrument->Lock, std::try_to_lock);
        if (!held || instrument->IsOpen) return true;
    }
    return false;
}

std::shared_ptr<Instrument> makeInstrument(const InstrumentDescription &what)
{
    auto instrument = std::make_shared<Instrument>();
    instrument->What = what;
    instrument->FaultCalls.assign(what.Faults.size(), 0);
    std::copy(std::begin(what.Mac), std::end(what.Mac), instrument->Link.Mac);
    return instrument;
}

void setTable(Table &all, const Description &description, FamilyId family)
{
    all.Instruments.clear();
    for (const InstrumentDescription &what : description.Instruments)
        if (what.Family == family) all.Instruments.push_back(makeInstrument(what));
    all.Faults = std::make_shared<LibraryFaults>();
    all.Faults->Script = description.Faults;
    all.Faults->Calls.assign(description.Faults.size(), 0);
}

} // namespace

void refreshDescription(FamilyId family)
{
    Table &all = table();
    const std::lock_guard lock(all.Lock);
    const char *named = secure_getenv(variable);
    const std::string path = named ? named : "";
    if (all.IsRead && isInUse(all)) return;
    std::string text, mistake;
    Description description;
    try {
        if (!path.empty()) text = textOfFile(path);
        if (all.IsRead && path == all.Path && text == all.Text) return;
        description = path.empty() ? standardDescription() : readDescription(text);
    } catch (const std::runtime_error &error) {
        mistake = error.what();
    }
    all.IsRead = true;
    all.Path = path;
    all.Text = text;
    all.Mistake = mistake;
    setTable(all, description, family);
}

std::string descriptionMistake()
{
    Table &all = table();
    const std::lock_guard lock(all.Lock);
    return all.Mistake;
}

std::shared_ptr<Instrument> instrumentAt(int32_t idx)
{
    Table &all = table();
    const std::lock_guard lock(all.Lock);
    for (const auto &instrument : all.Instruments)
        if (instrument->What.Port == idx) return instrument;
    return nullptr;
}

std::shared_ptr<LibraryFaults> libraryFaults()
{
    Table &all = table();
    const std::lock_guard lock(all.Lock);
    return all.Faults;
}

} // namespace Tessel::Sim
