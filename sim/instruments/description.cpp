// From the JSON text to the description of the instruments. Pure. The order of a file's keys doesn't matter.
#include "sim/instruments/description.h"

#include "sim/instruments/fault_script.h"
#include "sim/instruments/json_node.h"
#include "sim/instruments/operations.h"

#include <algorithm>

namespace Tessel::Sim {

namespace {

constexpr double longestPs = 3.6e17; // of a measurement, 100 hours
constexpr int maxInputs = 64;

InputDescription standardInput(int number)
{
    constexpr double lifetimes[] = {800, 1600, 2900, 4100};
    InputDescription input;
    input.RateCps = 100000;
    input.DarkCps = 100;
    input.LifetimePs = lifetimes[number % 4];
    return input;
}

InstrumentDescription standardInstrument(FamilyId family)
{
    const FamilyFacts &facts = factsOf(family);
    InstrumentDescription instrument;
    instrument.Family = family;
    instrument.Model = facts.Model;
    instrument.PartNo = facts.PartNo;
    instrument.Version = facts.Version;
    instrument.Features = facts.Features;
    instrument.BaseResolutionPs = facts.BaseResolutionPs;
    instrument.BinningSteps = facts.BinningSteps;
    instrument.FifoRecords = facts.FifoRecords;
    for (int32_t i = 0; i < facts.Modules; ++i) instrument.Modules.push_back({1000 + i, 0x01020304 + i});
    for (int i = 0; i < facts.Channels; ++i) instrument.Inputs.push_back(standardInput(i));
    return instrument;
}

// The serial and the MAC address say family and port, unless the file does.
void setIdentity(InstrumentDescription &instrument, const std::string &serial)
{
    const auto family = static_cast<uint8_t>(instrument.Family);
    instrument.Serial = serial;
    if (serial.empty())
        instrument.Serial =
            "SIM-" + std::string(factsOf(instrument.Family).Prefix) + "-" + std::to_string(instrument.Port);
    const uint8_t mac[] = {0x02, 0x51, 0x4d, 0x00, family, static_cast<uint8_t>(instrument.Port)};
    std::ranges::copy(mac, instrument.Mac);
}

void readSync(JsonNode &node, SyncDescription &sync)
{
    readNumber(node, "periodPs", sync.PeriodPs, 1000, 1e12);
    readFlag(node, "present", sync.IsThere);
    readInteger(node, "heightMv", sync.HeightMv, -2000, 2000);
    readPositive(node, "widthPs", sync.WidthPs, 1e9);
    readPositive(node, "delayPs", sync.DelayPs, 1e9);
}

void readLight(JsonNode &node, LightDescription &light)
{
    int kind = static_cast<int>(light.Kind);
    readChoice(node, "kind", kind, {"pulsed", "poissonian", "antibunched", "bunched", "diffusing"});
    light.Kind = static_cast<LightKind>(kind);
    readPositive(node, "responsePs", light.ResponsePs, 1e9);
    readPositive(node, "delayPs", light.DelayPs, 1e12);
    readNumber(node, "recoveryPs", light.RecoveryPs, 1, 1e12);
    readNumber(node, "correlationPs", light.CorrelationPs, 1, 1e15);
    readNumber(node, "molecules", light.Molecules, 0.01, 1000);
    readNumber(node, "diffusionPs", light.DiffusionPs, 1000, 1e15);
}

void readInput(JsonNode &node, InputDescription &input, int number)
{
    readPositive(node, "rateCps", input.RateCps, 1e9);
    readPositive(node, "darkCps", input.DarkCps, 1e9);
    readPositive(node, "lifetimePs", input.LifetimePs, 1e12);
    readPositive(node, "signalPeriodPs", input.SignalPeriodPs, 1e15);
    if (input.SignalPeriodPs > 0 && input.SignalPeriodPs < 1000)
        failAt(node.Path + "signalPeriodPs", "is below 1000");
    readPositive(node, "signalPhasePs", input.SignalPhasePs, 1e15);
    readPositive(node, "jitterPs", input.JitterPs, 1e9);
    readPositive(node, "detectorDeadPs", input.DetectorDeadPs, 1e12);
    readNumber(node, "afterpulsing", input.Afterpulsing, 0, 0.9);
    readPositive(node, "afterpulsePs", input.AfterpulsePs, 1e12);
    readNumber(node, "crosstalk", input.Crosstalk, 0, 0.45);
    input.CrosstalkTo = number ^ 1;
    int32_t neighbour = input.CrosstalkTo + 1; // a file counts channels from 1
    readInteger(node, "crosstalkTo", neighbour, 1, maxInputs);
    input.CrosstalkTo = neighbour - 1;
    readInteger(node, "heightMv", input.HeightMv, -2000, 2000);
    readPositive(node, "widthPs", input.WidthPs, 1e9);
    readPositive(node, "delayPs", input.DelayPs, 1e9);
}

// The keys of `input` hold for all channels, those of `inputs` for one after the other.
void readInputs(JsonNode &node, std::vector<InputDescription> &inputs)
{
    auto count = static_cast<int>(inputs.size());
    readInteger(node, "channels", count, 1, maxInputs);
    inputs.clear();
    for (int i = 0; i < count; ++i) inputs.push_back(standardInput(i));
    for (int i = 0; i < count; ++i) {
        inputs[static_cast<size_t>(i)].CrosstalkTo = i ^ 1;
        readObject(node, "input",
                   [&](JsonNode &inner) { readInput(inner, inputs[static_cast<size_t>(i)], i); });
    }
    int number = 0;
    readArray(node, "inputs", [&](const boost::json::value &value, const std::string &path) {
        if (number >= count) failAt(path, "is more than there are channels");
        JsonNode inner = nodeOf(value, path);
        readInput(inner, inputs[static_cast<size_t>(number)], number);
        checkKeys(inner);
        ++number;
    });
}

void readMarkers(JsonNode &node, std::vector<MarkerDescription> &markers)
{
    readArray(node, "markers", [&](const boost::json::value &value, const std::string &path) {
        if (markers.size() == 4) failAt(path, "is a fifth marker");
        MarkerDescription &marker = markers.emplace_back();
        JsonNode inner = nodeOf(value, path);
        readPositive(inner, "periodPs", marker.PeriodPs, longestPs);
        readPositive(inner, "phasePs", marker.PhasePs, longestPs);
        readPositive(inner, "rateCps", marker.RateCps, 1e7);
        readPositive(inner, "widthPs", marker.WidthPs, longestPs);
        if (marker.PeriodPs > 0 && marker.PeriodPs < 1e5) failAt(path + ".periodPs", "is below 100000");
        if (marker.PeriodPs > 0 && marker.RateCps > 0) failAt(path, "has a period and a rate");
        checkKeys(inner);
    });
}

void readFeatures(JsonNode &node, uint32_t &features)
{
    if (find(node, "features")) features = 0;
    readArray(node, "features", [&](const boost::json::value &value, const std::string &path) {
        const std::string_view name = value.is_string() ? std::string_view(value.get_string()) : "";
        const auto *found = std::ranges::find(featureNames, name);
        if (found == std::end(featureNames)) failAt(path, "is no feature");
        features |= 1u << (found - std::begin(featureNames));
    });
}

void readModules(JsonNode &node, std::vector<ModuleDescription> &modules)
{
    if (find(node, "modules")) modules.clear();
    readArray(node, "modules", [&](const boost::json::value &value, const std::string &path) {
        JsonNode inner = nodeOf(value, path);
        ModuleDescription &module = modules.emplace_back();
        readInteger(inner, "model", module.Model, INT32_MIN, INT32_MAX);
        readInteger(inner, "version", module.Version, INT32_MIN, INT32_MAX);
        checkKeys(inner);
    });
}

void readPace(JsonNode &node, double &pace)
{
    const boost::json::value *value = find(node, "pace");
    if (value && value->is_string() && value->get_string() == "free")
        pace = 0;
    else
        readNumber(node, "pace", pace, 0.001, 1e6);
}

void readMeasuring(JsonNode &node, InstrumentDescription &instrument)
{
    readPace(node, instrument.Pace);
    readObject(node, "sync", [&](JsonNode &inner) { readSync(inner, instrument.Sync); });
    readObject(node, "light", [&](JsonNode &inner) { readLight(inner, instrument.Light); });
    readObject(node, "control", [&](JsonNode &inner) {
        readPositive(inner, "delayPs", instrument.Control.DelayPs, longestPs);
        readPositive(inner, "lengthPs", instrument.Control.LengthPs, longestPs);
    });
    readInputs(node, instrument.Inputs);
    readMarkers(node, instrument.Markers);
    double rate = 0;
    for (InputDescription &input : instrument.Inputs) {
        if (input.CrosstalkTo >= static_cast<int32_t>(instrument.Inputs.size())) input.Crosstalk = 0;
        rate += input.RateCps;
    }
    if (instrument.Light.Kind == LightKind::Antibunched && rate > saturationRate(instrument.Light.RecoveryPs))
        failAt(node.Path + "light.recoveryPs", "is too long for the sum of the rates");
}

void readInstrument(JsonNode &node, InstrumentDescription &instrument)
{
    const double steps = 31;
    readText(node, "model", instrument.Model);
    readText(node, "partNo", instrument.PartNo);
    readText(node, "version", instrument.Version);
    readFeatures(node, instrument.Features);
    readInteger(node, "baseResolutionPs", instrument.BaseResolutionPs, 1, 1000);
    readInteger(node, "binningSteps", instrument.BinningSteps, 1, steps);
    readModules(node, instrument.Modules);
    readFlag(node, "busy", instrument.IsBusy);
    readInteger(node, "seed", instrument.Seed, 0, 9e15);
    readInteger(node, "fifoRecords", instrument.FifoRecords, 1024, 1 << 26);
    readText(node, "truth", instrument.TruthPath);
    readText(node, "words", instrument.WordsPath);
    readInteger(node, "triggers", instrument.Triggers, 1, 3);
    readInteger(node, "warnings", instrument.Warnings, 0, INT32_MAX);
    readMeasuring(node, instrument);
}

// One entry of the file makes `number` instruments on ports that follow one another, each with a seed of its
// own.
void readEntry(JsonNode &node, std::vector<InstrumentDescription> &all)
{
    std::string family = "ZP", serial;
    readText(node, "family", family);
    const std::optional<FamilyId> id = familyNamed(family);
    if (!id) failAt(node.Path + "family", "isn't one of ZP, CD, SV40, LM70, CD90");
    InstrumentDescription instrument = standardInstrument(*id);
    instrument.Port = static_cast<int32_t>(std::ranges::count(all, *id, &InstrumentDescription::Family));
    readInteger(node, "port", instrument.Port, 0, factsOf(*id).Ports - 1);
    int32_t number = 1;
    readInteger(node, "number", number, 0, factsOf(*id).Ports - instrument.Port);
    readText(node, "serial", serial);
    if (serial.size() > 48) failAt(node.Path + "serial", "is longer than 48 characters");
    readInstrument(node, instrument);
    readFaults(node, instrument.Faults, instrument.Flags);
    const std::string truth = instrument.TruthPath, words = instrument.WordsPath;
    for (int32_t i = 0; i < number; ++i, ++instrument.Port, ++instrument.Seed) {
        const std::string end = i > 0 ? "-" + std::to_string(i + 1) : "";
        setIdentity(instrument, serial.empty() ? serial : serial + end);
        if (!truth.empty()) instrument.TruthPath = truth + end;
        if (!words.empty()) instrument.WordsPath = words + end;
        for (const InstrumentDescription &other : all)
            if (other.Family == *id && other.Port == instrument.Port) failAt(node.Path + "port", "is taken");
        all.push_back(instrument);
    }
}

} // namespace

int32_t filterRowWidth(const InstrumentDescription &what)
{
    return what.Family == FamilyId::CD90 && !what.Model.ends_with(" S") ? 16 : 8;
}

Description standardDescription()
{
    InstrumentDescription instrument = standardInstrument(FamilyId::ZP);
    setIdentity(instrument, "");
    return {.Instruments = {instrument}, .Faults = {}};
}

Description readDescription(const std::string &json)
{
    const boost::json::value value = parseJson(json);
    Description description;
    std::vector<FlagFault> noFlags;
    JsonNode node = nodeOf(value, "");
    readArray(node, "instruments", [&](const boost::json::value &entry, const std::string &path) {
        JsonNode inner = nodeOf(entry, path);
        readEntry(inner, description.Instruments);
        checkKeys(inner);
    });
    readFaults(node, description.Faults, noFlags);
    checkKeys(node);
    return description;
}

} // namespace Tessel::Sim
