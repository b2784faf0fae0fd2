// What instruments there are and what they see, as the JSON file of TESSEL_SIM_INSTRUMENTS says it. Plain
// records; docs/simulated-instruments.md has each key with unit, range and default.
#pragma once

#include "sim/cw.h"
#include "sim/instruments/family.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Tessel::Sim {

struct InputDescription
{
    double RateCps = 0, DarkCps = 0;
    double LifetimePs = 0;     // of the decay; pulsed light only
    double SignalPeriodPs = 0; // of a periodic signal; 0: none
    double SignalPhasePs = 0;  // of its first pulse
    double JitterPs = 0;       // Gaussian, of a detection
    double DetectorDeadPs = 0; // after each detection
    double Afterpulsing = 0;   // probability of an afterpulse
    double AfterpulsePs = 1e5; // mean time of an afterpulse behind the dead time
    double Crosstalk = 0;      // probability that the neighbour sees the detection too
    int32_t CrosstalkTo = 0;   // input, from 0
    int32_t HeightMv = -300;   // of a pulse
    double WidthPs = 1000;     // of a pulse: its trailing edge comes so much later
    double DelayPs = 0;        // of the cable
};

enum class LightKind { Pulsed, Poissonian, Antibunched, Bunched, Diffusing };

struct LightDescription
{
    LightKind Kind = LightKind::Pulsed;
    double ResponsePs = 50;     // sigma of the instrument response; pulsed light only
    double DelayPs = 2000;      // from the sync to its centre; pulsed light only
    double RecoveryPs = 20000;  // antibunched
    double CorrelationPs = 1e6; // bunched
    double Molecules = 2;       // diffusing
    double DiffusionPs = 2e8;   // diffusing
};

struct SyncDescription
{
    double PeriodPs = 200000; // of laser and sync signal
    bool IsThere = true;
    int32_t HeightMv = -300;
    double WidthPs = 1000, DelayPs = 0;
};

// A square wave, or pulses at random.
struct MarkerDescription
{
    double PeriodPs = 0, PhasePs = 0;
    double RateCps = 0; // at random, instead of a period
    double WidthPs = 1e6;
};

// A signal at the control inputs: when it comes after StartMeas, and how long it stays.
struct ControlDescription
{
    double DelayPs = 1e10, LengthPs = 1e12;
};

struct ModuleDescription
{
    int32_t Model = 0, Version = 0;
};

struct FlagFault
{
    int32_t Flag = 0;
    double AtMs = 0, ForMs = std::numeric_limits<double>::infinity(); // of the measurement
};

// What a call does in place of the operation, or to its results.
struct Endless
{
};
struct Hang
{
    double Ms = std::numeric_limits<double>::infinity();
};
struct Flood
{
};
using FaultAction = std::variant<int32_t /* code */, Hang, double /* out value */, Endless, Flood>;

struct CallFault
{
    std::string Op; // "*": each
    uint64_t From = 1, To = UINT64_MAX, Every = 1;
    FaultAction Action;
};

struct InstrumentDescription
{
    FamilyId Family = FamilyId::ZP;
    int32_t Port = 0;
    std::string Serial, Model, PartNo, Version;
    uint32_t Features = 0;
    int32_t BaseResolutionPs = 1, BinningSteps = 1;
    std::vector<ModuleDescription> Modules;
    bool IsBusy = false;
    uint64_t Seed = 1;
    double Pace = 1; // of its clock; 0: as fast as it is read
    uint32_t FifoRecords = 0;
    std::string TruthPath, WordsPath; // empty: none
    uint32_t Triggers = 3;            // CD90: 1 edge, 2 CFD
    int32_t Warnings = 0;             // besides those that it finds
    uint8_t Mac[6] = {};
    SyncDescription Sync;
    LightDescription Light;
    ControlDescription Control;
    std::vector<InputDescription> Inputs;
    std::vector<MarkerDescription> Markers; // up to four
    std::vector<CallFault> Faults;
    std::vector<FlagFault> Flags;
};

int32_t filterRowWidth(const InstrumentDescription &instrument); // channels

struct Description
{
    std::vector<InstrumentDescription> Instruments;
    std::vector<CallFault> Faults; // of calls that name no instrument
};

// One instrument of the first family with four decays.
Description standardDescription();

// Throws a std::runtime_error whose text begins with the place of the mistake.
Description readDescription(const std::string &json);

} // namespace Tessel::Sim
