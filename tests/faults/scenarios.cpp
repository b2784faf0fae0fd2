#include "faults/scenarios.h"

#include "support/random_words.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <array>
#include <cstring>
#include <fstream>
#include <netinet/in.h>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace Faults {

namespace {

constexpr int channels = 2;
constexpr double resolution = 1000;
constexpr size_t textSize = 65535;
constexpr size_t mostRows = 8, columns = 1000, mostEvents = 200'000;
constexpr size_t fewWords = 20'000, manyWords = 300'000;
constexpr uint8_t unwritten = 2;

std::vector<uint32_t> recordedWords(size_t count)
{
    return TestSupport::randomWords({.count = count, .t3 = false, .channels = channels});
}

// Around each call under test.
template <class Result>
Result heard(FaultHost &host, Result result)
{
    host.Told = host.Told || tessel_lastError(nullptr, 0) > 0;
    return result;
}

void start(FaultHost &host)
{
    initAPI(host.Ini.c_str());
}

void openAt(const std::string &path)
{
    tessel_openFile(path.c_str(), nullptr, 0);
    setHistoT2NumBins(nullptr, columns);
    setHistoT2BinWidth(nullptr, 1'000'000);
}

void open(FaultHost &host)
{
    openAt(host.Recording);
}

void startAndOpen(FaultHost &host)
{
    start(host);
    open(host);
}

void startAndOpenLarge(FaultHost &host)
{
    start(host);
    openAt(host.Large);
}

void nothing(FaultHost &) {}

void startAndExit(FaultHost &host)
{
    start(host);
    exitAPI();
}

void openTwice(FaultHost &host)
{
    std::strcpy(host.Id.data(), host.Recording.c_str());
    getFileDevice(host.Id.data());
    closeDevice(1);
    host.Told = !heard(host, tessel_openFile(host.Recording.c_str(), host.Id.data(), host.Id.size()));
    heard(host, getDeviceConfig(host.Text.data()));
}

void histogram(FaultHost &host)
{
    host.Finished = unwritten;
    heard(host, getHistogram(nullptr, 0, 1, 0, host.Counts.data(), &host.Finished));
}

void g2(FaultHost &host)
{
    if (!heard(host, setG2Params(nullptr, 1, 2, 1e8, 1e6, 1))) return;
    host.Finished = unwritten;
    heard(host, getCorrelation(nullptr, 0, 1, 0, host.Y.data(), host.X.data(), &host.Finished));
}

void trace(FaultHost &host)
{
    if (!heard(host, setTimeTraceNumBins(nullptr, columns))) return;
    if (!heard(host, setTimeTraceHistorySize(nullptr, 0.01))) return;
    host.Finished = unwritten;
    heard(host, getTimeTrace(nullptr, 0, 1, 0, host.Counts.data(), host.Times.data(), &host.Finished));
}

void unfoldWithStages(FaultHost &host)
{
    const std::array<int32_t, 2> both{1, 2};
    heard(host, addMCoincidence(nullptr, both.data(), 2, 1e6, 0, 1, 1));
    heard(host, addMMerge(nullptr, both.data(), 2, 1));
    heard(host, addMDelay(nullptr, 1, 1e6, 1));
    host.Finished = unwritten;
    heard(host, ufMeasure(nullptr, 0, 1, 0, host.Times.data(), host.Channels.data(), &host.Count, mostEvents,
                          &host.Finished));
    clearManis(nullptr);
}

void record(FaultHost &host)
{
    addStringTag("Faults_Note", "a copy", 0xFFFFFFFF);
    const tessel_recording_params params = {.size = sizeof params,
                                            .measMode = 2,
                                            .family = 0,
                                            .numChannels = channels,
                                            .baseResolution = resolution,
                                            .resolution = 0,
                                            .syncRate = 1e6,
                                            .acqTime = 1000,
                                            .inputRates = nullptr,
                                            .serial = "1",
                                            .comment = "copied"};
    tessel_recording *copy = tessel_recordingCreate(host.Copy.c_str(), &params);
    const size_t half = host.Words.size() / 2;
    const bool first = copy && tessel_recordingWrite(copy, host.Words.data(), half);
    const bool second = copy && tessel_recordingWrite(copy, host.Words.data() + half, host.Words.size() - half);
    host.Told = !copy || !tessel_recordingClose(copy) || !first || !second;
}

// A copy that is said to be whole is measured in place of the recording.
void openCopy(FaultHost &host)
{
    if (host.Told) return;
    host.Recording = host.Copy;
    open(host);
}

void texts(FaultHost &host)
{
    char *text = host.Text.data();
    heard(host, getDeviceIDs(text));
    heard(host, getDeviceConfig(text += textSize));
    heard(host, getMeasDescription(text += textSize));
    heard(host, getManisConfig(text += textSize));
    heard(host, tessel_getFileTags(host.Recording.c_str(), text += textSize, textSize, &host.Count));
    heard(host, tessel_verifyFile(host.Recording.c_str(), text += textSize, textSize, &host.Count));
}

// A run that stands still, since nobody fetches its block.
void startHeldRun(FaultHost &host)
{
    startAndOpen(host);
    host.Finished = unwritten;
    ufStartBlock(nullptr, 0, 0, host.Times.data(), host.Channels.data(), 100, &host.Finished);
}

void exitUnderRun(FaultHost &)
{
    stopMeasure(nullptr);
    exitAPI();
}

uint16_t port = 0; // one that was free

sockaddr_in loopback(uint16_t at)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(at);
    return address;
}

