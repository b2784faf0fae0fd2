// A column of numbers in a file without text: NPY, or numbers alone.
#pragma once

#include "columns/number_type.h"
#include "columns/rows.h"
#include "columns/source_file.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace Tessel::Cli {

struct BinaryColumn
{
    std::shared_ptr<const SourceFile> File;
    NumberType Type = NumberType::U64;
    bool IsBigEndian = false;
    uint64_t Offset = 0; // of the first number
    uint64_t Stride = 8; // from a number to the next
    uint64_t Count = 0;
    std::vector<char> Buffer = {};
};

// Numbers `first` on, `count` of them. Throw Failure, with the row: what is negative, infinite or no number.
void readNumbers(BinaryColumn &column, uint64_t first, size_t count, Numbers &numbers);

// The same, where only whole numbers below mostChannels are taken.
void readChannels(BinaryColumn &column, uint64_t first, size_t count, std::vector<uint32_t> &channels);

} // namespace Tessel::Cli
