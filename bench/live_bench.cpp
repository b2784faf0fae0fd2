// Live T3 runs on a simulated instrument, against limits of the same process: the rate that a run with a file
// and a histogram holds against the words that the instrument alone makes, the words a run records against a
// plain write of the same bytes to the same disk, and the time from an event to its count in the host's array.
// TESSEL_BENCH_SECONDS sets how long each run measures.
#include "devices/libs/all.h"
#include "interleaved.h"
#include "recordings.h"
#include "word_streams.h"

#include <atomic>
#include <fcntl.h>
#include <limits>
#include <thread>
#include <unistd.h>

using namespace Tessel;

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t dtimes = 32768;
constexpr const char *recordedName = "live.tgx";

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double wishedSeconds()
{
    const char *text = std::getenv("TESSEL_BENCH_SECONDS");
    return text ? std::atof(text) : 2;
}

// The host of an instrument that is described anew for each run.
class LiveHost
{
public:
    LiveHost()
    {
        setenv("TESSEL_INSTRUMENT_PATH", TESSEL_SIM_FOLDER, 1);
        setenv("TESSEL_SIM_INSTRUMENTS", recordings.path("sim.json").c_str(), 1);
    }

    // `rest`: further keys of the instrument, of which nothing is in the way of its light.
    bool open(const std::string &rest)
    {
        closeDevice(1);
        std::ofstream(recordings.path("sim.json"))
            << R"({"instruments":[{"family":"ZP","sync":{"periodPs":25000},)" << rest << "}]}"
            << std::string(++descriptions, ' '); // another size, so it's read again
        std::array<char, 8192> id{"SIM-ZP-0"};
        return getDevice(id.data()) && initDevice(3, 0);
    }

    std::string recorded() const { return recordings.path(recordedName); }

private:
    Bench::Recordings recordings{32};
    size_t descriptions = 0;
};

class LiveRun
{
public:
    // Counts into a row for each channel, and records if there is a path.
    LiveRun(double seconds, const std::string &path = {}) : recordedPath(path)
    {
        if (!path.empty()) setTGXFilePath(path.c_str());
        const auto acqTimeMs = static_cast<uint32_t>(seconds * 1e3);
        getHistogram(nullptr, acqTimeMs, 0, !path.empty(), Counts.data(), &finished);
    }
    ~LiveRun()
    {
        stopMeasure(nullptr);
        wait();
        if (!recordedPath.empty()) std::filesystem::remove(recordedPath);
    }
    LiveRun(const LiveRun &) = delete;
    LiveRun &operator=(const LiveRun &) = delete;

    bool isOver() { return std::atomic_ref(finished).load(std::memory_order_acquire) != 0; }

