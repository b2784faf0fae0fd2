#include "datafiles/dictionary_writer.h"
#include "support/log_capture.h"
#include "support/tgx_file.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <map>
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
    ADD_FAILURE() << "no row " << name;
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

TEST(Dictionary, RowsHoldTogether)
{
    std::set<std::pair<std::string_view, TagType>> seen;
    for (uint32_t row = 0; row < tagRowCount; ++row) {
        const TagRow &tag = TagDictionary[row];
        SCOPED_TRACE(tag.Name);
        // Only the parameter of a curve and that of the file share name and type.
        EXPECT_TRUE(row == 250 || seen.emplace(tag.Name, tag.Type).second);
        EXPECT_LT(tag.Name.size(), 40u);
        EXPECT_EQ(tag.ExtensionKind != ExtensionKind::None, tag.Name.find('%') != tag.Name.npos);
        EXPECT_TRUE(tag.IndexBound <= 0 || TagDictionary[static_cast<uint32_t>(tag.IndexBound)].SizeDefining);
        EXPECT_TRUE(!tag.SizeDefining || tag.Type == TagType::Int8);
    }
    EXPECT_EQ(TagDictionary[TagId::MeasDesc_GlobalResolution].Name, "MeasDesc_GlobalResolution");
    EXPECT_EQ(TagDictionary[TagId::TTResultFormat_TTTRRecType].Name, "TTResultFormat_TTTRRecType");
}

TEST(Dictionary, ValuesByType)
{
    const double inf = std::numeric_limits<double>::infinity();
    using U = uint64_t;
    struct Case
    {
        TagType Type;
        double Value;
        uint64_t Stored;
    };
    using enum TagType;
    const Case cases[] = {
        {Bool8, 0.4, 0},
        {Bool8, 0.5, ~U{0}},
        {Bool8, -1, ~U{0}},
        {Bool8, std::nan(""), 0},
        {Int8, -2.5, static_cast<U>(-3)},
        {Int8, 2.5, 3},
        {Int8, 9007199254740993.0, 9007199254740992},
        {Int8, 1e300, 0x7FFFFFFFFFFFFFFF},
        {Int8, -inf, 0x8000000000000000},
        {Int8, std::nan(""), 0},
        {BitSet64, 5, 5},
        {Color8, 255, 255},
        {Float8, -0.1, std::bit_cast<U>(-0.1)},
        {TDateTime, 25569.5, std::bit_cast<U>(25569.5)},
        {Empty8, 7, 0},
    };
    const std::map<TagType, std::string_view> rows = {
        {Bool8, "HWRouter_Enabled"}, {Int8, "HWSync_Offset"}, {BitSet64, "HW_Features"},
        {Color8, "Usr%s"},           {Float8, "ImgHdr_X0"},   {TDateTime, "File_CreatingTime"},
        {Empty8, "Defaults_Begin"}};
    for (const Case &c : cases) {
        SCOPED_TRACE(fmt::format("{} {}", tagTypeName(c.Type), c.Value));
        DictionaryState state = slowState();
        std::string out;
        ASSERT_EQ(writeDictionaryTag(out, state, rowOf(rows.at(c.Type), c.Type), -1, {.Value = c.Value}, "x"),
                  0);
        std::string name = c.Type == Color8 ? "Usrx" : std::string(rows.at(c.Type));
        EXPECT_EQ(out, tagBytes(name, -1, static_cast<uint32_t>(c.Type), c.Stored));
    }
}

