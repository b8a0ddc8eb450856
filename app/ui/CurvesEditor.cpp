#include "app/ui/CurvesEditor.h"

#include "app/model/CurveEdit.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

namespace korv {
namespace {

constexpr double kInset = 8;
constexpr double kHitPixels = 8;

} // namespace

CurvesEditor::CurvesEditor(QWidget* parent) : QWidget(parent) {
    setMinimumSize(200, 200);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setFixedHeight(230);
    setMouseTracking(false);
    setCursor(Qt::CrossCursor);
}

QRectF CurvesEditor::graph() const {
    const double side = std::min(width(), height()) - 2 * kInset;
    return {(width() - side) / 2.0, kInset, side, side};
}

QPointF CurvesEditor::toUnit(const QPointF& at) const {
    const QRectF g = graph();
    return {(at.x() - g.left()) / g.width(), 1.0 - (at.y() - g.top()) / g.height()};
}

QPointF CurvesEditor::toWidget(const CurvePoint& p) const {
    const QRectF g = graph();
    return {g.left() + p.x * g.width(), g.top() + (1.0 - p.y) * g.height()};
}

std::vector<CurvePoint> CurvesEditor::shown() const {
    if (dragging) return working_;
    auto list = points.get ? points.get() : std::vector<CurvePoint>{{0, 0}, {1, 1}};
    std::sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return a.x < b.x; });
    return list;
}

void CurvesEditor::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF g = graph();
    p.fillRect(g, QColor(24, 24, 26));
    if (backdrop) paintHistogram(p, g, *backdrop, channel, 60);
    p.setPen(QPen(QColor(60, 60, 65), 1));
    for (int i = 1; i < 4; ++i) {
        p.drawLine(QPointF(g.left() + g.width() * i / 4, g.top()),
                   QPointF(g.left() + g.width() * i / 4, g.bottom()));
        p.drawLine(QPointF(g.left(), g.top() + g.height() * i / 4),
                   QPointF(g.right(), g.top() + g.height() * i / 4));
    }
    p.setPen(QPen(QColor(85, 85, 90), 1, Qt::DashLine));
    p.drawLine(g.bottomLeft(), g.topRight());
    p.setPen(QPen(QColor(90, 90, 95), 1));
    p.drawRect(g);

    auto list = shown();
    if (dragging && off_) list.erase(list.begin() + std::ptrdiff_t(*dragging));
    QPainterPath curve;
    constexpr int kSamples = 128;
    for (int i = 0; i <= kSamples; ++i) {
        const double x = double(i) / kSamples;
        const QPointF at = toWidget({x, CurveEdit::value(list, x)});
        if (i == 0)
            curve.moveTo(at);
        else
            curve.lineTo(at);
    }
    p.setPen(QPen(channelColor(channel), 2));
    p.drawPath(curve);
    p.setPen(QPen(Qt::white, 1.5));
    for (size_t i = 0; i < list.size(); ++i) {
        const QPointF at = toWidget(list[i]);
        const bool held = dragging && !off_ && i == *dragging;
        p.setBrush(held ? QBrush(Qt::white) : QBrush(QColor(24, 24, 26)));
        p.drawRect(QRectF(at.x() - 4, at.y() - 4, 8, 8));
    }
}

void CurvesEditor::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !points.set) return;
    working_ = shown();
    const QPointF u = toUnit(event->position());
    if (u.x() < 0 || u.x() > 1 || u.y() < 0 || u.y() > 1) return;
    const double radius = kHitPixels / graph().width();
    if (auto hit = CurveEdit::hit(working_, u.x(), u.y(), radius))
        dragging = *hit;
    else
        dragging = CurveEdit::add(working_, u.x(), u.y());
    off_ = false;
    points.set(working_);
    update();
}

void CurvesEditor::mouseMoveEvent(QMouseEvent* event) {
    if (!dragging || !points.set) return;
    const QPointF u = toUnit(event->position());
    const bool off = CurveEdit::dropsOff(working_, *dragging, u.x(), u.y());
    if (!off) CurveEdit::move(working_, *dragging, u.x(), u.y());
    off_ = off;
    // The canvas shows the curve without the point while it is off the graph.
    auto sent = working_;
    if (off_) sent.erase(sent.begin() + std::ptrdiff_t(*dragging));
    points.set(sent);
    update();
}

void CurvesEditor::mouseReleaseEvent(QMouseEvent*) {
    if (!dragging) return;
    dragging.reset();
    off_ = false;
    working_.clear();
    update();
}

} // namespace korv
