// Exports whose effect no run shows, on devices of the table.
#include "manipulators/chain.h"
#include "session/open_close.h"
#include "session/tables.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <string>

using namespace Tessel;

namespace {

DeviceRef addOpenDevice(const std::string &id)
{
    DeviceRef target = std::make_shared<DeviceEntry>();
    target->device.ID = id;
    target->device.DeviceType = DeviceType::File;
    target->device.NumChans = 3;
    target->device.Index = 0;
    target->device.IsOpen = target->device.IsInitialized = true;
    addDevice(target);
    return target;
}

class Exports : public testing::Test
{
protected:
    ~Exports() override { closeDevices(); }

    DeviceRef target = addOpenDevice("1@a.tgx");
};

} // namespace

TEST_F(Exports, CountRatesAreTheLastOfSyncAndInputs)
{
    target->context.SyncRate = 1000;
    for (size_t i = 0; i < 256; ++i) target->context.CountRates[i] = 10 + static_cast<int32_t>(i);
    int32_t sync = 0;
    std::array<int32_t, 4> rates{1, 2, 3, 4};
    EXPECT_EQ(getCountRates(&sync, rates.data()), 3);
    EXPECT_EQ(sync, 1000);
    EXPECT_EQ(rates, (std::array<int32_t, 4>{10, 11, 12, 4}));
    EXPECT_EQ(getCountRates(nullptr, nullptr), 3);
    closeDevices();
    EXPECT_EQ(getCountRates(&sync, rates.data()), 0);
    EXPECT_EQ(sync, 0);
}

TEST_F(Exports, TagsAndSubModeAreTheCurrentDevices)
{
    const DeviceRef other = addOpenDevice("2@b.tgx");
    for (const DeviceRef &current : {other, target}) {
        makeCurrent(current);
        addIntTag("Counts", 5, 0);
        setMeasSubMode(current == other ? 1 : 2);
    }
    clearTags();
    EXPECT_TRUE(target->context.CustomTags.empty());
    EXPECT_EQ(other->context.CustomTags.size(), 1u);
    EXPECT_EQ(target->context.Description.MeasSubMode, 2);
    EXPECT_EQ(other->context.Description.MeasSubMode, 1);
}

// The largest text that is handed out and the first that isn't: a step makes a text longer by `stepBytes`.
TEST_F(Exports, ATextThatIsTooLongIsReplacedByOneThatSaysSo)
{
    auto record = std::make_shared<Manipulator>();
    record->ThreadGone = true;
    ChainLocks(target->context).append(record);
    const struct
    {
        bool (*give)(char *);
        size_t largest, stepBytes; // of the text with its zero
        const char *instead;
        std::function<void(size_t)> grow; // by so many steps
    } rows[] = {
        {getDeviceConfig, 65535, 1, "Device config string is to long!",
         [this](size_t steps) { target->device.Comment.append(steps, 'x'); }},
        {getManisConfig, 65535, 15, "Manipulator config string is to long!",
         [&](size_t steps) { record->OutChans.resize(record->OutChans.size() + steps, 10); }},
        {getDeviceIDs, 8192, 1, "Device string is to long!",
         [this](size_t steps) { target->device.ID.append(steps, 'x'); }},
    };
    std::array<char, 65536> text;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.instead);
        row.grow(10);
        ASSERT_TRUE(row.give(text.data()));
        row.grow((row.largest - 1 - std::strlen(text.data())) / row.stepBytes);
        EXPECT_TRUE(row.give(text.data()));
        EXPECT_GE(std::strlen(text.data()) + row.stepBytes, row.largest);
        row.grow(1);
        EXPECT_FALSE(row.give(text.data()));
        EXPECT_STREQ(text.data(), row.instead);
    }
}
