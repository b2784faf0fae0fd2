// Reads the head of a data file and single tags from it. Nothing of a file is trusted: a tag whose data block
// doesn't lie within the image counts as no tag.
#pragma once

#include "datafiles/tag.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tessel {

// The reader's view of one tag. An empty name: there is no tag.
struct TagRecord
{
    std::string Name; // at most 32 bytes
    int32_t Idx = 0;
    Tessel::TagType TagType{};
    uint64_t TagValue = 0;
    uint64_t Next = 0; // offset after the tag and its data block
};

inline constexpr uint64_t headerImageLimit = 262144;
inline constexpr uint64_t sealImageLimit = 1048576;

struct FileHead
{
    std::string Image; // the first bytes of the file
    uint64_t FileSize = 0;
    bool IsUnread = false; // reading failed
};

// The first `limit` bytes of a regular file; nothing, with an error in the log, if it can't be opened. An
// empty file, or one that can't be read, is logged and has an empty image.
std::optional<FileHead> readHead(std::string_view path, uint64_t limit);

// The tag at `offset`, or the one that begins with the first occurrence of `searchText` after it.
TagRecord readTag(std::string_view image, std::string_view searchText, uint64_t offset);

// Offset after the tag `Header_End`, 0 if there is none.
uint64_t headerLength(std::string_view image);

// The value's bits as a double; its low half as a signed number.
double doubleOf(const TagRecord &tag);
int32_t intOf(const TagRecord &tag);

// The `TagValue` bytes directly before `Next`, none if there are fewer; all of a block.
std::string_view blockOf(const TagRecord &tag, std::string_view image);

// Text of a tag up to its first zero, with line ends made the four visible characters \r\n.
std::string textOf(const TagRecord &tag, std::string_view image);

// Text of a WideString tag up to its first zero character.
std::string wideTextOf(const TagRecord &tag, std::string_view image);

// The recording's own id, by its tag File_GUID; empty: it has none.
std::string guidOf(std::string_view image);

// Bytes 0 to 7 and 8 to 15 of a file, each up to the first zero.
std::string_view magicOf(std::string_view image);
std::string_view versionOf(std::string_view image);

// A trace line of the tag, if the switch DataFile is on.
void printTag(const TagRecord &tag, std::string_view image);

} // namespace Tessel
