// Header tags of the caller's own: collected by the `add...Tag` functions on the host's thread, written after
// the tags of the dictionary and without its checks.
#pragma once

#include "records/custom_tag.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel {

using CustomTags = std::vector<CustomTag>;

void addIntTag(CustomTags &tags, std::string_view name, int64_t value, uint32_t idx);
void addDblTag(CustomTags &tags, std::string_view name, double value, uint32_t idx);
void addBoolTag(CustomTags &tags, std::string_view name, bool value, uint32_t idx);
void addEmptyTag(CustomTags &tags, std::string_view name, uint32_t idx);
void addStringTag(CustomTags &tags, std::string_view name, std::string_view text, uint32_t idx);
void addWStringTag(CustomTags &tags, std::string_view name, std::u16string_view text, uint32_t idx);
void addFloatArrayTag(CustomTags &tags, std::string_view name, std::span<const double> values, uint32_t idx);
// Reads 8 x `count` bytes, of which the first `count` reach the file.
void addBBTag(CustomTags &tags, std::string_view name, const uint8_t *bytes, uint64_t count, uint32_t idx);

// Appends the tags to a header in work. A tag of an unknown type is logged and skipped.
void addCustomTags(std::string &header, std::span<const CustomTag> tags);

} // namespace Tessel
