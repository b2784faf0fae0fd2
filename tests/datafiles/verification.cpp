// What is found wrong with a recorded file, and what a repair makes of it.
#include "datafiles/verification.h"

#include "datafiles/header_writer.h"
#include "datafiles/losses_file.h"
#include "datafiles/repair.h"
#include "opened.h"
#include "support/words.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

using namespace Tessel;
using namespace TestSupport;

namespace {

const std::vector<uint32_t> goodT2 = {t2Event(0, 5), t2Sync(6), t2Overflow(1), t2Marker(2, 0), t2Event(1, 7)};
const std::vector<uint32_t> goodT3 = {t3Event(0, 5, 900), t3Event(1, 5, 3), t3Overflow(976),
                                      t3Event(0, 576, 1)};

// Times of goodT2 end at 33.6 ms, of goodT3 at 1 s.
TgxFile recorded(TgxFile file, int64_t count, std::vector<uint32_t> words, int stopReason = 0)
{
    file.tag("TTResult_NumberOfRecords", count).tag("TTResult_StopReason", stopReason);
    return file.tag("TTResult_StopAfter", 1000).records(std::move(words));
}
TgxFile t2(int64_t count, std::vector<uint32_t> words = goodT2, int stopReason = 0)
{
    return recorded(TgxFile::t2(2, 1000.0), count, std::move(words), stopReason);
}

std::vector<uint32_t> with(std::vector<uint32_t> words, std::initializer_list<uint32_t> more)
{
    words.insert(words.end(), more);
    return words;
}

std::string bytesOf(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// "lossy: crc cutShort"
std::string faultsOf(const std::string &path)
{
    const auto found = boost::json::parse(verificationAsJson(verifyFile(path).value()));
    std::string text(found.at("verdict").as_string());
    const char *separator = ": ";
    for (const auto &fault : found.at("faults").as_array()) {
        text.append(std::exchange(separator, " ")).append(fault.at("fault").as_string());
    }
    return text;
}

enum class Seal { Right, None, Broken };

} // namespace

TEST(Verification, FindsEachFaultAndRepairsWhatWasCutOff)
{
    const std::string zeros(4096, '\0');
    const struct
    {
        const char *Found, *Repaired; // "": nothing to repair, or beyond it
        TgxFile File;
        std::string_view Tail = "";
        Seal Sealed = Seal::Right;
    } cases[] = {
        {"clean", "", t2(5)},
        {"clean", "", recorded(TgxFile::t3(2, 1.0, 1e6), 4, goodT3)},
        {"clean", "", t2(0, {})},
        {"lossy: crc", "clean", t2(5), "", Seal::None},
        {"lossy: crc", "clean", t2(5), "", Seal::Broken},
        {"lossy: crc notClosed partRecord", "clean", t2(0, goodT2, -1), "abc", Seal::None},
        {"lossy: notClosed", "clean", recorded(TgxFile::t3(2, 1.0, 1e6), 0, goodT3, -1)},
        {"lossy: notClosed", "", t2(0, {}, -1)},
        {"lossy: cutShort partRecord", "lossy: fileError", t2(900), "x"},
        {"lossy: tooLong", "clean", t2(4)},
        {"lossy: cutShort emptyEnd", "lossy: fileError", t2(1029), zeros},
        {"lossy: timeUnit", "",
         recorded(TgxFile().tag("Measurement_Mode", 3).tag("HW_InpChannels", 2), 4, goodT3)},
        {"lossy: notClosed timeUnit", "lossy: timeUnit",
         recorded(TgxFile().tag("Measurement_Mode", 3).tag("HW_InpChannels", 2), 0, goodT3, -1)},
        {"lossy: invalid", "", t2(6, with(goodT2, {t2Event(2, 9)}))},
        {"lossy: order", "", t2(6, with(goodT2, {t2Event(1, 6)}))},
        {"lossy: overflows", "", t2(6, with(goodT2, {t2Overflow(0)}))},
        {"lossy: overflows", "", t2(6, with(goodT2, {t2Overflow(1000)}))}, // beyond the run's end
        {"lossy: fileError", "", t2(5, goodT2, -5)},
        {"invalid: foreign invalid", "", t2(2, {t2Event(40, 1), t2Event(41, 2)})},
        {"invalid: mode", "", recorded(TgxFile().tag("Measurement_Mode", 0), 5, goodT2)},
        {"invalid: header", "", TgxFile().withoutEnd().tag("Measurement_Mode", 2)},
        {"invalid: header", "", t2(5).tag("File_Comment", "of a Header_End")},
        {"invalid: header", "", TgxFile().preamble("", "").withoutEnd()},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(
            fmt::format("{} -> {}, line of {} bytes", row.Found, row.Repaired, row.File.bytes().size()));
        const TempFolder folder;
        const std::string path = row.File.write(folder.file("a.tgx")), copy = folder.file("b.tgx");
        const size_t header = row.File.header().size();
        if (row.Sealed != Seal::None && std::string_view(row.Found) != "invalid: header") sealHeader(path);
        std::ofstream(path, std::ios::app | std::ios::binary) << row.Tail;
        if (row.Sealed == Seal::Broken) std::fstream(path, std::ios::in | std::ios::out) << "MVTTTX";
        EXPECT_EQ(faultsOf(path), row.Found);

        const std::string before = bytesOf(path);
        EXPECT_EQ(repairFile(path, copy), *row.Repaired != '\0');
        EXPECT_EQ(bytesOf(path), before);
        EXPECT_EQ(std::filesystem::exists(copy), *row.Repaired != '\0');
        if (!*row.Repaired) continue;
        EXPECT_EQ(faultsOf(copy), row.Repaired);
        EXPECT_EQ(bytesOf(copy).substr(header), row.File.bytes().substr(header));
        EXPECT_FALSE(repairFile(path, folder.file("./a.tgx")));
        EXPECT_EQ(bytesOf(path), before);
    }
    EXPECT_FALSE(verifyFile("/no/such/file"));
    EXPECT_FALSE(verifyFile("/dev/zero"));
}

// What a run's end would have said: its length and the rates, by the records.
TEST(Verification, ARepairTellsTheRun)
{
    const TempFolder folder;
    TgxFile file =
        TgxFile::t3(2, 25.0, 1e6).tag("TTResult_InputRate", 900, 0).tag("TTResult_InputRate", 900, 1);
    const std::string path = recorded(file, 0, goodT3, -1).write(folder.file("a.tgx"));
    ASSERT_TRUE(repairFile(path, folder.file("b.tgx")));
    const auto repaired = openPath(folder.file("b.tgx"));
    const MeasDescription &run = repaired->context.Description;
    EXPECT_EQ(run.NumRecs, 4u);
    EXPECT_EQ(run.StopAfter, 1000);
    EXPECT_EQ(run.StopReason, StopReason::Unknown);
    EXPECT_EQ(run.AveSyncRate, 1e6);
    EXPECT_EQ(repaired->context.CountRates[0], 2);
    EXPECT_EQ(repaired->context.CountRates[1], 1);
    EXPECT_EQ(repaired->device.SyncPeriodPs, 1000000);
}

// What the side file says stays with the records.
TEST(Verification, LossesOfTheRunStayWithACopy)
{
    const TempFolder folder;
    const std::string path = t2(900).write(folder.file("a.tgx"));
    sealHeader(path);
    LossReport losses{.Verdict = Verdict::Invalid};
    losses.Places[static_cast<size_t>(LossPlace::ReadBuffer)] = {.Occasions = 1, .Lost = 77};
    ASSERT_TRUE(writeLosses(path, losses));
    EXPECT_EQ(faultsOf(path), "invalid: cutShort losses");
    ASSERT_TRUE(repairFile(path, folder.file("b.tgx")));
    EXPECT_EQ(faultsOf(folder.file("b.tgx")), "invalid: fileError losses");
    EXPECT_EQ(verifyFile(folder.file("b.tgx"))->Losses.Places[2].Lost, 77u);
}
