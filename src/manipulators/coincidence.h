// The work of a Coincidence.
#pragma once

#include "manipulators/chain.h"
#include "manipulators/event_queue.h"
#include "manipulators/hooks.h"
#include "stream/piece.h"

#include <array>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace Tessel {

enum class CoincMode : uint32_t { Sliding = 0, Once = 1 }; // any other: no coincidence
enum class TimeMode : uint32_t { First = 0, Last = 1, Average = 2 };

// Between events:
//
// C1: with TimeMode Last nothing is pending.
// C2: each pending event, and the last time of each member that has one, is at most QuietAfter less the window.
//     So an event after QuietAfter is quiet: nothing is within the window before it. It completes no set of
//     two, and all that is pending is old.
// C3: Ready is empty, unless `out` is full and the present event is only partly written.
struct CoincidenceState
{
    uint64_t Window = 0; // ps
    Tessel::CoincMode CoincMode = CoincMode::Sliding;
    Tessel::TimeMode TimeMode = TimeMode::First;
    bool Keep = false;

    // Per channel, ps, of its last event in the present batch; all ones: none yet. Only members are read.
    std::array<uint64_t, 256> LastTime{};
    // First and Average: what is held back so that a coincidence can stand in its place in time.
    EventQueue Pending;
    uint64_t MostPending = std::numeric_limits<uint64_t>::max(); // then the oldest goes before its time
    int64_t QuietAfter = 0; // ps, saturated; times beyond the signed range are never quiet
    // Time and channel of what an event made and `out` had no room for.
    std::vector<std::pair<uint64_t, uint8_t>> Ready;
};

template <>
inline constexpr Hook hooksOf<CoincidenceState> = Hook::StartPass | Hook::Clear | Hook::FinishPass;

void startPass(CoincidenceState &coincidence, const StageRef &);
uint64_t work(CoincidenceState &coincidence, const StageRef &stage, Piece in, EventStore &out);
void clear(CoincidenceState &coincidence);
bool finishPass(CoincidenceState &coincidence, const StageRef &, EventStore *out);

} // namespace Tessel
