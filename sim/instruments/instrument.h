// A simulated instrument and what the operations do on it. Every function here needs the instrument's lock,
// which calls.h takes.
#pragma once

#include "sim/instruments/codes.h"
#include "sim/instruments/description.h"
#include "sim/instruments/measurement.h"
#include "sim/instruments/settings.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Tessel::Sim {

// The White Rabbit core: what was set comes back, and a link that is on is up.
struct WhiteRabbit
{
    uint8_t Mac[6] = {};
    std::string InitScript;
    char SfpNames[80] = {};
    int32_t Sfp[3][4] = {};
    bool LinkIsOn = false;
    int32_t Mode[3] = {};
    uint64_t SetSeconds = 0; // since 1970, at SetAt
    std::chrono::steady_clock::time_point SetAt;
    bool TimeIsSet = false;
    std::string Terminal; // what hasn't been read yet
};

struct Instrument
{
    InstrumentDescription What;     // constant
    std::mutex Lock;                // guards all below
    std::condition_variable Closed; // a close ends the calls that hang
    uint64_t Closings = 0;
    std::vector<uint64_t> FaultCalls; // that each entry of What.Faults has seen
    bool IsOpen = false, IsInitialized = false;
    int32_t Mode = 0, RefSource = 0;
    Sim::Settings Settings;
    WhiteRabbit Link;
    uint64_t NumMeasurements = 0;
    std::optional<Measurement> Run; // the present one or the last one
    uint64_t StartWords[2] = {};    // start of the last measurement since 1970 in ps: high, low 64 bits
};

const FamilyFacts &factsOf(const Instrument &instrument);

// identity.cpp
int32_t openInstrument(Instrument &instrument);
int32_t closeInstrument(Instrument &instrument);
int32_t initialize(Instrument &instrument, int32_t mode, int32_t refSource);
int32_t moduleInfo(const Instrument &instrument, int32_t module, int32_t &model, int32_t &version);
std::string debugText(const Instrument &instrument);
int32_t saveDump(const Instrument &instrument, const char *folder);
int32_t warningsOf(const Instrument &instrument);
std::string warningsText(const Instrument &instrument, int32_t warnings);
double resolution(const Instrument &instrument);

// acquisition.cpp
int32_t startMeas(Instrument &instrument, int32_t acqTimeMs);
int32_t stopMeas(Instrument &instrument);
int32_t ctcStatus(Instrument &instrument);
int32_t flagsOf(Instrument &instrument);
int32_t readFifo(Instrument &instrument, std::span<uint32_t> room, int32_t &count);
// All inputs, or one.
int32_t readHistograms(Instrument &instrument, uint32_t *counts);
int32_t readHistogram(Instrument &instrument, uint32_t *counts, int32_t channel, bool clear);
int32_t clearHistograms(Instrument &instrument);
double elapsedMs(Instrument &instrument);
int32_t startTime(const Instrument &instrument, uint32_t &high, uint32_t &middle, uint32_t &low);
void reportTruth(const Instrument &instrument);

// rates.cpp; per second
double syncRate(const Instrument &instrument);
double inputRate(const Instrument &instrument, size_t input);
int32_t filteredRates(Instrument &instrument, bool afterMain, int32_t &sync, int32_t *rates);

// set_inputs.cpp. `channel`: an input, or -1 for all where the family takes it.
using InputSetter = void (*)(InputSettings &, int32_t, int32_t);
int32_t setInputs(Instrument &instrument, int32_t channel, InputSetter set, int32_t first, int32_t second = 0);
bool isIn(const ValueRange &range, int32_t value);
int32_t setWithin(Instrument &instrument, const ValueRange &range, int32_t value, int32_t &setting);
// After a setting that holds at once.
int32_t applied(Instrument &instrument);

// set_filter.cpp; no row: the main filter
struct FilterParams
{
    int32_t RangePs = 0, MatchCount = 1, Inverse = 0;
};
int32_t enableFilter(Instrument &instrument, std::optional<int32_t> row, int32_t enable);
int32_t setMainFilter(Instrument &instrument, const FilterParams &params);
int32_t setMainFilterChannels(Instrument &instrument, int32_t row, int32_t use, int32_t pass);
int32_t setRowFilter(Instrument &instrument, int32_t row, const FilterParams &params, int32_t use,
                     int32_t pass);
int32_t setFilterTest(Instrument &instrument, int32_t test);

// white_rabbit.cpp
uint64_t secondsNow(const WhiteRabbit &link, uint32_t &subSecond);
int32_t linkStatus(const WhiteRabbit &link);
void say(WhiteRabbit &link, const std::string &line); // on its terminal

} // namespace Tessel::Sim
