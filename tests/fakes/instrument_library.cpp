// A fake instrument library: one source for the five families, each with the operations that the family has. It
// keeps a journal of its calls and answers as the test says (control.h); unscripted, every call succeeds.
#include "fakes/control.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#define ZP 1
#define CD 2
#define SV40 4
#define LM70 8
#define CD90 16

namespace {

struct Script
{
    int32_t Calls = 0;
    std::map<int32_t, int32_t> Results; // by the number of the call; 0: every one
    std::map<int32_t, double> Numbers;  // by the number of the out argument
    std::map<int32_t, std::string> Texts;
    bool IsEndless = false, Hangs = false;
};

std::mutex lock; // guards all below
std::condition_variable released;
uint64_t releases = 0;
int hanging = 0; // calls
std::map<std::string, Script> scripts;
std::string journal, journalCopy;
std::vector<uint32_t> fifo;
int32_t instruments = 0;
std::vector<int32_t> busyPorts;

template <class Number>
struct NumberOut
{
    Number *To;
    std::vector<Number> Values;
};
struct TextOut
{
    char *To;
    size_t Room;
    std::string_view Text;
};

template <class Number>
NumberOut<Number> out(Number *to, std::type_identity_t<Number> value, size_t count = 1)
{
    return {to, std::vector<Number>(count, value)};
}

// One call: what it shows of its arguments, and what it writes.
struct Call
{
    std::string Line;
    Script &Told;
    int32_t Outs = 0;

    void take(int64_t number) { Line += fmt::format(" {}", number); }
    void take(const char *text) { Line += fmt::format(" \"{}\"", text); }
    template <class Number>
    void take(const std::vector<Number> &numbers)
    {
        Line += fmt::format(" [{}]", fmt::join(numbers, " "));
    }
    template <class Number>
    void take(NumberOut<Number> out)
    {
        auto told = Told.Numbers.find(Outs++);
        if (told != Told.Numbers.end())
            std::fill(out.Values.begin(), out.Values.end(), static_cast<Number>(told->second));
        std::copy(out.Values.begin(), out.Values.end(), out.To);
    }
    void take(TextOut out)
    {
        auto told = Told.Texts.find(Outs++);
        const std::string text(told == Told.Texts.end() ? out.Text : told->second);
        if (Told.IsEndless)
            std::memset(out.To, 'x', out.Room);
        else
            std::memcpy(out.To, text.c_str(), std::min(text.size() + 1, out.Room));
    }
};

int32_t resultOf(Script &told, int32_t result)
{
    ++told.Calls;
    for (int32_t call : {told.Calls, 0})
        if (auto found = told.Results.find(call); found != told.Results.end()) return found->second;
    return result;
}

template <class... Args>
int32_t answerWith(int32_t result, const char *operation, Args... args)
{
    std::unique_lock guard(lock);
    Call call{operation, scripts[operation]};
    (call.take(args), ...);
    journal += call.Line + "\n";
    result = resultOf(call.Told, result);
    if (std::exchange(call.Told.Hangs, false)) {
        ++hanging;
        released.wait(guard, [before = releases] { return releases != before; });
        --hanging;
    }
    return result;
}

template <class... Args>
int32_t answer(const char *operation, Args... args)
{
    return answerWith(0, operation, args...);
}

int32_t openResult(int32_t port)
{
    std::lock_guard guard(lock);
    if (port < 0 || port >= instruments) return -1;
    return std::count(busyPorts.begin(), busyPorts.end(), port) ? -2 : 0;
}

std::vector<uint32_t> takeFifo()
{
    std::lock_guard guard(lock);
    return std::exchange(fifo, {});
}

// Of the record buffer only what there is gets written, whatever count the script reports.
[[maybe_unused]] int32_t fill(uint32_t *buffer, int32_t *count, int32_t port)
{
    const std::vector<uint32_t> words = takeFifo();
    std::copy(words.begin(), words.end(), buffer);
    return answer("ReadFiFo", port, out(count, static_cast<int32_t>(words.size())));
}

template <class Change>
void change(Change apply)
{
    std::lock_guard guard(lock);
    apply();
    released.notify_all();
}

constexpr FakeControl control = {
    .reset =
        [](int32_t count) {
            change([&] {
                scripts.clear(), journal.clear(), fifo.clear(), busyPorts.clear();
                instruments = count;
                ++releases;
            });
        },
    .busy = [](int32_t port) { change([&] { busyPorts.push_back(port); }); },
    .answer =
        [](const char *operation, int32_t call, int32_t result) {
            change([&] {
                Script &told = scripts[operation];
                told.Results[call ? told.Calls + call : 0] = result;
            });
        },
    .number = [](const char *operation, int32_t number,
                 double value) { change([&] { scripts[operation].Numbers[number] = value; }); },
    .text = [](const char *operation, int32_t number,
               const char *value) { change([&] { scripts[operation].Texts[number] = value; }); },
    .endless = [](const char *operation) { change([&] { scripts[operation].IsEndless = true; }); },
    .hang = [](const char *operation) { change([&] { scripts[operation].Hangs = true; }); },
    .isHanging =
        [] {
            std::lock_guard guard(lock);
            return hanging > 0;
        },
    .release = [] { change([] { ++releases; }); },
    .words = [](const uint32_t *words, size_t count) { change([&] { fifo.assign(words, words + count); }); },
    .journal =
        [] {
            std::lock_guard guard(lock);
            journalCopy = journal;
            return journalCopy.c_str();
        },
};

constexpr size_t longText = 65536, shortText = 64, nameText = 32; // room
constexpr int32_t allFeatures = 1023;
constexpr size_t inputs = 4;

} // namespace

