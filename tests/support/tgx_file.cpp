#include "support/tgx_file.h"

#include <fmt/format.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace TestSupport {

namespace {

std::string littleEndian(uint64_t number, size_t size)
{
    std::string bytes;
    for (size_t i = 0; i < size; ++i) bytes += static_cast<char>(number >> (8 * i));
    return bytes;
}

std::string padded(std::string_view text, size_t size)
{
    std::string bytes(text.substr(0, size));
    bytes.resize(size);
    return bytes;
}

uint64_t bitsOf(double value)
{
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

TgxFile preset(int mode, int channels, double resolution)
{
    TgxFile file;
    file.tag("Measurement_Mode", mode)
        .tag("HW_Type", "Zephyrion")
        .tag("HW_SerialNo", "1000001")
        .tag("HW_BaseResolution", (mode == 2 ? resolution : 1.0) * 1e-12)
        .tag("HW_InpChannels", channels)
        .tag("MeasDesc_Resolution", resolution * 1e-12);
    return file;
}

} // namespace

std::string tagBytes(std::string_view name, int32_t idx, uint32_t type, uint64_t value, std::string_view block)
{
    return padded(name, 32) + littleEndian(static_cast<uint32_t>(idx), 4) + littleEndian(type, 4) +
           littleEndian(value, 8) + std::string(block);
}

TgxFile TgxFile::t2(int channels, double resolution)
{
    TgxFile file = preset(2, channels, resolution);
    file.tag("MeasDesc_GlobalResolution", resolution * 1e-12);
    return file;
}

TgxFile TgxFile::t3(int channels, double resolution, double syncRate)
{
    TgxFile file = preset(3, channels, resolution);
    file.tag("MeasDesc_GlobalResolution", 1.0 / syncRate);
    file.tag("TTResult_SyncRate", static_cast<int64_t>(std::llround(syncRate)));
    return file;
}

TgxFile &TgxFile::preamble(std::string_view newMagic, std::string_view newVersion)
{
    magic = newMagic;
    version = newVersion;
    return *this;
}

TgxFile &TgxFile::raw(std::string_view name, int32_t idx, uint32_t type, uint64_t value, std::string_view block)
{
    tags += tagBytes(name, idx, type, value, block);
    return *this;
}

TgxFile &TgxFile::real(std::string_view name, double value, int32_t idx)
{
    return raw(name, idx, Type::Float8, bitsOf(value));
}

TgxFile &TgxFile::dateTime(std::string_view name, double days, int32_t idx)
{
    return raw(name, idx, Type::TDateTime, bitsOf(days));
}

TgxFile &TgxFile::text(std::string_view name, std::string_view value, int32_t idx)
{
    std::string block = padded(value, (value.size() / 8 + 1) * 8);
    return raw(name, idx, Type::AnsiString, block.size(), block);
}

TgxFile &TgxFile::wide(std::string_view name, std::u16string_view value, int32_t idx)
{
    std::string block;
    for (char16_t unit : value) block += littleEndian(unit, 2);
    block = padded(block, (block.size() + 9) / 8 * 8);
    return raw(name, idx, Type::WideString, block.size(), block);
}

TgxFile &TgxFile::withoutEnd()
{
    hasEnd = false;
    return *this;
}

TgxFile &TgxFile::records(std::vector<uint32_t> newWords)
{
    words = std::move(newWords);
    return *this;
}

std::string TgxFile::header() const
{
    return padded(magic, 8) + padded(version, 8) + tags +
           (hasEnd ? tagBytes("Header_End", -1, Type::Empty8, 0) : std::string());
}

std::string TgxFile::bytes() const
{
    std::string all = header();
    all.append(reinterpret_cast<const char *>(words.data()), words.size() * sizeof(uint32_t));
    return all;
}

const std::string &TgxFile::write(const std::string &path) const
{
    std::string all = bytes();
    std::ofstream file(path, std::ios::binary);
    if (!file.write(all.data(), static_cast<std::streamsize>(all.size())).flush())
        throw std::runtime_error(fmt::format("can't write {}", path));
    return path;
}

} // namespace TestSupport
