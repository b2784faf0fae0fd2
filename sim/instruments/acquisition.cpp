// Measuring: start and stop, timer, flags, FIFO, histograms. Time passes when somebody asks. Under the
// instrument's lock.
#include "sim/instruments/instrument.h"

#include <algorithm>
#include <chrono>

namespace Tessel::Sim {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int32_t longestMs = 360000000;
constexpr int mostWindows = 4096; // that one call works off; the rest waits for the next one
// Where the pace is free: at a look at the timer, at a reading.
constexpr int windowsPerLook = 64, windowsPerRead = 1024;
constexpr double psPerSecond = 1e12;
constexpr double mostWorkS = 0.05;
enum Flag : int32_t { FlagOverflow = 1, FlagFifoFull = 2, FlagSyncLost = 4, FlagActive = 32 };

double secondsBetween(Clock::time_point from, Clock::time_point to)
{
    return std::chrono::duration<double>(to - from).count();
}

// The time that working off took passes for the instrument too, unless it can't follow: then it falls behind,
// and doesn't fill its own FIFO.
double countedWork(const Instrument &instrument)
{
    const Measurement &run = *instrument.Run;
    const bool follows = wordsWaiting(run.Recorder.Fifo) < factsOf(instrument).ReadRecords / 2;
    return follows ? std::min(run.WorkS, mostWorkS) : 0;
}

// Works off the time since the last call.
void letTimePass(Instrument &instrument)
{
    Measurement &run = *instrument.Run;
    const double pace = instrument.What.Pace;
    if (run.IsOver || pace == 0) return;
    const Clock::time_point now = Clock::now();
    const double seconds = secondsBetween(run.LookedAt, now) + countedWork(instrument);
    run.DuePs += seconds * pace * psPerSecond;
    if (run.DuePs > 0)
        advanceTo(run, static_cast<uint64_t>(std::min(run.DuePs, 0x1p60)), SIZE_MAX, mostWindows);
    run.LookedAt = Clock::now();
    run.WorkS = secondsBetween(now, run.LookedAt);
}

// Where the pace is free, histograms grow with each look at the timer.
void letHistogramsGrow(Instrument &instrument)
{
    Measurement &run = *instrument.Run;
    letTimePass(instrument);
    if (instrument.What.Pace == 0 && run.Recorder.Mode == 0)
        advanceTo(run, UINT64_MAX, SIZE_MAX, windowsPerLook);
}

int32_t scriptedFlags(const Instrument &instrument)
{
    int32_t flags = 0;
    const double nowMs = static_cast<double>(instrument.Run->DonePs) * 1e-9;
    for (const FlagFault &fault : instrument.What.Flags)
        if (nowMs >= fault.AtMs && nowMs < fault.AtMs + fault.ForMs) flags |= fault.Flag;
    return flags;
}

void keepStartTime(Instrument &instrument)
{
    __extension__ using Wide = unsigned __int128;
    uint32_t subSecond = 0;
    const uint64_t seconds = secondsNow(instrument.Link, subSecond);
    const Wide now = static_cast<Wide>(seconds) * 1000000000000u + static_cast<Wide>(subSecond) * 1000;
    instrument.StartWords[0] = static_cast<uint64_t>(now >> 64);
    instrument.StartWords[1] = static_cast<uint64_t>(now);
}

} // namespace

int32_t startMeas(Instrument &instrument, int32_t acqTimeMs)
{
    if (acqTimeMs < 1 || acqTimeMs > longestMs) return badArgument;
    if (instrument.Run) reportTruth(instrument);
    std::vector<uint32_t> counts;
    if (instrument.Run) counts = std::move(instrument.Run->Recorder.Histograms.Counts);
    instrument.Run = startMeasurement(instrument.What, instrument.Settings, instrument.Mode,
                                      static_cast<uint64_t>(acqTimeMs), instrument.NumMeasurements++);
    // The histogram memory is cleared by ClearHistMem alone.
    std::vector<uint32_t> &fresh = instrument.Run->Recorder.Histograms.Counts;
    if (counts.size() == fresh.size()) fresh = std::move(counts);
    if (!instrument.What.WordsPath.empty()) instrument.Run->WordsFile.open(instrument.What.WordsPath);
    keepStartTime(instrument);
    return ok;
}

int32_t stopMeas(Instrument &instrument)
{
    if (!instrument.Run) return ok;
    letTimePass(instrument);
    instrument.Run->IsOver = true;
    reportTruth(instrument);
    return ok;
}

