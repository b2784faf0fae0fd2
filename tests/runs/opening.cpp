// Opening a file for a host that wants to know, and the error of the last call.
#include "support/host.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <thread>

using namespace TestSupport;

namespace {

std::string lastError()
{
    std::array<char, 8192> text;
    const int32_t length = tessel_lastError(text.data(), text.size());
    EXPECT_EQ(std::strlen(text.data()), static_cast<size_t>(length));
    return text.data();
}

std::string deviceIds()
{
    std::array<char, 8192> ids{};
    getDeviceIDs(ids.data());
    return ids.data();
}

} // namespace

TEST(OpenFile, OpensAndSaysSoOrChangesNothing)
{
    Host host;
    const std::string good = TgxFile::t3(4).tag("HW_SerialNo", "7").write(host.folder().file("a.tgx"));
    const std::string absent = host.folder().file("none.tgx");
    EXPECT_FALSE(tessel_openFile(absent.c_str(), nullptr, 0));
    EXPECT_EQ(getNumAllChans(nullptr), 0); // "no device" isn't opened either
    std::array<char, 8> id{};
    ASSERT_TRUE(tessel_openFile(good.c_str(), id.data(), id.size())); // "7@a.tgx" and its zero
    EXPECT_STREQ(id.data(), "7@a.tgx");
    EXPECT_EQ(lastError(), "");
    EXPECT_EQ(getNumAllChans(nullptr), 5);

    const std::string other = TgxFile::t3(2).tag("HW_SerialNo", "7").write(host.folder().file("b.tgx"));
    id = {'j', 'u', 'n', 'k'};
    EXPECT_FALSE(tessel_openFile(other.c_str(), id.data(), id.size() - 1));
    EXPECT_EQ(lastError(), "File: the id 7@b.tgx has no room in 7 bytes");
    EXPECT_STREQ(id.data(), "junk");
    for (const char *path : {absent.c_str(), "", static_cast<const char *>(nullptr)}) {
        EXPECT_FALSE(tessel_openFile(path, id.data(), id.size()));
        EXPECT_NE(lastError().find("read Error!"), std::string::npos) << lastError();
    }
    EXPECT_EQ(getNumAllChans(nullptr), 5); // the one that was current still is
    EXPECT_EQ(deviceIds(), R"(["7@a.tgx"])");
    EXPECT_TRUE(tessel_openFile(other.c_str(), nullptr, 0));
    EXPECT_EQ(getNumAllChans(nullptr), 3);
}

TEST(LastError, IsThatOfTheThreadsLastCall)
{
    logError("before the start"); // nobody logs it
    EXPECT_EQ(lastError(), "Ext.-Error: before the start");
    Host host;
    EXPECT_EQ(lastError(), ""); // forgotten by the call of initAPI
    logError("nine \xE2\x82\xAC");
    std::thread([] { EXPECT_EQ(lastError(), ""); }).join();
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(lastError(), "Ext.-Error: nine \xE2\x82\xAC"); // asking forgets nothing
    std::array<char, 20> text;
    text.fill('x');
    EXPECT_EQ(tessel_lastError(text.data(), text.size() - 1), 20); // cut before a character that has no room
    EXPECT_STREQ(text.data(), "Ext.-Error: nine ");
    EXPECT_EQ(tessel_lastError(text.data(), 1), 20);
    EXPECT_STREQ(text.data(), "");
    EXPECT_EQ(tessel_lastError(nullptr, 20) + tessel_lastError(text.data(), 0), 40);
    EXPECT_EQ(text[19], 'x');
    logError(std::string(100'000, 'y').c_str());
    EXPECT_EQ(lastError().size(), 4096u);

    std::thread([] { logError("another thread's"); }).join();
    EXPECT_EQ(lastError().substr(0, 13), "Ext.-Error: y");
    rawMeasure(u"nobody", 0, 1, 0, nullptr, nullptr, 0, nullptr);
    EXPECT_EQ(lastError(), "Device: Can't do a measurement on a invalid device! @");
    waitNewData(nullptr);
    EXPECT_EQ(lastError(), "");
}
