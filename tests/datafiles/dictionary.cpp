#include "datafiles/dictionary_writer.h"
#include "support/log_capture.h"
#include "support/tgx_file.h"

#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <optional>
#include <regex>
#include <set>

using namespace Tessel;
using namespace TestSupport;

namespace {

// A number as the bytes of a name's extension.
template <class T>
std::string number(T value)
{
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

uint32_t rowOf(std::string_view name, TagType type)
{
    for (uint32_t row = 0; row < tagRowCount; ++row)
        if (TagDictionary[row].Name == name && TagDictionary[row].Type == type) return row;
    return 0;
}

// Past the point where Fast_Load_End would come.
DictionaryState slowState()
{
    DictionaryState state;
    state.FastLoadPending = false;
    return state;
}

} // namespace

TEST(Dictionary, ValuesAndBlocksByType)
{
    struct Case
    {
        std::string_view Row;
        TagType Type;
        TagContent Content;
        uint64_t Stored; // of a block its size
        std::string Block{};
    };
    const double infinite = std::numeric_limits<double>::infinity();
    constexpr uint64_t ones = ~uint64_t{0};
    const std::string zeros(8, '\0'), large(3'000'000, 'x');
    using enum TagType;
    const Case cases[] = {
        {"HWRouter_Enabled", Bool8, {.Value = 0.4}, 0},
        {"HWRouter_Enabled", Bool8, {.Value = 0.5}, ones},
        {"HWRouter_Enabled", Bool8, {.Value = -1}, ones},
        {"HWRouter_Enabled", Bool8, {.Value = std::nan("")}, 0},
        {"HWSync_Offset", Int8, {.Value = -2.5}, ones - 2},
        {"HWSync_Offset", Int8, {.Value = 9007199254740993.0}, 9007199254740992},
        {"HWSync_Offset", Int8, {.Value = -infinite}, ones / 2 + 1},
        {"HW_Features", BitSet64, {.Value = 5}, 5},
        {"Usr%s", Color8, {.Value = 255}, 255},
        {"ImgHdr_X0", Float8, {.Value = -0.1}, std::bit_cast<uint64_t>(-0.1)},
        {"File_CreatingTime", TDateTime, {.Value = 25569.5}, std::bit_cast<uint64_t>(25569.5)},
        {"Defaults_Begin", Empty8, {.Value = 7}, 0},
        {"HW_PartNo", AnsiString, {.Text = ""}, 8, zeros},
        {"HW_PartNo", AnsiString, {.Text = "1234567"}, 8, "1234567" + zeros.substr(7)},
        {"HW_PartNo", AnsiString, {.Text = "12345678"}, 16, "12345678" + zeros},
        {"$Comment", AnsiString, {.Text = large}, large.size() + 8, large + zeros},
        {"AnaChName", WideString, {.WideText = u""}, 8, zeros},
        {"AnaChName", WideString, {.WideText = u"abc"}, 8, std::string("a\0b\0c\0\0\0", 8)},
        {"AnaChName", WideString, {.WideText = u"abcd"}, 16, std::string("a\0b\0c\0d\0", 8) + zeros},
        {"SeriesValues", Float8Array, {.Text = ""}, 0},
        {"SeriesValues", Float8Array, {.Text = "12345678"}, 8, "12345678"},
        {"SMVRPrevImage", BinaryBlob, {.Text = "123456789"}, 16, "123456789" + zeros.substr(1)},
    };
    for (const Case &c : cases) {
        DictionaryState state = slowState();
        std::string out;
        const uint32_t row = rowOf(c.Row, c.Type);
        const int32_t idx = TagDictionary[row].IndexBound != 0 ? 0 : -1;
        ASSERT_EQ(writeDictionaryTag(out, state, row, idx, c.Content, "x"), 0);
        const std::string_view name = c.Type == Color8 ? "Usrx" : c.Row;
        EXPECT_TRUE(out == tagBytes(name, idx, static_cast<uint32_t>(c.Type), c.Stored, c.Block))
            << c.Row << " " << c.Content.Value << " " << out.size();
    }
}

// Two channels and one curve are defined, markers are not; modules are where the bound is to be passed.
TEST(Dictionary, ChecksAndTheirMessages)
{
    struct Case
    {
        std::string_view Row;
        int32_t Idx;
        std::optional<std::string> Extension;
        int32_t Result;
        std::string Name;   // as written; empty: nothing is
        std::string Said{}; // in the log, behind its beginning
    };
    const auto none = std::nullopt;
    const std::string_view burst = "Orv2_SOM_%3.3d_Seq_BurstLen", code = "HistResDscr_HWModuleTypeCode%2.2d";
    const Case cases[] = {
        {"HW_RoutingChannels", -1, none, -72, "HW_RoutingChannels"}, // retired
        {"HW_Type", 5000, none, 0, "HW_Type"},
        {"HW_Type", -2, none, -6, "", "[-2] : Index out of bounds!"},
        {"MeasDesc_StartTime", -1, none, -6, "", "[-1] : Index out of bounds!"},
        {"MeasDesc_StartTime", 2, none, 0, "MeasDesc_StartTime"},
        {"MeasDesc_StartTime", 3, none, -6, "", "[3] : Index out of bounds (0..2)!"},
        {"HWInpChan_Name", -1, none, -6, "", "[-1] : Index out of bounds!"},
        {"HWInpChan_Name", 1, none, 0, "HWInpChan_Name"},
        {"HWInpChan_Name", 2, none, -6, "", "[2] : Index out of bounds (0..1)!"},
        {"HWMarkers_Enabled", 0, none, 0, "HWMarkers_Enabled",
         "[0] : Index might be out of bounds!\n            (Tag 'HW_Markers' yet undefined)"},
        {"File_ParentResult_GUID", 2147483646, none, 0, "File_ParentResult_GUID"},
        {burst, 0, none, -8, "", " : Tag ident extension missing!"},
        {burst, 0, "abc", -9, "", " : Illegal tag ident extension length!"},
        {burst, 0, number(int8_t{-1}), -10, "", " : Illegal tag ident extension value (-1)!"},
        {burst, 0, number(int8_t{7}), 0, "Orv2_SOM_007_Seq_BurstLen"},
        {burst, 0, number(int16_t{1234}), 0, "Orv2_SOM_1234_Seq_BurstLen"},
        {burst, 0, number(int64_t{0x700000002}), 0, "Orv2_SOM_002_Seq_BurstLen"},
        {"MVHT_%8.8X_Group", -1, number(0x1A2B3C), 0, "MVHT_001A2B3C_Group"},
        {code, 0, number(1), 0, "HistResDscr_HWModuleTypeCode01",
         " : Tag ident extension value 1 might be out of range!\n            (Tag 'HistResDscr_HWModules' yet "
         "undefined)"},
        {code, 0, number(2), -11, "", " : Tag ident extension value 2 out of bounds (0..1)!"},
        {"$%s", -1, "Depth", 0, "$Depth"},
        {"$%s", -1, std::string(60, 'n'), 0, "$" + std::string(30, 'n')}, // cut
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(fmt::format("{} {}", c.Row, c.Idx));
        DictionaryState state = slowState();
        state.DefinedSize[rowOfTag("HW_InpChannels")] = 2;
        if (c.Result == TagResult::ExtensionOutOfBounds)
            state.DefinedSize[rowOfTag("HistResDscr_HWModules")] = 2;
        state.DefinedSize[rowOfTag("HistoResult_NumberOfCurves")] = 1;
        std::string out;
        LogCapture log;
        EXPECT_EQ(writeDictionaryTag(out, state, rowOfTag(c.Row), c.Idx, {}, c.Extension), c.Result);
        EXPECT_EQ(out.substr(0, identSize),
                  c.Name.empty() ? "" : tagBytes(c.Name, 0, 0, 0).substr(0, identSize));
        std::string said = fmt::format("{}", fmt::join(log.lines(), "\n"));
        const std::string head =
            fmt::format("INF TGX: {}{}", c.Result < 0 ? "Error:    " : "Warning:  ", c.Row);
        EXPECT_EQ(said.find("TGX: ") != said.npos, !c.Said.empty()) << said;
        EXPECT_TRUE(c.Said.empty() || said.find(head + c.Said) != said.npos) << said;
    }
    DictionaryState state;
    std::string out;
    EXPECT_EQ(writeDictionaryTag(out, state, tagRowCount, -1, {}), TagResult::NoSuchRow);
}

TEST(Dictionary, DefinedSizeIsRoundedAndNeverBelowMinusOne)
{
    for (auto [value, size] : {std::pair(1.5, 2), {2.4, 2}, {-7.0, -1}, {-0.4, 0}, {1e20, 2147483647}}) {
        DictionaryState state = slowState();
        std::string out;
        writeDictionaryTag(out, state, TagId::HW_InpChannels, -1, {.Value = value});
        EXPECT_EQ(state.DefinedSize[TagId::HW_InpChannels], size) << value;
    }
}

TEST(Dictionary, GuidsAreVersionFourAndNew)
{
    const std::regex shape(R"(\{[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\})");
    std::set<std::string> seen;
    for (int i = 0; i < 50; ++i) seen.insert(newGuid());
    EXPECT_EQ(seen.size(), 50u);
    for (const std::string &guid : seen) EXPECT_TRUE(std::regex_match(guid, shape)) << guid;
}
