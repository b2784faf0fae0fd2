// What the instruments of one family are: texts, sizes, ranges. What a value beyond its range does is in
// exports/: the library refuses it.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Tessel::Sim {

enum class FamilyId { ZP, CD, SV40, LM70, CD90 };
constexpr int numFamilies = 5;

// Bits of what an instrument can do, in the order of their names.
enum FeatureBit : uint32_t {
    FeatureDll = 1,
    FeatureTttr = 2,
    FeatureMarkers = 4,
    FeatureLowRes = 8,
    FeatureTrigOut = 16,
    FeatureProgTd = 32,
    FeatureExtFpga = 64,
    FeatureProgHyst = 128,
    FeatureFilter = 256,
    FeatureInputMode = 512,
};
constexpr std::string_view featureNames[] = {"DLL",    "TTTR",    "Markers",  "LowRes",   "TrigOut",
                                             "ProgTd", "ExtFPGA", "ProgHyst", "EvntFilt", "InputMode"};

struct ValueRange
{
    int32_t Least = 0, Most = 0;
};

struct FamilyFacts
{
    FamilyId Id = FamilyId::ZP;
    std::string_view Prefix, Model, PartNo, Version;
    int32_t Ports = 8, Channels = 4, Modules = 0;
    uint32_t Features = 0;
    int32_t BaseResolutionPs = 1, BinningSteps = 1;
    uint32_t ReadRecords = 0; // that one reading takes at most
    uint32_t FifoRecords = 0;
    bool HasEdge = true, HasCfd = true; // kinds of trigger
    bool TakesAllChannels = false;      // channel -1 means all
    bool CompressesOverflows = false;   // one word counts many
    bool ReportsActive = false;         // flag 32 while a measurement runs
    ValueRange SyncDivider, EdgeLevel, Discriminator, ZeroCross, DeadTime, Offset, LengthCode, Holdoff, Control;
    int32_t FilterRangePs = 0; // longest; 0: no filter
};

const FamilyFacts &factsOf(FamilyId family);
std::optional<FamilyId> familyNamed(std::string_view prefix);

} // namespace Tessel::Sim
