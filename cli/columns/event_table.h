// Where the events of an import come from: a text, an NPY file, numbers alone, or a file for each column.
#pragma once

#include "columns/binary_column.h"
#include "columns/text_table.h"

#include <optional>
#include <string>
#include <vector>

namespace Tessel::Cli {

struct TableOptions
{
    std::string Source;                      // empty: Times names a file
    std::string Times, Channels, Microtimes; // a column of the source, by name or number, else a file
    std::string Raw;                         // numbers alone, their types: "u64,u8"
    std::string Folder;                      // where pipes are kept
};

struct EventTable
{
    std::string Shown;                  // of the times, in messages
    std::optional<TextTable> Text = {}; // or
    BinaryColumn Times = {};
    std::optional<BinaryColumn> Channels = {}, Microtimes = {};
    bool HasChannels = false, HasMicrotimes = false;
    std::string TimeName = {}; // of the column; empty: it has none
    std::string Taken = {};    // which columns are what, where that had to be found out
    uint64_t Next = 0;         // row
};

// Throws Failure.
EventTable openTable(const TableOptions &options);

// As if there were none.
void dropMicrotimes(EventTable &table);

// To the first row again.
void rewind(EventTable &table);

// False: there are no more rows. Throws Failure, with file, row and text.
bool nextRows(EventTable &table, Rows &rows);

// How much of it is read, 0 to 1.
double fractionRead(const EventTable &table);

} // namespace Tessel::Cli
