#include "support/measured_events.h"

#include "support/host.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace TestSupport {

Events measuredEvents(size_t capacity, const char16_t *id)
{
    std::vector<uint64_t> times(capacity);
    std::vector<uint8_t> codes(capacity);
    uint64_t count = 0;
    Finished finished;
    ufMeasure(id, 0, 1, 0, times.data(), codes.data(), &count, capacity, finished.get());
    EXPECT_TRUE(finished.isSet());
    Events events;
    for (uint64_t i = 0; i < count; ++i) events.push_back({times[i], codes[i]});
    return events;
}

void expectSameEvents(const Events &got, const Events &expected)
{
    const auto [one, other] = std::mismatch(got.begin(), got.end(), expected.begin(), expected.end());
    EXPECT_EQ(got.size(), expected.size());
    EXPECT_TRUE(one == got.end() && other == expected.end()) << "they part at event " << one - got.begin();
}

} // namespace TestSupport
