// What ends a recording before its time, as people write it: "records>1e9", "ch1>500k", "size>2GB", "time>60s".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel::Cli {

struct Recording;

// What a run has come to.
struct Reached
{
    uint64_t Records = 0;
    double Bytes = 0, Seconds = 0;
    std::vector<uint64_t> Events; // by row
};

struct Until
{
    enum class Quantity { Records, Events, Bytes, Seconds };

    std::string Text;
    Quantity Of = Quantity::Records;
    int64_t Row = 0; // of the events
    double Limit = 0;
};

// QUANTITY>NUMBER, where >= means the same. Throws a usage Failure that names the character.
Until parseUntil(std::string_view text);

// Throws a usage Failure if it is about a channel that has no events.
void checkUntil(const Until &until, const Recording &recording);

bool isReached(const Until &until, const Reached &reached);

} // namespace Tessel::Cli
