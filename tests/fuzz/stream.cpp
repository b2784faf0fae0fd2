// Record words, decoded wide and plain, then through a chain of any stages in pieces: each stage against the
// plain form, before a store that is full again and again.
#include "input.h"
#include "manipulators/coincidence.h"
#include "manipulators/count_rate.h"
#include "manipulators/delay.h"
#include "manipulators/herald.h"
#include "manipulators/merge.h"
#include "manipulators/stage_run.h"
#include "manipulators/sub_stream.h"
#include "stream/words.h"

using namespace Tessel;
using namespace TestSupport;

namespace {

struct Stream
{
    StreamForm form;
    bool isOdd =
        false; // as only a hostile header makes it; it overflows in ways that the plain forms don't follow
    size_t pieceSize = 1;
    Events events{};
    uint8_t nextChannel = 5;
};

Stream streamOf(Fuzz::Input &input)
{
    const bool t3 = input.chance(), isOdd = input.below(8) == 7;
    const size_t pieceSize = 1 + input.take<uint8_t>();
    if (isOdd) return {{t3, input.take<uint64_t>(), input.take<double>()}, isOdd, pieceSize};
    if (!t3) return {{}, isOdd, pieceSize};
    return {{t3, input.oneOf<uint64_t>({1, 7, 1000, 12500}), input.oneOf({1.0, 1.5, 25.9})}, isOdd, pieceSize};
}

std::vector<uint32_t> wordsOf(Fuzz::Input &input)
{
    const uint32_t kept = input.oneOf({~0u, 0xFE0000FFu, 0xFE00FFFFu, 0xFE003C3Fu}); // close times meet
    std::vector<uint32_t> words(input.Left.size() / sizeof(uint32_t));
    for (uint32_t &word : words) word = input.take<uint32_t>() & kept;
    return words;
}

Events decodedBothWays(const std::vector<uint32_t> &words, const DecodeRules &rules)
{
    EventArrays wide{Events(words.size())}, plain{Events(words.size())};
    InvalidWords invalid, invalidPlain;
    uint64_t base = 0, basePlain = 0;
    const uint64_t count = decode(words, rules, base, wide.times.data(), wide.channels.data(), invalid);
    const uint64_t countPlain =
        decodePlain(words, rules, basePlain, plain.times.data(), plain.channels.data(), invalidPlain);
    Fuzz::require(count <= words.size() && count == countPlain && base == basePlain, "both decode alike");
    Fuzz::require(invalid.Words == invalidPlain.Words, "with the same invalid words");
    Events events;
    for (size_t i = 0; i < count; ++i) {
        events.push_back({wide.times[i], wide.channels[i]});
        Fuzz::require(events.back() == Event{plain.times[i], plain.channels[i]}, "and the same events");
    }
    return events;
}

// `hasForm`: there is a plain form of it.
template <class State>
void pass(Stream &stream, State state, const StageRef &stage, const ReferenceStage &plain, size_t capacity,
          bool hasForm = true)
{
    std::vector<Events> pieces;
    for (size_t at = 0; at < stream.events.size(); at += stream.pieceSize) {
        const auto *first = stream.events.data() + at;
        pieces.emplace_back(first, first + std::min(stream.pieceSize, stream.events.size() - at));
    }
    stream.events = workPass(state, stage, pieces, capacity);
    if (stream.isOdd || !hasForm) return;
    const Events expected = reference(plain, stream.form, pieces);
    const std::string found = difference(stream.events, expected, stream.form.t3);
    Fuzz::require(found.empty(), found.c_str());
}

void addStage(Fuzz::Input &input, Stream &stream)
{
    const size_t kind = input.below(6), few = 2 + input.take<uint8_t>();
    const bool keep = input.chance(), inverted = input.chance(), isSmall = input.chance();
    // What a small store makes of a stage that holds events back has no plain form.
    const size_t room = isSmall ? few : 4 * stream.events.size() + 8;
    const auto mode = static_cast<uint32_t>(input.below(3)), timeMode = static_cast<uint32_t>(input.below(4));
    const uint64_t window = input.take<uint16_t>(), delay = static_cast<uint64_t>(input.take<int16_t>());
    StageRef stage = stageOf(stream.form);
    Manipulator &record = *stage.record;
    std::vector<uint8_t> members(input.below(4));
    for (uint8_t &channel : members) channel = static_cast<uint8_t>(input.below(8));
    const auto first = static_cast<uint8_t>(input.below(8)), made = stream.nextChannel++;
    record.InChans = members;
    record.OutChans = {made};
    switch (kind) {
    case 0: return pass(stream, MergeState{keep}, stage, ReferenceMerge{members, made, keep}, few);
    case 1: {
        CoincidenceState state;
        state.Window = window;
        state.CoincMode = static_cast<CoincMode>(mode);
        state.TimeMode = static_cast<TimeMode>(timeMode);
        state.Keep = keep;
        const ReferenceCoincidence plain{members, made, window, mode, timeMode, keep};
        return pass(stream, state, stage, plain, room, !isSmall);
    }
    case 2: {
        record.InChans = {first};
        DelayState state;
        state.Delay = delay;
        state.Keep = keep;
        return pass(stream, state, stage, ReferenceDelay{first, made, delay, keep}, room, !isSmall);
    }
    case 3: {
        record.InChans.insert(record.InChans.begin(), first);
        record.OutChans = members;
        if (keep)
            for (uint8_t &output : record.OutChans) output = stream.nextChannel++;
        const HeraldState state{.Delay = delay, .Window = window, .Inverted = inverted, .Keep = keep};
        const ReferenceHerald plain{first, members, record.OutChans, delay, window, inverted, keep};
        return pass(stream, state, stage, plain, few);
    }
    case 4: return pass(stream, SubStreamState{delay, window}, stage, ReferenceSubStream{delay, window}, few);
    case 5: {
        record.Params2 = {made - 5};
        CountRateState state;
        state.Window = window;
        ReferenceCountRate plain{window, made};
        plain.rates.resize(made);
        return pass(stream, state, stage, plain, few);
    }
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    GTEST_FLAG_SET(break_on_failure, true); // of what stage_run.h checks
    Fuzz::Input input{{reinterpret_cast<const char *>(data), size}};
    Stream stream = streamOf(input);
    Fuzz::Input stages{input.Left.substr(0, 64)};
    input.Left.remove_prefix(stages.Left.size());
    const DecodeRules rules{.Mode = stream.form.t3 ? MeasMode::T3 : MeasMode::T2,
                            .NumChans = stages.oneOf({4u, 0u, 2u, 64u}),
                            .SyncPeriodPs = stream.form.period,
                            .IgnoresCode18 = stages.chance()};
    stream.events = decodedBothWays(wordsOf(input), rules);
    for (size_t left = stages.below(5); left > 0; --left) addStage(stages, stream);
    return 0;
}
