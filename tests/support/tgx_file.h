// Data files for tests, byte by byte: nothing here comes from the library, so a fault of its writer and one of
// its reader can't cancel each other.
//
//   TgxFile().tag("Measurement_Mode", 2).tag("HW_Type", "Zephyrion").records({t2Event(0, 5)}).write(path)
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace TestSupport {

namespace Type {
inline constexpr uint32_t Empty8 = 0xFFFF0008, Bool8 = 0x00000008, Int8 = 0x10000008, BitSet64 = 0x11000008,
                          Color8 = 0x12000008, Float8 = 0x20000008, TDateTime = 0x21000008,
                          Float8Array = 0x2001FFFF, AnsiString = 0x4001FFFF, WideString = 0x4002FFFF,
                          BinaryBlob = 0xFFFFFFFF;
}

// The bytes of one tag. `value` as it stands in the file, for a block its size; `block` follows as it is.
std::string tagBytes(std::string_view name, int32_t idx, uint32_t type, uint64_t value,
                     std::string_view block = {});

class TgxFile
{
public:
    // Files that a replay decodes as Zephyrion records. Resolutions in ps, rate in Hz.
    static TgxFile t2(int channels = 2, double resolution = 1.0);
    static TgxFile t3(int channels = 2, double resolution = 1.0, double syncRate = 80e6);

    TgxFile &preamble(std::string_view magic, std::string_view version);

    // Bool8, Int8, Float8 or AnsiString, by the value's type.
    template <class Value>
    TgxFile &tag(std::string_view name, const Value &value, int32_t idx = -1)
    {
        if constexpr (std::is_same_v<Value, bool>)
            return raw(name, idx, Type::Bool8, value ? ~uint64_t{0} : 0);
        else if constexpr (std::is_integral_v<Value>)
            return raw(name, idx, Type::Int8, static_cast<uint64_t>(static_cast<int64_t>(value)));
        else if constexpr (std::is_floating_point_v<Value>)
            return real(name, value, idx);
        else
            return text(name, value, idx);
    }
    TgxFile &raw(std::string_view name, int32_t idx, uint32_t type, uint64_t value,
                 std::string_view block = {});
    TgxFile &dateTime(std::string_view name, double days, int32_t idx = -1);
    TgxFile &wide(std::string_view name, std::u16string_view value, int32_t idx = -1);

    TgxFile &withoutEnd(); // no Header_End
    TgxFile &records(std::vector<uint32_t> words);

    std::string header() const;
    std::string bytes() const;
    const std::string &write(const std::string &path) const; // gives the path

private:
    TgxFile &real(std::string_view name, double value, int32_t idx);
    TgxFile &text(std::string_view name, std::string_view value, int32_t idx);

    std::string magic = "MVTTTR", version = "1.0.0.0";
    std::string tags;
    bool hasEnd = true;
    std::vector<uint32_t> words;
};

} // namespace TestSupport