TEST(Dictionary, BlocksAreRoundedUpToEightBytes)
{
    const std::string zeros(16, '\0');
    struct Case
    {
        std::string_view Row;
        TagType Type;
        TagContent Content;
        std::string Block;
    };
    using enum TagType;
    const Case cases[] = {
        {"HW_PartNo", AnsiString, {.Text = ""}, zeros.substr(0, 8)},
        {"HW_PartNo", AnsiString, {.Text = "1234567"}, "1234567" + zeros.substr(0, 1)},
        {"HW_PartNo", AnsiString, {.Text = "12345678"}, "12345678" + zeros.substr(0, 8)},
        {"AnaChName", WideString, {.WideText = u""}, zeros.substr(0, 8)},
        {"AnaChName", WideString, {.WideText = u"abc"}, std::string("a\0b\0c\0\0\0", 8)},
        {"AnaChName", WideString, {.WideText = u"abcd"}, std::string("a\0b\0c\0d\0", 8) + zeros.substr(0, 8)},
        {"SeriesValues", Float8Array, {.Text = ""}, ""},
        {"SeriesValues", Float8Array, {.Text = "12345678"}, "12345678"},
        {"SMVRPrevImage", BinaryBlob, {.Text = "123456789"}, "123456789" + zeros.substr(0, 7)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(fmt::format("{} {}", c.Row, c.Block.size()));
        DictionaryState state = slowState();
        std::string out;
        ASSERT_EQ(
            writeDictionaryTag(out, state, rowOf(c.Row, c.Type), c.Row == "AnaChName" ? 0 : -1, c.Content), 0);
        EXPECT_EQ(out.substr(tagSize), c.Block);
        EXPECT_EQ(out.substr(36, 12),
                  tagBytes("", 0, static_cast<uint32_t>(c.Type), c.Block.size()).substr(36));
    }
    DictionaryState state = slowState();
    std::string out, large(3'000'000, 'x');
    EXPECT_EQ(writeDictionaryTag(out, state, rowOf("$Comment", AnsiString), -1, {.Text = large}), 0);
    EXPECT_EQ(out.size(), tagSize + 3'000'008);
}

TEST(Dictionary, ChecksAndTheirMessages)
{
    struct Case
    {
        std::string Title;
        uint32_t Row;
        int32_t Idx;
        std::optional<std::string> Extension;
        int32_t Result;
        std::vector<std::string> Lines;
        std::string Name; // as written
    };
    const uint32_t moduleCode = 203, burst = 273;
    const Case cases[] = {
        {"no such row", 372, -1, {}, -5, {}, ""},
        {"retired row", 80, -1, {}, -72, {}, "HW_RoutingChannels"},
        {"index below -1",
         rowOfTag("HW_Type"),
         -2,
         {},
         -6,
         {"INF TGX: Error:    HW_Type[-2] : Index out of bounds!"},
         ""},
        {"any index on an unbound row", rowOfTag("HW_Type"), 5000, {}, 0, {}, "HW_Type"},
        {"no index on a fixed bound",
         101,
         -1,
         {},
         -6,
         {"INF TGX: Error:    MeasDesc_StartTime[-1] : Index out of bounds!"},
         ""},
        {"last of a fixed bound", 101, 2, {}, 0, {}, "MeasDesc_StartTime"},
        {"beyond a fixed bound",
         101,
         3,
         {},
         -6,
         {"INF TGX: Error:    MeasDesc_StartTime[3] : Index out of bounds (0..2)!"},
         ""},
        {"no index on a row's bound",
         39,
         -1,
         {},
         -6,
         {"INF TGX: Error:    HWInpChan_Name[-1] : Index out of bounds!"},
         ""},
        {"last of a row's bound", 39, 1, {}, 0, {}, "HWInpChan_Name"},
        {"beyond a row's bound",
         39,
         2,
         {},
         -6,
         {"INF TGX: Error:    HWInpChan_Name[2] : Index out of bounds (0..1)!"},
         ""},
        {"bound yet undefined",
         46,
         0,
         {},
         0,
         {"INF TGX: Warning:  HWMarkers_Enabled[0] : Index might be out of bounds!",
          "            (Tag 'HW_Markers' yet undefined)"},
         "HWMarkers_Enabled"},
        {"any", 8, 2147483646, {}, 0, {}, "File_ParentResult_GUID"},
        {"extension missing",
         burst,
         0,
         {},
         -8,
         {"INF TGX: Error:    Orv2_SOM_%3.3d_Seq_BurstLen : Tag ident extension missing!"},
         ""},
        {"extension of three bytes",
         burst,
         0,
         "abc",
         -9,
         {"INF TGX: Error:    Orv2_SOM_%3.3d_Seq_BurstLen : Illegal tag ident extension length!"},
         ""},
        {"negative byte",
         burst,
         0,
         number(int8_t{-1}),
         -10,
         {"INF TGX: Error:    Orv2_SOM_%3.3d_Seq_BurstLen : Illegal tag ident extension value (-1)!"},
         ""},
        {"byte", burst, 0, number(int8_t{7}), 0, {}, "Orv2_SOM_007_Seq_BurstLen"},
        {"two bytes", burst, 0, number(int16_t{1234}), 0, {}, "Orv2_SOM_1234_Seq_BurstLen"},
        {"four bytes", 361, -1, number(0x1A2B3C), 0, {}, "MVHT_001A2B3C_Group"},
        {"eight bytes, low half", burst, 0, number(int64_t{0x700000002}), 0, {}, "Orv2_SOM_002_Seq_BurstLen"},
        {"extension's bound undefined",
         moduleCode,
         0,
         number(1),
         0,
         {"INF TGX: Warning:  HistResDscr_HWModuleTypeCode%2.2d : Tag ident extension value 1 might be out of "
          "range!",
          "            (Tag 'HistResDscr_HWModules' yet undefined)",
          "INF TGX: Warning:  HistResDscr_HWModuleTypeCode01[0] : Index might be out of bounds!",
          "            (Tag 'HistoResult_NumberOfCurves' yet undefined)"},
         "HistResDscr_HWModuleTypeCode01"},
        {"text", 32, -1, "Depth", 0, {}, "$Depth"},
        {"long text is cut", 32, -1, std::string(60, 'n'), 0, {}, "$" + std::string(30, 'n')},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.Title);
        DictionaryState state = slowState();
        std::string out;
        ASSERT_EQ(writeDictionaryTag(out, state, TagId::HW_InpChannels, -1, {.Value = 2}), 0);
        out.clear();
        LogCapture log;
        EXPECT_EQ(writeDictionaryTag(out, state, c.Row, c.Idx, {}, c.Extension), c.Result);
        std::vector<std::string> lines;
        bool continued = false;
        for (const std::string &line : log.lines()) {
            continued = line.starts_with("INF TGX") || (continued && line.starts_with("   "));
            if (continued) lines.push_back(line);
        }
        EXPECT_EQ(lines, c.Lines);
        if (c.Name.empty())
            EXPECT_EQ(out, "");
        else
            EXPECT_EQ(out.substr(0, identSize), tagBytes(c.Name, 0, 0, 0).substr(0, identSize));
    }
}

