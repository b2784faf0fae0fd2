// The gnuplot script, and gnuplot itself. The main thread's.
#include "program/plot.h"

#include "program/exit_codes.h"
#include "program/files.h"
#include "program/output_file.h"
#include "program/text_axis.h"
#include "program/visible_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <spawn.h>
#include <sstream>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace Tessel::Cli {

namespace {

// Colours that stay apart also for colour-blind readers; they start again after the last.
constexpr const char *colours[] = {"#0072b2", "#d55e00", "#009e73", "#cc79a7",
                                   "#56b4e9", "#e69f00", "#000000", "#b8a000"};

constexpr const char *withoutGnuplot = "--plot needs gnuplot, which is not in PATH";

constexpr const char *style = "set border 3 linecolor '#707070' linewidth 0.8\n"
                              "set tics nomirror out scale 0.6,0.3 textcolor '#404040'\n"
                              "set mxtics 5\n"
                              "set grid xtics ytics linecolor '#dcdcdc' linewidth 0.7 dashtype solid\n"
                              "set key vertical Left reverse noenhanced samplen 0.6 width 1 spacing 1.3 "
                              "textcolor '#202020'\n";

struct Size
{
    int Width = 0, Height = 0;
};

// Nothing: no size, or one that is no picture.
std::optional<Size> sizeOf(std::string_view text)
{
    constexpr int least = 200, most = 5000;
    Size size;
    const char *end = text.data() + text.size();
    const auto width = std::from_chars(text.data(), end, size.Width);
    if (width.ec != std::errc() || width.ptr == end || *width.ptr != 'x') return {};
    const auto height = std::from_chars(width.ptr + 1, end, size.Height);
    const bool isWhole = height.ec == std::errc() && height.ptr == end;
    const bool isPicture =
        std::min(size.Width, size.Height) >= least && std::max(size.Width, size.Height) <= most;
    return isWhole && isPicture ? std::optional(size) : std::nullopt;
}

std::string terminalFor(const PlotOptions &options)
{
    const auto [width, height] = sizeOf(options.Size).value_or(Size{1000, 560});
    if (options.File.ends_with(".svg"))
        return fmt::format("svg size {},{} font 'DejaVu Sans,12' background '#ffffff'", width, height);
    if (options.File.ends_with(".pdf")) // in inches of 100 points
        return fmt::format(
            "pdfcairo size {:.2f}in,{:.2f}in font 'DejaVu Sans,9' fontscale 0.9 background '#ffffff'",
            width / 100.0, height / 100.0);
    return fmt::format("pngcairo size {},{} font 'DejaVu Sans,12' fontscale 1.5 linewidth 1.6 pointscale 1.6 "
                       "background '#ffffff'",
                       width * 8 / 5, height * 8 / 5);
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

void addData(fmt::memory_buffer &script, const Plot &plot, bool errors)
{
    auto out = std::back_inserter(script);
    for (size_t i = 0; i < plot.Curves.size(); ++i) {
        fmt::format_to(out, "$curve{} << END\n", i);
        const Curve &curve = plot.Curves[i];
        for (size_t k = 0; k < curve.X.size(); ++k)
            if (isShown(plot, curve.X[k], curve.Y[k]))
                fmt::format_to(out, "{:.10g} {:.10g} {:.6g}\n", curve.X[k], curve.Y[k],
                               errors && k < curve.Sigma.size() ? curve.Sigma[k] : 0.0);
        fmt::format_to(out, "END\n");
    }
}

// A count axis starts half a decade below the smallest count that is there and ends above the largest.
Range yRange(const Plot &plot)
{
    double low = INFINITY, high = -INFINITY;
    for (const Curve &curve : plot.Curves)
        for (size_t k = 0; k < curve.X.size(); ++k)
            if (isShown(plot, curve.X[k], curve.Y[k]))
                low = std::min(low, curve.Y[k]), high = std::max(high, curve.Y[k]);
    if (!(low <= high)) return plot.LogY ? Range{0.5, 10} : Range{0, 1};
    if (plot.LogY) return {low * 0.6, high * 1.7};
    const double span = high - std::min(0.0, low);
    return {low < 0 ? low - 0.05 * span : 0, high + (span > 0 ? 0.05 * span : 1)};
}

// Inside, in the right or the left upper corner, where it covers no point of a curve; else outside.
std::string_view keyPlace(const Plot &plot, Range y)
{
    const ValueAxis across = axisOf(plot.LogX, {plot.XMin, plot.XMax}), up = axisOf(plot.LogY, y);
    const double lowest = 0.96 - 0.07 * static_cast<double>(plot.Curves.size()); // a line a curve
    constexpr double width = 0.3;
    bool rightIsFree = lowest > 0.4, leftIsFree = rightIsFree;
    for (const Curve &curve : plot.Curves)
        for (size_t k = 0; k < curve.X.size(); ++k) {
            if (!isShown(plot, curve.X[k], curve.Y[k]) || up.position(curve.Y[k]) < lowest) continue;
            const double at = across.position(curve.X[k]);
            if (at > 1 - width) rightIsFree = false;
            if (at < width) leftIsFree = false;
        }
    if (rightIsFree) return "inside right top";
    if (leftIsFree) return "inside left top";
    return plot.Curves.size() < 3 ? "above right horizontal" : "outside right top";
}

void addAxes(fmt::memory_buffer &script, const Plot &plot)
{
    auto out = std::back_inserter(script);
    // Each decade has its number.
    if (plot.LogX)
        fmt::format_to(out, "set logscale x\nset format x '10^{{%T}}'\nset xtics 10\nset mxtics 10\n");
    if (plot.LogY) fmt::format_to(out, "set logscale y\nset format y '10^{{%T}}'\nset ytics 10\n");
    const Range y = yRange(plot);
    fmt::format_to(out, "set xrange [{:.10g}:{:.10g}]\nset yrange [{:.6g}:{:.6g}]\nset key {}\n", plot.XMin,
                   plot.XMax, y.Low, y.High, keyPlace(plot, y));
    if (plot.Level)
        fmt::format_to(out,
                       "set arrow from graph 0, first {0:.10g} to graph 1, first {0:.10g} nohead "
                       "linecolor '#909090' linewidth 0.8 dashtype 2\n",
                       *plot.Level);
}

void addCurves(fmt::memory_buffer &script, const Plot &plot, bool errors)
{
    auto out = std::back_inserter(script);
    addAxes(script, plot);
    addData(script, plot, errors);
    fmt::format_to(out, "plot ");
    for (size_t i = 0; errors && i < plot.Curves.size(); ++i)
        if (!plot.Curves[i].Sigma.empty())
            fmt::format_to(out,
                           "$curve{0} using 1:2:3 with yerrorbars pointtype 0 linewidth 0.5 linecolor '{1}' "
                           "notitle, ",
                           i, colours[i % std::size(colours)]);
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
    for (size_t bin = 0; bin < counts.size(); ++bin) {
        curve.X.push_back(start + (static_cast<double>(bin) + 0.5) * width);
        curve.Sigma.push_back(std::sqrt(static_cast<double>(counts[bin]))); // Poisson
    }
    return curve;
}

Curve scaledCurve(std::string name, std::span<const double> x, double factor, std::span<const double> values)
{
    Curve curve{.Name = std::move(name), .X = {}, .Y = {values.begin(), values.end()}};
    for (const double position : x) curve.X.push_back(position * factor);
    return curve;
}

namespace {

bool isInPath(const char *program)
{
    const char *path = std::getenv("PATH");
    std::istringstream folders(path ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');)
        if (access((folder + "/" + program).c_str(), X_OK) == 0) return true;
    return false;
}

} // namespace

void checkPlot(const PlotOptions &options)
{
    const std::string &file = options.File;
    if (file.empty()) return;
    if (!file.ends_with(".png") && !file.ends_with(".svg") && !file.ends_with(".pdf"))
        throw Failure(Exit::Usage,
                      fmt::format("--plot {}: the name must end in .png, .svg or .pdf", visibleText(file)));
    if (!sizeOf(options.Size))
        throw Failure(Exit::Usage, fmt::format("--size {}: width and height from 200 to 5000, as 1000x560",
                                               visibleText(options.Size)));
    if (!isInPath("gnuplot")) throw Failure(Exit::Failed, withoutGnuplot);
}

std::string plotScript(const Plot &plot, const PlotOptions &options)
{
    fmt::memory_buffer script;
    auto out = std::back_inserter(script);
    fmt::format_to(out, "set terminal {}\n", terminalFor(options));
    fmt::format_to(out, "{}", style);
    fmt::format_to(out, "set title {} noenhanced font ',15' textcolor '#202020' offset 0,-0.2\n",
                   quotedText(options.Title.empty() ? plot.Title : options.Title));
    fmt::format_to(out, "set xlabel {} noenhanced textcolor '#303030' offset 0,0.2\n", quotedText(plot.XLabel));
    fmt::format_to(out, "set ylabel {} noenhanced textcolor '#303030' offset 0.4,0\n", quotedText(plot.YLabel));
    if (plot.Map)
        addMap(script, *plot.Map);
    else
        addCurves(script, plot, options.Errors);
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
    if (error == ENOENT) throw Failure(Exit::Failed, withoutGnuplot);
    if (error != 0) throw Failure(Exit::Failed, fmt::format("gnuplot: {}", std::strerror(error)));
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

} // namespace

void drawPlot(const Plot &plot, const PlotOptions &options)
{
    OutputFile picture(options.File);
    const MemoryFile script(plotScript(plot, options));
    const int status = runGnuplot(script.File.Number, picture.Descriptor);
    if (status != 0) throw Failure(Exit::Failed, fmt::format("gnuplot could not draw {}", picture.Shown));
    complete(picture);
}

} // namespace Tessel::Cli
