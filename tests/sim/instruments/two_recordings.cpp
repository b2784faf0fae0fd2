// Two instruments of different families record at once in one process, while one counts a histogram: each word
// that the simulators gave is in a file, or in the ledger.
#include "loaded.h"
#include "support/host.h"

#include <boost/json/parse.hpp>
#include <fmt/format.h>

#include <array>
#include <chrono>
#include <filesystem>

using namespace SimTest;
using namespace TestSupport;

namespace {

struct Recorded
{
    std::string Family, Path, Truth;
    Finished End{};
    boost::json::object Told{}, Found{};
    tessel_losses Losses{};

    std::string id() const { return "SIM-" + Family + "-0"; }
    std::u16string wideId() const { return std::filesystem::path(id()).u16string(); }
    uint64_t lost(tessel_loss_place place) const { return Losses.places[place].lost; }
};

std::string describe(const TempFolder &folder, const std::array<Recorded, 2> &devices, double recordsPerSecond)
{
    std::string text = R"({"instruments": [)";
    for (const Recorded &device : devices)
        text +=
            fmt::format(R"({}{{"family": "{}", "truth": "{}", "sync": {{"periodPs": 25000}},
                               "input": {{"rateCps": {}}}}})",
                        &device == &devices[0] ? "" : ",", device.Family, device.Truth, recordsPerSecond / 4);
    std::ofstream(folder.file("sim.json")) << text << "]}";
    return folder.file("sim.json");
}

void initAndRecordTo(Recorded &device)
{
    std::array<char, 8192> id{};
    device.id().copy(id.data(), id.size() - 1);
    ASSERT_TRUE(getDevice(id.data()));
    ASSERT_TRUE(initDevice(3, 0));
    setTGXFilePath(device.Path.c_str());
}

// After the end: what the simulator, the file and the ledger say.
void collect(Recorded &device)
{
    device.Told = boost::json::parse(contents(device.Truth)).as_object();
    std::array<char, 16384> text{};
    ASSERT_TRUE(tessel_verifyFile(device.Path.c_str(), text.data(), text.size(), nullptr));
    device.Found = boost::json::parse(text.data()).as_object();
}

void expectAccounted(const Recorded &device)
{
    SCOPED_TRACE(device.id());
    const auto &words = device.Told.at("words").as_object();
    const auto kept = device.Found.at("records").to_number<uint64_t>();
    EXPECT_EQ(kept + device.lost(TESSEL_LOSS_FILE) + device.lost(TESSEL_LOSS_READ_BUFFER),
              words.at("read").to_number<uint64_t>());
    EXPECT_EQ(words.at("lost").to_number<uint64_t>() > 0, device.Losses.places[TESSEL_LOSS_FIFO].occasions > 0);
    EXPECT_EQ(device.lost(TESSEL_LOSS_INVALID), 0u);
    if (device.Losses.recordingVerdict == TESSEL_CLEAN) {
        EXPECT_EQ(device.Found.at("verdict"), "clean");
    }
    fmt::print(
        "{}: {} records read, {} in the file, lost {} (file) + {} (read buffer) words, {} events (store), "
        "{} words at the instrument\n",
        device.id(), words.at("read").to_number<uint64_t>(), kept, device.lost(TESSEL_LOSS_FILE),
        device.lost(TESSEL_LOSS_READ_BUFFER), device.lost(TESSEL_LOSS_STORE),
        words.at("lost").to_number<uint64_t>());
}

} // namespace

// TESSEL_TEST_RATE records a second each, for TESSEL_TEST_SECONDS.
TEST(TwoRecordings, LoseNothingThatTheLedgerDoesNotTell)
{
    const double rate = wished("TESSEL_TEST_RATE", 1e6), seconds = wished("TESSEL_TEST_SECONDS", 1);
    const TempFolder folder;
    std::array<Recorded, 2> devices = {
        Recorded{.Family = "ZP", .Path = folder.file("zp.tgx"), .Truth = folder.file("zp.json")},
        Recorded{.Family = "LM70", .Path = folder.file("lm.tgx"), .Truth = folder.file("lm.json")}};
    setenv("TESSEL_INSTRUMENT_PATH", TESSEL_SIM_FOLDER, 1);
    setenv("TESSEL_SIM_INSTRUMENTS", describe(folder, devices, rate).c_str(), 1);
    const auto acqTimeMs = static_cast<uint32_t>(seconds * 1e3);
    Counts counts(5, 32768);
    uint64_t rawCount = 0;
    double took = 0;
    {
        Host host("[Params]\nBufferSize=32\n");
        initAndRecordTo(devices[0]);
        const auto start = std::chrono::steady_clock::now();
        getHistogram(nullptr, acqTimeMs, 0, 1, counts.data.data(), devices[0].End.get());
        initAndRecordTo(devices[1]);
        rawMeasure(nullptr, acqTimeMs, 0, 1, nullptr, &rawCount, 0, devices[1].End.get());
        for (Recorded &device : devices) {
            ASSERT_TRUE(device.End.wait(std::chrono::seconds(60) + std::chrono::milliseconds(20 * acqTimeMs)));
            took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            device.Losses.size = sizeof device.Losses;
            ASSERT_TRUE(tessel_getLosses(device.wideId().c_str(), &device.Losses));
        }
    }
    for (Recorded &device : devices) {
        collect(device);
        expectAccounted(device);
    }
    uint64_t recorded = 0;
    for (const auto &input : devices[0].Told.at("inputs").as_array())
        recorded += input.at("recorded").to_number<uint64_t>();
    const uint64_t lost = devices[0].lost(TESSEL_LOSS_STORE) + devices[0].lost(TESSEL_LOSS_READ_BUFFER);
    EXPECT_LE(counts.sum(), recorded);
    EXPECT_GE(counts.sum() + lost, recorded);
    fmt::print("{} s of {} records/s each took {:.1f} s; {} of {} events counted\n", seconds, rate, took,
               counts.sum(), recorded);
}