void startWithPort(FaultHost &host)
{
    startAndOpen(host);
    const int link = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    bind(link, reinterpret_cast<sockaddr *>(&address), size);
    getsockname(link, reinterpret_cast<sockaddr *>(&address), &size);
    port = ntohs(address.sin_port);
    close(link);
}

// A peer's question without memory of its own. The connection may be closed instead of an answer.
void ask(FaultHost &host)
{
    constexpr std::string_view question =
        R"({"index":1,"sender":{"type":"","id":""},"receiver":{"type":"server","id":""},"content":{"command":"x"}})"
        "\n";
    const int link = socket(AF_INET, SOCK_STREAM, 0);
    const timeval patience{.tv_sec = 5, .tv_usec = 0};
    setsockopt(link, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const sockaddr_in address = loopback(port);
    connect(link, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    send(link, question.data(), question.size(), MSG_NOSIGNAL);
    const ssize_t got = recv(link, host.Text.data(), host.Text.size(), 0);
    const std::string_view answer(host.Text.data(), got > 0 ? static_cast<size_t>(got) : 0);
    host.Told = host.Told || answer.find("Unsupported Command: x in") == answer.npos || answer.back() != '\n';
    close(link);
}

void serve(FaultHost &host)
{
    if (!heard(host, tessel_serve(nullptr, nullptr, port))) return;
    ask(host);
    ask(host);
    tessel_stopServing(nullptr);
}

void startWithInstrument(FaultHost &host, int32_t mode)
{
    setenv("TESSEL_INSTRUMENT_PATH", TESSEL_SIM_FOLDER, 1);
    setenv("TESSEL_SIM_INSTRUMENTS", host.Instrument.c_str(), 1);
    start(host);
    getDevice(host.Id.data());
    initDevice(mode, 0);
    setHistoLength(nullptr, 0);
    setHistoT2NumBins(nullptr, columns);
    setHistoT2BinWidth(nullptr, 1000);
}

void liveHistogram(FaultHost &host)
{
    host.Finished = unwritten;
    heard(host, getHistogram(nullptr, 200, 1, 0, host.Counts.data(), &host.Finished));
}

void liveRecord(FaultHost &host)
{
    unlink(host.Copy.c_str());
    setTGXFilePath(host.Copy.c_str());
    host.Finished = unwritten;
    heard(host, exportStreamMeasure(nullptr, 20, 1, 1, &host.Finished));
}

constexpr Scenario all[] = {
    {"init", nothing, startAndExit, startAndOpen},
    {"open", start, openTwice, open},
    {"histogram", startAndOpen, histogram, nothing},
    {"large histogram", startAndOpenLarge, histogram, open},
    {"g2", startAndOpen, g2, nothing},
    {"large g2", startAndOpenLarge, g2, open},
    {"unfold", startAndOpen, unfoldWithStages, nothing},
    {"trace", startAndOpen, trace, nothing},
    {"large trace", startAndOpenLarge, trace, open},
    {"record", startAndOpen, record, openCopy},
    {"texts", startAndOpen, texts, nothing},
    {"serve", startWithPort, serve, nothing},
    {"exit", startHeldRun, exitUnderRun, startAndOpen},
    {"live", [](FaultHost &host) { startWithInstrument(host, 2); }, liveHistogram, open},
    {"live record", [](FaultHost &host) { startWithInstrument(host, 2); }, liveRecord, open},
    {"histogramming", [](FaultHost &host) { startWithInstrument(host, 0); }, liveHistogram, open},
};

} // namespace

FaultHost::FaultHost(const std::string &folder, const std::string &recordings)
    : Ini(folder + "/system.ini"),
      Instrument(folder + "/instrument.json"),
      Recording(recordings + "/recording.tgx"),
      Large(recordings + "/large.tgx"),
      Copy(folder + "/copy.tgx"),
      Words(recordedWords(fewWords)),
      Id(8192),
      Text(6 * textSize),
      Counts(mostRows * columns),
      X(columns),
      Y(columns),
      Times(mostEvents),
      Channels(mostEvents)
{
    std::ofstream(Ini) << "[Paths]\nData=" << folder << "/data/of/a/host\n[Params]\nBufferSize=8\n"
                       << "[LogLevel]\nManipulators=true\nConfig=true\n";
    // As fast as it is read, so that each run has the same events.
    std::ofstream(Instrument) << R"({"instruments":[{"pace":"free","channels":2,"sync":{"periodPs":1e6}}]})";
}

std::span<const Scenario> scenarios()
{
    return all;
}

void writeRecordings(const std::string &folder)
{
    for (const auto &[name, count] : {std::pair{"/recording.tgx", fewWords}, {"/large.tgx", manyWords}})
        TestSupport::TgxFile::t2(channels, resolution)
            .tag("TTResult_StopReason", 0)
            .records(recordedWords(count))
            .write(folder + name);
}

namespace {

template <class T>
size_t hashOf(const std::vector<T> &values)
{
    return std::hash<std::string_view>()(
        {reinterpret_cast<const char *>(values.data()), values.size() * sizeof(T)});
}

} // namespace

size_t claimed(FaultHost &host)
{
    std::vector<char> run(textSize);
    getMeasDescription(run.data());
    const bool isWhole = std::strstr(run.data(), "\"StopReason\":\"TimeOver\"");
    if (host.Told || !isWhole) return 0;
    size_t hash = host.Count + 1;
    for (const size_t part : {hashOf(host.Text), hashOf(host.Counts), hashOf(host.X), hashOf(host.Y),
                              hashOf(host.Times), hashOf(host.Channels)})
        hash = hash * 31 + part;
    return hash;
}

std::vector<uint32_t> goodHistogram()
{
    clearManis(nullptr);
    uint64_t rows = 0, width = 0, bytes = 0;
    tessel_getResultShape(nullptr, 8, &rows, &width, &bytes);
    if (rows != channels + 1 || width != columns) return {};
    std::vector<uint32_t> counts(rows * width, 0xDEADBEEF);
    uint8_t finished = 0;
    getHistogram(nullptr, 0, 1, 0, counts.data(), &finished);
    return finished == 1 ? counts : std::vector<uint32_t>();
}

} // namespace Faults
