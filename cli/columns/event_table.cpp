#include "columns/event_table.h"

#include "columns/column_choice.h"
#include "columns/npy.h"
#include "program/exit_codes.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string_view>
#include <utility>

namespace Tessel::Cli {

namespace {

using Files = std::map<std::string, std::shared_ptr<const SourceFile>>; // each is opened, and a pipe kept, once

std::shared_ptr<const SourceFile> opened(Files &files, const std::string &path, const std::string &folder)
{
    auto &file = files[path];
    if (!file) file = std::make_shared<const SourceFile>(path, folder);
    return file;
}

BinaryColumn onlyColumn(std::vector<NpyColumn> columns)
{
    if (columns.size() == 1) return std::move(columns.front().Column);
    throw Failure(Exit::Usage,
                  fmt::format("{}: has {} columns; name it alone, as the source, and its columns by "
                              "--times, --channels and --microtimes",
                              columns.front().Column.File->Shown, columns.size()));
}

// Numbers alone, one type after the other in each row.
std::vector<NpyColumn> rawColumns(const std::shared_ptr<const SourceFile> &file, std::string_view types)
{
    std::vector<NpyColumn> columns;
    uint64_t stride = 0;
    for (size_t at = 0; at <= types.size();) {
        const size_t end = std::min(types.find(',', at), types.size());
        const auto type = numberType(types.substr(at, end - at));
        if (!type)
            throw Failure(Exit::Usage,
                          fmt::format("--raw {}: types are u8, u16, u32, u64, i8, i16, i32, i64, f32, f64, t3",
                                      visibleText(types)));
        columns.push_back({"", {.File = file, .Type = *type, .Offset = stride}});
        stride += bytesOf(*type);
        at = end + 1;
    }
    if (file->Bytes % stride != 0)
        throw Failure(Exit::Failed, fmt::format("{}: {} bytes aren't a whole number of rows of {} bytes",
                                                file->Shown, file->Bytes, stride));
    for (NpyColumn &each : columns) {
        each.Column.Stride = stride;
        each.Column.Count = file->Bytes / stride;
    }
    return columns;
}

// The path without ":u32" at its end, and the type that this or the ending of the name says.
std::pair<std::string, std::string> splitType(const std::string &path)
{
    const size_t colon = path.rfind(':');
    if (colon != path.npos && colon > 0 && numberType(path.substr(colon + 1)))
        return {path.substr(0, colon), path.substr(colon + 1)};
    const std::string ending = inSmallLetters(std::filesystem::path(path).extension().string());
    return {path, ending.size() > 1 && numberType(ending.substr(1)) ? ending.substr(1) : ""};
}

// The columns of a file that is no text; none: it is one.
std::vector<NpyColumn> binaryColumns(const std::shared_ptr<const SourceFile> &file, const std::string &type)
{
    if (!type.empty()) return rawColumns(file, type);
    if (isNpy(*file)) return npyColumns(file);
    return {};
}

void checkLengths(const EventTable &table)
{
    for (const auto &other : {table.Channels, table.Microtimes})
        if (other && other->Count != table.Times.Count)
            throw Failure(Exit::Failed, fmt::format("{} has {} numbers, {} has {}", table.Times.File->Shown,
                                                    table.Times.Count, other->File->Shown, other->Count));
}

// A column of a file of its own.
BinaryColumn ownFile(Files &files, const TableOptions &options, std::string_view option,
                     const std::string &name)
{
    const auto [path, type] = splitType(name);
    const auto file = opened(files, path, options.Folder);
    std::vector<NpyColumn> columns = binaryColumns(file, type);
    if (columns.empty())
        throw Failure(Exit::Usage, fmt::format("{} {}: no NPY file, and its name doesn't say what its numbers "
                                               "are: {}:u64 would",
                                               option, file->Shown, file->Shown));
    return onlyColumn(std::move(columns));
}

EventTable separateFiles(Files &files, const TableOptions &options, BinaryColumn times)
{
    EventTable table{.Shown = times.File->Shown, .Times = std::move(times)};
    if (!options.Channels.empty()) table.Channels = ownFile(files, options, "--channels", options.Channels);
    if (!options.Microtimes.empty())
        table.Microtimes = ownFile(files, options, "--microtimes", options.Microtimes);
    checkLengths(table);
    return table;
}

EventTable tableOfColumns(const TableOptions &options, const std::vector<NpyColumn> &columns)
{
    ColumnOffer offer{.Shown = columns.front().Column.File->Shown, .Count = columns.size()};
    for (const NpyColumn &each : columns) offer.Names.push_back(each.Name);
    if (std::ranges::all_of(offer.Names, &std::string::empty)) offer.Names.clear();
    const TextColumns chosen = chosenColumns(options, offer);
    EventTable table{.Shown = offer.Shown, .Times = columns[chosen.Time].Column};
    if (chosen.Channel) table.Channels = columns[*chosen.Channel].Column;
    if (chosen.Microtime) table.Microtimes = columns[*chosen.Microtime].Column;
    table.TimeName = offer.Names.empty() ? "" : offer.Names[chosen.Time];
    table.Taken = takenText(offer, chosen);
    return table;
}

EventTable tableOfText(const TableOptions &options, const std::shared_ptr<const SourceFile> &file)
{
    EventTable table{.Shown = file->Shown};
    TextTable &text = table.Text.emplace(file);
    const ColumnOffer offer{file->Shown, text.Names, text.NumColumns};
    text.Columns = chosenColumns(options, offer);
    table.HasChannels = text.Columns.Channel.has_value();
    table.HasMicrotimes = text.Columns.Microtime.has_value();
    if (text.Columns.Time < text.Names.size()) table.TimeName = text.Names[text.Columns.Time];
    table.Taken = takenText(offer, text.Columns);
    return table;
}

// T3 is both the time and the microtime.
void noteColumns(EventTable &table)
{
    if (table.Times.Type == NumberType::T3) table.Microtimes.reset();
    table.HasChannels = table.Channels.has_value();
    table.HasMicrotimes = table.Microtimes.has_value() || table.Times.Type == NumberType::T3;
}

void splitT3(Rows &rows)
{
    constexpr uint32_t dtimeBits = 15;
    rows.Microtimes.AreWhole = true;
    rows.Microtimes.Values.resize(rows.Count);
    for (size_t i = 0; i < rows.Count; ++i) {
        rows.Microtimes.Values[i] = rows.Times.Values[i] & ((1u << dtimeBits) - 1);
        rows.Times.Values[i] >>= dtimeBits;
    }
}

} // namespace

EventTable openTable(const TableOptions &options)
{
    Files files;
    EventTable table;
    if (options.Source.empty()) {
        table = separateFiles(files, options, ownFile(files, options, "--times", options.Times));
    } else {
        auto [path, type] = splitType(options.Source);
        if (!options.Raw.empty()) type = options.Raw;
        const auto file = opened(files, path, options.Folder);
        std::vector<NpyColumn> columns = binaryColumns(file, type);
        if (columns.empty()) return tableOfText(options, file);
        const bool isAlone = columns.size() == 1 && columns.front().Name.empty();
        table = isAlone ? separateFiles(files, options, onlyColumn(std::move(columns)))
                        : tableOfColumns(options, columns);
    }
    noteColumns(table);
    return table;
}

void dropMicrotimes(EventTable &table)
{
    if (table.Text) table.Text->Columns.Microtime.reset();
    table.Microtimes.reset();
    table.HasMicrotimes = false;
}

void rewind(EventTable &table)
{
    table.Next = 0;
    if (table.Text) rewind(*table.Text);
}

bool nextRows(EventTable &table, Rows &rows)
{
    if (table.Text) return nextRows(*table.Text, rows);
    constexpr uint64_t mostBytes = uint64_t(1) << 26; // a row may have columns that nobody reads
    const uint64_t most = std::clamp<uint64_t>(mostBytes / table.Times.Stride, 1, rowsAtOnce);
    rows.Count = static_cast<size_t>(std::min(most, table.Times.Count - table.Next));
    rows.First = table.Next;
    readNumbers(table.Times, table.Next, rows.Count, rows.Times);
    if (table.Channels) readChannels(*table.Channels, table.Next, rows.Count, rows.Channels);
    if (table.Microtimes) readNumbers(*table.Microtimes, table.Next, rows.Count, rows.Microtimes);
    if (table.Times.Type == NumberType::T3) splitT3(rows);
    table.Next += rows.Count;
    return rows.Count > 0;
}

double fractionRead(const EventTable &table)
{
    if (table.Text)
        return static_cast<double>(table.Text->Offset) /
               static_cast<double>(std::max<uint64_t>(1, table.Text->File->Bytes));
    return static_cast<double>(table.Next) / static_cast<double>(std::max<uint64_t>(1, table.Times.Count));
}

} // namespace Tessel::Cli
