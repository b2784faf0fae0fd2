// The table of families. Ranges are those that a host keeps, so that a host which forgets one is noticed.
#include "sim/instruments/family.h"

#include <algorithm>

namespace Tessel::Sim {

namespace {

constexpr uint32_t common = FeatureDll | FeatureTttr | FeatureMarkers;
constexpr uint32_t smallRead = 131072, largeRead = 1048576;

constexpr FamilyFacts families[] = {
    {.Id = FamilyId::ZP,
     .Prefix = "ZP",
     .Model = "Zephyrion",
     .PartNo = "940001",
     .Version = "1.2",
     .Modules = 2,
     .Features = common | FeatureTrigOut | FeatureProgTd | FeatureProgHyst | FeatureFilter,
     .BaseResolutionPs = 5,
     .BinningSteps = 24,
     .ReadRecords = largeRead,
     .FifoRecords = 8 * largeRead,
     .HasCfd = false,
     .TakesAllChannels = true,
     .CompressesOverflows = true,
     .SyncDivider = {1, 16},
     .EdgeLevel = {-1200, 1200},
     .Discriminator = {},
     .ZeroCross = {},
     .DeadTime = {800, 160000},
     .Offset = {0, 100000000},
     .LengthCode = {0, 6},
     .Holdoff = {0, 25500},
     .Control = {0, 6},
     .FilterRangePs = 160000},
    {.Id = FamilyId::CD,
     .Prefix = "CD",
     .Model = "Cordalis",
     .PartNo = "930004",
     .Version = "2.0",
     .Modules = 3,
     .Features = common,
     .BaseResolutionPs = 1,
     .BinningSteps = 26,
     .ReadRecords = smallRead,
     .FifoRecords = 16 * smallRead,
     .HasEdge = false,
     .ReportsActive = true,
     .SyncDivider = {1, 16},
     .EdgeLevel = {},
     .Discriminator = {0, 1000},
     .ZeroCross = {0, 40},
     .DeadTime = {},
     .Offset = {0, 500000},
     .LengthCode = {0, 6},
     .Holdoff = {0, 524296},
     .Control = {0, 6}},
    {.Id = FamilyId::SV40,
     .Prefix = "SV40",
     .Model = "Sarvex 40 N",
     .PartNo = "930040",
     .Version = "1.0",
     .Ports = 4,
     .Features = common | FeatureLowRes | FeatureTrigOut | FeatureProgTd,
     .BaseResolutionPs = 25,
     .BinningSteps = 22,
     .ReadRecords = smallRead,
     .FifoRecords = 16 * smallRead,
     .SyncDivider = {1, 8},
     .EdgeLevel = {-1200, 1200},
     .Discriminator = {-1200, 0},
     .ZeroCross = {-40, 0},
     .DeadTime = {0, 7}, // a code
     .Offset = {0, 100000000},
     .LengthCode = {0, 5},
     .Holdoff = {0, 25500},
     .Control = {0, 3}},
    {.Id = FamilyId::LM70,
     .Prefix = "LM70",
     .Model = "Lumora 70",
     .PartNo = "920070",
     .Version = "1.1",
     .Features = common | FeatureTrigOut | FeatureProgTd | FeatureProgHyst | FeatureFilter | FeatureInputMode,
     .BaseResolutionPs = 10,
     .BinningSteps = 24,
     .ReadRecords = largeRead,
     .FifoRecords = 8 * largeRead,
     .CompressesOverflows = true,
     .SyncDivider = {1, 8},
     .EdgeLevel = {-1500, 1500},
     .Discriminator = {-1500, 0},
     .ZeroCross = {-100, 0},
     .DeadTime = {800, 160000},
     .Offset = {0, 100000000},
     .LengthCode = {0, 9},
     .Holdoff = {0, 25500},
     .Control = {0, 6},
     .FilterRangePs = 160000},
    {.Id = FamilyId::CD90,
     .Prefix = "CD90",
     .Model = "Cordalis 90 S",
     .PartNo = "930090",
     .Version = "1.0",
     .Modules = 2,
     .Features = common | FeatureTrigOut | FeatureProgTd | FeatureProgHyst | FeatureFilter | FeatureInputMode,
     .BaseResolutionPs = 1,
     .BinningSteps = 24,
     .ReadRecords = largeRead,
     .FifoRecords = 8 * largeRead,
     .TakesAllChannels = true,
     .CompressesOverflows = true,
     .SyncDivider = {1, 16},
     .EdgeLevel = {-1200, 1200},
     .Discriminator = {-1200, 0},
     .ZeroCross = {-100, 0},
     .DeadTime = {800, 160000},
     .Offset = {0, 100000000},
     .LengthCode = {0, 7},
     .Holdoff = {0, 25500},
     .Control = {0, 6},
     .FilterRangePs = 32000},
};

} // namespace

const FamilyFacts &factsOf(FamilyId family)
{
    return families[static_cast<int>(family)];
}

std::optional<FamilyId> familyNamed(std::string_view prefix)
{
    const auto *found = std::ranges::find(families, prefix, &FamilyFacts::Prefix);
    if (found == std::end(families)) return {};
    return found->Id;
}

} // namespace Tessel::Sim
