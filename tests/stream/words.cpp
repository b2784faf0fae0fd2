// Words in, events out: what each word means, and that the wide loop says the same as the plain one.
#include "stream/words.h"

#include "support/simd_targets.h"
#include "support/words.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace Tessel;
using namespace TestSupport;

namespace {

constexpr uint64_t NearEnd = UINT64_MAX - 100;

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

// The arrays are exactly as large as they must be, for the address sanitizer to see; `shift` elements off
// alignment.
Decoded run(decltype(&decode) decoder, std::span<const uint32_t> words, const DecodeRules &rules,
            uint64_t overflowBase, uint32_t room = 10, size_t shift = 0)
{
    std::vector<uint64_t> times(shift + words.size());
    std::vector<uint8_t> channels(shift + words.size());
    InvalidWords invalid{.Words = {}, .Count = 0, .Room = room};
    const uint64_t count =
        decoder(words, rules, overflowBase, times.data() + shift, channels.data() + shift, invalid);
    EXPECT_LE(count, words.size());
    const auto from = static_cast<std::ptrdiff_t>(shift), to = from + static_cast<std::ptrdiff_t>(count);
    return {{times.begin() + from, times.begin() + to},
            {channels.begin() + from, channels.begin() + to},
            overflowBase,
            {invalid.Words.begin(), invalid.Words.begin() + invalid.Count}};
}

struct WordCase
{
    const char *Name;
    MeasMode Mode;
    uint32_t Word;
    Decoded Expected;
    uint32_t NumChans = 4;
    uint64_t StartBase = 0;
    uint64_t SyncPeriodPs = 5;
    bool IgnoresCode18 = false;
};

constexpr MeasMode T2 = MeasMode::T2, T3 = MeasMode::T3;
constexpr uint32_t SpecialWord = 1u << 31;
constexpr uint32_t Code18 = SpecialWord | 18u << 25 | 77;

const std::vector<WordCase> wordCases = {
    {"T2 event", T2, t2Event(2, 100), {{500}, {3}, 0, {}}},
    {"T2 event, all bits of the time", T2, t2Event(0, 0x1FFFFFF), {{0x1FFFFFFull * 5}, {1}, 0, {}}},
    {"T2 event after overflows", T2, t2Event(1, 7), {{(67108864 + 7) * 5ull}, {2}, 67108864, {}}, 4, 67108864},
    {"T2 last input", T2, t2Event(3, 1), {{5}, {4}, 0, {}}},
    {"T2 input that isn't there", T2, t2Event(4, 1), {{}, {}, 0, {t2Event(4, 1)}}},
    {"T2 no inputs at all", T2, t2Event(0, 1), {{}, {}, 0, {t2Event(0, 1)}}, 0},
    {"T2 one input", T2, t2Event(0, 1), {{5}, {1}, 0, {}}, 1},
    {"T2 input 64", T2, t2Event(63, 1), {{5}, {64}, 0, {}}, 64},
    {"T2 more inputs than a word can name", T2, t2Event(63, 1), {{5}, {64}, 0, {}}, 100},
    {"T2 sync", T2, t2Sync(3), {{15}, {0}, 0, {}}},
    {"T2 sync without inputs", T2, t2Sync(3), {{15}, {0}, 0, {}}, 0},
    {"T2 first marker", T2, t2Marker(1, 3), {{15}, {129}, 0, {}}},
    {"T2 last marker", T2, t2Marker(15, 3), {{15}, {143}, 0, {}}},
    {"T2 past the markers", T2, t2Marker(16, 3), {{}, {}, 0, {t2Marker(16, 3)}}},
    {"T2 before the overflow", T2, t2Marker(62, 3), {{}, {}, 0, {t2Marker(62, 3)}}, 64},
    {"T2 overflow", T2, t2Overflow(3), {{503316480}, {255}, 100663296, {}}},
    {"T2 overflow that counts none", T2, t2Overflow(0), {{50}, {255}, 10, {}}, 4, 10},
    {"T2 most overflows", T2, t2Overflow(0x1FFFFFF), {{0x3FFFFFE000000 * 5ull}, {255}, 0x3FFFFFE000000, {}}},
    {"T2 base wraps", T2, t2Overflow(1), {{(33554432ull - 101) * 5}, {255}, 33554432 - 101, {}}, 4, NearEnd},
    {"T2 time wraps", T2, t2Event(0, 150), {{49 * 5}, {1}, NearEnd, {}}, 4, NearEnd},
    {"T2 code 18", T2, Code18, {{}, {}, 0, {Code18}}},
    {"T2 code 18 ignored", T2, Code18, {{}, {}, 0, {}}, 4, 0, 5, true},
    {"T2 input 18 isn't code 18", T2, t2Event(18, 1), {{}, {}, 0, {t2Event(18, 1)}}, 4, 0, 5, true},
    {"T3 event", T3, t3Event(2, 5, 3), {{5 << 15 | 3}, {3}, 0, {}}},
    {"T3 event, all bits", T3, t3Event(0, 1023, 32767), {{1023 << 15 | 32767}, {1}, 0, {}}},
    {"T3 event after overflows", T3, t3Event(1, 5, 3), {{2053ull << 15 | 3}, {2}, 2048, {}}, 4, 2048},
    {"T3 last input", T3, t3Event(3, 0, 1), {{1}, {4}, 0, {}}},
    {"T3 input that isn't there", T3, t3Event(4, 0, 1), {{}, {}, 0, {t3Event(4, 0, 1)}}},
    {"T3 input 64", T3, t3Event(63, 0, 1), {{1}, {64}, 0, {}}, 64},
    {"T3 has no sync", T3, t3Marker(0, 5, 3), {{}, {}, 0, {t3Marker(0, 5, 3)}}, 64},
    {"T3 first marker", T3, t3Marker(1, 5, 3), {{5 << 15 | 3}, {129}, 0, {}}},
    {"T3 last marker", T3, t3Marker(15, 5, 3), {{5 << 15 | 3}, {143}, 0, {}}},
    {"T3 past the markers", T3, t3Marker(16, 5, 3), {{}, {}, 0, {t3Marker(16, 5, 3)}}, 64},
    {"T3 before the overflow", T3, t3Marker(62, 5, 3), {{}, {}, 0, {t3Marker(62, 5, 3)}}, 64},
    {"T3 overflow keeps its dtime", T3, t3Overflow(2, 9), {{2048ull << 15 | 9}, {255}, 2048, {}}},
    {"T3 overflow that counts none", T3, t3Overflow(0), {{10 << 15}, {255}, 10, {}}, 4, 10},
    {"T3 most overflows", T3, t3Overflow(1023), {{1047552ull << 15}, {255}, 1047552, {}}},
    {"T3 base wraps", T3, t3Overflow(1), {{923ull << 15}, {255}, 923, {}}, 4, NearEnd},
    {"T3 time wraps", T3, t3Event(0, 150, 4), {{49 << 15 | 4}, {1}, NearEnd, {}}, 4, NearEnd},
    {"T3 code 18", T3, Code18, {{}, {}, 0, {Code18}}},
    {"T3 code 18 ignored", T3, Code18, {{}, {}, 0, {}}, 4, 0, 5, true},
    {"nothing in histogramming", MeasMode::Histogramming, t3Overflow(1), {{}, {}, 7, {}}, 4, 7},
};

// Alone, and among more words than one register holds, where each gives its events again.
TEST(Records, EachWordHasItsMeaning)
{
    for (const WordCase &row : wordCases) {
        SCOPED_TRACE(row.Name);
        const DecodeRules rules{row.Mode, row.NumChans, row.SyncPeriodPs, row.IgnoresCode18};
        EXPECT_EQ(run(decodePlain, {&row.Word, 1}, rules, row.StartBase), row.Expected);
        const std::vector<uint32_t> words(33, row.Word);
        forEachSimdTarget([&] {
            const Decoded many = run(decode, words, rules, row.StartBase);
            EXPECT_EQ(many.Times.size(), 33 * row.Expected.Times.size());
            EXPECT_EQ(many, run(decodePlain, words, rules, row.StartBase));
            if (!many.Times.empty() && !row.Expected.Times.empty()) {
                EXPECT_EQ(many.Times[0], row.Expected.Times[0]);
            }
        });
    }
}

TEST(Records, OnlyTheFirstInvalidWordsAreKept)
{
    std::vector<uint32_t> words;
    for (uint32_t i = 0; i < 40; ++i) {
        words.push_back(t3Event(50, i, 0));
        words.push_back(i % 3 == 0 ? Code18 : t3Event(0, i, 0));
    }
    for (const uint32_t room : {0u, 1u, 3u, 10u, 11u}) {
        SCOPED_TRACE(room);
        forEachSimdTarget([&] {
            const Decoded decoded = run(decode, words, {T3, 4, 1, true}, 0, room);
            ASSERT_EQ(decoded.Invalid.size(), std::min(room, 10u));
            for (uint32_t i = 0; i < decoded.Invalid.size(); ++i)
                EXPECT_EQ(decoded.Invalid[i], t3Event(50, i, 0));
            EXPECT_EQ(decoded.Times.size(), 26u);
        });
    }
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
    {"wide period", 70, 100, 5, 10, 10, 3, {T3, 4, 0x123456789ABCDEF1, false}},
    {"period 0", 70, 100, 5, 10, 0, 3, {T3, 4, 0, false}},
    {"base wraps on the way", 360, 50, 5, 10, 10, 40, {T3, 33, 80, true}, UINT64_MAX - 4000},
};

std::vector<uint32_t> wordsOf(const Mix &mix, size_t count, uint32_t seed)
{
    std::mt19937 random(seed);
    const auto below = [&](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    std::vector<uint32_t> words(count);
    for (uint32_t &word : words) {
        uint32_t kind = below(1000);
        const auto is = [&](uint32_t share) {
            const bool yes = kind < share;
            kind -= share;
            return yes;
        };
        const uint32_t time = below(1 << 25);
        if (is(mix.Overflows))
            word = t2Overflow(mix.Rules.Mode == T2
                                  ? below(mix.MaxWraps + 1)
                                  : below(32768) << 10 | below(std::min(mix.MaxWraps, 1023u) + 1));
        else if (is(mix.Syncs))
            word = t2Sync(time);
        else if (is(mix.Markers))
            word = t2Marker(1 + below(15), time);
        else if (is(mix.Noise))
            word = static_cast<uint32_t>(random());
        else if (is(mix.Ignored))
            word = Code18;
        else
            word = t2Event(below(std::max(mix.Rules.NumChans, 1u)), time);
    }
    return words;
}

TEST(Records, WideLoopAgreesWithPlainLoop)
{
    uint32_t seed = 0;
    for (Mix mix : mixes)
        for (const MeasMode mode : {T2, T3}) {
            mix.Rules.Mode = mode;
            SCOPED_TRACE(fmt::format("{} T{}", mix.Name, static_cast<int>(mode)));
            forEachSimdTarget([&] {
                for (size_t count = 0; count <= 200; ++count) {
                    const size_t shift = count % 9; // of the words and of both arrays
                    const std::vector<uint32_t> words = wordsOf(mix, shift + count, ++seed);
                    const auto part = std::span(words).subspan(shift);
                    const uint32_t room = seed % 3 == 0 ? 10 : seed % 3;
                    ASSERT_EQ(run(decode, part, mix.Rules, mix.StartBase, room, shift),
                              run(decodePlain, part, mix.Rules, mix.StartBase, room))
                        << "words " << count << ", seed " << seed;
                }
                const std::vector<uint32_t> words = wordsOf(mix, 50000, ++seed);
                ASSERT_TRUE(run(decode, words, mix.Rules, mix.StartBase) ==
                            run(decodePlain, words, mix.Rules, mix.StartBase))
                    << "seed " << seed;
            });
        }
}

// One batch or many: the base and the room for invalid words pass from one to the next.
TEST(Records, PiecesJoinSeamlessly)
{
    const Mix mix{"pieces", 200, 50, 20, 30, 10, 20, {T2, 4, 5, true}};
    const std::vector<uint32_t> words = wordsOf(mix, 3000, 1);
    const Decoded whole = run(decode, words, mix.Rules, 0);
    Decoded joined;
    InvalidWords invalid;
    for (size_t at = 0, length = 1; at < words.size(); at += length, length = length * 2 % 211) {
        const auto piece = std::span(words).subspan(at, std::min(length, words.size() - at));
        std::vector<uint64_t> times(piece.size());
        std::vector<uint8_t> channels(piece.size());
        const auto count = static_cast<std::ptrdiff_t>(
            decode(piece, mix.Rules, joined.OverflowBase, times.data(), channels.data(), invalid));
        joined.Times.insert(joined.Times.end(), times.begin(), times.begin() + count);
        joined.Channels.insert(joined.Channels.end(), channels.begin(), channels.begin() + count);
    }
    joined.Invalid.assign(invalid.Words.begin(), invalid.Words.begin() + invalid.Count);
    EXPECT_EQ(joined, whole);
}

} // namespace
