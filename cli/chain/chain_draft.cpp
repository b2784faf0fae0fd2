// Forms, and the values of a stage. A form is a row of a table; one function reads a value, whether it came
// from a line of text or from JSON.
#include "chain/chain_draft.h"

#include "program/units.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <limits>

namespace Tessel::Cli {

namespace {

constexpr std::string_view keyNames[] = {"channels", "herald", "window", "delay",    "from",
                                         "to",       "mode",   "time",   "inverted", "keep"};

const Form forms[] = {
    {StageKind::Coincidence,
     "coincidence",
     {Key::Channels, Key::Window},
     {Key::Mode, Key::Time, Key::Keep},
     "coincidence(CHANNELS; WINDOW; sliding|once; first|last|average; keep)"},
    {StageKind::Merge, "merge", {Key::Channels}, {Key::Keep}, "merge(CHANNELS; keep)"},
    {StageKind::Delay, "delay", {Key::Channels, Key::Delay}, {Key::Keep}, "delay(CHANNEL; DELAY; keep)"},
    {StageKind::Herald,
     "herald",
     {Key::Herald, Key::Channels, Key::Delay, Key::Window},
     {Key::Inverted, Key::Keep},
     "herald(CHANNEL; CHANNELS; delay DELAY; window WINDOW; inverted; keep)"},
    {StageKind::SubStream, "substream", {Key::From, Key::To}, {}, "substream(FROM; TO)"},
    {StageKind::CountRate, "countrate", {Key::Window}, {}, "countrate(WINDOW)"},
    {StageKind::Sort, "sort", {Key::Window}, {}, "sort(WINDOW)"},
};

constexpr Word words[] = {{"sliding", Key::Mode, 0}, {"once", Key::Mode, 1},    {"first", Key::Time, 0},
                          {"last", Key::Time, 1},    {"average", Key::Time, 2}, {"inverted", Key::Inverted, 1},
                          {"keep", Key::Keep, 1}};

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

} // namespace

std::string_view nameOf(Key key)
{
    return keyNames[static_cast<size_t>(key)];
}

std::span<const Form> allForms()
{
    return forms;
}

std::span<const Word> allWords()
{
    return words;
}

const Form &formOf(StageKind kind)
{
    return *std::ranges::find(forms, kind, &Form::Kind);
}

void fail(std::string_view whole, size_t at, std::string_view reason)
{
    const size_t before = at == 0 ? std::string_view::npos : whole.rfind('\n', at - 1);
    const size_t begin = before == std::string_view::npos ? 0 : before + 1;
    const std::string line = blankedText(whole.substr(begin, whole.find('\n', begin) - begin));
    const std::string beforeCaret = blankedText(whole.substr(begin, at - begin));
    const auto isStart = [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }; // of UTF-8
    const auto column = std::ranges::count_if(beforeCaret, isStart);
    throw ChainError(fmt::format("{}\n  {}\n  {:>{}}", visibleText(reason), line, '^', column + 1));
}

void fail(const Part &part, std::string_view reason)
{
    fail(part.Whole, part.Begin, reason);
}

Part trimmed(Part part)
{
    while (part.Begin < part.End && isBlank(part.Whole[part.Begin])) ++part.Begin;
    while (part.End > part.Begin && isBlank(part.Whole[part.End - 1])) --part.End;
    return part;
}

std::optional<Part> nextPart(std::optional<Part> &rest, char separator)
{
    if (!rest) return std::nullopt;
    const size_t end = std::min(rest->Whole.find(separator, rest->Begin), rest->End);
    const Part part{rest->Whole, rest->Begin, end};
    if (end == rest->End)
        rest.reset();
    else
        rest->Begin = end + 1;
    return trimmed(part);
}

namespace {

int32_t readChannel(const Part &part)
{
    int32_t channel = 0;
    if (part.empty()) fail(part, "a channel is missing");
    const char *end = part.Whole.data() + part.End;
    const auto [stop, error] = std::from_chars(part.Whole.data() + part.Begin, end, channel);
    if (error == std::errc::invalid_argument) fail(part, "a channel number is expected");
    if (error != std::errc() || channel < 0 || channel > 254) fail(part, "channels go from 0 (sync) to 254");
    if (stop != end)
        fail(part.Whole, static_cast<size_t>(stop - part.Whole.data()), "a channel is a whole number");
    return channel;
}

std::vector<int32_t> readChannels(const Part &part)
{
    std::vector<int32_t> channels;
    std::optional<Part> rest = part;
    while (const auto item = nextPart(rest, ',')) {
        const int32_t channel = readChannel(*item);
        if (std::ranges::find(channels, channel) != channels.end())
            fail(*item, fmt::format("channel {} is given twice", channel));
        channels.push_back(channel);
    }
    return channels;
}

constexpr int64_t longestPs = 9'000'000'000'000'000'000;           // 104 days
constexpr int64_t longest32 = std::numeric_limits<int32_t>::max(); // where the library counts in 32 bits

int64_t readTime(Part part, int64_t longest, bool signedTime)
{
    const Part whole = part;
    const bool negative = signedTime && !part.empty() && part.Whole[part.Begin] == '-';
    if (negative) ++part.Begin;
    double ps = 0;
    try {
        ps = std::round(parseTimePs(part.text(), "ps"));
    } catch (const UnitError &unreadable) {
        fail(part.Whole, part.Begin + unreadable.At, unreadable.Reason);
    }
    if (ps > static_cast<double>(longest))
        fail(whole, fmt::format("at most {}", timeText(static_cast<double>(longest))));
    return negative ? -static_cast<int64_t>(ps) : static_cast<int64_t>(ps);
}

void markGiven(Draft &draft, Key key, const Part &part)
{
    if (draft.has(key)) fail(part, fmt::format("{} is given twice", nameOf(key)));
    draft.Given |= 1u << static_cast<unsigned>(key);
}

} // namespace

void setValue(Draft &draft, Key key, const Part &part)
{
    ChainStage &stage = draft.Stage;
    markGiven(draft, key, part);
    const bool isHerald = stage.Kind == StageKind::Herald;
    switch (key) {
    case Key::Channels:
        stage.Channels = readChannels(part);
        if (stage.Kind == StageKind::Delay && stage.Channels.size() != 1)
            fail(part, "a delay takes one channel");
        break;
    case Key::Herald: stage.Herald = readChannel(part); break;
    case Key::Window: stage.WindowPs = readTime(part, isHerald ? longest32 : longestPs, false); break;
    case Key::Delay: stage.DelayPs = readTime(part, longest32, true); break;
    case Key::From: stage.FromPs = readTime(part, longestPs, false); break;
    case Key::To: stage.ToPs = readTime(part, longestPs, false); break;
    case Key::Mode:
    case Key::Time:
    case Key::Inverted:
    case Key::Keep: break; // set by words
    }
    if (draft.has(Key::From) && draft.has(Key::To) && stage.FromPs > stage.ToPs)
        fail(part, "the span ends before it begins");
}

void setWord(Draft &draft, const Word &word, const Part &part)
{
    markGiven(draft, word.Sets, part);
    switch (word.Sets) {
    case Key::Mode: draft.Stage.Mode = static_cast<CoincidenceMode>(word.Value); break;
    case Key::Time: draft.Stage.Time = static_cast<CoincidenceTime>(word.Value); break;
    case Key::Inverted: draft.Stage.Inverted = true; break;
    case Key::Keep: draft.Stage.Keep = true; break;
    default: break; // no word sets a value
    }
}

bool takes(const std::vector<Key> &keys, Key key)
{
    return std::ranges::find(keys, key) != keys.end();
}

const Word *findWord(const Form &form, std::string_view text)
{
    for (const Word &word : words)
        if (word.Text == text && takes(form.Words, word.Sets)) return &word;
    return nullptr;
}

std::optional<Key> findKey(const std::vector<Key> &keys, std::string_view name)
{
    for (const Key key : keys)
        if (nameOf(key) == name) return key;
    return std::nullopt;
}

std::optional<Key> firstMissing(const Draft &draft)
{
    for (const Key key : draft.StageForm->Values)
        if (!draft.has(key)) return key;
    return std::nullopt;
}

Draft startStage(const Part &name)
{
    const auto *form = std::ranges::find(forms, name.text(), &Form::Name);
    if (form != std::end(forms)) {
        Draft draft;
        draft.StageForm = form;
        draft.Stage.Kind = form->Kind;
        return draft;
    }
    std::string known;
    for (const Form &row : forms) known += (known.empty() ? "" : ", ") + std::string(row.Name);
    fail(name, fmt::format("unknown stage \"{}\" (known: {})", name.text(), known));
}

// Exact, in the largest unit that keeps it whole.
std::string exactTime(int64_t ps)
{
    static constexpr struct
    {
        int64_t Factor;
        const char *Name;
    } units[] = {{1'000'000'000'000, "s"}, {1'000'000'000, "ms"}, {1'000'000, "us"}, {1000, "ns"}};
    for (const auto &unit : units)
        if (ps != 0 && ps % unit.Factor == 0) return fmt::format("{}{}", ps / unit.Factor, unit.Name);
    return fmt::format("{}ps", ps);
}

int64_t timeOf(const ChainStage &stage, Key key)
{
    switch (key) {
    case Key::Window: return stage.WindowPs;
    case Key::Delay: return stage.DelayPs;
    case Key::From: return stage.FromPs;
    case Key::To: return stage.ToPs;
    default: return 0; // no time
    }
}

uint32_t wordValue(const ChainStage &stage, Key key)
{
    switch (key) {
    case Key::Mode: return static_cast<uint32_t>(stage.Mode);
    case Key::Time: return static_cast<uint32_t>(stage.Time);
    case Key::Inverted: return stage.Inverted;
    case Key::Keep: return stage.Keep;
    default: return 0; // no word
    }
}

} // namespace Tessel::Cli
