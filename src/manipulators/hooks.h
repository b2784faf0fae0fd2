// Which functions a kind of stage has besides its work; see stage.h for what each does.
#pragma once

#include <cstdint>

namespace Tessel {

enum class Hook : uint32_t {
    None = 0,
    StartPass = 1,
    EndBatch = 2,
    Clear = 4,
    FinishPass = 8,
    Ready = 16,
    BeforeTurn = 32,
    Waits = 64,
    Overrun = 128,
};

constexpr Hook operator|(Hook one, Hook other)
{
    return static_cast<Hook>(static_cast<uint32_t>(one) | static_cast<uint32_t>(other));
}

// Each kind says its own, by its state.
template <class State>
struct HooksNotNamed;
template <class State>
inline constexpr Hook hooksOf = HooksNotNamed<State>::value;

template <class State, Hook hook>
inline constexpr bool uses = (static_cast<uint32_t>(hooksOf<State>) & static_cast<uint32_t>(hook)) != 0;

} // namespace Tessel
