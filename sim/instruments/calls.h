// What every exported operation goes through: the instrument of the index is found and locked, faults of the
// script happen, null pointers are refused. Nothing is thrown across the interface.
#pragma once

#include "sim/instruments/library.h"

#include <array>
#include <exception>
#include <memory>
#include <new>
#include <string_view>
#include <variant>

namespace Tessel::Sim {

struct TextOut
{
    char *Text = nullptr;
    size_t Room = 0;
};
struct Records
{
    uint32_t *Words = nullptr;
    size_t Room = 0;
};
struct Pointer // of which only null matters
{
    const void *Value = nullptr;
};
using Out = std::variant<std::monostate, int32_t *, uint32_t *, double *, TextOut, Records, Pointer>;

constexpr int32_t anyInstrument = INT32_MIN; // index of an operation that has none

// What an operation needs of the state of its instrument.
enum class Needs { Nothing, Open, Initialized };

struct Call
{
    std::string_view Op;
    int32_t Idx = anyInstrument;
    Needs Needed = Needs::Initialized;
    std::array<Out, 4> Outs; // the first ones
};

struct StartedCall
{
    std::shared_ptr<Instrument> On;        // null for an operation without index
    std::shared_ptr<LibraryFaults> Faults; // of an operation without index
    std::unique_lock<std::mutex> Held;
    const CallFault *Fault = nullptr; // that changes the results
    std::optional<int32_t> Answer;    // the operation isn't carried out
};

StartedCall startCall(FamilyId family, const Call &call);
int32_t endCall(const StartedCall &started, const Call &call, int32_t code);

// Cuts a text to the caller's room.
void copyText(TextOut to, std::string_view text);

// `body` takes the instrument, or nothing.
template <class Body>
int32_t perform(FamilyId family, const Call &call, const Body &body)
{
    try {
        const StartedCall started = startCall(family, call);
        if (started.Answer) return *started.Answer;
        if constexpr (requires(Instrument & instrument) { body(instrument); })
            return endCall(started, call, body(*started.On));
        else
            return endCall(started, call, body());
    } catch (const std::bad_alloc &) {
        return outOfMemory;
    } catch (const std::exception &) {
        return failed;
    }
}

} // namespace Tessel::Sim
