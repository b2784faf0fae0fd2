// A parameter on its way to an instrument: limits, lock, location, call and check, with and without its trace
// line in a day file. The library does nothing; the bare call of its operation beside it is the limit.
#include "devices/libs/all.h"
#include "devices/sync.h"
#include "interleaved.h"
#include "log/log.h"

#include <filesystem>

using namespace Tessel;

namespace {

constexpr int callsPerTurn = 2000;

int32_t accept(int32_t, int32_t divider)
{
    benchmark::DoNotOptimize(divider);
    return 0;
}

struct LoadedLibrary
{
    LoadedLibrary() { zp.SetSyncDiv.Address = reinterpret_cast<void *>(accept); }
    ~LoadedLibrary() { zp.SetSyncDiv.Address = nullptr; }
};

struct RunningLog
{
    explicit RunningLog(bool traces)
    {
        std::filesystem::create_directories(Folder);
        LogLevel.Device = traces;
        startLog(true, false, Folder.string(), "Tessel", "bench");
    }
    ~RunningLog()
    {
        stopLog();
        LogLevel.Device = true;
        std::filesystem::remove_all(Folder);
    }
    std::filesystem::path Folder = std::filesystem::temp_directory_path() / "tessel_bench_log";
};

void setSyncDiv(benchmark::State &state)
{
    const LoadedLibrary library;
    const RunningLog log(state.range(0) != 0);
    Device device;
    device.DeviceType = DeviceType::Instrument;
    device.LibType = LibType::ZP;
    device.Index = 0;
    device.ID = "1010101";
    std::vector<double> setSeconds, bareSeconds;
    for (auto _ : state) {
        bareSeconds.push_back(Bench::secondsOf([&] {
            for (int i = 0; i < callsPerTurn; ++i) zp.SetSyncDiv(0, i % 16 + 1);
        }));
        setSeconds.push_back(Bench::secondsOf([&] {
            for (int i = 0; i < callsPerTurn; ++i) SetSyncDiv(device, i % 16 + 1);
        }));
        state.SetIterationTime(setSeconds.back());
    }
    const double set = Bench::median(setSeconds) / callsPerTurn;
    state.counters["ns_a_call"] = set * 1e9;
    state.counters["x_bare_call"] = set * callsPerTurn / Bench::median(bareSeconds);
}
BENCHMARK(setSyncDiv)->ArgName("trace")->Arg(0)->Arg(1)->UseManualTime()->Iterations(200);

} // namespace
