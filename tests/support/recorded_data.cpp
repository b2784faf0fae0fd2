#include "support/recorded_data.h"

#include "support/words.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace TestSupport {

namespace {

template <class Value>
std::vector<Value> readAll(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<Value> values(file ? std::filesystem::file_size(path) / sizeof(Value) : 0);
    file.read(reinterpret_cast<char *>(values.data()),
              static_cast<std::streamsize>(values.size() * sizeof(Value)));
    return values;
}

// Overflow words that bring `wraps` to `wanted`, at most `largest` in one word.
template <class Overflow>
void catchUp(std::vector<uint32_t> &words, uint64_t &wraps, uint64_t wanted, uint64_t largest,
             Overflow overflow)
{
    while (wraps < wanted) {
        uint64_t step = std::min(wanted - wraps, largest);
        words.push_back(overflow(static_cast<uint32_t>(step)));
        wraps += step;
    }
}

} // namespace

std::optional<RecordedData> recordedData(const std::string &name)
{
    std::filesystem::path folder = std::filesystem::path(TESSEL_TEST_DATA) / name;
    std::ifstream reference(folder / "reference.json");
    if (!reference) return std::nullopt;
    std::stringstream text;
    text << reference.rdbuf();
    return RecordedData{readAll<uint64_t>(folder / "timestamps.u64"), readAll<uint8_t>(folder / "channels.u8"),
                        readAll<uint16_t>(folder / "microtimes.u16"),
                        boost::json::parse(text.str()).as_object()};
}

std::vector<uint32_t> t2Words(const RecordedData &data, const std::function<int(uint8_t)> &inputOf,
                              const std::function<uint64_t(uint64_t)> &unitsOf)
{
    constexpr uint64_t wrap = 1 << 25;
    std::vector<uint32_t> words;
    uint64_t wraps = 0;
    for (size_t i = 0; i < data.times.size(); ++i) {
        uint64_t units = unitsOf(data.times[i]);
        catchUp(words, wraps, units / wrap, wrap - 1, t2Overflow);
        int input = inputOf(data.channels[i]);
        auto tag = static_cast<uint32_t>(units % wrap);
        words.push_back(input == syncInput ? t2Sync(tag) : t2Event(static_cast<uint32_t>(input), tag));
    }
    return words;
}

std::vector<uint32_t> t3Words(const RecordedData &data, const std::function<int(uint8_t)> &inputOf)
{
    constexpr uint64_t wrap = 1 << 10;
    std::vector<uint32_t> words;
    uint64_t wraps = 0;
    for (size_t i = 0; i < data.times.size(); ++i) {
        catchUp(words, wraps, data.times[i] / wrap, wrap - 1, [](uint32_t count) { return t3Overflow(count); });
        words.push_back(t3Event(static_cast<uint32_t>(inputOf(data.channels[i])),
                                static_cast<uint32_t>(data.times[i] % wrap), data.microtimes[i]));
    }
    return words;
}

} // namespace TestSupport
