// The common part of all operations, and the faults of the script.
#include "sim/instruments/calls.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

namespace Tessel::Sim {

namespace {

constexpr double longestHangMs = 1e9;

// The first fault that strikes this call; every entry counts its calls.
const CallFault *strike(const std::vector<CallFault> &script, std::vector<uint64_t> &calls, std::string_view op)
{
    const CallFault *found = nullptr;
    for (size_t i = 0; i < script.size(); ++i) {
        const CallFault &fault = script[i];
        if (fault.Op != op && fault.Op != "*") continue;
        const uint64_t call = ++calls[i];
        const bool strikes = call >= fault.From && call <= fault.To && (call - fault.From) % fault.Every == 0;
        if (strikes && !found) found = &fault;
    }
    return found;
}

bool hasNull(const Call &call)
{
    return std::ranges::any_of(call.Outs, [](const Out &out) {
        if (const auto *number = std::get_if<int32_t *>(&out)) return !*number;
        if (const auto *number = std::get_if<uint32_t *>(&out)) return !*number;
        if (const auto *number = std::get_if<double *>(&out)) return !*number;
        if (const auto *text = std::get_if<TextOut>(&out)) return !text->Text;
        if (const auto *records = std::get_if<Records>(&out)) return !records->Words;
        if (const auto *pointer = std::get_if<Pointer>(&out)) return !pointer->Value;
        return false;
    });
}

std::chrono::microseconds span(const Hang &hang)
{
    return std::chrono::microseconds(static_cast<int64_t>(std::min(hang.Ms, longestHangMs) * 1000));
}

// Stands still without the lock, so that a close comes through and ends it. False: it was closed.
bool hangOn(StartedCall &started, const Hang &hang)
{
    Instrument &instrument = *started.On;
    const uint64_t closings = instrument.Closings;
    return !instrument.Closed.wait_for(started.Held, span(hang),
                                       [&] { return instrument.Closings != closings; });
}

std::optional<int32_t> stateAnswer(const Instrument &instrument, const Call &call)
{
    if (call.Needed != Needs::Nothing && !instrument.IsOpen) return notOpen;
    if (call.Needed == Needs::Initialized && !instrument.IsInitialized) return notInitialized;
    return {};
}

// Before the operation: a hang, a code. What changes results comes after it.
void suffer(StartedCall &started)
{
    if (!started.Fault) return;
    if (const auto *code = std::get_if<int32_t>(&started.Fault->Action)) started.Answer = *code;
    const auto *hang = std::get_if<Hang>(&started.Fault->Action);
    if (!hang) return;
    if (!started.On)
        std::this_thread::sleep_for(span(*hang));
    else if (!hangOn(started, *hang))
        started.Answer = notOpen;
}

int32_t wholeOf(double value) // the nearest that the type has
{
    if (std::isnan(value)) return INT32_MIN;
    return static_cast<int32_t>(std::clamp(value, -2147483648.0, 2147483647.0));
}

void corrupt(const Out &out, double value)
{
    if (const auto *number = std::get_if<int32_t *>(&out)) **number = wholeOf(value);
    if (const auto *number = std::get_if<uint32_t *>(&out)) **number = static_cast<uint32_t>(wholeOf(value));
    if (const auto *number = std::get_if<double *>(&out)) **number = value;
}

void fill(const Out &out)
{
    if (const auto *text = std::get_if<TextOut>(&out)) std::memset(text->Text, 'x', text->Room);
}

// As many records as there is room for, all of the first input at the time 0.
void flood(const Call &call)
{
    size_t room = 0;
    for (const Out &out : call.Outs)
        if (const auto *records = std::get_if<Records>(&out))
            std::fill_n(records->Words, room = records->Room, 0u);
    for (const Out &out : call.Outs)
        if (const auto *count = std::get_if<int32_t *>(&out)) **count = static_cast<int32_t>(room);
}

void findLibraryFault(StartedCall &started, const Call &call)
{
    started.Faults = libraryFaults();
    const std::lock_guard lock(started.Faults->Lock);
    started.Fault = strike(started.Faults->Script, started.Faults->Calls, call.Op);
}

// A close ends the calls that hang before anything may happen to itself.
bool findInstrument(StartedCall &started, const Call &call)
{
    started.On = instrumentAt(call.Idx);
    if (!started.On) {
        const bool isFirst = call.Op == "OpenDevice" && call.Idx == 0;
        started.Answer = isFirst && !descriptionMistake().empty() ? badDescription : noInstrument;
        return false;
    }
    started.Held = std::unique_lock(started.On->Lock);
    if (call.Op == "CloseDevice") {
        ++started.On->Closings;
        started.On->Closed.notify_all();
    }
    started.Fault = strike(started.On->What.Faults, started.On->FaultCalls, call.Op);
    return true;
}

} // namespace

StartedCall startCall(FamilyId family, const Call &call)
{
    if (call.Op == "OpenDevice" || call.Op == "GetLibraryVersion") refreshDescription(family);
    StartedCall started;
    if (call.Idx == anyInstrument)
        findLibraryFault(started, call);
    else if (!findInstrument(started, call))
        return started;
    suffer(started);
    if (started.Answer) return started;
    if (started.On) started.Answer = stateAnswer(*started.On, call);
    if (!started.Answer && hasNull(call)) started.Answer = nullPointer;
    return started;
}

int32_t endCall(const StartedCall &started, const Call &call, int32_t code)
{
    if (!started.Fault || code < 0) return code;
    if (const auto *value = std::get_if<double>(&started.Fault->Action))
        for (const Out &out : call.Outs) corrupt(out, *value);
    if (std::holds_alternative<Endless>(started.Fault->Action))
        for (const Out &out : call.Outs) fill(out);
    if (std::holds_alternative<Flood>(started.Fault->Action)) flood(call);
    return code;
}

void copyText(TextOut to, std::string_view text)
{
    const size_t length = std::min(text.size(), to.Room - 1);
    std::memcpy(to.Text, text.data(), length);
    to.Text[length] = '\0';
}

} // namespace Tessel::Sim
