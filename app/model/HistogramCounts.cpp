#include "app/model/HistogramCounts.h"

#include "engine/document/StudioDocument.h"

#include <algorithm>
#include <cmath>

namespace korv {
namespace {

void hide(std::vector<StudioLayer>& layers, const Uuid& id) {
    for (auto& l : layers) {
        if (l.id == id) l.isVisible = false;
        hide(l.children, id);
    }
}

} // namespace

HistogramCounts HistogramCounts::of(const RGBABuffer& picture, int64_t maxSamples) {
    HistogramCounts h;
    const int64_t w = picture.width(), ht = picture.height();
    const double ratio = double(w) * double(ht) / double(std::max<int64_t>(maxSamples, 1));
    const int64_t step = std::max<int64_t>(1, int64_t(std::ceil(std::sqrt(ratio))));
    for (int64_t y = 0; y < ht; y += step) {
        const uint8_t* row = picture.row(y);
        for (int64_t x = 0; x < w; x += step) {
            const uint8_t* p = row + x * 4;
            const int a = p[3];
            if (a == 0) continue;
            int c[3];
            for (int k = 0; k < 3; ++k)
                c[k] = a == 255 ? p[k] : std::min(255, (p[k] * 255 + a / 2) / a);
            const int lum = std::clamp(int(0.3 * c[0] + 0.59 * c[1] + 0.11 * c[2] + 0.5), 0, 255);
            h.counts[0][size_t(lum)] += 1;
            for (int k = 0; k < 3; ++k)
                h.counts[size_t(k + 1)][size_t(c[k])] += 1;
            h.total += 1;
        }
    }
    return h;
}

std::pair<double, double> HistogramCounts::autoPoints(int channel, double clip) const {
    if (total == 0 || channel < 0 || channel > 3) return {0.0, 1.0};
    const auto& bins = counts[size_t(channel)];
    const auto limit = int64_t(std::floor(double(total) * clip));
    int low = 0, high = 255;
    for (int64_t seen = 0; low < 255; ++low) {
        seen += bins[size_t(low)];
        if (seen > limit) break;
    }
    for (int64_t seen = 0; high > 0; --high) {
        seen += bins[size_t(high)];
        if (seen > limit) break;
    }
    // A picture of one level has nothing to stretch.
    if (high <= low) return {0.0, 1.0};
    return {low / 255.0, high / 255.0};
}

std::vector<StudioLayer> layersWithout(const StudioDocument& doc, const Uuid& hidden) {
    auto layers = doc.layers;
    hide(layers, hidden);
    return layers;
}

HistogramCounts histogramWithout(const StudioDocument& doc, const Uuid& hidden) {
    const StudioDocument below(doc.width(), doc.height(), doc.dpi, layersWithout(doc, hidden));
    const auto picture = below.flattened();
    return picture ? HistogramCounts::of(*picture) : HistogramCounts{};
}

} // namespace korv
