// Where each of eight events goes when some are dropped or doubled: tables by the choice, a bit for each event.
#pragma once

#include <array>
#include <bit>
#include <cstdint>

namespace Tessel {

enum class Stay {
    Chosen,       // the chosen events
    ChosenDouble, // each of them and its copy
    AllAndCopies, // all, and a copy behind each chosen one
};

template <Stay stay>
constexpr uint32_t numStaying(uint32_t chosen, uint32_t events)
{
    const auto count = static_cast<uint32_t>(std::popcount(chosen));
    return stay == Stay::Chosen ? count : stay == Stay::ChosenDouble ? 2 * count : events + count;
}

// For each place behind one another the event that goes there, of a copy 8 more.
template <Stay stay>
constexpr std::array<uint8_t, 16> placesOf(uint32_t chosen, uint32_t events)
{
    std::array<uint8_t, 16> places{};
    for (uint32_t event = 0, at = 0; event < events; ++event) {
        const bool isChosen = (chosen >> event & 1) != 0;
        if (isChosen || stay == Stay::AllAndCopies) places[at++] = static_cast<uint8_t>(event);
        if (isChosen && stay != Stay::Chosen) places[at++] = static_cast<uint8_t>(8 + event);
    }
    return places;
}

template <Stay stay>
alignas(64) inline constexpr std::array<std::array<uint8_t, 16>, 256> EventPlaces = [] {
    std::array<std::array<uint8_t, 16>, 256> places{};
    for (uint32_t chosen = 0; chosen < 256; ++chosen) places[chosen] = placesOf<stay>(chosen, 8);
    return places;
}();

// Of four events, in halves of a time.
template <Stay stay>
alignas(64) inline constexpr std::array<std::array<uint32_t, 16>, 16> HalfPlaces = [] {
    std::array<std::array<uint32_t, 16>, 16> halves{};
    for (uint32_t chosen = 0; chosen < 16; ++chosen)
        for (uint32_t place = 0; place < 8; ++place) {
            const uint32_t event = placesOf<stay>(chosen, 4)[place] & 7;
            halves[chosen][2 * place] = 2 * event;
            halves[chosen][2 * place + 1] = 2 * event + 1;
        }
    return halves;
}();

// For each choice of eight events the last chosen one up to each, a byte each, the first event's lowest; 0
// where there is none.
inline constexpr std::array<uint64_t, 256> LastChosen = [] {
    std::array<uint64_t, 256> lasts{};
    for (uint32_t chosen = 0; chosen < 256; ++chosen)
        for (uint32_t event = 0, last = 0; event < 8; ++event) {
            if ((chosen >> event & 1) != 0) last = event;
            lasts[chosen] |= uint64_t{last} << (8 * event);
        }
    return lasts;
}();

} // namespace Tessel
