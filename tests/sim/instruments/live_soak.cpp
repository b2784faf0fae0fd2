// Runs of every kind on live instruments of every family and mode, ended at random moments in every way, some
// of them with an instrument that is lost meanwhile: nobody stands still, and nothing is left behind.
// TESSEL_TEST_RUNS sets how many; then the machine is to have nothing else to do.
#include "runs/kinds.h"
#include "sim_host.h"

#include <chrono>
#include <malloc.h>
#include <random>
#include <thread>

using namespace SimTest;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

bool isSoak()
{
    return getenv("TESSEL_TEST_RUNS") != nullptr;
}

class LiveHosts
{
public:
    void run()
    {
        if (!isOpen || oneIn(3)) open();
        const RunKind &chosen = runKinds[random() % std::size(runKinds)];
        setSequenceMode(static_cast<int32_t>(random() % 3), random() % 2, oneIn(2) ? 0.01 : 1000);
        Finished finished;
        chosen.start(memory, finished.get());
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 500));
        if (oneIn(3)) clearMeasure(nullptr);
        const auto begin = std::chrono::steady_clock::now();
        end(finished);
        ASSERT_TRUE(finished.wait()) << story << chosen.name;
        const auto took = std::chrono::steady_clock::now() - begin;
        EXPECT_LT(took, isSoak() && !isSanitized ? 2s : 20s) << story << chosen.name << ", ms: " << took / 1ms;
    }

    size_t residentWhenClosed()
    {
        closeDevice(1);
        isOpen = false;
        malloc_trim(0); // what is free isn't used
        return residentKiB();
    }

private:
    bool oneIn(uint32_t chances) { return random() % chances == 0; }

    void open()
    {
        const FamilyLibrary &family = families[random() % std::size(families)];
        const int32_t modes[] = {0, 2, 3}, mode = modes[random() % 3];
        const std::string lost =
            "'faults':[{'op':'*','call':" + std::to_string(100 + random() % 1000) + ",'code':-36}],";
        const std::string light = "'sync':{'periodPs':1e6},'input':{'rateCps':2e5}";
        isOpen = host.open(family.Prefix, mode, (oneIn(4) ? lost : "") + light);
        story = family.Prefix + ", mode " + std::to_string(mode) + ", ";
        uint64_t rows = 0, columns = 0, bytes = 0;
        tessel_getResultShape(nullptr, 8, &rows, &columns, &bytes);
        memory.counts.resize(std::max<size_t>(memory.counts.size(), rows * columns));
        memory.capacity = memory.times.size();
    }

    void end(Finished &finished)
    {
        switch (random() % 4) {
        case 0:
            closeDevice(1);
            isOpen = false;
            EXPECT_TRUE(finished.isSet());
            break;
        case 1: {
            Finished second;
            exportStreamMeasure(nullptr, 0, 0, 0, second.get());
            stopMeasure(nullptr);
            EXPECT_TRUE(second.wait()) << story;
            break;
        }
        default: stopMeasure(nullptr);
        }
        // One that was lost isn't the current device, so the calls were for no device.
        std::array<char, 65536> text{};
        isOpen = isOpen && getDeviceConfig(text.data()) &&
                 std::string_view(text.data()).find("SIM-") != std::string::npos;
        if (!isOpen) closeDevice(1);
    }

    SimHost host;
    std::mt19937 random{11};
    Arrays memory;
    bool isOpen = false;
    std::string story;
};

} // namespace

TEST(LiveSoak, RunsEndedAtRandomMomentsLeaveNothingBehind)
{
    const int runs = isSoak() ? std::atoi(getenv("TESSEL_TEST_RUNS")) : 20;
    LiveHosts hosts;
    size_t threads = threadCount(), descriptors = descriptorCount(), resident = 0;
    for (int i = 0; i < runs && !testing::Test::HasFatalFailure(); ++i) {
        hosts.run();
        if (i == runs / 2) resident = hosts.residentWhenClosed();
    }
    EXPECT_LT(hosts.residentWhenClosed(), resident + 128 * 1024);
    EXPECT_TRUE(eventually([&] { return threadCount() <= threads; })) << threadCount();
    EXPECT_TRUE(eventually([&] { return descriptorCount() <= descriptors; })) << descriptorCount();
}
