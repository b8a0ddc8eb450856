#include "app/ui/Histogram.h"

#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

namespace korv {

QColor channelColor(int channel) {
    switch (channel) {
    case 1:
        return QColor(230, 80, 70);
    case 2:
        return QColor(90, 200, 100);
    case 3:
        return QColor(80, 140, 240);
    default:
        return QColor(200, 200, 205);
    }
}

Histogram::Histogram(QWidget* parent) : QWidget(parent) {
    setMinimumHeight(90);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setFixedHeight(96);
}

const HistogramCounts& HistogramCache::countsFor(const StudioDocument& doc, const Uuid& layer) {
    auto layers = layersWithout(doc, layer);
    const int64_t size = doc.width() * 100000 + doc.height();
    if (&doc != shownDoc_ || size != shownSize_ || layers != shownLayers_) {
        counts_ = histogramWithout(doc, layer);
        shownLayers_ = std::move(layers);
        shownDoc_ = &doc;
        shownSize_ = size;
    }
    return counts_;
}

void Histogram::showLayer(const StudioDocument& doc, const Uuid& layer, int channel) {
    counts_ = cache_.countsFor(doc, layer);
    channel_ = channel;
    update();
}

void paintHistogram(QPainter& p, const QRectF& area, const HistogramCounts& counts, int channel, int alpha) {
    const auto& bins = counts.counts[size_t(std::clamp(channel, 0, 3))];
    // A square root keeps a spike of one level from flattening everything else.
    double top = 0;
    for (auto c : bins)
        top = std::max(top, std::sqrt(double(c)));
    if (top <= 0) return;
    QPainterPath path;
    path.moveTo(area.left(), area.bottom());
    for (int i = 0; i < 256; ++i) {
        const double x = area.left() + area.width() * (i + 0.5) / 256.0;
        const double y = area.bottom() - (area.height() - 4) * std::sqrt(double(bins[size_t(i)])) / top;
        path.lineTo(x, y);
    }
    path.lineTo(area.right(), area.bottom());
    path.closeSubpath();
    QColor fill = channelColor(channel);
    fill.setAlpha(alpha);
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.fillPath(path, fill);
    p.restore();
}

void Histogram::paintEvent(QPaintEvent*) {
    QPainter p(this);
    const QRectF area = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    p.fillRect(area, QColor(24, 24, 26));
    p.setPen(QColor(70, 70, 75));
    p.drawRect(area);
    paintHistogram(p, area, counts_, channel_, 170);
}

} // namespace korv