int32_t ctcStatus(Instrument &instrument)
{
    if (!instrument.Run) return 1;
    letHistogramsGrow(instrument);
    return instrument.Run->IsOver ? 1 : 0;
}

int32_t flagsOf(Instrument &instrument)
{
    if (!instrument.Run) return 0;
    letTimePass(instrument);
    const Measurement &run = *instrument.Run;
    int32_t flags = scriptedFlags(instrument);
    if (run.Recorder.Histograms.HasReachedStop) flags |= FlagOverflow;
    if (run.Recorder.Fifo.HasOverflowed) flags |= FlagFifoFull;
    if (run.Recorder.Mode != 2 && !run.Recorder.Sync.IsThere) flags |= FlagSyncLost;
    if (!run.IsOver && factsOf(instrument).ReportsActive) flags |= FlagActive;
    return flags;
}

int32_t readFifo(Instrument &instrument, std::span<uint32_t> room, int32_t &count)
{
    count = 0;
    if (instrument.Mode == 0) return wrongMode;
    if (!instrument.Run) return ok;
    Measurement &run = *instrument.Run;
    letTimePass(instrument);
    if (instrument.What.Pace == 0) advanceTo(run, UINT64_MAX, room.size(), windowsPerRead);
    const size_t read = readWords(run.Recorder.Fifo, room.data(), room.size());
    run.Truth.WordsRead += read;
    if (run.WordsFile.is_open())
        run.WordsFile.write(reinterpret_cast<const char *>(room.data()),
                            static_cast<std::streamsize>(read * sizeof(uint32_t)));
    count = static_cast<int32_t>(read);
    return ok;
}

int32_t readHistograms(Instrument &instrument, uint32_t *counts)
{
    if (instrument.Mode != 0) return wrongMode;
    if (!instrument.Run) return notMeasuring;
    letTimePass(instrument);
    std::ranges::copy(instrument.Run->Recorder.Histograms.Counts, counts);
    return ok;
}

int32_t readHistogram(Instrument &instrument, uint32_t *counts, int32_t channel, bool clear)
{
    if (instrument.Mode != 0) return wrongMode;
    if (!instrument.Run) return notMeasuring;
    if (channel < 0 || static_cast<size_t>(channel) >= instrument.What.Inputs.size()) return badArgument;
    letTimePass(instrument);
    Histograms &all = instrument.Run->Recorder.Histograms;
    uint32_t *row = all.Counts.data() + static_cast<size_t>(channel) * all.Bins;
    std::copy(row, row + all.Bins, counts);
    if (clear) std::fill(row, row + all.Bins, 0);
    return ok;
}

int32_t clearHistograms(Instrument &instrument)
{
    if (instrument.Mode != 0) return wrongMode;
    if (!instrument.Run) return ok;
    std::ranges::fill(instrument.Run->Recorder.Histograms.Counts, 0);
    instrument.Run->Recorder.Histograms.HasReachedStop = false;
    return ok;
}

double elapsedMs(Instrument &instrument)
{
    if (!instrument.Run) return 0;
    letTimePass(instrument);
    return static_cast<double>(instrument.Run->DonePs) * 1e-9;
}

int32_t startTime(const Instrument &instrument, uint32_t &high, uint32_t &middle, uint32_t &low)
{
    if (!instrument.Run) return notMeasuring;
    high = static_cast<uint32_t>(instrument.StartWords[0]);
    middle = static_cast<uint32_t>(instrument.StartWords[1] >> 32);
    low = static_cast<uint32_t>(instrument.StartWords[1]);
    return ok;
}

void reportTruth(const Instrument &instrument)
{
    const Measurement &run = *instrument.Run;
    const Fifo &fifo = run.Recorder.Fifo;
    writeTruth(settled(run), {.Path = instrument.What.TruthPath,
                              .Serial = instrument.What.Serial,
                              .Seed = instrument.What.Seed,
                              .NumInputs = instrument.What.Inputs.size(),
                              .Run = run.Number,
                              .Mode = run.Recorder.Mode,
                              .SimulatedPs = run.DonePs,
                              .OverflowWords = fifo.Writer.NumOverflows,
                              .WordsLeft = wordsWaiting(fifo),
                              .HasOverflowed = fifo.HasOverflowed});
}

} // namespace Tessel::Sim