#define EXPORT extern "C" __attribute__((visibility("default")))
#define JOINED_(a, b) a##b
#define JOINED(a, b) JOINED_(a, b)
#define OPERATION(name) EXPORT int32_t JOINED(PREFIX, name)
#define HAS(families) ((FAMILY) & (families))

EXPORT const FakeControl *fake_control()
{
    return &control;
}

// clang-format off
#define FORWARD(name, params, ...) OPERATION(name) params { return answer(#name, __VA_ARGS__); }
#define INTS0(name) FORWARD(name, (int32_t idx), idx)
#define INTS1(name) FORWARD(name, (int32_t idx, int32_t a), idx, a)
#define INTS2(name) FORWARD(name, (int32_t idx, int32_t a, int32_t b), idx, a, b)
#define INTS3(name) FORWARD(name, (int32_t idx, int32_t a, int32_t b, int32_t c), idx, a, b, c)
#define INTS4(name) FORWARD(name, (int32_t idx, int32_t a, int32_t b, int32_t c, int32_t d), idx, a, b, c, d)
#define INTS6(name) FORWARD(name, (int32_t idx, int32_t a, int32_t b, int32_t c, int32_t d, int32_t e, int32_t f), \
                            idx, a, b, c, d, e, f)
#define OUT_INT(name, value) FORWARD(name, (int32_t idx, int32_t *to), idx, out(to, value))
#define OUT_DOUBLE(name, value) FORWARD(name, (int32_t idx, double *to), idx, out(to, value))
#define OUT_TEXT(name, room, value) FORWARD(name, (int32_t idx, char *to), idx, TextOut{to, room, value})
#define OUT_RATES(name) FORWARD(name, (int32_t idx, int32_t *sync, int32_t *rates), \
                                idx, out(sync, 80000000), out(rates, 1000, inputs))

// Identity and lifecycle.
FORWARD(GetLibraryVersion, (char *text), TextOut{text, shortText, "3.1"})
FORWARD(GetErrorString, (char *text, int32_t code), code, TextOut{text, shortText, "as told"})
OPERATION(OpenDevice)(int32_t idx, char *serial)
{
    const std::string number = fmt::format("{}{}", FAMILY, 1000 + idx);
    return answerWith(openResult(idx), "OpenDevice", idx, TextOut{serial, shortText, number});
}
INTS0(CloseDevice)
#if HAS(SV40)
INTS1(Initialize)
#else
INTS2(Initialize)
#endif
#if HAS(CD)
INTS0(Calibrate)
#endif
FORWARD(GetHardwareInfo, (int32_t idx, char *model, char *part, char *version), idx,
        TextOut{model, nameText, "Fake"}, TextOut{part, nameText, "940001"}, TextOut{version, nameText, "2.0"})
OUT_INT(GetFeatures, allFeatures)
FORWARD(GetBaseResolution, (int32_t idx, double *ps, int32_t *steps), idx, out(ps, 5), out(steps, 24))
OUT_DOUBLE(GetResolution, 5)
OUT_INT(GetNumOfInputChannels, inputs)
#if HAS(CD90)
OUT_INT(GetSyncFeatures, 3)
FORWARD(GetInputFeatures, (int32_t idx, int32_t channel, int32_t *bits), idx, channel, out(bits, 3))
#endif
#if HAS(ZP | CD | CD90)
OUT_INT(GetNumOfModules, 2)
FORWARD(GetModuleInfo, (int32_t idx, int32_t module, int32_t *model, int32_t *version), idx, module,
        out(model, 10 + module), out(version, 0x01020304))
#endif
#if HAS(CD | SV40)
OUT_TEXT(GetHardwareDebugInfo, longText, "")
#else
OUT_TEXT(GetDebugInfo, longText, "")
FORWARD(SaveDebugDump, (int32_t idx, const char *folder), idx, folder)
#endif

