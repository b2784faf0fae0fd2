// What `tessel simulate` is asked for: as typed, and as understood.
#pragma once

#include "sim/stream.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tessel::Cli {

// As typed; an empty text means the default of the mode.
struct SimulateOptions
{
    std::string Path, Mode = "t3", Light, Family = "CD", Comment;
    std::string Rates = "100kcps", Background = "200cps", SyncRate, Duration = "1s", Lifetimes = "2.5ns",
                Response = "150ps", Delay = "2ns", Recovery = "5ns", CorrelationTime = "1us",
                DiffusionTime = "100us", Resolution;
    double Molecules = 2;
    int Channels = 0;
    uint64_t Seed = 1;
    bool Force = false;
};

enum class Light { Poisson, Antibunched, Bunched, Diffusing, Pulsed };

// As understood: picoseconds and events per second.
struct Simulation
{
    int MeasMode = 3;
    Light Source = Light::Pulsed;
    int Family = 1;
    std::vector<double> Rates, Background, LifetimesPs;
    double SyncRate = 0; // 0: no sync
    double DurationPs = 0, SigmaPs = 0, DelayPs = 0, RecoveryPs = 0, CorrelationPs = 0, DiffusionPs = 0,
           ResolutionPs = 0;
    double Molecules = 0;
    uint64_t Seed = 0;
};

// Throws a usage Failure that names the option which is wrong.
Simulation understood(const SimulateOptions &options);

// The light and the record form, as the simulation of an instrument takes them.
Sim::StreamParams streamParams(const Simulation &wanted);

} // namespace Tessel::Cli
