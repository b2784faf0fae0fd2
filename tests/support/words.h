// Record words by their fields, as an instrument would send them. `channel` counts from 0.
#pragma once

#include <cstdint>

namespace TestSupport {

inline uint32_t t2Event(uint32_t channel, uint32_t timetag)
{
    return channel << 25 | timetag;
}
inline uint32_t t2Sync(uint32_t timetag)
{
    return 1u << 31 | timetag;
}
inline uint32_t t2Marker(uint32_t marker, uint32_t timetag)
{
    return 1u << 31 | marker << 25 | timetag;
}
inline uint32_t t2Overflow(uint32_t count)
{
    return 1u << 31 | 63u << 25 | count;
}

inline uint32_t t3Event(uint32_t channel, uint32_t nsync, uint32_t dtime)
{
    return channel << 25 | dtime << 10 | nsync;
}
inline uint32_t t3Marker(uint32_t marker, uint32_t nsync, uint32_t dtime)
{
    return 1u << 31 | marker << 25 | dtime << 10 | nsync;
}
inline uint32_t t3Overflow(uint32_t count, uint32_t dtime = 0)
{
    return 1u << 31 | 63u << 25 | dtime << 10 | count;
}

} // namespace TestSupport
