// Packing of the wanted lanes of a register, for loops that drop events. Compiled anew for each instruction set
// of the file that includes it. No lock and no thread.
#if defined(TESSEL_PACK_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef TESSEL_PACK_LANES_INL_H
#undef TESSEL_PACK_LANES_INL_H
#else
#define TESSEL_PACK_LANES_INL_H
#endif

#include <hwy/highway.h>

#include <array>
#include <cstdint>

HWY_BEFORE_NAMESPACE();
namespace Tessel {
namespace HWY_NAMESPACE {
namespace {

#if HWY_ARCH_X86 && HWY_TARGET == HWY_AVX2

// For each choice of 8 lanes the numbers of the chosen ones, packed, four bits each from the lowest on.
constexpr std::array<uint32_t, 256> ChosenLanes = [] {
    std::array<uint32_t, 256> lanes{};
    for (uint32_t choice = 0; choice < 256; ++choice)
        for (uint32_t lane = 0, place = 0; lane < 8; ++lane)
            if ((choice >> lane & 1) != 0) lanes[choice] |= lane << (4 * place++);
    return lanes;
}();

// Does what Highway's Compress does, whose table g++ copies to the stack for each call: a tenth of the speed.
// Bit k of `choice`: lane k.
template <class D, class V = hwy::HWY_NAMESPACE::Vec<D>>
HWY_INLINE V packChoice(D d, V lanes, uint8_t choice)
{
    namespace hn = hwy::HWY_NAMESPACE;
    static_assert(hn::MaxLanes(D()) == 8);
    const auto places = hn::Shr(hn::Set(d, ChosenLanes[choice]), hn::ShiftLeft<2>(hn::Iota(d, 0)));
    return hn::TableLookupLanes(lanes, hn::IndicesFromVec(d, hn::And(places, hn::Set(d, 7))));
}

template <class D, class V = hwy::HWY_NAMESPACE::Vec<D>, class M = hwy::HWY_NAMESPACE::Mask<D>>
HWY_INLINE V packLanes(D d, V lanes, M wanted)
{
    uint8_t choice[8];
    hwy::HWY_NAMESPACE::StoreMaskBits(d, wanted, choice);
    return packChoice(d, lanes, choice[0]);
}

#else

template <class D, class V = hwy::HWY_NAMESPACE::Vec<D>>
HWY_INLINE V packChoice(D d, V lanes, uint8_t choice)
{
    const uint8_t choices[8] = {choice};
    return hwy::HWY_NAMESPACE::Compress(lanes, hwy::HWY_NAMESPACE::LoadMaskBits(d, choices));
}

template <class D, class V = hwy::HWY_NAMESPACE::Vec<D>, class M = hwy::HWY_NAMESPACE::Mask<D>>
HWY_INLINE V packLanes(D, V lanes, M wanted)
{
    return hwy::HWY_NAMESPACE::Compress(lanes, wanted);
}

#endif

} // namespace
} // namespace HWY_NAMESPACE
} // namespace Tessel
HWY_AFTER_NAMESPACE();

#endif
