// A run that ends when an element of its result reaches the device's stop count.
#include "session/tables.h"
#include "support/host.h"
#include "support/tgx_file.h"
#include "support/words.h"
#include "tessel.h"

#include <gtest/gtest.h>

using namespace TestSupport;

TEST(StopCount, EndsATwoDimensionalHistogram)
{
    for (const bool t3 : {false, true}) {
        SCOPED_TRACE(t3);
        Host host;
        std::vector<uint32_t> words;
        for (uint32_t i = 0; i < 1000; ++i)
            if (t3)
                words.insert(words.end(), {t3Event(0, i, 5), t3Event(1, i, 8)});
            else
                words.insert(words.end(),
                             {t2Sync(i * 100 + 1), t2Event(0, i * 100 + 6), t2Event(1, i * 100 + 9)});
        auto file = t3 ? TgxFile::t3(2) : TgxFile::t2(2);
        ASSERT_FALSE(
            host.open(file.tag("HW_SerialNo", "1").records(words).write(host.folder().file("a.tgx"))).empty());
        Tessel::currentDevice()->device.StopCount = 50;
        setHisto2dParams(nullptr, 0, 1, 2, 0, 0, 10, 10, 10, 10);
        Counts counts(10, 10);
        Finished finished;
        get2dHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get());
        EXPECT_EQ(counts.sum(), 50u); // every pair falls into the same bin
        EXPECT_EQ(host.logged("StopCount reached @ channel"), 1u);
        EXPECT_EQ(describedText("StopReason"), "Manual");
    }
}
