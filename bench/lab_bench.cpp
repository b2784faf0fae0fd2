// What a lab looks at for one recording, one after the other: histograms, the trace and the rates of all
// channels, g2 of two of them. T2, four inputs of 1 Mcps each and a sync of 1 MHz.
#include "interleaved.h"
#include "recordings.h"

#include <random>

using namespace Tessel;

namespace {

constexpr int Inputs = 4;
constexpr uint64_t TimeStep = uint64_t{1} << 25; // ps from overflow to overflow

std::vector<uint32_t> poissonianWords(uint64_t count)
{
    constexpr uint32_t special = 1u << 31, overflow = special | 63u << 25;
    std::mt19937 random(7);
    std::exponential_distribution<> gap((Inputs + 1) * 1e6 * 1e-12);
    std::vector<uint32_t> words;
    double now = 0;
    uint64_t steps = 0;
    while (words.size() < count) {
        now += gap(random);
        const auto time = static_cast<uint64_t>(now);
        if (time / TimeStep != steps)
            words.push_back(overflow | static_cast<uint32_t>(time / TimeStep - steps));
        steps = time / TimeStep;
        const auto low = static_cast<uint32_t>(time % TimeStep);
        const uint32_t source = random() % (Inputs + 1);
        words.push_back(source == Inputs ? special | low : source << 25 | low);
    }
    return words;
}

void countRates(std::vector<uint32_t> &result)
{
    uint8_t finished = 0;
    const int32_t index = addMCountRate(nullptr, 1e9);
    getHistogram(nullptr, 0, 1, 0, result.data(), &finished);
    std::vector<uint32_t> rates(static_cast<size_t>(getNumAllChans(nullptr)));
    getMCountRates(nullptr, index, rates.data());
    clearManis(nullptr);
}

void trace(std::vector<uint32_t> &result)
{
    uint8_t finished = 0;
    uint64_t firstBin = 0;
    getTimeTrace(nullptr, 0, 1, 0, result.data(), &firstBin, &finished);
}

void g2(std::vector<uint32_t> &)
{
    uint8_t finished = 0;
    setG2Params(nullptr, 1, 2, 1e6, 100, 1);
    std::vector<double> y(20'000), x(20'000);
    getCorrelation(nullptr, 0, 1, 0, y.data(), x.data(), &finished);
}

using Look = void (*)(std::vector<uint32_t> &);
constexpr std::array<Look, 3> Looks = {countRates, trace, g2};

double lookSeconds(const Bench::Recordings &recordings, const char *name, Look look,
                   std::vector<uint32_t> &result)
{
    recordings.open(name);
    const double seconds = Bench::secondsOf([&] { look(result); });
    closeDevice(0);
    return seconds;
}

// Records a second of all looks together and, in millions, of each: every look sees every record.
void labCase(benchmark::State &state)
{
    const uint64_t records = Bench::recordCount(50'000'000);
    Bench::Recordings recordings;
    const auto words = poissonianWords(1 << 22);
    recordings.write("empty.tgx", MeasMode::T2, Inputs, 0, words);
    recordings.write("full.tgx", MeasMode::T2, Inputs, records, words);
    std::vector<uint32_t> result((Inputs + 1) * 65536);
    const char *const names[] = {"rates_Mps", "trace_Mps", "g2_Mps"};
    std::array<std::vector<double>, Looks.size()> net;
    for (auto _ : state) {
        double all = 0;
        for (size_t i = 0; i < Looks.size(); ++i) {
            net[i].push_back(lookSeconds(recordings, "full.tgx", Looks[i], result) -
                             lookSeconds(recordings, "empty.tgx", Looks[i], result));
            all += net[i].back();
        }
        state.SetIterationTime(all);
    }
    double all = 0;
    for (size_t i = 0; i < Looks.size(); ++i) {
        const double seconds = Bench::median(net[i]);
        state.counters[names[i]] = static_cast<double>(records) / seconds * 1e-6;
        all += seconds;
    }
    state.counters["items_per_second"] = static_cast<double>(records) / all;
}

BENCHMARK(labCase)->Name("lab/rates+trace+g2")->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

} // namespace
