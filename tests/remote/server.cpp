// A served instrument, played by a fake library, and its peers.
#include "remote/server.h"

#include "devices/families.h"
#include "support/fake.h"
#include "support/host.h"
#include "support/random_words.h"
#include "tessel.h"

#include <boost/asio.hpp>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <malloc.h>

using namespace TestSupport;
using boost::asio::ip::tcp;

namespace {

uint16_t freePort()
{
    boost::asio::io_context context;
    return tcp::acceptor(context, {boost::asio::ip::address_v4::loopback(), 0}).local_endpoint().port();
}

class Served : public testing::Test
{
protected:
    Served()
    {
        std::vector<char> room(8192);
        EXPECT_TRUE(getDevice(room.data()) && initDevice(3, 0));
        id = room.data();
        wideId.assign(id.begin(), id.end());
        EXPECT_TRUE(tessel_serve(wideId.c_str(), nullptr, port));
        fake.newCalls();
    }

    std::string message(std::string_view content) const
    {
        const auto address = fmt::format(R"({{"type":"kest","id":"{}"}})", id);
        return fmt::format(R"({{"version":0,"index":1,"sender":{0},"receiver":{0},"content":{1}}})", address,
                           content) +
               "\n";
    }
    static bool isAnswered(tcp::iostream &link)
    {
        std::string answer;
        return static_cast<bool>(std::getline(link, answer));
    }

    Fake fake{"ZPLib64.so"};
    Host host;
    std::string id;
    std::u16string wideId;
    uint16_t port = freePort();
};

constexpr std::string_view startMeasure = R"({"command":"StartMeasure","data":{"tAcq":5}})";

// The most that was resident since the last call with `isNew`.
size_t peakKiB(bool isNew = false)
{
    if (isNew) std::ofstream("/proc/self/clear_refs") << 5;
    std::ifstream status("/proc/self/status");
    size_t peak = 0;
    for (std::string key; status >> key;)
        if (key == "VmHWM:") status >> peak;
    return peak;
}

} // namespace

// What the peer sends and awaits stands in peer.py. TESSEL_TEST_SECONDS: its flood lasts so long, on a machine
// that does nothing else.
TEST_F(Served, AnswersAnyPeerWhileARunGoesOn)
{
    mallopt(M_MMAP_THRESHOLD,
            1 << 17); // what the runs give back goes to the system, and isn't taken for the peer's
    const auto words = randomWords({.count = 50'000, .channels = 2});
    std::vector<char> file(8192);
    const std::string path = TgxFile::t3(2).records(words).write(host.folder().path() / "a.tgx");
    ASSERT_TRUE(tessel_openFile(path.c_str(), file.data(), file.size()));
    const std::u16string wideFile(file.begin(), std::ranges::find(file, '\0'));
    const auto count = [&] {
        Counts counts(3, 32768);
        getHistogram(wideFile.c_str(), 0, 1, 0, counts.data.data(), nullptr);
        return counts.data;
    };
    const auto expected = count();
    peakKiB(true);
    for (int run = 0; run < 10; ++run) count();
    const size_t before = peakKiB();
    const char *seconds = std::getenv("TESSEL_TEST_SECONDS");
    std::atomic<bool> isOver{false};
    int result = -1;
    std::thread peer([&] {
        const auto command = fmt::format("python3 " TESSEL_PEERS "/peer.py {} {} 4 {} {}", port, id,
                                         seconds ? 50 : 1000, seconds ? seconds : "2");
        result = std::system(command.c_str());
        isOver = true;
    });
    size_t wrong = 0;
    do wrong += count() != expected;
    while (!isOver);
    peer.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(wrong, 0u);
    if (!isSanitized) {
        EXPECT_LT(peakKiB() - before, 32 * 1024u);
    }
    char current[8192];
    EXPECT_TRUE(getDeviceConfig(current));
    EXPECT_NE(std::string_view(current).find(file.data()), std::string_view::npos)
        << "the current device has moved";
    EXPECT_TRUE(fake.newCalls().starts_with(
        "SetInputEdgeTrg 0 0 -120 1; SetInputEdgeTrg 0 -1 -130 1; SetInputEdgeTrg 0 1 -1200 1; "
        "StartMeas 0 1234; StartMeas 0 360000000; StartMeas 0 0"));
}

TEST_F(Served, StopsThoughACallHangsInTheLibrary)
{
    tcp::iostream link("127.0.0.1", std::to_string(port));
    fake->hang("StartMeas");
    link << message(startMeasure) << std::flush;
    ASSERT_TRUE(eventually([&] { return fake.newCalls().find("StartMeas") != std::string::npos; }));
    const auto begun = std::chrono::steady_clock::now();
    tessel_stopServing(wideId.c_str());
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(15));
    EXPECT_TRUE(tessel_serve(wideId.c_str(), nullptr, port)) << "the port isn't free";
    fake->release(); // the thread that was left to itself answers and ends
    while (isAnswered(link)) {
    }
    EXPECT_EQ(host.logged("left to itself"), 1u);
}

TEST_F(Served, EndsWithItsDeviceAndComesBackAtThePort)
{
    EXPECT_FALSE(tessel_serve(wideId.c_str(), nullptr, port)) << "it is served already";
    tcp::iostream link("127.0.0.1", std::to_string(port));
    link << message(startMeasure) << std::flush;
    EXPECT_TRUE(isAnswered(link));
    closeDevice(0);
    EXPECT_FALSE(isAnswered(link));
    char again[8192] = "";
    ASSERT_TRUE(getDevice(again) && initDevice(3, 0));
    EXPECT_FALSE(tessel_serve(nullptr, "localhost", port)) << "no address in numbers";
    EXPECT_TRUE(tessel_serve(nullptr, "0.0.0.0", port));
    EXPECT_FALSE(tessel_serve(u"nobody", nullptr, 0));
    tessel_stopServing(wideId.c_str());
    tessel_stopServing(nullptr);
    exitAPI(); // so far two servers have stopped, and nobody who never was one
    EXPECT_EQ(host.logged("stopped @"), 2u);
    EXPECT_EQ(host.logged("Server: (55000) stopped @unknown"), 0u);
    initAPI("");
    tessel_stopServing(u"nobody");
    EXPECT_EQ(host.logged("Server: (55000) stopped @unknown"), 1u);
}

// It would lose what it has measured.
TEST_F(Served, ARunIsNotStartedAgain)
{
    std::vector<uint32_t> block(1000);
    uint64_t count = 0;
    Finished finished;
    rawMeasure(wideId.c_str(), 0, 0, 0, block.data(), &count, block.size(), finished.get());
    ASSERT_TRUE(eventually([&] { return fake.newCalls().find("StartMeas") != std::string::npos; }));
    tcp::iostream link("127.0.0.1", std::to_string(port));
    link << message(startMeasure) << std::flush;
    EXPECT_TRUE(isAnswered(link));
    EXPECT_EQ(fake.newCalls().find("StartMeas"), std::string::npos);
    stopMeasure(wideId.c_str());
    ASSERT_TRUE(finished.wait());
}
