// The gnuplot script, and gnuplot itself. The main thread's.
#include "program/plot.h"

#include "program/exit_codes.h"
#include "program/files.h"
#include "program/output_file.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace Tessel::Cli {

namespace {

// Colours that stay apart also for colour-blind readers; they start again after the last.
constexpr const char *colours[] = {"#0072b2", "#d55e00", "#009e73", "#cc79a7",
                                   "#56b4e9", "#e69f00", "#000000", "#b8a000"};

constexpr const char *style = "set border 3 linecolor '#707070' linewidth 0.8\n"
                              "set tics nomirror out scale 0.6,0.3 textcolor '#404040'\n"
                              "set mxtics 5\n"
                              "set grid xtics ytics linecolor '#dcdcdc' linewidth 0.7 dashtype solid\n"
                              "set key outside right top vertical Left reverse noenhanced samplen 0.6 width 1 "
                              "spacing 1.3 textcolor '#202020'\n";

const char *terminalFor(const std::string &path)
{
    if (path.ends_with(".svg")) return "svg size 1000,560 font 'DejaVu Sans,12' background '#ffffff'";
    return "pngcairo size 1600,900 font 'DejaVu Sans,12' fontscale 1.5 linewidth 1.6 pointscale 1.6 "
           "background '#ffffff'";
}

// A gnuplot text in single quotes takes everything but the quote as it stands, which is doubled. Names of
// files and channels are shown with `noenhanced`, as they may hold mark-up characters.
std::string quotedText(std::string_view text)
{
    std::string result = "'";
    for (const char c : visibleText(text)) {
        result += c;
        if (c == '\'') result += c;
    }
    return result + "'";
}

bool isShown(const Plot &plot, double x, double y)
{
    return std::isfinite(x) && std::isfinite(y) && (!plot.LogX || x > 0) && (!plot.LogY || y > 0);
}

void addData(fmt::memory_buffer &script, const Plot &plot)
{
    auto out = std::back_inserter(script);
    for (size_t i = 0; i < plot.Curves.size(); ++i) {
        fmt::format_to(out, "$curve{} << END\n", i);
        const Curve &curve = plot.Curves[i];
        for (size_t k = 0; k < curve.X.size(); ++k)
            if (isShown(plot, curve.X[k], curve.Y[k]))
                fmt::format_to(out, "{:.10g} {:.10g}\n", curve.X[k], curve.Y[k]);
        fmt::format_to(out, "END\n");
    }
}

// A count axis starts half a decade below the smallest count that is there and ends above the largest.
std::string yRange(const Plot &plot)
{
    double low = INFINITY, high = -INFINITY;
    for (const Curve &curve : plot.Curves)
        for (size_t k = 0; k < curve.X.size(); ++k)
            if (isShown(plot, curve.X[k], curve.Y[k]))
                low = std::min(low, curve.Y[k]), high = std::max(high, curve.Y[k]);
    if (!(low <= high)) return plot.LogY ? "[0.5:10]" : "[0:1]";
    if (plot.LogY) return fmt::format("[{:.6g}:{:.6g}]", low * 0.6, high * 1.7);
    const double span = high - std::min(0.0, low);
    return fmt::format("[{:.6g}:{:.6g}]", low < 0 ? low - 0.05 * span : 0, high + (span > 0 ? 0.05 * span : 1));
}

void addCurves(fmt::memory_buffer &script, const Plot &plot)
{
    auto out = std::back_inserter(script);
    if (plot.LogX) fmt::format_to(out, "set logscale x\nset format x '10^{{%T}}'\nset mxtics 10\n");
    if (plot.LogY) fmt::format_to(out, "set logscale y\nset format y '10^{{%T}}'\n");
    fmt::format_to(out, "set xrange [{:.10g}:{:.10g}]\nset yrange {}\n", plot.XMin, plot.XMax, yRange(plot));
    addData(script, plot);
    fmt::format_to(out, "plot ");
    for (size_t i = 0; i < plot.Curves.size(); ++i) {
        const char *colour = colours[i % std::size(colours)];
        const std::string form = plot.Lines
                                     ? fmt::format("lines linewidth 1.2 linecolor '{}'", colour)
                                     : fmt::format("points pointtype 7 pointsize 0.32 linecolor '{}'", colour);
        // The key shows a thicker line, or a larger point, than the curve has.
        const std::string key = plot.Lines
                                    ? fmt::format("lines linewidth 3 linecolor '{}'", colour)
                                    : fmt::format("points pointtype 7 pointsize 1.1 linecolor '{}'", colour);
        fmt::format_to(out, "{}$curve{} using 1:2 with {} notitle, NaN with {} title {}", i ? ", " : "", i,
                       form, key, quotedText(plot.Curves[i].Name));
    }
    if (plot.Curves.empty()) fmt::format_to(out, "NaN notitle");
    fmt::format_to(out, "\n");
}

// Dark to bright in even steps of lightness, so that it also reads in grey and by colour-blind readers.
constexpr const char *mapColours = "set palette defined (0 '#440154', 1 '#472c7a', 2 '#3b518b', 3 '#2c718e', "
                                   "4 '#21908d', 5 '#27ad81', 6 '#5cc863', 7 '#aadc32', 8 '#fde725')\n";

void addMap(fmt::memory_buffer &script, const ColourMap &map)
{
    auto out = std::back_inserter(script);
    const size_t rows = map.Columns ? map.Values.size() / map.Columns : 0;
    fmt::format_to(out, "{}unset grid\nset cblabel {} noenhanced textcolor '#303030' offset 1,0\n", mapColours,
                   quotedText(map.Label));
    fmt::format_to(out, "set xrange [0:{:.10g}]\nset yrange [0:{:.10g}]\n",
                   static_cast<double>(map.Columns) * map.CellWidth,
                   static_cast<double>(rows) * map.CellHeight);
    const auto largest = std::max_element(map.Values.begin(), map.Values.end());
    fmt::format_to(out, "set cbrange [0:{:.10g}]\n$map << END\n",
                   largest == map.Values.end() ? 1 : std::max(*largest, 1.0));
    for (size_t i = 0; i < map.Values.size(); ++i)
        fmt::format_to(out, "{:.10g}{}", map.Values[i], (i + 1) % map.Columns ? ' ' : '\n');
    fmt::format_to(out,
                   "END\nplot $map matrix using (($1+0.5)*{:.10g}):(($2+0.5)*{:.10g}):3 with image "
                   "notitle\n",
                   map.CellWidth, map.CellHeight);
}

} // namespace

