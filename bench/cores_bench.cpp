// One recorded file on several cores, from the page cache to the finished byte: against one core, and against
// one plain loop that reads the same file and counts. The fixed cost of a run, measured on a file without
// records, is taken off.
#include "interleaved.h"
#include "recordings.h"
#include "word_streams.h"

#include <fcntl.h>
#include <thread>
#include <unistd.h>

using namespace Tessel;

namespace {

constexpr uint64_t T2Bins = 4096, T2BinWidth = 20; // of units of 5 ps

struct Host
{
    std::vector<uint32_t> Counts = std::vector<uint32_t>((Bench::Inputs + 1) * 65536);
    std::vector<double> X = std::vector<double>(4096), Y = X;
    uint64_t FirstBin = 0;
    uint8_t Finished = 0;
};

void histogram(Host &host)
{
    getHistogram(nullptr, 0, 1, 0, host.Counts.data(), &host.Finished);
}
void histogramT2(Host &host)
{
    setHistoT2NumBins(nullptr, T2Bins);
    setHistoT2BinWidth(nullptr, T2BinWidth);
    histogram(host);
}
void trace(Host &host)
{
    getTimeTrace(nullptr, 0, 1, 0, host.Counts.data(), &host.FirstBin, &host.Finished);
}
// About one pair an event.
void g2(Host &host)
{
    setG2Params(nullptr, 1, 2, 16'384, 16, 1);
    getCorrelation(nullptr, 0, 1, 0, host.Y.data(), host.X.data(), &host.Finished);
}

// Calls `count` with the words of the file, a read at a time.
template <class Count>
void readPlain(const std::string &path, Count count)
{
    std::vector<uint32_t> words(1 << 20);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    for (ssize_t bytes; (bytes = read(file, words.data(), words.size() * 4)) > 0;)
        count(words.data(), static_cast<size_t>(bytes) / 4);
    close(file);
}

void plainT3(const std::string &path)
{
    std::vector<uint32_t> h(1 << 22);
    readPlain(path, [&](const uint32_t *words, size_t size) {
        for (size_t i = 0; i < size; ++i) ++h[words[i] >> 10];
    });
    benchmark::DoNotOptimize(h.data());
}

void plainT2(const std::string &path)
{
    std::vector<uint32_t> h((Bench::Inputs + 1) * T2Bins);
    uint64_t base = 0, reference = 0;
    readPlain(path, [&](const uint32_t *words, size_t size) {
        uint64_t overflows = base, last = reference;
        for (size_t i = 0; i < size; ++i) {
            const uint32_t word = words[i], channel = word >> 25 & 63;
            const uint64_t time = (overflows + (word & 0x1FFFFFF)) * 5;
            uint32_t row = channel + 1;
            if (word >> 31) {
                if (channel == 63) overflows += uint64_t{word & 0x1FFFFFF} << 25;
                if (channel != 0) continue;
                row = 0;
            }
            const uint64_t bin = (time - last) / T2BinWidth;
            if (last != 0 && bin < T2Bins) ++h[row * T2Bins + bin];
            if (row == 0) last = time;
        }
        base = overflows;
        reference = last;
    });
    benchmark::DoNotOptimize(h.data());
}

struct Look
{
    const char *Name;
    MeasMode Mode;
    void (*Measure)(Host &host);
    void (*Plain)(const std::string &path); // null: compared with one core alone
};

constexpr Look looks[] = {{"cores/histogram T3", MeasMode::T3, histogram, plainT3},
                          {"cores/histogram T2", MeasMode::T2, histogramT2, plainT2},
                          {"cores/trace T2", MeasMode::T2, trace, nullptr},
                          {"cores/g2 T2", MeasMode::T2, g2, nullptr},
                          {"cores/g2 T3", MeasMode::T3, g2, nullptr}};

double measureSeconds(const Bench::Recordings &recordings, const char *name, const Look &look, int threads,
                      Host &host)
{
    tessel_setThreads(threads);
    recordings.open(name);
    const double seconds = Bench::secondsOf([&] { look.Measure(host); });
    closeDevice(0);
    return seconds;
}

double peakMiB()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0) return std::atof(line.c_str() + 6) / 1024;
    return 0;
}

// `x_plain` and `x_one_core` tell how many times as fast as the plain loop and as one thread all cores are.
void coresCase(benchmark::State &state, const Look &look)
{
    const uint64_t records = Bench::recordCount(200'000'000);
    const auto words = Bench::wordStream(look.Mode, 1 << 22, 70);
    Bench::Recordings recordings;
    recordings.write("empty.tgx", look.Mode, Bench::Inputs, 0, words);
    recordings.write("full.tgx", look.Mode, Bench::Inputs, records, words);
    std::vector<double> fixed, all, one, plain;
    Host host;
    std::ofstream("/proc/self/clear_refs") << 5;
    for (auto _ : state) {
        fixed.push_back(measureSeconds(recordings, "empty.tgx", look, 0, host));
        all.push_back(measureSeconds(recordings, "full.tgx", look, 0, host));
        state.SetIterationTime(all.back());
        if (all.size() == 1) state.counters["peak_MiB"] = peakMiB();
        one.push_back(measureSeconds(recordings, "full.tgx", look, 1, host));
        if (look.Plain) plain.push_back(Bench::secondsOf([&] { look.Plain(recordings.path("full.tgx")); }));
    }
    const double fixedSeconds = Bench::median(fixed), net = Bench::median(all) - fixedSeconds;
    state.counters["cores"] = std::thread::hardware_concurrency();
    state.counters["items_per_second"] = static_cast<double>(records) / net;
    state.counters["x_one_core"] = (Bench::median(one) - fixedSeconds) / net;
    state.counters["fixed_ms"] = fixedSeconds * 1e3;
    if (look.Plain) state.counters["x_plain"] = Bench::median(plain) / net;
    tessel_setThreads(0);
}

const bool registered = [] {
    for (const Look &look : looks)
        benchmark::RegisterBenchmark(look.Name, [&look](benchmark::State &state) { coresCase(state, look); })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond)
            ->Iterations(5);
    return true;
}();

} // namespace
