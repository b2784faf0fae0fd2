#include "commands/event_form.h"

#include <fmt/compile.h>
#include <fmt/format.h>

#include <bit>
#include <cstring>

namespace Tessel::Cli {

namespace {

constexpr uint8_t overflowChannel = 255;

struct CsvT2
{
    static char *write(char *to, uint64_t time, uint8_t channel, uint64_t)
    {
        return fmt::format_to(to, FMT_COMPILE("{},{}\n"), time, channel);
    }
};
struct CsvT3
{
    static char *write(char *to, uint64_t time, uint8_t channel, uint64_t)
    {
        return fmt::format_to(to, FMT_COMPILE("{},{},{}\n"), time >> dtimeBits,
                              static_cast<uint32_t>(time) & ((1u << dtimeBits) - 1), channel);
    }
};
template <class Csv>
struct Json
{
    static char *write(char *to, uint64_t time, uint8_t channel, uint64_t before)
    {
        if (before > 0) *to++ = ',';
        *to++ = '[';
        to = Csv::write(to, time, channel, before);
        to[-1] = ']';
        return to;
    }
};
struct NineBytes
{
    static char *write(char *to, uint64_t time, uint8_t channel, uint64_t)
    {
        if constexpr (std::endian::native == std::endian::big) time = __builtin_bswap64(time);
        std::memcpy(to, &time, sizeof time);
        to[sizeof time] = static_cast<char>(channel);
        return to + sizeof time + 1;
    }
};
struct ElevenBytes
{
    static char *write(char *to, uint64_t time, uint8_t channel, uint64_t before)
    {
        NineBytes::write(to, time >> dtimeBits, 0, before);
        to[8] = static_cast<char>(time & 0xFF);
        to[9] = static_cast<char>(time >> 8 & 0x7F);
        to[10] = static_cast<char>(channel);
        return to + 11;
    }
};

template <class Form>
char *writeAs(bool overflows, const uint64_t *times, const uint8_t *channels, size_t count, uint64_t &written,
              char *to)
{
    uint64_t before = written;
    for (size_t i = 0; i < count; ++i) {
        char *end = Form::write(to, times[i], channels[i], before);
        const bool stays = overflows || channels[i] != overflowChannel;
        to = stays ? end : to;
        before += stays;
    }
    written = before;
    return to;
}

} // namespace

char *writeEvents(EventForm form, bool isT3, bool overflows, const uint64_t *times, const uint8_t *channels,
                  size_t count, uint64_t &written, char *to)
{
    const auto as = [&](auto one) {
        return writeAs<decltype(one)>(overflows, times, channels, count, written, to);
    };
    switch (form) {
    case EventForm::Csv: return isT3 ? as(CsvT3()) : as(CsvT2());
    case EventForm::Json: return isT3 ? as(Json<CsvT3>()) : as(Json<CsvT2>());
    case EventForm::Binary: return as(NineBytes());
    case EventForm::Npy: return isT3 ? as(ElevenBytes()) : as(NineBytes());
    }
    return to;
}

} // namespace Tessel::Cli
