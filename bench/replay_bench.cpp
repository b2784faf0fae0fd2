// Replay of a recorded file into histograms, from the file in the page cache to the finished byte, against one
// plain loop that reads the same file and counts. The fixed waits of a run's start are measured on a file
// without records and taken off.
#include "interleaved.h"
#include "manipulators/merge.h"
#include "recordings.h"
#include "stream/event_store.h"
#include "stream/words.h"
#include "word_streams.h"

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

using namespace Tessel;

namespace {

constexpr uint32_t dtimes = 32768;

struct Taken
{
    double Seconds = 0; // on the clock
    double Work = 0;    // of all processors together
};

double processorSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Stage number i copies channel i, so the later ones copy what the earlier ones made.
Taken replay(const Bench::Recordings &recordings, const char *name, int stages)
{
    recordings.open(name);
    for (int32_t i = 1; i <= stages; ++i) addMMerge(nullptr, &i, 1, 1);
    std::vector<uint32_t> counts(static_cast<size_t>(getNumAllChans(nullptr)) * dtimes);
    uint8_t finished = 0;
    const double before = processorSeconds();
    Taken taken;
    taken.Seconds = Bench::secondsOf([&] { getHistogram(nullptr, 0, 1, 0, counts.data(), &finished); });
    taken.Work = processorSeconds() - before;
    closeDevice(0);
    return taken;
}

// The same stages one after the other on arrays: what is left of the work of a run where nobody hands over.
double stageSeconds(const std::vector<uint32_t> &words, int stages)
{
    const uint64_t most = words.size() * 4;
    EventStore in, out;
    allocate(in, most);
    allocate(out, most);
    uint64_t overflowBase = 0;
    InvalidWords invalid;
    in.Count = decode(words, {.Mode = MeasMode::T3, .NumChans = Bench::Inputs, .SyncPeriodPs = 20'000},
                      overflowBase, in.Times.get(), in.Channels.get(), invalid);
    std::memset(out.Times.get(), 1, most * sizeof(uint64_t));
    std::memset(out.Channels.get(), 1, most);
    StageRef stage{std::make_shared<DeviceEntry>(), std::make_shared<Manipulator>(),
                   std::shared_ptr<Run>(new Run{.Facts = {.Mode = MeasMode::T3}})};
    double seconds = 0;
    for (int i = 1; i <= stages; ++i) {
        stage.record->InChans = {static_cast<uint8_t>(i)};
        stage.record->OutChans = {static_cast<uint8_t>(Bench::Inputs + i)};
        MergeState state{true};
        out.Count = 0;
        seconds += Bench::secondsOf([&] {
            work(state, stage, {in.Times.get(), in.Channels.get(), in.Count}, out);
        });
        std::swap(in, out);
    }
    return seconds;
}

// What an engineer would write first for this file.
double plainSeconds(const std::string &path)
{
    std::vector<uint32_t> counts((Bench::Inputs + 1) * dtimes), words(1 << 20);
    return Bench::secondsOf([&] {
        int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        uint64_t overflowBase = 0;
        for (ssize_t bytes; (bytes = read(file, words.data(), words.size() * 4)) > 0;) {
            for (ssize_t i = 0; i < bytes / 4; ++i) {
                uint32_t word = words[static_cast<size_t>(i)], channel = word >> 25 & 63;
                if (word >> 31) {
                    if (channel == 63) overflowBase += uint64_t{word & 0x3FF} << 10;
                } else if (channel < Bench::Inputs) {
                    ++counts[(channel + 1) * dtimes + (word >> 10 & 0x7FFF)];
                }
            }
        }
        benchmark::DoNotOptimize(overflowBase);
        benchmark::DoNotOptimize(counts.data());
        close(file);
    });
}

double peakResidentMiB()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0) return std::atof(line.c_str() + 6) / 1024;
    return 0;
}

void forgetPeak()
{
    std::ofstream("/proc/self/clear_refs") << 5;
}

// `handover_share`: of the work of a run with stages, what neither the stages do nor the same run without them.
void replayCase(benchmark::State &state)
{
    const uint64_t records = Bench::recordCount(200'000'000);
    const int stages = static_cast<int>(state.range(0));
    const auto words = Bench::wordStream(MeasMode::T3, 1 << 22, 70);
    Bench::Recordings recordings;
    recordings.write("empty.tgx", MeasMode::T3, Bench::Inputs, 0, words);
    recordings.write("full.tgx", MeasMode::T3, Bench::Inputs, records, words);
    std::vector<double> fixed, whole, plain, work, bareWork, stageWork;
    forgetPeak();
    for (auto _ : state) {
        fixed.push_back(replay(recordings, "empty.tgx", stages).Seconds);
        const Taken taken = replay(recordings, "full.tgx", stages);
        whole.push_back(taken.Seconds);
        work.push_back(taken.Work);
        plain.push_back(plainSeconds(recordings.path("full.tgx")));
        state.SetIterationTime(whole.back());
        if (stages == 0) continue;
        bareWork.push_back(replay(recordings, "full.tgx", 0).Work);
        stageWork.push_back(stageSeconds(words, stages) * static_cast<double>(records) /
                            static_cast<double>(words.size()));
    }
    const double net = Bench::median(whole) - Bench::median(fixed);
    state.counters["items_per_second"] = static_cast<double>(records) / net;
    state.counters["x_plain"] = Bench::median(plain) / net;
    state.counters["fixed_ms"] = Bench::median(fixed) * 1e3;
    state.counters["peak_MiB"] = peakResidentMiB();
    if (stages > 0)
        state.counters["handover_share"] =
            1 - (Bench::median(bareWork) + Bench::median(stageWork)) / Bench::median(work);
}

BENCHMARK(replayCase)
    ->Name("replay")
    ->ArgName("stages")
    ->Arg(0)
    ->Arg(1)
    ->Arg(3)
    ->Arg(8)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

} // namespace
