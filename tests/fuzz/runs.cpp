// A host that calls the exports in any order, with whole runs of small recordings: odd values, wrong ids and
// null where it is allowed. What a run may write to has exactly the size that tessel.h asks for. Arguments are
// taken before a call, since compilers differ in the order in which they evaluate them.
#include "input.h"
#include "support/random_words.h"
#include "support/tgx_file.h"
#include "tessel.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <vector>

using namespace TestSupport;

namespace {

constexpr size_t largestBlock = 300;

struct Host
{
    Fuzz::Input in;
    std::vector<std::unique_ptr<uint8_t[]>> memory{}; // runs may write to it until the library has ended
    std::vector<uint8_t *> finished{};
    std::vector<std::unique_ptr<Fuzz::MemoryFile>> files{};
    std::vector<std::u16string> ids{u"nobody"};
    bool stepsWait = false; // somewhere a sequence may stand still until this host goes on
    bool hasBlocks = false; // somewhere a run may stand still until its block is fetched

    template <class T>
    T *room(size_t count)
    {
        memory.push_back(std::make_unique<uint8_t[]>(count * sizeof(T)));
        return reinterpret_cast<T *>(memory.back().get());
    }
    template <class T>
    T *roomOrNull(size_t count)
    {
        return in.below(8) == 7 ? nullptr : room<T>(count);
    }
    uint8_t *finishedByte() { return in.below(8) == 7 ? nullptr : finished.emplace_back(room<uint8_t>(1)); }
    const char16_t *knownId() { return ids[in.below(ids.size())].c_str(); }
    const char16_t *id() { return in.below(6) < 5 ? nullptr : knownId(); } // null: the current device
    double number()                                                        // often one that a host may mean
    {
        const double some = in.take<uint16_t>(), any = in.take<double>();
        return in.oneOf({some, some, some * 1e6, some / 256, any, -some, 0.0});
    }
    uint64_t whole()
    {
        const uint64_t few = in.take<uint8_t>();
        return in.oneOf<uint64_t>({few, few, few * 1000, 0, few << 56, uint64_t{0} - few, 1u << 31});
    }
    uint8_t waits() { return !stepsWait && in.chance(); }
};

void openFile(Host &host)
{
    if (host.files.size() == 4) return;
    Fuzz::Input &in = host.in;
    const bool t3 = in.chance();
    const auto channels = static_cast<int>(1 + in.below(5));
    TgxFile file = t3 ? TgxFile::t3(channels, in.oneOf({1.0, 25.9})) : TgxFile::t2(channels);
    for (size_t left = in.below(3); left > 0; --left) {
        const char *name = in.oneOf({"MeasDesc_GlobalResolution", "MeasDesc_Resolution", "HW_BaseResolution",
                                     "TTResult_SyncRate", "HW_InpChannels", "Measurement_Mode", "HW_SerialNo"});
        if (in.chance())
            file.tag(name, host.number() * 1e-12);
        else
            file.tag(name, in.take<int16_t>());
    }
    const uint32_t seed = in.take<uint8_t>();
    file.records(randomWords({.count = in.take<uint8_t>() * size_t{20}, .t3 = t3, .seed = seed}));
    host.files.push_back(std::make_unique<Fuzz::MemoryFile>(file.bytes()));
    char *id = host.room<char>(8192);
    const std::string path = in.below(16) == 15 ? "/proc/self/fd" : host.files.back()->path();
    if (in.chance())
        tessel_openFile(path.c_str(), id, in.chance() ? 8192 : 16);
    else
        getFileDevice(std::copy(path.begin(), path.end(), id) - path.size());
    host.ids.emplace_back(id, id + std::strlen(id));
}

void record(Host &host)
{
    if (host.files.size() == 4) return;
    Fuzz::Input &in = host.in;
    addDblTag("Own", host.number(), 0);
    const tessel_recording_params params{.size = sizeof params,
                                         .measMode = in.oneOf({2, 3, 3, 4}),
                                         .family = static_cast<int32_t>(in.below(6)),
                                         .numChannels = in.oneOf({1, 4, 4, -1}),
                                         .baseResolution = in.oneOf({1.0, 1.0, host.number()}),
                                         .resolution = in.oneOf({1.0, 4.0, host.number()}),
                                         .syncRate = in.oneOf({80e6, 80e6, host.number()}),
                                         .acqTime = in.take<int16_t>(),
                                         .inputRates = nullptr,
                                         .serial = in.chance() ? "own" : nullptr,
                                         .comment = nullptr};
    const std::string path = host.files.emplace_back(std::make_unique<Fuzz::MemoryFile>(""))->path();
    const auto words = randomWords({.count = 1000, .t3 = params.measMode == 3});
    if (tessel_recording *made = tessel_recordingCreate(path.c_str(), &params)) {
        Fuzz::require(tessel_recordingWrite(made, words.data(), words.size()), "words are taken");
        Fuzz::require(tessel_recordingClose(made), "a recording is completed");
    }
    Fuzz::require(tessel_openFile(path.c_str(), nullptr, 0), "a file opens, whatever is in it");
}

void measure(Host &host)
{
    Fuzz::Input &in = host.in;
    const char16_t *id = host.id();
    const int32_t kind = in.oneOf({4, 8, 8, 16, 64});
    uint64_t rows = 0, columns = 0, bytes = 0;
    tessel_getResultShape(id, kind, &rows, &columns, &bytes);
    if (rows * columns * bytes > 1u << 22) return;
    auto *counts = host.roomOrNull<uint32_t>(kind == 16 ? 0 : rows * columns);
    auto *curve = host.roomOrNull<double>(kind == 16 ? rows * columns : 0);
    auto *lags = host.roomOrNull<double>(kind == 16 ? columns : 0);
    auto *firstBin = host.roomOrNull<uint64_t>(1);
    const uint8_t acqTime = in.take<uint8_t>(), waits = host.waits();
    uint8_t *finished = host.finishedByte();
    switch (kind) {
    case 4: getTimeTrace(id, acqTime, waits, 1, counts, firstBin, finished); break;
    case 8: getHistogram(id, acqTime, waits, 0, counts, finished); break;
    case 16: getCorrelation(id, acqTime, waits, 0, curve, lags, finished); break;
    case 64: get2dHistogram(id, acqTime, waits, 0, counts, finished); break;
    }
    Fuzz::require(!waits || !finished || *finished == 1, "a call that waits returns after the run");
}

void stream(Host &host)
{
    const size_t call = host.in.below(5);
    const char16_t *id = host.id();
    const uint64_t capacity = host.in.oneOf<uint64_t>({0, 1, 40, largestBlock});
    const uint8_t waits = capacity == 0 && host.waits();
    host.hasBlocks |= capacity > 0;
    auto *words = host.roomOrNull<uint32_t>(capacity);
    auto *times = host.roomOrNull<uint64_t>(capacity);
    auto *channels = host.roomOrNull<uint8_t>(capacity);
    auto *count = host.roomOrNull<uint64_t>(1);
    uint8_t *finished = host.finishedByte();
    switch (call) {
    case 0: rawMeasure(id, 0, waits, 0, words, count, capacity, finished); break;
    case 1: rawStartBlock(id, 0, 0, words, capacity, finished); break;
    case 2: ufMeasure(id, 0, waits, 0, times, channels, count, capacity, finished); break;
    case 3: ufStartBlock(id, 0, 0, times, channels, capacity, finished); break;
    case 4: exportStreamMeasure(id, 0, waits, 0, finished); break;
    }
}

void fetch(Host &host)
{
    uint64_t words = 0, events = 0;
    rawGetBlock(host.id(), host.room<uint32_t>(largestBlock), &words);
    ufGetBlock(host.id(), host.room<uint64_t>(largestBlock), host.room<uint8_t>(largestBlock), &events);
    Fuzz::require(words <= largestBlock && events <= largestBlock, "a block has what it has room for");
}

void changeChain(Host &host)
{
    Fuzz::Input &in = host.in;
    const size_t call = in.below(10);
    const char16_t *id = host.id(), *source = host.knownId();
    std::array<int32_t, 4> list{};
    for (int32_t &member : list) member = in.oneOf({1, 2, 0, 3, 7, 300, -1});
    const auto size = static_cast<int32_t>(in.below(6)) - 1, delay = int32_t{in.take<int16_t>()};
    const int32_t *chans = size > 4 || in.below(8) == 7 ? nullptr : list.data();
    const uint8_t flag = in.chance(), keep = in.chance(), channel = in.oneOf<uint8_t>({1, 2, 0, 5, 200});
    const uint32_t mode = in.oneOf({0u, 1u, 7u}), index = in.oneOf({0u, 1u, 2u, 9u});
    const double ps = host.number();
    const uint64_t from = host.whole(), to = host.whole();
    const auto rows = static_cast<size_t>(getNumAllChans(id));
    switch (call) {
    case 0: addMCoincidence(id, chans, size, ps, mode, index, keep); break;
    case 1: addMMerge(id, chans, size, keep); break;
    case 2: addMDelay(id, channel, ps, static_cast<int8_t>(keep)); break;
    case 3: addMHerald(id, channel, chans, size, delay, static_cast<int32_t>(from), flag, keep); break;
    case 4: addMImportStream(id, source, flag, chans, size, delay); break;
    case 5: addMCountRate(id, ps); break;
    case 6: addMSubStream(id, from, to); break;
    case 7: deleteMani(id, index); break;
    case 8: clearManis(id); break;
    case 9: getMCountRates(id, static_cast<int32_t>(index), host.room<uint32_t>(rows)); break;
    }
}

void setParameters(Host &host)
{
    Fuzz::Input &in = host.in;
    const size_t call = in.below(12);
    const char16_t *id = host.id();
    const uint8_t chan = in.oneOf<uint8_t>({1, 2, 0, 5, 200}), flag = in.chance();
    auto *points = host.roomOrNull<uint64_t>(1);
    const double from = host.number(), to = host.number();
    std::array<uint64_t, 6> ps{};
    for (uint64_t &value : ps) value = host.whole();
    switch (call) {
    case 0: setHistoT2NumBins(id, ps[0]); break;
    case 1: setHistoT2BinWidth(id, ps[0]); break;
    case 2: setHistoT2RefChan(id, chan); break;
    case 3: setTimeTraceNumBins(id, static_cast<int32_t>(ps[0])); break;
    case 4: setTimeTraceHistorySize(id, from); break;
    case 5: setHisto2dParams(id, chan, 2, 1, ps[0], ps[1], ps[2], ps[3], ps[4], ps[5]); break;
    case 6: setHisto2dTotMode(id, flag, from); break;
    case 7: setHisto2dRecoveryTimingCorrection(id, ps[0], ps[1], ps[2], ps[3], from); break;
    case 8: setG2Params(id, chan, 2, from, to, flag); break;
    case 9: setFCSParams(id, chan, 2, points, from, to, ps[0]); break;
    case 10: setFFCSParams(id, chan, ps[1], points, from, to, ps[0]); break;
    case 11:
        host.stepsWait |= flag;
        setSequenceMode(static_cast<int32_t>(in.below(4)), flag, from);
        break;
    }
}

void control(Host &host)
{
    const size_t call = host.in.below(12);
    const char16_t *id = host.id();
    const std::u16string_view wanted = host.knownId();
    char *text = host.room<char>(65535);
    uint64_t needed = 0;
    tessel_losses losses{};
    losses.size = sizeof losses;
    switch (call) {
    case 0: stopMeasure(id); break;
    case 1: clearMeasure(id); break;
    case 2: gotNewData(id); break;
    case 3: host.hasBlocks || waitNewData(id); break;
    case 4: closeDevice(host.in.below(4) == 3); break;
    case 5: initDevice(host.in.oneOf({0, 2, 3, -1}), 0); break;
    case 6: getDevice(std::copy(wanted.begin(), wanted.end(), text) - wanted.size()); break;
    case 7: usleep(1000); break; // runs go on
    case 8: getDeviceConfig(text); break;
    case 9: getMeasDescription(text) && getDeviceIDs(text); break;
    case 10: getManisConfig(text), tessel_getLosses(id, &losses); break;
    case 11: tessel_getFileTags(host.files[0]->path().c_str(), text, host.in.take<uint16_t>(), &needed); break;
    }
}

// A run that is left to itself, or a stage in one, after a wait: ten seconds, here a tenth of one.
bool saysThatARunIsLeft()
{
    std::array<char, 4097> why;
    tessel_lastError(why.data(), why.size());
    return std::strstr(why.data(), "can't be stopped") || std::strstr(why.data(), "Could not stop");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const Fuzz::MemoryFile settings("[Log]\nFile=false\nConsole=false\n[Params]\nBufferSize=8\n");
    Host host{.in = {{reinterpret_cast<const char *>(data), size}}};
    initAPI(settings.path().c_str());
    openFile(host);
    constexpr std::array calls{measure, measure, changeChain, changeChain, setParameters, setParameters,
                               control, control, stream,      fetch,       openFile,      record};
    bool isLeft = false;
    for (int left = 40; left > 0 && !host.in.Left.empty(); --left) {
        calls[host.in.below(calls.size())](host);
        isLeft |= saysThatARunIsLeft();
    }
    exitAPI();
    isLeft |= saysThatARunIsLeft();
    for (uint8_t *finished : host.finished) {
        const std::atomic_ref byte(*finished);
        for (int ms = 0; isLeft && ms < 10'000 && byte.load() == 0; ++ms) usleep(1000);
        Fuzz::require(byte.load() == 1, "every run has told its end");
    }
    return 0;
}