// No row of the table has a defined bound of its extension, so the bound is set by hand.
TEST(Dictionary, ExtensionBeyondItsBound)
{
    DictionaryState state = slowState();
    state.DefinedSize[202] = 2;
    state.DefinedSize[173] = 1;
    std::string out;
    LogCapture log;
    EXPECT_EQ(writeDictionaryTag(out, state, 203, 0, {}, number(1)), 0);
    EXPECT_EQ(writeDictionaryTag(out, state, 203, 0, {}, number(2)), -11);
    EXPECT_EQ(
        log.count("Error:    HistResDscr_HWModuleTypeCode%2.2d : Tag ident extension value 2 out of bounds "
                  "(0..1)!"),
        1u);
}

TEST(Dictionary, DefinedSizeIsRoundedAndNeverBelowMinusOne)
{
    for (auto [value, size] : {std::pair(1.5, 2), {2.4, 2}, {-7.0, -1}, {-0.4, 0}, {1e20, 2147483647}}) {
        DictionaryState state = slowState();
        std::string out;
        writeDictionaryTag(out, state, TagId::HW_InpChannels, -1, {.Value = value});
        EXPECT_EQ(state.DefinedSize[34], size) << value;
    }
}

TEST(Dictionary, FastLoadEndComesOnceBeforeTheFirstOtherRow)
{
    DictionaryState state;
    std::string out;
    writeDictionaryTag(out, state, rowOfTag("Measurement_Mode"), -1, {.Value = 2});
    EXPECT_EQ(out.size(), tagSize);
    writeDictionaryTag(out, state, rowOfTag("HW_Features"), -1, {});
    writeDictionaryTag(out, state, rowOfTag("HWSync_Divider"), -1, {});
    EXPECT_EQ(out.size(), 4 * tagSize);
    EXPECT_EQ(out.substr(tagSize, tagSize), tagBytes("Fast_Load_End", -1, Type::Empty8, 0));
    EXPECT_FALSE(state.HeaderDone);
    writeDictionaryTag(out, state, TagId::Header_End, -1, {});
    EXPECT_TRUE(state.HeaderDone);
}

TEST(Dictionary, GuidsAreVersionFourAndNew)
{
    const std::string_view shape = "{xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx}";
    std::set<std::string> seen;
    for (int i = 0; i < 50; ++i) {
        std::string guid = newGuid();
        ASSERT_EQ(guid.size(), shape.size());
        for (size_t at = 0; at < shape.size(); ++at) {
            std::string_view allowed = shape[at] == 'x'   ? "0123456789ABCDEF"
                                       : shape[at] == 'y' ? "89AB"
                                                          : shape.substr(at, 1);
            EXPECT_NE(allowed.find(guid[at]), allowed.npos) << guid;
        }
        EXPECT_TRUE(seen.insert(guid).second);
    }
}
