// A table of events as text, NPY or numbers alone, and a fraction: refused with a Failure, or read to its end
// twice, with the same rows.
#include "columns/event_table.h"
#include "columns/fraction.h"
#include "columns/survey.h"
#include "input.h"
#include "program/exit_codes.h"
#include "program/units.h"

using namespace Tessel::Cli;

namespace {

Survey surveyed(EventTable &table, Fraction unitsPerTick)
{
    const NumberScaler scaler{.Shown = "input",
                              .What = "time",
                              .Beyond = "is too large",
                              .UnitsPerTick = unitsPerTick,
                              .MostUnits = uint64_t(1) << 62};
    Scaling scaling{scaler, scaler};
    rewind(table);
    return survey(table, scaling, [](uint64_t) {});
}

void readTwice(const std::string &path, const std::string &raw, Fraction unitsPerTick)
{
    try {
        EventTable table = openTable(
            {.Source = path, .Times = "", .Channels = "", .Microtimes = "", .Raw = raw, .Folder = "/tmp"});
        const Survey once = surveyed(table, unitsPerTick), again = surveyed(table, unitsPerTick);
        Fuzz::require(once.Events == again.Events && once.Counts == again.Counts, "a table is the same twice");
        Fuzz::require(once.Events == 0 || once.Earliest <= once.Latest, "the earliest isn't after the latest");
    } catch (const Failure &) {
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    Fraction period = {125, 7};
    try {
        period = parsePeriodPs(text.substr(0, text.find('\n')));
        Fuzz::require(period.Num > 0 && period.Den > 0, "a period is above 0");
        periodText(period);
    } catch (const UnitError &) {
    }
    const MemoryFile file(text);
    for (const char *raw : {"", "u64,u8", "t3,u16", "f64,i8,f32"}) readTwice(file.path(), raw, period);
    return 0;
}
