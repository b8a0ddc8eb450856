#pragma once
// The graph of one channel's curve with its points: a click adds a point, a
// drag shapes the curve, and a point dragged off the graph is removed when
// let go. What the rules allow is decided by CurveEdit; this widget only
// maps pixels to the unit square and sends the new point list.
#include "app/model/StudioModel.h"
#include "app/ui/Histogram.h"

#include <QWidget>

namespace korv {

class CurvesEditor : public QWidget {
public:
    explicit CurvesEditor(QWidget* parent = nullptr);

    Binding<std::vector<CurvePoint>> points;
    int channel = 0;
    // The picture's levels drawn faintly behind the curve; none draws nothing.
    const HistogramCounts* backdrop = nullptr;
    // Set while a point is held; its index in the working list.
    std::optional<size_t> dragging;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QRectF graph() const;
    QPointF toUnit(const QPointF& at) const;
    QPointF toWidget(const CurvePoint& p) const;
    std::vector<CurvePoint> shown() const;

    // The list during a drag, with the held point even while it is off the graph.
    std::vector<CurvePoint> working_;
    bool off_ = false;
};

} // namespace korv
