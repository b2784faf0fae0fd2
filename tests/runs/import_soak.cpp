// Devices that import from one another while several host threads open, close, start and stop them at random:
// no call takes long, and in the end all of it still works. TESSEL_TEST_SECONDS sets how long.
#include "support/host.h"
#include "support/random_words.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>

using namespace TestSupport;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int channels = 4;
constexpr size_t records = 1'500'000; // two chunks: a run is still going when it's stopped
// A start stops and starts the source first, and the source its own: a run in the way has a second to move, a
// new one takes half a second to begin.
constexpr auto longestStart = 3 * 1s + 2 * 500ms;
constexpr auto longestStall = 2s;

std::chrono::milliseconds soakTime()
{
    const char *given = getenv("TESSEL_TEST_SECONDS");
    return given ? std::chrono::seconds(std::atoi(given)) : 6s;
}

// A file, the id under which it was opened last, and memory that outlives every run.
class Place
{
public:
    Place(const Host &host, uint32_t seed)
        : path(TgxFile::t2(channels, 5)
                   .tag("HW_SerialNo", std::to_string(seed))
                   .records(randomWords({.count = records, .t3 = false, .overflowShare = 0.01, .seed = seed}))
                   .write(host.folder().file(std::to_string(seed) + ".tgx"))),
          counts(256, 65536),
          times(50'000),
          codes(50'000)
    {
    }

    std::u16string id()
    {
        std::lock_guard lock(idLock);
        return lastId;
    }
    void open()
    {
        std::array<char, 8192> text{};
        std::strncpy(text.data(), path.c_str(), text.size() - 1);
        getFileDevice(text.data());
        std::lock_guard lock(idLock);
        lastId.assign(text.data(), text.data() + std::strlen(text.data()));
    }
    // Another thread may make another device current in between: then that one is closed.
    void close()
    {
        const std::u16string wanted = id();
        std::array<char, 8192> text{};
        std::copy(wanted.begin(), wanted.end(), text.begin());
        getDevice(text.data());
        closeDevice(0);
    }
    void histogram() { getHistogram(id().c_str(), 0, 0, 0, counts.data.data(), finished.get()); }
    void block() { ufStartBlock(id().c_str(), 0, 0, times.data(), codes.data(), times.size(), finished.get()); }
    uint64_t rowSum(size_t row) const { return counts.rowSum(row); }

    Finished finished;
    std::mutex starting; // a host starts a run, closes the device or clears its chain

private:
    const std::string path;
    Counts counts;
    std::vector<uint64_t> times;
    std::vector<uint8_t> codes;
    std::mutex idLock;
    std::u16string lastId; // guard: idLock
};

// Three places and what hosts do to them. One host at a time starts or closes a device, as any host must; all
// else happens beside it.
class Ring
{
public:
    explicit Ring(const Host &host) : places{{{host, 1}, {host, 2}, {host, 3}}}
    {
        for (Place &place : places) place.open();
    }

    void act(std::mt19937 &random)
    {
        Place &own = places[random() % 3], &other = places[random() % 3]; // now and then itself
        const int32_t wanted[] = {1, 3};
        const uint32_t action = random() % 20;
        if (action < 1) return alone(own, "close", [&] { own.close(); });
        if (action < 4) return timed("open", [&] { own.open(); });
        if (action < 9)
            return timed("import", [&] {
                if (getNumAllChans(own.id().c_str()) > channels + 1) return;
                addMImportStream(own.id().c_str(), other.id().c_str(), action > 4, wanted, 2, 1000);
            });
        if (action < 11) return alone(own, "clear", [&] { clearManis(own.id().c_str()); });
        if (action < 12) return timed("delete", [&] { deleteMani(own.id().c_str(), 0); });
        if (action < 16) return alone(own, "histogram", [&] { own.histogram(); });
        if (action < 17) return alone(own, "block", [&] { own.block(); });
        timed("stop", [&] { stopMeasure(own.id().c_str()); });
    }

    // All are opened anew, and one imports from the other two.
    void expectToWork()
    {
        closeDevice(1);
        for (Place &place : places) place.open();
        const int32_t wanted[] = {1, 3};
        for (size_t from : {1, 2})
            addMImportStream(places[0].id().c_str(), places[from].id().c_str(), 1, wanted, 2, 0);
        places[0].histogram();
        EXPECT_TRUE(places[0].finished.wait());
        for (const size_t row : {1, 3, channels + 1, channels + 2, channels + 3, channels + 4})
            EXPECT_GT(places[0].rowSum(row), 0u) << row;
    }

    Clock::duration longest() const { return longestTime; }
    const std::string &longestCall() const { return longestName; }

private:
    template <class Call>
    void alone(Place &place, const char *name, const Call &call)
    {
        std::lock_guard lock(place.starting);
        timed(name, call);
    }
    template <class Call>
    void timed(const char *name, const Call &call)
    {
        const auto start = Clock::now();
        call();
        const auto taken = Clock::now() - start;
        std::lock_guard lock(longestLock);
        if (taken <= longestTime) return;
        longestTime = taken;
        longestName = name;
    }

    std::array<Place, 3> places;
    std::mutex longestLock;
    Clock::duration longestTime{}; // guard: longestLock, while hosts are at work
    std::string longestName;       // likewise
};

} // namespace

TEST(ImportSoak, CrossedImportsNeverStall)
{
    Host host;
    Ring ring(host);
    const auto end = Clock::now() + soakTime();
    std::vector<std::thread> hosts;
    for (uint32_t seed = 0; seed < 3; ++seed)
        hosts.emplace_back([&, seed] {
            std::mt19937 random(seed);
            while (Clock::now() < end) {
                ring.act(random);
                std::this_thread::sleep_for(std::chrono::milliseconds(random() % 100));
            }
        });
    for (std::thread &thread : hosts) thread.join();
    EXPECT_LE(ring.longest(), longestStart + longestStall) << ring.longestCall();
    ring.expectToWork();
    exitAPI(); // no run is left that could write to the places
}
