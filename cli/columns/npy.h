// The header of an NPY file: what its numbers are and where they begin.
#pragma once

#include "columns/binary_column.h"

#include <memory>
#include <string>
#include <vector>

namespace Tessel::Cli {

struct NpyColumn
{
    std::string Name; // of a field; else empty
    BinaryColumn Column;
};

bool isNpy(const SourceFile &file);

// One column of an array with one axis; of one with two a column each, or of a structured one each field.
// Throws Failure.
std::vector<NpyColumn> npyColumns(std::shared_ptr<const SourceFile> file);

// The header of an array with one axis, 192 bytes whatever `count` is. `type`: as NumPy writes it, with quotes
// or brackets: "'<u8'".
std::string npyHeader(const std::string &type, uint64_t count);

} // namespace Tessel::Cli
