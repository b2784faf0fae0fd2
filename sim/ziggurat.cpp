// The layers of the ziggurats and the rare draws outside their rectangles. Pure.
#include "sim/ziggurat.h"

namespace Tessel::Sim {

namespace {

// Where the tail begins, and the area of a layer, so that 255 layers on the tail's one reach the height 1.
constexpr double exponentialTail = 7.697117470131050, exponentialArea = 0.003949659822581557;
constexpr double normalTail = 3.654152885361009, normalArea = 0.004928673233974655;

// `edgeAt`: where the curve has a height. The lowest layer is a rectangle with the tail's area beside it.
template <class EdgeAt>
Ziggurat makeLayers(double tail, double area, double heightOfTail, const EdgeAt &edgeAt)
{
    Ziggurat layers{};
    layers.Edge[0] = area / heightOfTail;
    layers.Edge[1] = tail;
    layers.Height[1] = heightOfTail;
    for (int i = 2; i < 256; ++i) {
        layers.Height[i] = layers.Height[i - 1] + area / layers.Edge[i - 1];
        layers.Edge[i] = edgeAt(layers.Height[i]);
    }
    layers.Height[256] = 1;
    return layers;
}

bool isBelowCurve(Random &random, const Ziggurat &layers, uint32_t layer, double exponent)
{
    const double height =
        layers.Height[layer] + uniform(random) * (layers.Height[layer + 1] - layers.Height[layer]);
    return logOf(height) < exponent;
}

} // namespace

const Ziggurat exponentialLayers = makeLayers(exponentialTail, exponentialArea, 4.5413435384149666e-4,
                                              [](double height) { return -logOf(height); });
const Ziggurat normalLayers = makeLayers(normalTail, normalArea, 1.260285930498598e-3,
                                         [](double height) { return std::sqrt(-2 * logOf(height)); });

// What isn't below the curve is drawn again.
double beyondRectangle(Random &random, double x, uint32_t layer)
{
    if (layer == 0) return exponentialTail + exponential(random); // the tail is another exponential curve
    return isBelowCurve(random, exponentialLayers, layer, -x) ? x : exponential(random);
}

double beyondNormalRectangle(Random &random, double x, uint32_t layer)
{
    if (layer > 0) return isBelowCurve(random, normalLayers, layer, -x * x / 2) ? x : std::abs(normal(random));
    for (;;) {
        const double beyond = exponential(random) / normalTail;
        if (2 * exponential(random) > beyond * beyond) return normalTail + beyond;
    }
}

} // namespace Tessel::Sim
