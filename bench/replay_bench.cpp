// Replay of a recorded file into histograms, from the file in the page cache to the finished byte, against one
// plain loop that reads the same file and counts. The fixed waits of a run's start are measured on a file
// without records and taken off.
#include "interleaved.h"
#include "tessel.h"
#include "word_streams.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

constexpr uint64_t defaultRecords = 200'000'000;
constexpr uint32_t dtimes = 32768;

uint64_t recordCount()
{
    const char *given = std::getenv("TESSEL_BENCH_RECORDS");
    return given ? std::strtoull(given, nullptr, 10) : defaultRecords;
}

// A folder with a recording, an empty one and settings; the library is up while it lives.
class Replay
{
public:
    explicit Replay(uint64_t records)
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "tessel-bench-XXXXXX").string();
        folder = mkdtemp(pattern.data());
        std::ofstream(folder / "system.ini") << "[Log]\nFile=false\nConsole=false\n[Params]\nBufferSize=8\n";
        initAPI((folder / "system.ini").c_str());
        write("empty.tgx", 0);
        write("full.tgx", records);
    }
    ~Replay()
    {
        exitAPI();
        std::filesystem::remove_all(folder);
    }

    std::string path(const char *name) const { return (folder / name).string(); }

    double seconds(const char *name, int stages)
    {
        std::array<char, 8192> buffer{};
        std::strncpy(buffer.data(), path(name).c_str(), buffer.size() - 1);
        getFileDevice(buffer.data());
        for (int32_t i = 1; i <= stages; ++i) addMMerge(nullptr, &i, 1, 1);
        counts.assign(static_cast<size_t>(getNumAllChans(nullptr)) * dtimes, 0);
        uint8_t finished = 0;
        double taken = Bench::secondsOf([&] { getHistogram(nullptr, 0, 1, 0, counts.data(), &finished); });
        closeDevice(0);
        return taken;
    }

private:
    void write(const char *name, uint64_t records)
    {
        tessel_recording_params params{};
        params.size = sizeof params;
        params.measMode = 3;
        params.numChannels = Bench::Inputs;
        params.baseResolution = params.resolution = 1;
        params.syncRate = 50e6;
        tessel_recording *recording = tessel_recordingCreate(path(name).c_str(), &params);
        const auto words = Bench::wordStream(Tessel::MeasMode::T3, 1 << 22, 70);
        for (uint64_t left = records; left > 0; left -= std::min<uint64_t>(left, words.size()))
            tessel_recordingWrite(recording, words.data(), std::min<uint64_t>(left, words.size()));
        tessel_recordingClose(recording);
    }

    std::filesystem::path folder;
    std::vector<uint32_t> counts;
};

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

void replayCase(benchmark::State &state)
{
    const uint64_t records = recordCount();
    Replay replay(records);
    std::vector<double> fixed, whole, plain;
    const int stages = static_cast<int>(state.range(0));
    forgetPeak();
    for (auto _ : state) {
        fixed.push_back(replay.seconds("empty.tgx", stages));
        whole.push_back(replay.seconds("full.tgx", stages));
        plain.push_back(plainSeconds(replay.path("full.tgx")));
        state.SetIterationTime(whole.back());
    }
    const double net = Bench::median(whole) - Bench::median(fixed);
    state.counters["items_per_second"] = static_cast<double>(records) / net;
    state.counters["x_plain"] = Bench::median(plain) / net;
    state.counters["fixed_ms"] = Bench::median(fixed) * 1e3;
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