Curve binCurve(std::string name, std::span<const uint32_t> counts, double start, double width)
{
    Curve curve{.Name = std::move(name), .X = {}, .Y = {counts.begin(), counts.end()}};
    for (size_t bin = 0; bin < counts.size(); ++bin)
        curve.X.push_back(start + (static_cast<double>(bin) + 0.5) * width);
    return curve;
}

Curve scaledCurve(std::string name, std::span<const double> x, double factor, std::span<const double> values)
{
    Curve curve{.Name = std::move(name), .X = {}, .Y = {values.begin(), values.end()}};
    for (const double position : x) curve.X.push_back(position * factor);
    return curve;
}

void checkPlotName(const std::string &path)
{
    if (path.empty() || path.ends_with(".png") || path.ends_with(".svg")) return;
    throw Failure(Exit::Usage, fmt::format("--plot {}: the name must end in .png or .svg", visibleText(path)));
}

std::string plotScript(const Plot &plot, const std::string &path)
{
    fmt::memory_buffer script;
    auto out = std::back_inserter(script);
    fmt::format_to(out, "set terminal {}\n", terminalFor(path));
    fmt::format_to(out, "{}", style);
    fmt::format_to(out, "set title {} noenhanced font ',15' textcolor '#202020' offset 0,-0.2\n",
                   quotedText(plot.Title));
    fmt::format_to(out, "set xlabel {} noenhanced textcolor '#303030' offset 0,0.2\n", quotedText(plot.XLabel));
    fmt::format_to(out, "set ylabel {} noenhanced textcolor '#303030' offset 0.4,0\n", quotedText(plot.YLabel));
    if (plot.Map)
        addMap(script, *plot.Map);
    else
        addCurves(script, plot);
    return fmt::to_string(script);
}

namespace {

// How gnuplot ended; it knows input and picture as descriptors only, so no name is a command to it.
int runGnuplot(int script, int picture)
{
    posix_spawn_file_actions_t descriptors;
    posix_spawn_file_actions_init(&descriptors);
    posix_spawn_file_actions_adddup2(&descriptors, script, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&descriptors, picture, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&descriptors, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    char name[] = "gnuplot";
    char *const arguments[] = {name, nullptr};
    pid_t child = 0;
    const int error = posix_spawnp(&child, name, &descriptors, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&descriptors);
    if (error == ENOENT) throw Failure(Exit::Failed, "--plot needs gnuplot, which is not in PATH");
    if (error != 0) throw Failure(Exit::Failed, fmt::format("gnuplot: {}", std::strerror(error)));
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

} // namespace

void drawPlot(const Plot &plot, const std::string &path)
{
    OutputFile picture(path);
    const MemoryFile script(plotScript(plot, path));
    const int status = runGnuplot(script.File.Number, picture.Descriptor);
    if (status != 0) throw Failure(Exit::Failed, fmt::format("gnuplot could not draw {}", picture.Shown));
    complete(picture);
}

} // namespace Tessel::Cli