    void wait()
    {
        while (!isOver()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    uint64_t counted(size_t row)
    {
        uint64_t sum = 0;
        for (size_t i = row * dtimes; i < (row + 1) * dtimes; ++i)
            sum += std::atomic_ref(Counts[i]).load(std::memory_order_relaxed);
        return sum;
    }

    std::vector<uint32_t> Counts = std::vector<uint32_t>((Bench::Inputs + 1) * dtimes);

private:
    std::string recordedPath;
    uint8_t finished = 0;
};

bool hasLostNothing()
{
    tessel_losses losses{};
    losses.size = sizeof losses;
    return tessel_getLosses(nullptr, &losses) && losses.verdict == TESSEL_CLEAN &&
           losses.recordingVerdict == TESSEL_CLEAN;
}

std::string lightOf(double recordsPerSecond)
{
    return R"("input":{"rateCps":)" + std::to_string(recordsPerSecond / 4) + "}";
}

// Words per second that the instrument makes as fast as they are read, by nobody else.
double simulatedRate(LiveHost &host, double seconds)
{
    if (!host.open(R"("pace":"free",)" + lightOf(20e6))) return 0;
    std::vector<uint32_t> words(1 << 20);
    uint64_t all = 0;
    zp.StartMeas(0, 360'000'000);
    const auto start = Clock::now();
    for (int32_t count = 0; secondsSince(start) < seconds; all += static_cast<uint64_t>(count))
        zp.ReadFiFo(0, words.data(), &count);
    const double rate = static_cast<double>(all) / secondsSince(start);
    zp.StopMeas(0);
    return rate;
}

struct Held
{
    double Seconds = 0, PerSecond = 0;
    bool IsClean = false;
};

Held measureAt(LiveHost &host, double recordsPerSecond, double seconds)
{
    if (!host.open(lightOf(recordsPerSecond))) return {};
    LiveRun run(seconds, host.recorded());
    const auto start = Clock::now();
    run.wait();
    Held held{.Seconds = secondsSince(start), .IsClean = hasLostNothing()};
    for (size_t row = 0; row <= Bench::Inputs; ++row) held.PerSecond += static_cast<double>(run.counted(row));
    held.PerSecond /= seconds;
    return held;
}

// An instrument that can't make its records in time ends later instead of losing any: such a rate isn't held.
// The rate lies within a thirty-second of what the instrument alone makes.
void liveRate(benchmark::State &state)
{
    constexpr int halvings = 5;
    const double seconds = wishedSeconds();
    LiveHost host;
    double fixed = 0, alone = 0;
    Held best;
    for (auto _ : state) {
        fixed = measureAt(host, 1e5, seconds).Seconds - seconds;
        alone = simulatedRate(host, seconds);
        double step = alone / 2, rate = step;
        for (int i = 0; i < halvings; ++i, step /= 2) {
            const Held held = measureAt(host, rate, seconds);
            const bool isHeld = held.IsClean && held.Seconds < seconds * 1.02 + fixed + 0.05;
            if (isHeld && held.PerSecond > best.PerSecond) best = held;
            rate += isHeld ? step / 2 : -step / 2;
        }
        state.SetIterationTime(best.Seconds);
    }
    state.counters["held_per_second"] = best.PerSecond;
    state.counters["simulator_per_second"] = alone;
    state.counters["of_simulator"] = best.PerSecond / alone;
}

// Simulated words come slower than a disk takes them, so ready ones stand in for them.
struct ReadyWords
{
    std::vector<uint32_t> Words = Bench::wordStream(MeasMode::T3, 1 << 20, 70);
    std::atomic<uint64_t> Given{0}, Made{0}; // the first the reader's, the other the host's
    std::atomic<bool> WasAsked{false};
};
ReadyWords *ready = nullptr; // set while no run reads

int32_t giveReadyWords(int32_t, uint32_t *records, int32_t *count)
{
    const uint64_t some = std::min<uint64_t>(ready->Made - ready->Given, ready->Words.size());
    std::copy_n(ready->Words.begin(), some, records);
    ready->Given += some;
    ready->WasAsked = true;
    *count = static_cast<int32_t>(some);
    return 0;
}

template <class Condition>
void waitUntil(const Condition &condition)
{
    while (!condition()) std::this_thread::sleep_for(std::chrono::microseconds(100));
}

uint64_t wordsIn(const std::string &path, uint64_t header)
{
    return (std::filesystem::file_size(path) - header) / sizeof(uint32_t);
}

// Seconds until all words are in the file, and until the disk has them too.
struct Taken
{
    double InFile = 0, OnDisk = 0;
};

double syncSeconds(const std::string &path)
{
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    const double seconds = Bench::secondsOf([&] { fdatasync(file); });
    close(file);
    return seconds;
}

// From the first word that there is. The words are made as fast as the run takes them: up to half of its buffer
// ahead of its file. Negative: the run has lost something.
Taken record(LiveHost &host, ReadyWords &source, uint64_t records)
{
    constexpr uint64_t ahead = 16 << 20;
    const std::string path = host.recorded();
    source.Given = source.Made = 0;
    source.WasAsked = false;
    uint8_t finished = 0;
    setTGXFilePath(path.c_str());
    exportStreamMeasure(nullptr, 0, 0, 1, &finished);
    const auto isOver = [&] { return std::atomic_ref(finished).load() != 0; };
    waitUntil([&] { return source.WasAsked.load() || isOver(); });
    const uint64_t header = std::filesystem::file_size(path);
    const double seconds = Bench::secondsOf([&] {
        waitUntil([&] {
            const uint64_t written = wordsIn(path, header);
            source.Made = std::min(written + ahead, records);
            return written >= records || isOver();
        });
    });
    const bool isWhole = wordsIn(path, header) == records;
    const double syncing = syncSeconds(path);
    stopMeasure(nullptr);
    waitUntil(isOver);
    std::filesystem::remove(path);
    return isWhole && hasLostNothing() ? Taken{seconds, seconds + syncing} : Taken{-1, -1};
}

Taken writePlainly(const std::string &path, const std::vector<uint32_t> &words, uint64_t records)
{
    const double seconds = Bench::secondsOf([&] {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        for (uint64_t left = records; left > 0;) {
            const uint64_t some = std::min<uint64_t>(left, words.size());
            if (write(file, words.data(), some * sizeof(uint32_t)) <= 0) break;
            left -= some;
        }
        close(file);
    });
    const double syncing = syncSeconds(path);
    std::filesystem::remove(path);
    return {seconds, seconds + syncing};
}

// Words per second of the run to those of the plain write: `x_write` with the file in the page cache, `x_disk`
// on the disk.
void liveRecording(benchmark::State &state)
{
    const uint64_t records = Bench::recordCount(100'000'000);
    LiveHost host;
    ReadyWords source;
    ready = &source;
    if (!host.open(R"("pace":"free")")) return state.SkipWithError("no simulated instrument");
    void *const simulated = std::exchange(zp.ReadFiFo.Address, reinterpret_cast<void *>(giveReadyWords));
    std::vector<double> recording, plain, recordingOnDisk, plainOnDisk;
    for (auto _ : state) {
        const Taken written = writePlainly(host.recorded(), source.Words, records);
        const Taken recorded = record(host, source, records);
        if (recorded.InFile < 0) state.SkipWithError("words are missing");
        plain.push_back(written.InFile);
        plainOnDisk.push_back(written.OnDisk);
        recording.push_back(recorded.InFile);
        recordingOnDisk.push_back(recorded.OnDisk);
        state.SetIterationTime(std::abs(recorded.InFile));
    }
    closeDevice(1);
    zp.ReadFiFo.Address = simulated;
    state.counters["items_per_second"] = static_cast<double>(records) / Bench::median(recording);
    state.counters["x_write"] = Bench::median(plain) / Bench::median(recording);
    state.counters["x_disk"] = Bench::median(plainOnDisk) / Bench::median(recordingOnDisk);
}

constexpr double eventPeriodS = 1e-6, firstEventS = 1e-9;

// When the measurement began. The instrument's time is never ahead of the clock, and at times level with it.
Clock::time_point startOfMeasurement()
{
    auto start = Clock::time_point::max();
    for (int i = 0; i < 200; ++i) {
        const auto now = Clock::now();
        double ms = 0;
        zp.GetElapsedMeasTime(0, &ms);
        start = std::min(start, now - std::chrono::nanoseconds(static_cast<int64_t>(ms * 1e6)));
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
    return start;
}

struct Look
{
    Clock::time_point At;
    uint64_t Counted;
};

// Of one event in sixteen, ms.
std::vector<double> latencies(const std::vector<Look> &looks, Clock::time_point start)
{
    std::vector<double> all;
    uint64_t event = looks.front().Counted;
    for (const Look &look : looks)
        for (; event < look.Counted; event += 16) {
            const double happened = firstEventS + static_cast<double>(event) * eventPeriodS;
            all.push_back((std::chrono::duration<double>(look.At - start).count() - happened) * 1e3);
        }
    std::sort(all.begin(), all.end());
    return all;
}

// Events of a signal with a period, so that the n-th count tells when its event happened. A host looks at its
// array about every 0.1 ms, and that is in the figures, as is the window in which the instrument makes events.
void liveLatency(benchmark::State &state)
{
    LiveHost host;
    std::vector<double> ms;
    for (auto _ : state) {
        if (!host.open(
                R"("channels":1,"input":{"rateCps":0,"darkCps":0,"signalPeriodPs":1e6,"signalPhasePs":1e3})"))
            return state.SkipWithError("no simulated instrument");
        const double seconds = wishedSeconds();
        LiveRun run(seconds + 5);
        waitUntil([&] { return run.counted(1) > 0; });
        std::vector<Look> looks;
        const auto first = Clock::now();
        while (secondsSince(first) < seconds) {
            const uint64_t counted = run.counted(1);
            looks.push_back({Clock::now(), counted});
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
        ms = latencies(looks, startOfMeasurement());
        if (!hasLostNothing() || run.isOver()) return state.SkipWithError("events are missing");
        state.SetIterationTime(seconds);
    }
    state.counters["median_ms"] = ms[ms.size() / 2];
    state.counters["p99_ms"] = ms[ms.size() * 99 / 100];
    state.counters["longest_ms"] = ms.back();
}

BENCHMARK(liveRate)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(liveRecording)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(liveLatency)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace
