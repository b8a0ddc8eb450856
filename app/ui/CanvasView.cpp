#include "app/ui/CanvasView.h"

#include "app/model/CanvasZoom.h"
#include "engine/render/StudioRenderer.h"

#include <QGraphicsPixmapItem>
#include <QGraphicsRectItem>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>
#include <algorithm>
#include <array>
#include <cmath>

namespace korv {
namespace {

QPixmap checkerPixmap(int cell) {
    QPixmap pattern(cell * 2, cell * 2);
    pattern.fill(QColor(255, 255, 255));
    QPainter painter(&pattern);
    const QColor grey(204, 204, 204);
    painter.fillRect(0, 0, cell, cell, grey);
    painter.fillRect(cell, cell, cell, cell, grey);
    return pattern;
}

QPixmap tilePixmap(const RGBABuffer& image) {
    // Tiles hold premultiplied RGBA bytes, which this format takes as they are.
    const QImage view(image.data(), int(image.width()), int(image.height()), int(image.width() * 4),
                      QImage::Format_RGBA8888_Premultiplied);
    return QPixmap::fromImage(view.copy());
}

} // namespace

CanvasView::CanvasView(StudioModel& model, QWidget* parent) : QGraphicsView(parent), model_(model) {
    setScene(&scene_);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFrameShape(QFrame::NoFrame);
    setAlignment(Qt::AlignLeft | Qt::AlignTop);
    setTransformationAnchor(QGraphicsView::NoAnchor);
    setBackgroundBrush(QColor(38, 38, 42));
    setViewportUpdateMode(QGraphicsView::SmartViewportUpdate);
    setRenderHint(QPainter::SmoothPixmapTransform, true);

    docItem_ = scene_.addRect(QRectF(), Qt::NoPen, Qt::NoBrush);
    shadow_ = new QGraphicsRectItem(docItem_);
    shadow_->setPen(Qt::NoPen);
    shadow_->setBrush(QColor(0, 0, 0, 110));
    checker_ = new QGraphicsRectItem(docItem_);
    checker_->setPen(Qt::NoPen);
    docItem_->setVisible(false);
}

void CanvasView::showSession(DocSession& session) {
    session_ = &session;
    rebuildTiles();
    // A hidden view has no size of its own yet: the fit waits for the first showing.
    if (session.needsFit && isVisible()) fit();
    applyViewTransform();
}

void CanvasView::clear() {
    session_ = nullptr;
    for (auto* item : tiles_)
        delete item;
    tiles_.clear();
    docItem_->setVisible(false);
}

void CanvasView::refresh() {
    flush();
}

void CanvasView::rebuildTiles() {
    for (auto* item : tiles_)
        delete item;
    tiles_.clear();
    if (!session_) return;
    StudioDocument& doc = *session_->doc;
    for (int64_t i = 0; i < doc.grid.count(); ++i) {
        auto* item = new QGraphicsPixmapItem(docItem_);
        item->setShapeMode(QGraphicsPixmapItem::BoundingRectShape);
        tiles_.push_back(item);
    }
    docItem_->setVisible(true);
    applyViewTransform();
    doc.markAllDirty();
    flush();
}

void CanvasView::flush() {
    if (!session_) return;
    StudioDocument& doc = *session_->doc;
    if (int64_t(tiles_.size()) != doc.grid.count()) {
        rebuildTiles(); // the canvas changed size; rebuilding marks everything dirty
        return;
    }
    const auto dirty = doc.takeDirtyTiles();
    if (dirty.empty()) return;
    const auto images = StudioRenderer::tileImages(doc, dirty);
    for (int64_t index : dirty) {
        if (index < 0 || index >= int64_t(tiles_.size())) continue;
        auto it = images.find(index);
        auto* item = tiles_[size_t(index)];
        item->setPixmap(it != images.end() && it->second ? tilePixmap(*it->second) : QPixmap());
    }
}

QTransform CanvasView::viewTransform() const {
    if (!session_) return {};
    QTransform t;
    t.translate(viewport()->width() / 2.0 + session_->pan.x, viewport()->height() / 2.0 + session_->pan.y);
    t.scale(session_->zoom, session_->zoom);
    t.translate(-double(session_->doc->width()) / 2.0, -double(session_->doc->height()) / 2.0);
    return t;
}

void CanvasView::applyViewTransform() {
    scene_.setSceneRect(0, 0, viewport()->width(), viewport()->height());
    if (!session_) return;
    const QTransform t = viewTransform();
    // Tiles are placed in whole view pixels: each edge is rounded once, so
    // neighbours share it exactly and no seam shows between them at any zoom.
    auto snapped = [&](const IRect& r) {
        const QPointF a = t.map(QPointF(double(r.x), double(r.y)));
        const QPointF b = t.map(QPointF(double(r.maxX()), double(r.maxY())));
        return QRectF(QPointF(std::round(a.x()), std::round(a.y())),
                      QPointF(std::round(b.x()), std::round(b.y())));
    };
    const StudioDocument& doc = *session_->doc;
    const QRectF page = snapped(doc.grid.bounds());
    checker_->setRect(page);
    shadow_->setRect(page.translated(0, 5).adjusted(-4, -4, 4, 4));
    // The checker's cells keep their size on screen whatever the zoom.
    QBrush brush(checkerPixmap(std::max(2, int(model_.prefs.checkerSize))));
    brush.setTransform(QTransform::fromTranslate(page.x(), page.y()));
    checker_->setBrush(brush);
    const auto mode = session_->zoom < 1 ? Qt::SmoothTransformation : Qt::FastTransformation;
    for (size_t i = 0; i < tiles_.size(); ++i) {
        const IRect r = doc.grid.rect(int64_t(i));
        const QRectF target = snapped(r);
        tiles_[i]->setTransform(QTransform(target.width() / double(r.w), 0, 0, target.height() / double(r.h),
                                           target.x(), target.y()));
        tiles_[i]->setTransformationMode(mode);
    }
}

void CanvasView::fit() {
    if (!session_ || viewport()->width() <= 10) return;
    const double w = double(session_->doc->width()), h = double(session_->doc->height());
    session_->zoom =
        std::clamp(std::min((viewport()->width() - 50) / w, (viewport()->height() - 50) / h), 0.01, 32.0);
    session_->pan = {};
    session_->needsFit = false;
    applyViewTransform();
    model_.notify();
}

void CanvasView::actualPixels() {
    if (!session_) return;
    session_->zoom = 1;
    session_->pan = {};
    applyViewTransform();
    model_.notify();
}

void CanvasView::setZoom(double zoom, std::optional<QPointF> around) {
    if (!session_) return;
    zoom = CanvasZoom::clamped(zoom);
    if (around) {
        // Keep the picture point under the pointer where it is.
        const QPointF picture = viewTransform().inverted().map(*around);
        session_->zoom = zoom;
        const QPointF moved = viewTransform().map(picture);
        session_->pan.x += around->x() - moved.x();
        session_->pan.y += around->y() - moved.y();
    } else {
        session_->zoom = zoom;
    }
    applyViewTransform();
    model_.notify();
}

void CanvasView::zoomStep(bool in, std::optional<QPointF> around) {
    if (session_) setZoom(CanvasZoom::nextStep(session_->zoom, in), around);
}

void CanvasView::resizeEvent(QResizeEvent* event) {
    QGraphicsView::resizeEvent(event);
    if (session_ && session_->needsFit && isVisible()) fit();
    applyViewTransform();
}

void CanvasView::showEvent(QShowEvent* event) {
    QGraphicsView::showEvent(event);
    if (session_ && session_->needsFit) fit();
    applyViewTransform();
}

void CanvasView::wheelEvent(QWheelEvent* event) {
    if (!session_) return;
    const double notches = event->angleDelta().y() / 120.0;
    if (notches == 0) return;
    setZoom(session_->zoom * std::pow(1.25, notches), event->position());
}

void CanvasView::mousePressEvent(QMouseEvent* event) {
    if (!session_) return;
    panning_ = true;
    lastDrag_ = event->position();
    viewport()->setCursor(Qt::ClosedHandCursor);
}

void CanvasView::mouseMoveEvent(QMouseEvent* event) {
    if (!panning_ || !session_) return;
    const QPointF delta = event->position() - lastDrag_;
    lastDrag_ = event->position();
    session_->pan.x += delta.x();
    session_->pan.y += delta.y();
    applyViewTransform();
}

void CanvasView::mouseReleaseEvent(QMouseEvent*) {
    panning_ = false;
    viewport()->unsetCursor();
}

} // namespace korv
