#pragma once
// How many pixels of a picture fall on each of the 256 levels, for the
// brightness (channel 0) and for red, green and blue (1, 2, 3), the way the
// Levels channels are numbered. Auto Levels reads its points from here.
#include "engine/core/RGBABuffer.h"
#include "engine/core/Uuid.h"

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

namespace korv {

class StudioDocument;
struct StudioLayer;

struct HistogramCounts {
    std::array<std::array<int64_t, 256>, 4> counts{};
    int64_t total = 0;

    // Straight colours of the visible pixels; fully transparent ones don't
    // count. A large picture is read on an even lattice of about
    // `maxSamples` pixels, which keeps the shape of the counts.
    static HistogramCounts of(const RGBABuffer& picture, int64_t maxSamples = 1 << 20);
    // The levels where the darkest and the brightest `clip` fraction of the
    // channel's pixels begin, on the 0...1 scale: Auto Levels' input black
    // and white. An empty histogram gives (0, 1).
    std::pair<double, double> autoPoints(int channel, double clip = 0.001) const;
    bool operator==(const HistogramCounts&) const = default;
};

// The document's layer tree with one layer hidden: what an adjustment layer
// works on is the picture without itself, so its histogram does not change
// while the user drags its own controls.
std::vector<StudioLayer> layersWithout(const StudioDocument& doc, const Uuid& hidden);
HistogramCounts histogramWithout(const StudioDocument& doc, const Uuid& hidden);

} // namespace korv
