// What the stages of a chain make of a stream, event by event, written apart from the library and as one writes
// it first who knows that a byte written may be any other: what a loop needs stands in locals. A stage keeps
// its state from piece to piece of a run.
#pragma once

#include "plain/stream.h"

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <variant>
#include <vector>

namespace Plain {

struct EventView
{
    const uint64_t *times;
    const uint8_t *channels;
    uint64_t count;
};

// Has room for whatever is appended.
struct EventSink
{
    uint64_t *times;
    uint8_t *channels;
    uint64_t count = 0;

    void append(uint8_t channel, uint64_t time)
    {
        times[count] = time;
        channels[count] = channel;
        ++count;
    }
};

struct ReferenceMerge
{
    std::vector<uint8_t> members;
    uint8_t output;
    bool keep;

    void piece(const StreamForm &form, EventView in, EventSink &out);
};

struct ReferenceCoincidence
{
    std::vector<uint8_t> members;
    uint8_t output;
    uint64_t window;
    uint32_t coincMode, timeMode;
    bool keep;

    struct Pending
    {
        uint64_t time, ps;
        uint8_t channel;
    };
    std::vector<Pending> pending{};
    size_t head = 0; // the first that is still pending
    std::array<uint64_t, 256> lastTime{};

    void piece(const StreamForm &form, EventView in, EventSink &out);
    void finish(EventSink &out);

private:
    void sliding(const StreamForm &form, uint64_t time, uint64_t min, EventSink &out);
    void once(const StreamForm &form, uint64_t time, uint64_t min, EventSink &out);
    uint64_t average(uint64_t min) const;
};

struct ReferenceDelay
{
    uint8_t input, output; // without keep, output is not used
    uint64_t delay;
    bool keep;

    struct Held
    {
        uint64_t time, ps;
    };
    std::deque<Held> held{};

    void piece(const StreamForm &form, EventView in, EventSink &out);
};

struct ReferenceHerald
{
    uint8_t herald;
    std::vector<uint8_t> gated, outputs;
    uint64_t delay, window;
    bool inverted, keep;

    uint64_t last = 0, previous = ~uint64_t{0};
    bool seen = false;

    void piece(const StreamForm &form, EventView in, EventSink &out);
};

struct ReferenceSubStream
{
    uint64_t from, to;

    void piece(const StreamForm &form, EventView in, EventSink &out);
};

struct ReferenceCountRate
{
    uint64_t window;
    size_t rows; // channels that it sees

    std::vector<uint64_t> counters{};
    std::vector<float> rates{};
    uint64_t start = 0, firstSync = 0;

    void piece(const StreamForm &form, EventView in, EventSink &out);
};

using ReferenceStage = std::variant<ReferenceMerge, ReferenceCoincidence, ReferenceDelay, ReferenceHerald,
                                    ReferenceSubStream, ReferenceCountRate>;

// A piece through one stage; with `last` what comes at the end of a run too.
Events passPiece(ReferenceStage &stage, const StreamForm &form, const Events &in, bool last);

} // namespace Plain
