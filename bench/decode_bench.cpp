// Decoding of words into events, into a block that stays in the second-level cache and into memory.
// The copy beside it moves as many bytes as decoding reads and writes: 4 + 9 for each word.
#include "interleaved.h"
#include "stream/words.h"
#include "word_streams.h"

#include <algorithm>
#include <cstring>

using namespace Tessel;

namespace {

constexpr uint64_t BlockWords = 16384;
constexpr uint64_t StreamWords = 4 << 20; // for the block: more than the branch predictor can learn by heart
constexpr uint64_t MemoryWords = 24 << 20;

using Decoder = decltype(&decode);

// Decodes the stream piece by piece, each to the front of the destination.
struct Stream
{
    std::vector<uint32_t> Words;
    DecodeRules Rules;
    uint64_t Piece;
    std::vector<uint64_t> Times = std::vector<uint64_t>(Piece);
    std::vector<uint8_t> Channels = std::vector<uint8_t>(Piece);

    void decodeWith(Decoder decoder)
    {
        uint64_t overflowBase = 0;
        InvalidWords invalid;
        for (uint64_t at = 0; at < Words.size(); at += Piece) {
            const auto piece = std::span<const uint32_t>(Words).subspan(at, Piece);
            decoder(piece, Rules, overflowBase, Times.data(), Channels.data(), invalid);
            benchmark::ClobberMemory();
        }
    }

    void copy()
    {
        const uint64_t bytes = Piece * 13 / 2;
        const auto *from = reinterpret_cast<const char *>(Words.data());
        const uint64_t size = Words.size() * sizeof(uint32_t);
        for (uint64_t at = 0; at < Words.size(); at += Piece) {
            const uint64_t first = std::min(bytes, size - at * sizeof(uint32_t));
            auto *to = reinterpret_cast<char *>(Times.data());
            std::memcpy(to, from + at * sizeof(uint32_t), first);
            std::memcpy(to + first, from, bytes - first);
            benchmark::ClobberMemory();
        }
    }
};

void decodeCase(benchmark::State &state, MeasMode mode, uint32_t perMille, uint64_t words, uint64_t piece)
{
    Stream stream{.Words = Bench::wordStream(mode, words, perMille),
                  .Rules = {.Mode = mode, .NumChans = Bench::Inputs, .SyncPeriodPs = 5},
                  .Piece = piece};
    Bench::compare(
        state, words, [&] { stream.decodeWith(decode); }, [&] { stream.decodeWith(decodePlain); },
        [&] { stream.copy(); });
}

const int registered = [] {
    for (const MeasMode mode : {MeasMode::T3, MeasMode::T2})
        for (const uint32_t perMille : {2u, 70u, 360u})
            for (const bool toMemory : {false, true}) {
                const char *subject = mode == MeasMode::T2 ? "decodeT2" : "decodeT3";
                const uint64_t words = toMemory ? MemoryWords : StreamWords;
                const uint64_t piece = toMemory ? MemoryWords : BlockWords;
                benchmark::RegisterBenchmark(Bench::caseName(subject, perMille, toMemory).c_str(), decodeCase,
                                             mode, perMille, words, piece)
                    ->UseManualTime()
                    ->Unit(benchmark::kMillisecond)
                    ->Iterations(toMemory ? 15 : 41);
            }
    return 0;
}();

} // namespace
