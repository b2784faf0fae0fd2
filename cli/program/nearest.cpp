#include "program/nearest.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace Tessel::Cli {

namespace {

// Letters to insert, leave out or exchange (Levenshtein 1966), row by row of its table.
size_t lettersToChange(std::string_view from, std::string_view to)
{
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t exchanged = diagonal + (from[i] != to[j]);
            diagonal = row[j + 1];
            row[j + 1] = std::min({exchanged, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

} // namespace

std::string nearestName(std::string_view wrong, const std::vector<std::string> &known)
{
    constexpr size_t shortest = 3; // letters of a beginning
    size_t fewest = wrong.size() / 3 + 1;
    std::string nearest;
    for (const std::string &name : known) {
        if (wrong.size() >= shortest && name.starts_with(wrong)) return name;
        const size_t letters = lettersToChange(wrong, name);
        if (letters >= fewest) continue;
        fewest = letters;
        nearest = name;
    }
    return nearest;
}

} // namespace Tessel::Cli
