#include "columns/text_table.h"

#include "columns/text_number.h"
#include "program/exit_codes.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>
#include <utility>

namespace Tessel::Cli {

namespace {

constexpr size_t mostLineBytes = size_t(1) << 16;
constexpr size_t textAtOnce = size_t(1) << 20;

bool isBlankOrQuote(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '"';
}

bool isComment(std::string_view line)
{
    return line.starts_with('#') || line.starts_with('%');
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && isBlankOrQuote(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlankOrQuote(text.back())) text.remove_suffix(1);
    return text;
}

[[noreturn]] void refuseLine(const TextTable &table, uint64_t line, const std::string &why)
{
    throw Failure(Exit::Failed, fmt::format("{}: line {}: {}", table.File->Shown, line, why));
}

// The cells of a line; several blanks are one separator.
std::vector<std::string> cellsOf(std::string_view line, char separator)
{
    std::vector<std::string> cells;
    if (separator == ' ') line = trimmed(line);
    while (true) {
        const size_t end = std::min(line.find(separator), line.size());
        cells.emplace_back(trimmed(line.substr(0, end)));
        if (end == line.size()) return cells;
        line.remove_prefix(end + 1);
        if (separator == ' ') line = trimmed(line);
    }
}

char separatorOf(std::string_view line)
{
    for (const char separator : {'\t', ';', ','})
        if (line.find(separator) != line.npos) return separator;
    return ' ';
}

bool startsLikeNumber(const std::string &cell)
{
    const size_t at = cell.find_first_not_of("+-.");
    return at != cell.npos && cell[at] >= '0' && cell[at] <= '9';
}

enum class Cell { Time, Channel, Microtime };

struct WantedCell
{
    size_t Column = 0;
    Cell What = Cell::Time;
};

// By column.
std::vector<WantedCell> wantedCells(const TextColumns &columns)
{
    std::vector<WantedCell> wanted = {{columns.Time, Cell::Time}};
    if (columns.Channel) wanted.push_back({*columns.Channel, Cell::Channel});
    if (columns.Microtime) wanted.push_back({*columns.Microtime, Cell::Microtime});
    std::ranges::sort(wanted, {}, &WantedCell::Column);
    return wanted;
}

[[noreturn]] void refuseCell(const TextTable &table, const char *at, const char *end)
{
    const char *stop = std::find(at, end, table.Separator);
    const std::string_view cell = trimmed({at, stop});
    std::string why = "is no number";
    if (cell.starts_with('-'))
        why = "is negative, or no number";
    else if (!cell.empty() && cell.find_first_not_of("0123456789.") == cell.npos &&
             std::ranges::count(cell, '.') < 2)
        why = "has too many digits";
    constexpr size_t shownBytes = 60;
    const std::string shown = visibleText(cell.substr(0, shownBytes)) + (cell.size() > shownBytes ? "..." : "");
    refuseLine(table, table.Line, cell.empty() ? "a number is missing" : fmt::format("\"{}\" {}", shown, why));
}

void storeNumber(Numbers &numbers, size_t row, const TextNumber &number)
{
    numbers.Values[row] = number.Value;
    numbers.Powers[row] = static_cast<uint8_t>(number.Decimals);
    numbers.AreWhole &= number.Decimals == 0;
}

void store(const TextTable &table, Rows &rows, Cell what, const TextNumber &number, std::string_view shown)
{
    switch (what) {
    case Cell::Time: return storeNumber(rows.Times, rows.Count, number);
    case Cell::Microtime: return storeNumber(rows.Microtimes, rows.Count, number);
    case Cell::Channel: break;
    }
    if (number.Decimals != 0 || number.Value >= mostChannels)
        refuseLine(table, table.Line, fmt::format("{} is no channel (0 to {})", shown, mostChannels - 1));
    rows.Channels[rows.Count] = static_cast<uint32_t>(number.Value);
}

// The start of the column behind the next separator; null: there is none.
const char *nextCell(const char *at, const char *end, char separator)
{
    at = static_cast<const char *>(std::memchr(at, separator, static_cast<size_t>(end - at)));
    if (!at) return nullptr;
    ++at;
    while (separator == ' ' && at < end && *at == ' ') ++at;
    return at;
}

void readLine(const TextTable &table, const std::vector<WantedCell> &wanted, const char *at, const char *end,
              Rows &rows)
{
    size_t column = 0;
    for (const WantedCell &cell : wanted) {
        for (; column < cell.Column; ++column) {
            at = nextCell(at, end, table.Separator);
            if (!at)
                refuseLine(table, table.Line,
                           fmt::format("has {} columns, {} are needed", column + 1, wanted.back().Column + 1));
        }
        while (at < end && isBlankOrQuote(*at) && *at != table.Separator) ++at;
        const TextNumber number = readTextNumber(at, end);
        if (!number.End) refuseCell(table, at, end);
        const char *behind = number.End;
        while (behind < end && isBlankOrQuote(*behind) && *behind != table.Separator) ++behind;
        if (behind < end && *behind != table.Separator) refuseCell(table, at, end);
        store(table, rows, cell.What, number, {at, number.End});
        at = behind;
    }
    rows.Lines[rows.Count] = table.Line;
    ++rows.Count;
}

// Calls `take(line)` for each line from Offset on, which goes on with them, until it returns false. False: the
// file has ended.
template <class Take>
bool eachLine(TextTable &table, Take take)
{
    table.Buffer.resize(textAtOnce);
    for (;;) {
        const size_t count = readAt(*table.File, table.Offset, table.Buffer.data(), table.Buffer.size());
        const char *at = table.Buffer.data(), *end = at + count;
        const bool isLast = count < table.Buffer.size();
        if (count == 0) return false;
        while (at < end) {
            const char *feed = static_cast<const char *>(std::memchr(at, '\n', static_cast<size_t>(end - at)));
            if (!feed && !isLast && at != table.Buffer.data())
                break; // the rest of it comes with the next bytes
            if (!feed) feed = end;
            if (static_cast<size_t>(feed - at) > mostLineBytes)
                refuseLine(table, table.Line + 1, fmt::format("has more than {} bytes", mostLineBytes));
            ++table.Line;
            const bool goesOn = take(at, feed);
            const char *next = std::min(feed + 1, end);
            table.Offset += static_cast<uint64_t>(next - at);
            at = next;
            if (!goesOn) return true;
        }
    }
}

// Comments, the line of names, and where the numbers begin.
void readHead(TextTable &table)
{
    eachLine(table, [&](const char *at, const char *end) {
        const bool hasMark = table.Line == 1 && std::string_view(at, end).starts_with("\xEF\xBB\xBF");
        const std::string_view line(at + (hasMark ? 3 : 0), end), text = trimmed(line);
        if (text.empty()) return true;
        if (isComment(text)) {
            table.Comments.emplace_back(trimmed(text.substr(1)));
            return true;
        }
        table.Separator = separatorOf(text);
        const std::vector<std::string> cells = cellsOf(line, table.Separator);
        const bool isNames = std::ranges::none_of(cells, startsLikeNumber);
        if (isNames && table.Names.empty()) {
            table.Names = cells;
            return true;
        }
        table.NumColumns = cells.size();
        table.FirstOffset = table.Offset + (hasMark ? 3 : 0);
        table.FirstLine = table.Line - 1;
        return false;
    });
}

} // namespace

TextTable::TextTable(std::shared_ptr<const SourceFile> source) : File(std::move(source))
{
    readHead(*this);
    if (NumColumns == 0) throw Failure(Exit::Failed, fmt::format("{}: has no line of numbers", File->Shown));
    if (Names.empty() && !Comments.empty()) {
        std::vector<std::string> cells = cellsOf(Comments.back(), Separator);
        if (cells.size() == NumColumns && std::ranges::none_of(cells, startsLikeNumber))
            Names = std::move(cells);
    }
    rewind(*this);
}

void rewind(TextTable &table)
{
    table.Offset = table.FirstOffset;
    table.Line = table.FirstLine;
    table.Row = 0;
}

bool nextRows(TextTable &table, Rows &rows)
{
    const std::vector<WantedCell> wanted = wantedCells(table.Columns);
    rows.Count = 0;
    rows.First = table.Row;
    rows.Lines.resize(rowsAtOnce);
    for (Numbers *numbers : {&rows.Times, &rows.Microtimes}) {
        const bool isThere = numbers == &rows.Times || table.Columns.Microtime;
        numbers->Values.resize(isThere ? rowsAtOnce : 0);
        numbers->Powers.resize(isThere ? rowsAtOnce : 0);
        numbers->AreWhole = true;
    }
    rows.Channels.resize(table.Columns.Channel ? rowsAtOnce : 0);
    eachLine(table, [&](const char *at, const char *end) {
        const char *start = at;
        while (start < end && isBlankOrQuote(*start)) ++start;
        if (start < end && *start != '#' && *start != '%')
            readLine(table, wanted, table.Separator == ' ' ? start : at, end, rows);
        return rows.Count < rowsAtOnce;
    });
    table.Row += rows.Count;
    return rows.Count > 0;
}

} // namespace Tessel::Cli
