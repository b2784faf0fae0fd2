// Words in, events out: what each word means, by the plain loop and by the wide one.
#include "stream/words.h"

#include "plain/stream.h"
#include "support/simd_targets.h"
#include "support/words.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace Tessel;
using namespace Plain;
using namespace TestSupport;

namespace {

struct Decoded
{
    std::vector<uint64_t> Times;
    std::vector<uint8_t> Channels;
    uint64_t OverflowBase = 0;
    std::vector<uint32_t> Invalid;

    bool operator==(const Decoded &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Decoded &decoded)
{
    for (size_t i = 0; i < decoded.Times.size(); ++i)
        out << fmt::format("{}@{} ", decoded.Channels[i], decoded.Times[i]);
    out << fmt::format("base {}", decoded.OverflowBase);
    for (const uint32_t word : decoded.Invalid) out << fmt::format(" invalid {:08x}", word);
    return out;
}

// Where the arrays lie, and in how large batches the words come: the base and the room for invalid words pass
// from one to the next.
struct Layout
{
    size_t Shift = 0; // elements off alignment
    size_t Batch = SIZE_MAX;
};

// The arrays are exactly as large as they must be, for the address sanitizer to see.
Decoded run(decltype(&decode) decoder, std::span<const uint32_t> words, const DecodeRules &rules, uint64_t base,
            uint32_t room = 10, const Layout &layout = {})
{
    std::vector<uint64_t> times(layout.Shift + words.size());
    std::vector<uint8_t> channels(layout.Shift + words.size());
    InvalidWords invalid{.Words = {}, .Count = 0, .Room = room};
    uint64_t *nextTime = times.data() + layout.Shift;
    uint8_t *nextChannel = channels.data() + layout.Shift;
    while (!words.empty()) {
        const auto batch = words.first(std::min(layout.Batch, words.size()));
        const uint64_t count = decoder(batch, rules, base, nextTime, nextChannel, invalid);
        EXPECT_LE(count, batch.size());
        words = words.subspan(batch.size());
        nextTime += count;
        nextChannel += count;
    }
    return {{times.data() + layout.Shift, nextTime},
            {channels.data() + layout.Shift, nextChannel},
            base,
            {invalid.Words.begin(), invalid.Words.begin() + invalid.Count}};
}

constexpr MeasMode T2 = MeasMode::T2, T3 = MeasMode::T3;
constexpr uint32_t Code18 = 1u << 31 | 18u << 25 | 77;

// Word by word; one that has no event is invalid.
Decoded reference(std::span<const uint32_t> words, const DecodeRules &rules, uint64_t base, uint32_t room)
{
    Decoded out;
    const bool isT2 = rules.Mode == T2;
    for (const uint32_t &word : words) {
        const Events events =
            isT2 ? decodeT2({&word, 1}, rules.NumChans, 1) : decodeT3({&word, 1}, rules.NumChans);
        if (events.empty()) {
            const bool isIgnored = rules.IgnoresCode18 && word >> 25 == 64 + 18;
            if (!isIgnored && out.Invalid.size() < std::min(room, 10u)) out.Invalid.push_back(word);
            continue;
        }
        const auto [time, channel] = events[0];
        out.Times.push_back(isT2 ? (base + time) * rules.SyncPeriodPs : (base << 15) + time);
        out.Channels.push_back(channel);
        if (channel == 255) base += isT2 ? time : time >> 15;
    }
    out.OverflowBase = base;
    return out;
}

void expectReference(std::span<const uint32_t> words, const DecodeRules &rules, uint64_t base,
                     uint32_t room = 10, const Layout &layout = {})
{
    const Decoded expected = reference(words, rules, base, room);
    ASSERT_EQ(run(decodePlain, words, rules, base, room, layout), expected);
    forEachSimdTarget([&] { ASSERT_EQ(run(decode, words, rules, base, room, layout), expected); });
}

TEST(Records, EachCodeHasItsMeaning)
{
    for (const MeasMode mode : {T2, T3})
        for (const uint32_t inputs : {0u, 1u, 4u, 64u, 100u}) // a word can name 64
            for (const uint64_t base : {uint64_t{0}, UINT64_MAX - 100})
                for (uint32_t code = 0; code < 128; ++code)
                    for (const uint32_t fields : {0u, 3u << 10 | 150, 0x1FFFFFFu}) {
                        SCOPED_TRACE(
                            fmt::format("T{} code {} of {} inputs", static_cast<int>(mode), code, inputs));
                        const std::vector<uint32_t> words(33, code << 25 | fields); // beyond a register
                        expectReference(words, {mode, inputs, 5, code % 2 == 0}, base);
                        if (HasFatalFailure()) return;
                    }
    EXPECT_EQ(run(decode, {{t3Overflow(1)}}, {MeasMode::Histogramming, 4, 5, false}, 7).Times.size(), 0u);
    EXPECT_EQ(run(decode, {{Code18}}, {T3, 4, 5, false}, 7).Invalid.size(), 1u);
}

TEST(Records, InvalidWordsAreNamedInTheLog)
{
    const struct
    {
        MeasMode Mode;
        uint32_t Word;
        const char *Text;
    } rows[] = {
        {T2, t2Event(9, 1234), "Device: T2Rec 0x120004d2 tt:1234 ch:9 s:0 invalid @ZP 1"},
        {T2, t2Marker(17, 1), "Device: T2Rec 0xa2000001 tt:1 ch:17 s:1 invalid @ZP 1"},
        {T3, t3Event(10, 5, 300), "Device: T3Rec 0x1404b005 Chan:0x10 nSync:0x5 dTime:0x300 s:0 invalid @ZP 1"},
        {T3, t3Marker(0, 1, 2), "Device: T3Rec 0x80000801 Chan:0x0 nSync:0x1 dTime:0x2 s:1 invalid @ZP 1"},
    };
    for (const auto &row : rows) EXPECT_EQ(invalidWordText(row.Mode, row.Word, "ZP 1"), row.Text);
}

// What share of the words, in per mille, is of which kind; the rest are input events.
struct Mix
{
    const char *Name;
    uint32_t Overflows, Syncs, Markers, Noise, Ignored;
    uint32_t MaxWraps;
    DecodeRules Rules{};
    uint64_t StartBase = 0;
};

const std::vector<Mix> mixes = {
    {"busy", 2, 100, 5, 0, 0, 1, {T3, 4, 1, false}},
    {"some overflows", 70, 100, 5, 0, 0, 1, {T3, 64, 80, false}},
    {"slow", 360, 100, 5, 0, 0, 1023, {T3, 8, 250, false}},
    {"all kinds", 200, 100, 50, 30, 30, 8, {T3, 8, 5, true}},
    {"much noise", 100, 100, 50, 400, 0, 0x1FFFFFF, {T3, 1, 4, false}},
    {"only noise", 0, 0, 0, 1000, 0, 1, {T3, 17, 1, false}},
    {"most wraps", 900, 0, 5, 10, 10, 0x1FFFFFF, {T3, 4, 5, false}},
    {"odd counts around the narrow limit", 500, 0, 5, 0, 0, 15, {T3, 4, 0xFFFFFFFF, false}},
    {"wide period", 70, 100, 5, 10, 10, 3, {T3, 100, 0x123456789ABCDEF1, false}},
    {"period 0", 70, 100, 5, 10, 0, 3, {T3, 0, 0, false}},
    {"base wraps on the way", 360, 50, 5, 10, 10, 40, {T3, 33, 80, true}, UINT64_MAX - 4000},
};

std::vector<uint32_t> wordsOf(const Mix &mix, size_t count, uint32_t seed)
{
    std::mt19937 random(seed);
    const auto below = [&](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    const uint32_t most = mix.Rules.Mode == T2 ? mix.MaxWraps : std::min(mix.MaxWraps, 1023u);
    const double events = 1000.0 - mix.Overflows - mix.Syncs - mix.Markers - mix.Noise - mix.Ignored;
    std::discrete_distribution kinds{double(mix.Overflows), double(mix.Syncs),   double(mix.Markers),
                                     double(mix.Noise),     double(mix.Ignored), events};
    std::vector<uint32_t> words(count);
    for (uint32_t &word : words) {
        const uint32_t time = below(1 << 25);
        switch (kinds(random)) {
        case 0: word = t2Overflow((mix.Rules.Mode == T2 ? 0 : below(32768) << 10) | below(most + 1)); break;
        case 1: word = t2Sync(time); break;
        case 2: word = t2Marker(1 + below(15), time); break;
        case 3: word = static_cast<uint32_t>(random()); break;
        case 4: word = Code18; break;
        default: word = t2Event(below(std::max(mix.Rules.NumChans, 1u)), time);
        }
    }
    return words;
}

TEST(Records, MixedWordsAreThoseOfTheReference)
{
    uint32_t seed = 0;
    for (Mix mix : mixes)
        for (const MeasMode mode : {T2, T3}) {
            mix.Rules.Mode = mode;
            SCOPED_TRACE(fmt::format("{} T{}", mix.Name, static_cast<int>(mode)));
            for (size_t count = 0; count <= 200; ++count) {
                const size_t shift = count % 9;
                const std::vector<uint32_t> words = wordsOf(mix, shift + count, ++seed);
                const uint32_t room = seed % 3 == 0 ? 11 : seed % 3;
                expectReference(std::span(words).subspan(shift), mix.Rules, mix.StartBase, room,
                                {shift, seed % 2 == 0 ? SIZE_MAX : 1 + seed % 97});
                if (HasFatalFailure()) return;
            }
            expectReference(wordsOf(mix, 50000, ++seed), mix.Rules, mix.StartBase);
        }
}

} // namespace
