// How a family's operations get their names. These files are compiled once for each library, with
// TESSEL_SIM_PREFIX (ZP, ...) and TESSEL_SIM_BIT, the family's bit of those below; an operation stands in the
// library of each family that has it, and in no other.
#pragma once

#include "sim/instruments/calls.h"

#include <bit>

#define ON_ZP 1
#define ON_CD 2
#define ON_SV40 4
#define ON_LM70 8
#define ON_CD90 16
#define ON_THESE(families) ((TESSEL_SIM_BIT) & (families))
#define ON_FILTERS (ON_ZP | ON_LM70 | ON_CD90)

// A template can't give a symbol its name.
#define TESSEL_SIM_JOIN(prefix, operation) prefix##_##operation
#define TESSEL_SIM_NAME(prefix, operation) TESSEL_SIM_JOIN(prefix, operation)
#define OPERATION(operation)                                                                                   \
    extern "C" __attribute__((visibility("default"))) int32_t TESSEL_SIM_NAME(TESSEL_SIM_PREFIX, operation)

namespace Tessel::Sim {

constexpr FamilyId thisFamily = static_cast<FamilyId>(std::countr_zero(static_cast<unsigned>(TESSEL_SIM_BIT)));
constexpr size_t shortRoom = 64, longRoom = 65536, nameRoom = 32; // of a caller's text buffers

// The operation on an initialized instrument.
template <class Body>
int32_t on(std::string_view op, int32_t idx, const Body &body)
{
    return perform(thisFamily, {.Op = op, .Idx = idx, .Needed = Needs::Initialized, .Outs = {}}, body);
}

template <class Body>
int32_t on(std::string_view op, int32_t idx, const std::array<Out, 4> &outs, const Body &body)
{
    return perform(thisFamily, {.Op = op, .Idx = idx, .Needed = Needs::Initialized, .Outs = outs}, body);
}

inline bool lacks(const Instrument &instrument, FeatureBit feature)
{
    return (instrument.What.Features & feature) == 0;
}

// One family has it in one of its models only.
inline bool lacksCfd(const Instrument &instrument)
{
    return thisFamily == FamilyId::SV40 && instrument.What.Model != "Sarvex 40 P";
}

} // namespace Tessel::Sim
