// Writes tags by the rows of the dictionary, checks their indices, and keeps what the checks need to know of
// the header so far. One thread for each file that is written.
#pragma once

#include "datafiles/tag_dictionary.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tessel {

// Of one header in work. Kept over the overwrite, which is checked against the sizes of the first write.
struct DictionaryState
{
    bool FastLoadPending = true; // `Fast_Load_End` is due before the next row that isn't FastLoad
    bool HeaderDone = false;     // `Header_End` is written
    std::array<int32_t, tagRowCount> DefinedSize; // by row: last value of a SizeDefining row, -1 undefined

    DictionaryState() { DefinedSize.fill(-1); }
};

// What goes into a tag; the row's type says which member.
struct TagContent
{
    double Value = 0.0;      // every numeric type: integers above 2^53 lose their low bits
    std::string_view Text{}; // AnsiString; the bytes of Float8Array and BinaryBlob
    std::u16string_view WideText{};
};

// Result of writeDictionaryTag.
namespace TagResult {
inline constexpr int32_t Written = 0, NoSuchRow = -5, IndexOutOfBounds = -6, NoGuid = -7, ExtensionMissing = -8,
                         ExtensionLength = -9, ExtensionNegative = -10, ExtensionOutOfBounds = -11,
                         WrittenRetired = -72;
}

// Appends a tag to `out`, with `Fast_Load_End` before it if that is due. `extension`: the text of a name with
// %s, or the 1, 2, 4 or 8 bytes of the number of any other name with an extension.
int32_t writeDictionaryTag(std::string &out, DictionaryState &state, uint32_t row, int32_t idx,
                           const TagContent &content, std::optional<std::string_view> extension = {});

// Steps of a header: a new one, the overwrite of one in a file, the end of either.
void MVUTF_Start(DictionaryState &state);
void MVUTF_Update(DictionaryState &state);
void MVUTF_End();

// A version 4 UUID in braces, in upper case; empty if the system has no randomness to give.
std::string newGuid();

} // namespace Tessel
