// Plots as characters: the curves or the map of a Plot in a part of a frame.
#pragma once

#include "program/frame.h"
#include "program/plot.h"

namespace Tessel::Cli {

// How the curve of an index looks, in the picture and beside its name.
struct CurveLook
{
    char32_t Mark;
    Cli::Colour Colour;
};
CurveLook lookOf(const Frame &frame, size_t curve);

// With axes as far as there is room for them; nothing where there is no room at all. Of points that fall into
// one column the mean is shown.
void drawTextPlot(Frame &frame, const Area &area, const Plot &plot);

} // namespace Tessel::Cli
