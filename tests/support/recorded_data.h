// Real recordings with known answers, where their folder is at hand (TESSEL_TEST_DATA), and their conversion
// to record words.
#pragma once

#include <boost/json.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TestSupport {

struct RecordedData
{
    std::vector<uint64_t> times;      // in the recording's own ticks
    std::vector<uint8_t> channels;    // as recorded
    std::vector<uint16_t> microtimes; // T3 only
    boost::json::object reference;
};

// Nothing if the recording isn't there.
std::optional<RecordedData> recordedData(const std::string &name);

inline constexpr int syncInput = -1;

// Words of a T2 stream, with overflow words where the time tag wraps. `inputOf` gives the input of a recorded
// channel, from 0, or syncInput; `unitsOf` turns a recorded time into units of the stream's resolution.
std::vector<uint32_t> t2Words(const RecordedData &data, const std::function<int(uint8_t)> &inputOf,
                              const std::function<uint64_t(uint64_t)> &unitsOf);

// Words of a T3 stream: times are sync numbers, microtimes dtimes.
std::vector<uint32_t> t3Words(const RecordedData &data, const std::function<int(uint8_t)> &inputOf);

} // namespace TestSupport
