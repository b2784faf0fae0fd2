// Records that the libraries of simulated instruments alone make in a second, read as fast as they can, against
// the random numbers alone that one photon of pulsed light takes, drawn by the standard library: the interval
// to the next one, its input, response and decay. An instrument keeps up with its time up to items_per_second.
#include "interleaved.h"

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <random>
#include <string>
#include <unistd.h>

namespace {

constexpr uint64_t Records = 4'000'000;

struct Family
{
    const char *Prefix, *File;
    bool TakesRoom;
};
constexpr Family Families[] = {{"ZP", "ZPLib64.so", false},
                               {"CD", "CDLib64.so", true},
                               {"SV40", "sv40lib64.so", true},
                               {"LM70", "LM70Lib.so", false},
                               {"CD90", "CD90Lib.so", false}};

// Four decays at 5 Mcps each, as fast as they are read.
std::string describe(const Family &family)
{
    std::string path = "/tmp/tessel_bench_" + std::to_string(getpid()) + ".json";
    std::ofstream(path) << R"({"instruments":[{"family":")" << family.Prefix
                        << R"(","pace":"free","sync":{"periodPs":25000},"input":{"rateCps":5e6}}]})";
    setenv("TESSEL_SIM_INSTRUMENTS", path.c_str(), 1);
    return path;
}

struct Instrument
{
    const Family &Of;
    void *Library;

    template <class... Arguments>
    int32_t call(const char *operation, Arguments... arguments) const
    {
        const std::string name = std::string(Of.Prefix) + "_" + operation;
        return reinterpret_cast<int32_t (*)(Arguments...)>(dlsym(Library, name.c_str()))(arguments...);
    }
};

void readRecords(const Instrument &instrument, std::vector<uint32_t> &words)
{
    int32_t count = 0;
    for (uint64_t all = 0; all < Records; all += static_cast<uint64_t>(count)) {
        if (instrument.Of.TakesRoom)
            instrument.call("ReadFiFo", 0, words.data(), 131072, &count);
        else
            instrument.call("ReadFiFo", 0, words.data(), &count);
    }
}

void drawPhotons(std::mt19937_64 &random, std::vector<uint32_t> &words)
{
    std::exponential_distribution<> interval(1), decay(1e-3);
    std::normal_distribution<> response(0, 50);
    double now = 0;
    for (uint64_t i = 0; i < Records; ++i) {
        now += interval(random);
        words[i % words.size()] = static_cast<uint32_t>(now + response(random) + decay(random)) + random() % 4;
    }
    benchmark::DoNotOptimize(words.data());
}

void simulatedInstrument(benchmark::State &state)
{
    const Family &family = Families[state.range(0)];
    const auto mode = static_cast<int32_t>(state.range(1));
    const std::string description = describe(family);
    const Instrument instrument{family,
                                dlopen((std::string(TESSEL_SIM_FOLDER "/") + family.File).c_str(), RTLD_NOW)};
    std::vector<uint32_t> words(1 << 20), copy(Records), from(Records, 1);
    char serial[64] = "";
    if (!instrument.Library || instrument.call("OpenDevice", 0, serial) < 0)
        return state.SkipWithError("no library of simulated instruments");
    if (family.Prefix == std::string("SV40"))
        instrument.call("Initialize", 0, mode);
    else
        instrument.call("Initialize", 0, mode, 0);
    instrument.call("StartMeas", 0, 360000000);
    std::mt19937_64 random(1);
    Bench::compare(
        state, Records, [&] { readRecords(instrument, words); }, [&] { drawPhotons(random, words); },
        [&] {
            std::memcpy(copy.data(), from.data(), Records * sizeof(uint32_t));
            benchmark::DoNotOptimize(copy.data());
        });
    instrument.call("CloseDevice", 0);
    unlink(description.c_str());
    state.SetLabel(std::string(family.Prefix) + (mode == 2 ? " T2, with syncs" : " T3"));
}

BENCHMARK(simulatedInstrument)
    ->ArgsProduct({{0, 1, 2, 3, 4}, {2, 3}})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
