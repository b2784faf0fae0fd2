// Replay of a recorded file into histograms, from the file in the page cache to the finished byte, against one
// plain loop that reads the same file and counts; without a chain, and through chains of stages of different
// kinds. The fixed cost of a run is measured on a file without records, shown, and taken off.
#include "interleaved.h"
#include "recordings.h"
#include "word_streams.h"

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <numeric>
#include <unistd.h>

using namespace Tessel;

namespace {

constexpr uint32_t dtimes = 32768;

struct Taken
{
    double Seconds = 0;  // on the clock
    double Work = 0;     // of all processors together
    uint64_t Events = 0; // counted
};

double processorSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Each uses inputs, or what an earlier one made, 5 to 8. All eight make 2.3 events of a record.
void addStages(int count)
{
    static constexpr int32_t first[] = {1, 2}, last[] = {3, 4}, merged[] = {5, 6}, made[] = {6, 7};
    static constexpr void (*stages[])() = {
        [] { addMMerge(nullptr, first, 2, 1); },
        [] { addMDelay(nullptr, 3, 50'000, 1); },
        [] { addMHerald(nullptr, 4, merged, 2, 0, 100'000, 0, 1); },
        [] { addMCoincidence(nullptr, last, 2, 10'000, 0, 1, 1); },
        [] { addMCountRate(nullptr, 1e10); },
        [] { addMSubStream(nullptr, 0, ~uint64_t{0}); },
        [] { addMMerge(nullptr, made, 2, 1); },
        [] { addMDelay(nullptr, 2, 200'000, 0); },
    };
    for (int i = 0; i < count; ++i) stages[i]();
}

uint64_t countedIn(const std::vector<uint32_t> &counts)
{
    return std::accumulate(counts.begin(), counts.end(), uint64_t{0});
}

Taken replay(const Bench::Recordings &recordings, const char *name, int stages)
{
    recordings.open(name);
    addStages(stages);
    std::vector<uint32_t> counts(static_cast<size_t>(getNumAllChans(nullptr)) * dtimes);
    uint8_t finished = 0;
    const double before = processorSeconds();
    Taken taken;
    taken.Seconds = Bench::secondsOf([&] { getHistogram(nullptr, 0, 1, 0, counts.data(), &finished); });
    taken.Work = processorSeconds() - before;
    taken.Events = countedIn(counts);
    closeDevice(0);
    return taken;
}

// 14 million photons a second on four inputs, in the order of time, on a laser of 50 MHz.
std::vector<uint32_t> pulsedWords(uint64_t count)
{
    constexpr uint32_t overflow = 1u << 31 | 63u << 25 | 1;
    std::mt19937 random(7);
    std::vector<uint32_t> words;
    uint32_t sync = 0;
    while (words.size() < count) {
        sync += 1 + random() % 6;
        if (sync >= 1024) words.push_back(overflow);
        sync %= 1024;
        words.push_back(random() % Bench::Inputs << 25 | random() % 20'000 << 10 | sync);
    }
    words.push_back(overflow); // the stream is repeated
    return words;
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

// `cpu_ns`: of all processors, a record.
void replayCase(benchmark::State &state)
{
    const uint64_t records = Bench::recordCount(200'000'000);
    const int stages = static_cast<int>(state.range(0));
    const auto words = pulsedWords(1 << 22);
    Bench::Recordings recordings;
    recordings.write("empty.tgx", MeasMode::T3, Bench::Inputs, 0, words);
    recordings.write("full.tgx", MeasMode::T3, Bench::Inputs, records, words);
    std::vector<double> fixed, whole, plain, work;
    uint64_t events = 0;
    forgetPeak();
    for (auto _ : state) {
        fixed.push_back(replay(recordings, "empty.tgx", stages).Seconds);
        const Taken taken = replay(recordings, "full.tgx", stages);
        whole.push_back(taken.Seconds);
        work.push_back(taken.Work);
        events = taken.Events;
        plain.push_back(plainSeconds(recordings.path("full.tgx")));
        state.SetIterationTime(whole.back());
    }
    const auto all = static_cast<double>(records);
    const double net = Bench::median(whole) - Bench::median(fixed);
    state.counters["items_per_second"] = all / net;
    state.counters["x_plain"] = Bench::median(plain) / net;
    state.counters["fixed_ms"] = Bench::median(fixed) * 1e3;
    state.counters["cpu_ns"] = Bench::median(work) / all * 1e9;
    state.counters["events_out"] = static_cast<double>(events) / all;
    state.counters["peak_MiB"] = peakResidentMiB();
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
