// Opening a file for a host that wants to know, the texts of a device, and the error of the last call.
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
        EXPECT_NE(lastError().find("can't be read: No such file"), std::string::npos) << lastError();
    }
    EXPECT_EQ(getNumAllChans(nullptr), 5); // the one that was current still is
    EXPECT_EQ(deviceIds(), R"(["7@a.tgx"])");
    EXPECT_TRUE(tessel_openFile(other.c_str(), nullptr, 0));
    EXPECT_EQ(getNumAllChans(nullptr), 3);
}

// Nothing here calls initAPI.
TEST(Refusals, SayWhyWithoutALog)
{
    static const TempFolder folder;
    static const auto create = [](const char *name, auto spoil) {
        tessel_recording_params params = {};
        params.size = sizeof params;
        params.measMode = 2;
        params.numChannels = 2;
        params.baseResolution = 1;
        spoil(params);
        return tessel_recordingCreate(folder.file(name).c_str(), &params) != nullptr;
    };
    static const std::string absent = folder.file("none.tgx"), where = folder.path().string();
    const std::pair<bool (*)(), std::string> cases[] = {
        {[] { return tessel_recordingCreate("a.tgx", nullptr) != nullptr; }, "no parameters"},
        {[] { return create("a.tgx", [](auto &params) { params.measMode = 7; }); }, "measMode 7 is neither"},
        {[] { return create("none/a.tgx", [](auto &) {}); }, "2 No such file or directory"},
        {[] { return tessel_recordingWrite(nullptr, nullptr, 1); }, "no recording"},
        {[] { return tessel_getFileTags(absent.c_str(), nullptr, 0, nullptr); }, "No such file"},
        {[] { return tessel_verifyFile(where.c_str(), nullptr, 0, nullptr); }, "Is a directory"},
        {[] { return tessel_repairFile(absent.c_str(), "b.tgx"); }, "No such file"},
        {[] { return tessel_openFile(nullptr, nullptr, 0); }, "No such file"},
        {[] { return tessel_getResultShape(u"who", 8, nullptr, nullptr, nullptr); }, "no such device"},
    };
    for (const auto &[call, why] : cases) {
        EXPECT_FALSE(call()) << why;
        EXPECT_NE(lastError().find(why), std::string::npos) << lastError() << ", not " << why;
    }
}

TEST(Texts, AreWrittenWholeOrAskedFor)
{
    Host host;
    ASSERT_FALSE(host.open(TgxFile::t3(2).tag("File_Comment", std::string(100, 'x')), {}).empty());
    addMCountRate(nullptr, 1000);
    std::array<char, 65535> plain{};
    const struct
    {
        int32_t Which;
        bool (*Plain)(char *);
    } texts[] = {{TESSEL_TEXT_DEVICE, getDeviceConfig},
                 {TESSEL_TEXT_DESCRIPTION, getMeasDescription},
                 {TESSEL_TEXT_CHAIN, getManisConfig},
                 {TESSEL_TEXT_DEVICE_IDS, getDeviceIDs}};
    for (const auto &[which, plainText] : texts) {
        ASSERT_TRUE(plainText(plain.data()));
        const std::string whole = plain.data();
        const uint64_t exact = whole.size() + 1;
        for (const uint64_t capacity : {uint64_t{0}, uint64_t{1}, exact - 1, exact, exact + 1, UINT64_MAX}) {
            SCOPED_TRACE(testing::Message() << which << " in " << capacity);
            std::vector<char> text(exact, '?');
            uint64_t needed = 7;
            EXPECT_EQ(tessel_getText(nullptr, which, text.data(), capacity, &needed), capacity >= exact);
            EXPECT_EQ(needed, exact);
            EXPECT_EQ(std::string(text.data(), exact - 1),
                      capacity >= exact ? whole : std::string(exact - 1, '?'));
            EXPECT_EQ(text.back(), capacity >= exact ? '\0' : '?');
            EXPECT_FALSE(tessel_getText(nullptr, which, nullptr, capacity, &needed));
            EXPECT_EQ(needed, exact);
            EXPECT_EQ(lastError(), "");
        }
    }
}

TEST(Texts, OfAnotherKindOrOfNobody)
{
    Host host;
    ASSERT_FALSE(host.open(TgxFile::t3(2), {}).empty());
    std::vector<char> text(65535, '?');
    for (const int32_t which : {-1, 1000, INT32_MIN, INT32_MAX}) {
        uint64_t needed = 7;
        EXPECT_FALSE(tessel_getText(nullptr, which, text.data(), text.size(), &needed));
        EXPECT_FALSE(tessel_getText(nullptr, which, text.data(), text.size(), nullptr));
        EXPECT_EQ(needed, 0u);
        EXPECT_NE(lastError(), "");
    }
    EXPECT_EQ(text[0], '?');
    EXPECT_TRUE(tessel_getText(u"nobody", TESSEL_TEXT_DEVICE, text.data(), text.size(), nullptr));
    EXPECT_NE(std::strstr(text.data(), "\"ID\":\"\""), nullptr) << text.data(); // "no device"
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
