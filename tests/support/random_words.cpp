#include "support/random_words.h"

#include "support/words.h"

#include <algorithm>
#include <random>

namespace TestSupport {

std::vector<uint32_t> randomWords(const RandomWords &wanted)
{
    std::mt19937 random(wanted.seed);
    std::vector<uint32_t> words(wanted.count);
    const uint32_t range = wanted.t3 ? 1u << 10 : 1u << 25;
    const auto step = static_cast<uint32_t>(range * wanted.overflowShare / 2) + 1;
    uint32_t tag = 0;
    for (uint32_t &word : words) {
        const double kind = std::uniform_real_distribution<>(0, 1)(random);
        if (kind < wanted.overflowShare) {
            const auto wraps = static_cast<uint32_t>(1 + random() % 3);
            word = wanted.t3 ? t3Overflow(wraps) : t2Overflow(wraps);
            tag = 0;
            continue;
        }
        tag = wanted.ascending ? std::min(tag + static_cast<uint32_t>(random() % step), range - 1)
                               : static_cast<uint32_t>(random() % range);
        const uint32_t low = wanted.t3 ? static_cast<uint32_t>(random() % 32768) << 10 | tag : tag;
        if (kind < wanted.overflowShare + 0.01)
            word = 1u << 31 | static_cast<uint32_t>(1 + random() % 15) << 25 | low; // marker
        else if (kind < wanted.overflowShare + 0.05 && !wanted.t3)
            word = t2Sync(low);
        else
            word = static_cast<uint32_t>(random() % wanted.channels) << 25 | low;
    }
    return words;
}

} // namespace TestSupport
