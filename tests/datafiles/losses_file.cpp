// The side file of a recording that lost something: written once and whole, believed only if it is the
// recording's.
#include "datafiles/losses_file.h"

#include "datafiles/file_names.h"
#include "datafiles/opened.h"
#include "log/text.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace Tessel;
using namespace TestSupport;

namespace {

Loss &at(LossReport &report, LossPlace place)
{
    return report.Places[static_cast<size_t>(place)];
}

LossReport someLosses()
{
    LossReport report{.Verdict = Verdict::Invalid};
    at(report, LossPlace::ReadBuffer) = {
        .Occasions = 2, .Lost = uint64_t{1} << 40, .FirstNs = 1'250'000'000, .LastNs = 3'500'000'000};
    at(report, LossPlace::Dropped) = {.Occasions = 1};
    return report;
}

class LossesFile : public testing::Test
{
protected:
    LossesFile() { TgxFile::t2().tag("File_GUID", "{1}").write(recording); }

    TempFolder folder;
    std::string recording = folder.file("a.b.tgx"), side = folder.file("a.b.losses.json");
};

} // namespace

TEST_F(LossesFile, TellsWhoOpensTheRecording)
{
    EXPECT_TRUE(writeLosses(recording, {}));
    EXPECT_FALSE(std::filesystem::exists(side)); // nothing was lost
    ASSERT_TRUE(writeLosses(normalPath(recording), someLosses()));
    const auto opened = openPath(recording);
    LossReport &read = opened->context.FileLosses;
    EXPECT_EQ(lossesJson(read), lossesJson(someLosses()));
    EXPECT_EQ(at(read, LossPlace::ReadBuffer).Lost, uint64_t{1} << 40);
    EXPECT_EQ(at(read, LossPlace::Dropped).Occasions, 1u);

    // What stands there is never replaced, and its name isn't taken for another recording.
    const std::string before = contents(side);
    LogCapture log;
    EXPECT_FALSE(writeLosses(recording, someLosses()));
    EXPECT_EQ(contents(side), before);
    std::filesystem::remove(recording);
    setTgxFilePath(recording);
    EXPECT_NE(checkFilePath().Path, normalPath(recording));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2); // no work file
    EXPECT_EQ(log.count("ERR File: losses of a recording"), 1u);
}

TEST_F(LossesFile, OneThatSaysNothingIsAWarning)
{
    ASSERT_TRUE(writeLosses(recording, someLosses()));
    const std::string good = contents(side);
    const auto with = [&good](std::string_view part, std::string_view instead) {
        std::string text = good;
        return text.replace(text.find(part), part.size(), instead);
    };
    const std::pair<std::string, std::string> rows[] = {
        {"", "it isn't what it should be"},
        {good.substr(0, good.size() / 2), "it isn't what it should be"},
        {std::string(100'000, '['), "too large"},
        {std::string(60'000, '['), "it isn't what it should be"},
        {"[]", "it isn't what it should be"},
        {with("{1}", "{2}"), "of another recording"},
        {with("losses/1", "losses/2"), "another schema"},
        {with("invalid", "fine"), "no such verdict"},
        {with("1099511627776", "-1"), "it isn't what it should be"},
        {with("\"occasions\":2", "\"occasions\":null"), "it isn't what it should be"},
    };
    for (const auto &[text, why] : rows) {
        SCOPED_TRACE(text.substr(0, 300));
        std::ofstream(side) << text;
        LogCapture log;
        const LossReport read = openPath(recording)->context.FileLosses;
        EXPECT_EQ(read.Verdict, Verdict::Clean);
        EXPECT_EQ(read.Problem, why);
        EXPECT_EQ(log.count("WRN File: " + side + " says nothing of the recording's losses: " + why), 1u);
    }
}
