#pragma once
// The levels of the picture under an adjustment layer, for one channel, as a
// filled graph. The counts are taken again only when something other than
// that layer changed, so dragging the layer's own controls costs nothing here.
#include "app/model/HistogramCounts.h"
#include "app/model/StudioModel.h"

#include <QWidget>

class QPainter;

namespace korv {

// The colour a channel is drawn in: grey for the master, then red, green, blue.
QColor channelColor(int channel);

// The counts of the picture under one layer, taken again only when something
// other than that layer changed.
class HistogramCache {
public:
    const HistogramCounts& countsFor(const StudioDocument& doc, const Uuid& layer);

private:
    HistogramCounts counts_;
    std::vector<StudioLayer> shownLayers_;
    const StudioDocument* shownDoc_ = nullptr;
    int64_t shownSize_ = -1;
};

// Fills `area` with the channel's counts as a graph, in the channel's colour at `alpha`.
void paintHistogram(QPainter& p, const QRectF& area, const HistogramCounts& counts, int channel, int alpha);

class Histogram : public QWidget {
public:
    explicit Histogram(QWidget* parent = nullptr);

    // Reads the document around the layer; cheap when nothing below changed.
    void showLayer(const StudioDocument& doc, const Uuid& layer, int channel);
    const HistogramCounts& counts() const { return counts_; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    HistogramCache cache_;
    HistogramCounts counts_;
    int channel_ = 0;
};

} // namespace korv