// Acquisition.
INTS1(StartMeas)
INTS0(StopMeas)
OUT_INT(CTCStatus, 0)
INTS0(ClearHistMem)
OUT_INT(GetFlags, 0)
OUT_INT(GetWarnings, 0)
FORWARD(GetWarningsText, (int32_t idx, char *text, int32_t warnings), idx, warnings, TextOut{text, longText, "warned"})
OUT_DOUBLE(GetElapsedMeasTime, 1)
OUT_DOUBLE(GetSyncPeriod, 12.5e-9)
OUT_INT(GetSyncRate, 80000000)
#if HAS(CD | SV40)
OPERATION(ReadFiFo)(int32_t idx, uint32_t *buffer, int32_t, int32_t *count) { return fill(buffer, count, idx); }
FORWARD(GetHistogram, (int32_t idx, uint32_t *, int32_t channel, int32_t clear), idx, channel, clear)
FORWARD(GetCountRate, (int32_t idx, int32_t channel, int32_t *rate), idx, channel, out(rate, 1000))
#else
OPERATION(ReadFiFo)(int32_t idx, uint32_t *buffer, int32_t *count) { return fill(buffer, count, idx); }
FORWARD(GetAllHistograms, (int32_t idx, uint32_t *), idx)
OUT_RATES(GetAllCountRates)
#endif
#if HAS(ZP | CD90)
FORWARD(GetStartTime, (int32_t idx, uint32_t *high, uint32_t *middle, uint32_t *low), idx, out(high, 0), out(middle, 2),
        out(low, 3))
#endif

// Parameters.
INTS1(SetSyncDiv)
INTS1(SetSyncChannelOffset)
FORWARD(SetStopOverflow, (int32_t idx, int32_t stop, uint32_t count), idx, stop, count)
INTS1(SetBinning)
INTS1(SetOffset)
FORWARD(SetHistoLen, (int32_t idx, int32_t code, int32_t *bins), idx, code, out(bins, 1024 << (code & 7)))
INTS3(SetMeasControl)
INTS4(SetMarkerEdges)
INTS4(SetMarkerEnable)
INTS1(SetMarkerHoldoffTime)
INTS2(SetInputChannelOffset)
INTS2(SetInputChannelEnable)
#if HAS(LM70 | CD90)
INTS1(SetSyncTrgMode)
INTS2(SetInputTrgMode)
#endif
#if HAS(ZP | SV40 | LM70 | CD90)
INTS2(SetSyncEdgeTrg)
INTS3(SetInputEdgeTrg)
INTS1(SetTriggerOutput)
#endif
#if HAS(CD | SV40 | LM70 | CD90)
INTS2(SetSyncCFD)
INTS3(SetInputCFD)
#endif
#if HAS(ZP | LM70 | CD90)
INTS1(SetSyncChannelEnable)
INTS2(SetSyncDeadTime)
INTS1(SetInputHysteresis)
INTS1(SetOflCompression)
INTS3(SetInputDeadTime)
#endif
#if HAS(SV40)
INTS1(SetTimingMode)
INTS2(SetInputDeadTime)
#endif
#if HAS(CD90)
INTS1(SetLEDBrightness)
#endif

// Event filter.
#if HAS(ZP | LM70 | CD90)
INTS1(SetFilterTestMode)
#endif
#if HAS(ZP | CD90)
INTS1(EnableMainEventFilter)
INTS3(SetMainEventFilterChannels)
INTS3(SetMainEventFilterParams)
OUT_RATES(GetMainFilteredRates)
#endif
#if HAS(ZP)
INTS2(EnableRowEventFilter)
INTS6(SetRowEventFilter)
OUT_RATES(GetRowFilteredRates)
#endif
#if HAS(CD90)
INTS2(EnableGroupEventFilter)
INTS6(SetGroupEventFilter)
OUT_RATES(GetGroupFilteredRates)
#endif
#if HAS(LM70)
INTS1(EnableEventFilter)
INTS2(SetEventFilterChannels)
INTS3(SetEventFilterParams)
OUT_RATES(GetFilterOutputRates)
OUT_RATES(GetFilterInputRates)
#endif

// White Rabbit.
#if HAS(ZP | CD90)
OPERATION(WRabbitGetMAC)(int32_t idx, uint8_t *mac)
{
    const uint8_t bytes[] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    std::copy(std::begin(bytes), std::end(bytes), mac);
    return answer("WRabbitGetMAC", idx);
}
FORWARD(WRabbitSetMAC, (int32_t idx, uint8_t *mac), idx, std::vector<int32_t>(mac, mac + 6))
OUT_TEXT(WRabbitGetInitScript, longText, "boot")
FORWARD(WRabbitSetInitScript, (int32_t idx, const char *script), idx, script)
OPERATION(WRabbitSetSFPData)(int32_t idx, char *names, int32_t *a, int32_t *b, int32_t *c)
{
    const std::string text(names, strnlen(names, 80));
    return answer("WRabbitSetSFPData", idx, text.c_str(), std::vector(a, a + 4), std::vector(b, b + 4),
                  std::vector(c, c + 4), TextOut{names, 80, text}, out(a, a[0], 4), out(b, b[0], 4), out(c, c[0], 4));
}
INTS1(WRabbitInitLink)
INTS3(WRabbitSetMode)
FORWARD(WRabbitSetTime, (int32_t idx, uint32_t high, uint32_t low), idx, high, low)
FORWARD(WRabbitGetTime, (int32_t idx, uint32_t *high, uint32_t *low, uint32_t *part), idx, out(high, 1), out(low, 2),
        out(part, 3))
OUT_INT(WRabbitGetStatus, 5)
FORWARD(WRabbitGetTermOutput, (int32_t idx, char *text, int32_t *count), idx, TextOut{text, longText, "wrc# "},
        out(count, 5))
#endif
