// All tags of a file's header as JSON.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Tessel {

// {"magic", "version", "dataStart", "fileSize", "tags": [{"name", "idx", "type", "value"}, ...]}. Nothing,
// with an error in the log, if the file can't be read. A header that is cut short gives the tags before the
// cut.
//
// Values: Empty8 null, Bool8 a bool, Int8, BitSet64 and Color8 a number, Float8 a number (null if it isn't
// finite), TDateTime "2026-11-21T14:30:05.123", both string types a text, Float8Array an array of numbers,
// BinaryBlob a text of two hexadecimal digits a byte.
std::optional<std::string> headerTagsAsJson(std::string_view path);

} // namespace Tessel
