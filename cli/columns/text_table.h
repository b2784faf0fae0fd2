// A table as text: a line per event, with commas, semicolons, tabs or blanks between the columns. Lines that
// begin with # or % are comments; a first line that isn't numbers names the columns, or the last comment before
// them.
#pragma once

#include "columns/rows.h"
#include "columns/source_file.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Tessel::Cli {

// Which column is what, from 0.
struct TextColumns
{
    size_t Time = 0;
    std::optional<size_t> Channel, Microtime;
};

struct TextTable
{
    explicit TextTable(std::shared_ptr<const SourceFile> source); // throws Failure

    std::shared_ptr<const SourceFile> File;
    char Separator = ',';
    std::vector<std::string> Names;    // of the columns; empty: no line names them
    size_t NumColumns = 0;             // of the first line of numbers; 0: there is none
    std::vector<std::string> Comments; // before the first line of numbers, without their #
    TextColumns Columns;

    uint64_t Offset = 0, Line = 0, Row = 0;  // read so far
    uint64_t FirstOffset = 0, FirstLine = 0; // where the numbers begin
    std::vector<char> Buffer;
};

void rewind(TextTable &table);

// Up to rowsAtOnce rows; false: there are no more. Throws Failure, with the line.
bool nextRows(TextTable &table, Rows &rows);

} // namespace Tessel::Cli
