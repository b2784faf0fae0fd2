#include "columns/npy.h"

#include "columns/fraction.h"
#include "program/exit_codes.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

namespace Tessel::Cli {

namespace {

constexpr std::string_view npyMagic = "\x93NUMPY";

[[noreturn]] void refuseNpy(const SourceFile &file, const std::string &why)
{
    throw Failure(Exit::Failed, fmt::format("{}: {}", file.Shown, why));
}

// What stands behind a key of the header, up to its end.
std::string_view valueOf(const SourceFile &file, std::string_view header, std::string_view key)
{
    const size_t at = header.find(fmt::format("'{}'", key));
    const size_t colon = at == header.npos ? at : header.find(':', at);
    if (colon == header.npos) refuseNpy(file, fmt::format("the NPY header has no {}", key));
    const std::string_view value = header.substr(colon + 1);
    return value.substr(std::min(value.find_first_not_of(' '), value.size()));
}

// The texts in quotes up to one of the characters outside of them.
std::vector<std::string_view> quotedUpTo(std::string_view text, std::string_view ends)
{
    std::vector<std::string_view> quoted;
    for (size_t at = 0; at < text.size() && ends.find(text[at]) == ends.npos; ++at) {
        if (text[at] != '\'') continue;
        const size_t end = std::min(text.find('\'', at + 1), text.size());
        quoted.push_back(text.substr(at + 1, end - at - 1));
        at = end;
    }
    return quoted;
}

std::vector<uint64_t> shapeOf(const SourceFile &file, std::string_view header)
{
    const std::string_view value = valueOf(file, header, "shape");
    std::vector<uint64_t> shape;
    for (const char *at = value.data(), *end = at + std::min(value.find(')'), value.size()); at < end;) {
        uint64_t length = 0;
        const auto [stop, error] = std::from_chars(at, end, length);
        if (error == std::errc()) shape.push_back(length);
        at = std::max(stop, at + 1);
    }
    return shape;
}

// "<u8": the order of bytes, kind and bytes.
struct FieldType
{
    std::optional<NumberType> Number; // nothing: texts, truth values, dates, padding
    uint64_t Bytes = 0;               // 0: it isn't a type
};

FieldType fieldType(std::string_view type)
{
    FieldType field;
    if (type.size() < 3 || std::string_view("<>|=").find(type[0]) == type.npos) return field;
    std::from_chars(type.data() + 2, type.data() + type.size(), field.Bytes);
    constexpr uint64_t mostBytes = 1 << 20;
    if (field.Bytes > mostBytes) return {};
    const auto known = numberType(fmt::format("{}{}", type[1], field.Bytes * 8));
    if (field.Bytes == 1 || type[0] != '|') field.Number = known;
    if (type[1] == 'U') field.Bytes *= 4;
    return field;
}

BinaryColumn columnOf(const std::shared_ptr<const SourceFile> &file, std::string_view type)
{
    const FieldType field = fieldType(type);
    if (field.Number) return {.File = file, .Type = *field.Number, .IsBigEndian = type[0] == '>'};
    refuseNpy(*file, fmt::format("numbers of type {} aren't read (known: u1 to u8, i1 to i8, f4, f8)", type));
}

// Those that are numbers.
std::vector<NpyColumn> fields(const std::shared_ptr<const SourceFile> &file, std::string_view descr,
                              uint64_t &rowBytes)
{
    const std::vector<std::string_view> quoted = quotedUpTo(descr.substr(1), "]");
    std::vector<NpyColumn> columns;
    for (size_t i = 0; i + 1 < quoted.size(); i += 2) {
        const FieldType field = fieldType(quoted[i + 1]);
        if (field.Number || field.Bytes == 0) {
            columns.push_back({std::string(quoted[i]), columnOf(file, quoted[i + 1])});
            columns.back().Column.Offset = rowBytes;
        }
        rowBytes += field.Bytes;
    }
    for (NpyColumn &each : columns) each.Column.Stride = rowBytes;
    return columns;
}

// Of an array with two axes; in the order of Fortran a column stands at a stretch.
std::vector<NpyColumn> columnsOfTwoAxes(const BinaryColumn &first, uint64_t rows, uint64_t count,
                                        bool isFortran)
{
    const unsigned bytes = bytesOf(first.Type);
    constexpr uint64_t mostColumns = 1000;
    if (count == 0 || count > mostColumns) refuseNpy(*first.File, fmt::format("an array of {} columns", count));
    std::vector<NpyColumn> columns;
    for (uint64_t i = 0; i < count; ++i) {
        columns.push_back({"", first});
        columns.back().Column.Offset = isFortran ? i * rows * bytes : i * bytes;
        columns.back().Column.Stride = isFortran ? bytes : count * bytes;
    }
    return columns;
}

std::string headerText(const SourceFile &file, uint64_t &dataStart)
{
    std::string head(12, '\0');
    if (readAt(file, 0, head.data(), head.size()) < head.size()) refuseNpy(file, "the NPY header is cut short");
    const auto byte = [&](size_t at) { return static_cast<uint64_t>(static_cast<unsigned char>(head[at])); };
    const bool isShort = byte(6) == 1;
    const uint64_t bytes = isShort ? byte(8) | byte(9) << 8 : byte(8) | byte(9) << 8 | byte(10) << 16;
    dataStart = (isShort ? 10 : 12) + bytes;
    std::string text(bytes, '\0');
    if (readAt(file, dataStart - bytes, text.data(), bytes) < bytes)
        refuseNpy(file, "the NPY header is cut short");
    return text;
}

void checkLength(const SourceFile &file, Wide bytes)
{
    if (bytes != file.Bytes)
        refuseNpy(file, fmt::format("has {} bytes, but {} by its header", file.Bytes,
                                    static_cast<uint64_t>(std::min<Wide>(bytes, ~uint64_t(0)))));
}

} // namespace

bool isNpy(const SourceFile &file)
{
    std::string head(npyMagic.size(), '\0');
    return readAt(file, 0, head.data(), head.size()) == head.size() && head == npyMagic;
}

std::vector<NpyColumn> npyColumns(std::shared_ptr<const SourceFile> file)
{
    uint64_t dataStart = 0;
    const std::string header = headerText(*file, dataStart);
    const std::string_view descr = valueOf(*file, header, "descr");
    const std::vector<uint64_t> shape = shapeOf(*file, header);
    if (shape.empty() || shape.size() > 2)
        refuseNpy(*file, fmt::format("an array of {} axes; one or two are read", shape.size()));
    const bool isFortran = valueOf(*file, header, "fortran_order").starts_with("True");
    const uint64_t rows = shape.front();
    std::vector<NpyColumn> columns;
    uint64_t rowBytes = 0;
    if (descr.starts_with('[') && shape.size() == 1) {
        columns = fields(file, descr, rowBytes);
    } else if (const auto types = quotedUpTo(descr, ",}"); types.size() == 1) {
        const BinaryColumn first = columnOf(file, types.front());
        columns = columnsOfTwoAxes(first, rows, shape.size() == 2 ? shape[1] : 1, isFortran);
        rowBytes = columns.size() * bytesOf(first.Type);
    }
    if (columns.empty()) refuseNpy(*file, "the NPY header has no type that is read");
    checkLength(*file, Wide(rows) * rowBytes + dataStart);
    for (NpyColumn &each : columns) {
        each.Column.Offset += dataStart;
        each.Column.Count = rows;
    }
    return columns;
}

std::string npyHeader(const std::string &type, uint64_t count)
{
    constexpr size_t bytes = 192;                                               // a multiple of 64
    std::string header = std::string(npyMagic) + std::string("\1\0\xB6\0", 4) + // 10 bytes are before the text
                         fmt::format("{{'descr': {}, 'fortran_order': False, 'shape': ({},), }}", type, count);
    header.resize(bytes - 1, ' ');
    return header + '\n';
}

} // namespace Tessel::Cli
