// Runs the work of a stage as its thread does, without one: pieces in, what the next stage gets out.
#pragma once

#include "manipulators/hooks.h"
#include "plain/stages.h"
#include "records/refs.h"
#include "stream/event_store.h"
#include "stream/piece.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>

namespace TestSupport {

using namespace Plain;

// "1@100 2@250" in T2, "1@3:20" (sync:dtime) in T3.
inline std::string show(const Events &given, bool t3 = false)
{
    std::ostringstream text;
    for (const Event &event : given) {
        text << (&event == given.data() ? "" : " ") << int{event.channel} << '@';
        if (t3)
            text << (event.time >> 15) << ':' << (event.time & 0x7FFF);
        else
            text << event.time;
    }
    return text.str();
}

// Empty if both are the same, else where they part.
inline std::string difference(const Events &got, const Events &expected, bool t3)
{
    const auto [one, other] = std::mismatch(got.begin(), got.end(), expected.begin(), expected.end());
    if (one == got.end() && other == expected.end()) return "";
    const auto from = std::max<ptrdiff_t>(one - got.begin() - 3, 0);
    const auto part = [&](const Events &given) {
        const auto size = static_cast<ptrdiff_t>(given.size());
        return show(Events(given.begin() + from, given.begin() + std::min(from + 8, size)), t3);
    };
    return "from event " + std::to_string(from) + ": " + part(got) + " instead of " + part(expected);
}

inline Tessel::StageRef stageOf(const StreamForm &form)
{
    const Tessel::StreamFacts facts{.Mode = form.t3 ? Tessel::MeasMode::T3 : Tessel::MeasMode::T2,
                                    .SyncPeriodPs = static_cast<int64_t>(form.period),
                                    .Resolution = form.resolution,
                                    .NumChans = 4};
    return {std::make_shared<Tessel::DeviceEntry>(), std::make_shared<Tessel::Manipulator>(),
            std::shared_ptr<Tessel::Run>(new Tessel::Run{.Facts = facts})};
}

// The next stage: takes what is written whenever asked.
class NextStage
{
public:
    explicit NextStage(uint64_t capacity) { Tessel::allocate(store, capacity); }

    Tessel::EventStore store;
    Events taken;

    void take()
    {
        ASSERT_LE(store.Count, store.Capacity);
        for (uint64_t i = 0; i < store.Count; ++i) taken.push_back({store.Times[i], store.Channels[i]});
        store.Count = 0;
    }
};

// A batch. Where the room runs out in its midst, the next stage takes what there is and it goes on.
template <class State>
void workPiece(State &state, const Tessel::StageRef &stage, const Events &in, NextStage &next)
{
    const EventArrays arrays(in);
    const auto &[times, channels] = arrays;
    uint64_t done = 0;
    for (size_t turns = 0; done < times.size(); ++turns) {
        ASSERT_LT(turns, 20 * times.size() + 1000) << "the stage doesn't get on";
        const Tessel::Piece rest{times.data() + done, channels.data() + done, times.size() - done, turns > 0};
        const uint64_t now = work(state, stage, rest, next.store);
        ASSERT_LE(now, rest.Count);
        if (now < rest.Count) {
            ASSERT_GT(next.store.Count, 0u) << "cut without need";
        }
        done += now;
        next.take();
    }
    if constexpr (Tessel::uses<State, Tessel::Hook::EndBatch>) endBatch(state, stage);
}

// A whole pass, `pieces` one after another.
template <class State>
Events workPass(State &state, const Tessel::StageRef &stage, const std::vector<Events> &pieces,
                uint64_t capacity)
{
    NextStage next(capacity);
    if constexpr (Tessel::uses<State, Tessel::Hook::StartPass>) startPass(state, stage);
    for (const Events &piece : pieces) workPiece(state, stage, piece, next);
    if constexpr (Tessel::uses<State, Tessel::Hook::FinishPass>)
        for (int turns = 0; !finishPass(state, stage, &next.store) && turns < 100000; ++turns) next.take();
    next.take();
    return next.taken;
}

inline Events reference(ReferenceStage stage, const StreamForm &form, const std::vector<Events> &pieces)
{
    Events out;
    for (size_t i = 0; i < pieces.size(); ++i)
        for (const Event &event : passPiece(stage, form, pieces[i], i + 1 == pieces.size()))
            out.push_back(event);
    return out;
}

} // namespace TestSupport
