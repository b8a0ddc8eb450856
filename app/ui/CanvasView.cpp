#include "app/ui/CanvasView.h"

#include "app/model/CanvasZoom.h"
#include "app/model/TransformHandles.h"
#include "app/model/VectorTools.h"
#include "engine/render/StudioRenderer.h"
#include "engine/render/VectorRender.h"

#include <QGraphicsPathItem>
#include <QGraphicsPixmapItem>
#include <QGraphicsRectItem>
#include <QKeyEvent>
#include <QLineF>
#include <QMouseEvent>
#include <QPainter>
#include <QTimer>
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

QPainterPath painterPath(const Path& path) {
    QPainterPath out;
    const auto& pts = path.points();
    size_t p = 0;
    for (Path::Verb verb : path.verbs()) {
        switch (verb) {
        case Path::Verb::move:
            out.moveTo(pts[p].x, pts[p].y);
            p += 1;
            break;
        case Path::Verb::line:
            out.lineTo(pts[p].x, pts[p].y);
            p += 1;
            break;
        case Path::Verb::quad:
            out.quadTo(pts[p].x, pts[p].y, pts[p + 1].x, pts[p + 1].y);
            p += 2;
            break;
        case Path::Verb::cubic:
            out.cubicTo(pts[p].x, pts[p].y, pts[p + 1].x, pts[p + 1].y, pts[p + 2].x, pts[p + 2].y);
            p += 3;
            break;
        case Path::Verb::close:
            out.closeSubpath();
            break;
        }
    }
    return out;
}

QPixmap tilePixmap(const RGBABuffer& image) {
    // Tiles hold premultiplied RGBA bytes, which this format takes as they are.
    const QImage view(image.data(), int(image.width()), int(image.height()), int(image.width() * 4),
                      QImage::Format_RGBA8888_Premultiplied);
    return QPixmap::fromImage(view.copy());
}

} // namespace

CanvasView::CanvasView(StudioModel& model, QWidget* parent) : QGraphicsView(parent), model_(model) {
    setFocusPolicy(Qt::StrongFocus); // Return, Esc and Space reach the canvas
    setScene(&scene_);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setMouseTracking(true);
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

    // Ants: a light line under a dark dashed one whose dashes move.
    antsLight_ = scene_.addPath(QPainterPath(), QPen(QColor(255, 255, 255), 0));
    QPen dark(QColor(0, 0, 0), 0);
    dark.setDashPattern({4, 4});
    antsDark_ = scene_.addPath(QPainterPath(), dark);
    for (auto* item : {antsLight_, antsDark_}) {
        item->setZValue(10);
        item->setVisible(false);
    }
    // A live transform's outline and handles, drawn in view coordinates so
    // that they keep their size at any zoom.
    transformOutline_ = scene_.addPath(QPainterPath(), QPen(QColor(40, 150, 255), 1.5));
    transformHandles_ = scene_.addPath(QPainterPath(), QPen(QColor(40, 150, 255), 1.5), QBrush(Qt::white));
    // The Crop tool's rectangle: the area outside it darkened, with handles.
    cropShade_ = scene_.addPath(QPainterPath(), Qt::NoPen, QColor(0, 0, 0, 140));
    for (auto* item : {transformOutline_, transformHandles_})
        item->setZValue(20);
    cropShade_->setZValue(15);
    // The rubber band of a shape being dragged: a thin white line over a
    // soft dark one, so that it shows on any picture.
    QPen shade(QColor(0, 0, 0, 230), 3);
    shade.setCosmetic(true);
    shapeUnder_ = scene_.addPath(QPainterPath(), shade);
    QPen band(QColor(255, 255, 255), 1.2);
    band.setCosmetic(true);
    shapePreview_ = scene_.addPath(QPainterPath(), band);
    shapeUnder_->setZValue(19);
    shapePreview_->setZValue(20);
    antsTimer_ = new QTimer(this);
    antsTimer_->setInterval(120);
    connect(antsTimer_, &QTimer::timeout, this, [this] {
        antsPhase_ = (antsPhase_ + 1) % 8;
        QPen pen = antsDark_->pen();
        pen.setDashOffset(antsPhase_);
        antsDark_->setPen(pen);
    });
}

void CanvasView::updateSelectionOutline() {
    const StudioDocument* doc = session_ ? session_->doc.get() : nullptr;
    const SelectionRef selection = doc ? doc->selection : nullptr;
    if (selection != shownSelection_) {
        shownSelection_ = selection;
        const QPainterPath path = selection ? painterPath(selection->outline()) : QPainterPath();
        antsLight_->setPath(path);
        antsDark_->setPath(path);
    }
    const bool visible = selection != nullptr;
    antsLight_->setVisible(visible);
    antsDark_->setVisible(visible);
    // Restroking a very long outline every step would take the canvas's
    // time; such an outline stands still.
    constexpr int kMaxMarchingElements = 100000;
    const bool march = visible && antsDark_->path().elementCount() <= kMaxMarchingElements;
    if (march && !antsTimer_->isActive()) antsTimer_->start();
    if (!march) antsTimer_->stop();
}

QPointF CanvasView::toPicture(const QPointF& view) const {
    return viewTransform().inverted().map(view);
}

void CanvasView::showSession(DocSession& session) {
    if (shownID_ != session.id) {
        stash();
        session_ = &session;
        shownID_ = session.id;
        prune();
        auto kept = kept_.find(session.id);
        if (kept != kept_.end() && int64_t(kept->second.size()) == session.doc->grid.count()) {
            tiles_ = std::move(kept->second);
            kept_.erase(kept);
            for (auto* item : tiles_)
                item->setVisible(true);
            docItem_->setVisible(true);
            applyViewTransform();
            flush(); // only what changed while it was behind
        } else {
            if (kept != kept_.end()) {
                for (auto* item : kept->second)
                    delete item;
                kept_.erase(kept);
            }
            rebuildTiles();
        }
    } else {
        session_ = &session;
        rebuildTiles();
    }
    // A hidden view has no size of its own yet: the fit waits for the first showing.
    if (session.needsFit && isVisible()) fit();
    applyViewTransform();
    updateSelectionOutline();
}

void CanvasView::clear() {
    stash();
    session_ = nullptr;
    shownID_.reset();
    prune();
    docItem_->setVisible(false);
    updateSelectionOutline();
}

void CanvasView::refresh() {
    flush();
    updateShapePreview();
    updateSelectionOutline();
    updateTransformOverlay();
}

void CanvasView::updateTransformOverlay() {
    QPainterPath outline, handles;
    if (session_ && model_.transform) {
        const TransformSession& t = *model_.transform;
        const QTransform view = viewTransform();
        auto at = [&](Point p) { return view.map(QPointF(p.x, p.y)); };
        const std::vector<Point> corners = t.shownCorners();
        if (t.mode == TransformMode::warp) {
            // The bent grid shows what the points do to the picture.
            const auto mesh = t.lattice(12);
            for (size_t i = 0; i < mesh.size(); i += 3) {
                outline.moveTo(at(mesh[i][0]));
                for (size_t k = 1; k < mesh[i].size(); ++k)
                    outline.lineTo(at(mesh[i][k]));
                outline.moveTo(at(mesh[0][i]));
                for (size_t k = 1; k < mesh.size(); ++k)
                    outline.lineTo(at(mesh[k][i]));
            }
        } else {
            outline.moveTo(at(corners[0]));
            for (size_t i = 1; i < corners.size(); ++i)
                outline.lineTo(at(corners[i]));
            outline.closeSubpath();
        }
        for (const Point& p : transformHandlePoints(t))
            handles.addEllipse(at(p), 5, 5);
    }
    QPainterPath shade;
    if (session_ && !model_.transform && model_.cropRect) {
        const QTransform view = viewTransform();
        const QRectF page =
            view.mapRect(QRectF(0, 0, double(session_->doc->width()), double(session_->doc->height())));
        const QRectF keep = view.mapRect(cropRectOnCanvas());
        shade.setFillRule(Qt::OddEvenFill);
        shade.addRect(page);
        shade.addRect(keep);
        outline.addRect(keep);
        for (const QPointF& c : {keep.topLeft(), keep.topRight(), keep.bottomRight(), keep.bottomLeft()})
            handles.addRect(QRectF(c.x() - 5, c.y() - 5, 10, 10));
    }
    cropShade_->setPath(shade);
    transformOutline_->setPath(outline);
    transformHandles_->setPath(handles);
}

QRectF CanvasView::cropRectOnCanvas() const {
    if (!model_.cropRect) return {};
    const CanvasRect& r = *model_.cropRect;
    return QRectF(r.x, r.y, r.w, r.h).normalized();
}

void CanvasView::stash() {
    if (!shownID_) return;
    for (auto* item : tiles_)
        item->setVisible(false);
    auto& slot = kept_[*shownID_];
    for (auto* item : slot)
        delete item;
    slot = std::move(tiles_);
    tiles_.clear();
}

void CanvasView::prune() {
    for (auto it = kept_.begin(); it != kept_.end();) {
        const bool open = std::any_of(model_.sessions.begin(), model_.sessions.end(),
                                      [&](const DocSessionPtr& s) { return s->id == it->first; });
        if (open) {
            ++it;
            continue;
        }
        for (auto* item : it->second)
            delete item;
        it = kept_.erase(it);
    }
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
    shapePreview_->setTransform(t);
    shapeUnder_->setTransform(t);
    antsLight_->setTransform(t);
    antsDark_->setTransform(t);
    updateTransformOverlay();
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
    const bool left = event->button() == Qt::LeftButton;
    const bool panRequest = event->button() == Qt::MiddleButton || spaceDown_;
    if (left && !panRequest && model_.transform) {
        const QPointF q = toPicture(event->position());
        const Point p{q.x(), q.y()};
        std::optional<int> handle = transformHit(*model_.transform, p, session_->zoom);
        if (!handle) handle = transformMiss(*model_.transform, p);
        if (handle) {
            transformHandle_ = handle;
            transformStart_ = TransformStart::of(*model_.transform, p);
        }
        return;
    }
    if (left && !panRequest && model_.tool == Tool::crop) {
        setFocus();
        const QPointF p = toPicture(event->position());
        cropStartPoint_ = p;
        cropStart_ = cropRectOnCanvas();
        cropDrag_ = CropDrag::create;
        if (model_.cropRect) {
            const QRectF r = cropStart_;
            const QPointF corners[4] = {r.topLeft(), r.topRight(), r.bottomRight(), r.bottomLeft()};
            for (int i = 0; i < 4; ++i)
                if (QLineF(corners[i], p).length() * session_->zoom <= 9) {
                    cropDrag_ = CropDrag(int(CropDrag::corner0) + i);
                    return;
                }
            if (r.contains(p)) cropDrag_ = CropDrag::body;
        }
        return;
    }
    if (left && !panRequest && model_.tool == Tool::move) {
        const auto layer = model_.activeLayer();
        if (!layer) return;
        if (layer->isLocked) {
            model_.setStatus("\u201C" + layer->name +
                             "\u201D is locked. Unlock it in the Layers panel to change it.");
            return;
        }
        moving_ = layer->id;
        moveStart_ = toPicture(event->position());
        moveOffset_ = {0, 0};
        viewport()->setCursor(Qt::SizeAllCursor);
        return;
    }
    if (left && !panRequest && model_.tool == Tool::text) {
        const QPointF p = toPicture(event->position());
        model_.textClick({p.x(), p.y()});
        return;
    }
    if (left && !panRequest && model_.tool == Tool::shape) {
        shapeStart_ = toPicture(event->position());
        shapeNow_ = *shapeStart_;
        updateShapePreview();
        return;
    }
    if (!panRequest && model_.tool == Tool::magicWand && left) {
        const QPointF p = toPicture(event->position());
        // Shift adds, Alt takes away, both keep only the overlap.
        const auto mods = event->modifiers();
        std::optional<SelectionOp> op;
        if ((mods & Qt::ShiftModifier) && (mods & Qt::AltModifier))
            op = SelectionOp::intersect;
        else if (mods & Qt::ShiftModifier)
            op = SelectionOp::add;
        else if (mods & Qt::AltModifier)
            op = SelectionOp::subtract;
        model_.magicWandClick(int64_t(std::floor(p.x())), int64_t(std::floor(p.y())), op);
        return;
    }
    panning_ = true;
    lastDrag_ = event->position();
    viewport()->setCursor(Qt::ClosedHandCursor);
}

void CanvasView::mouseMoveEvent(QMouseEvent* event) {
    if (session_) {
        const QPointF p = toPicture(event->position());
        const auto x = int64_t(std::floor(p.x())), y = int64_t(std::floor(p.y()));
        const bool inside = x >= 0 && y >= 0 && x < session_->doc->width() && y < session_->doc->height();
        std::string info = inside ? std::to_string(x) + ", " + std::to_string(y) : std::string();
        if (info != model_.cursorInfo) {
            model_.cursorInfo = std::move(info);
            if (onCursor) onCursor();
        }
    }
    if (session_ && transformHandle_ && model_.transform) {
        const QPointF q = toPicture(event->position());
        dragTransform(*model_.transform, transformStart_, *transformHandle_, {q.x(), q.y()},
                      event->modifiers() & Qt::ShiftModifier);
        model_.updateTransform();
        return;
    }
    if (session_ && cropDrag_ != CropDrag::none) {
        const QPointF p = toPicture(event->position());
        const QRectF page(0, 0, double(session_->doc->width()), double(session_->doc->height()));
        QRectF r;
        if (cropDrag_ == CropDrag::create) {
            r = QRectF(QPointF(std::round(cropStartPoint_.x()), std::round(cropStartPoint_.y())),
                       QPointF(std::round(p.x()), std::round(p.y())));
        } else if (cropDrag_ == CropDrag::body) {
            const QPointF d = p - cropStartPoint_;
            r = cropStart_.translated(std::round(d.x()), std::round(d.y()));
        } else {
            // The corner being dragged follows the pointer; the opposite one stays.
            const int i = int(cropDrag_) - int(CropDrag::corner0);
            const QRectF s = cropStart_;
            const QPointF opposite[4] = {s.bottomRight(), s.bottomLeft(), s.topLeft(), s.topRight()};
            r = QRectF(opposite[i], QPointF(std::round(p.x()), std::round(p.y())));
        }
        r = r.normalized().intersected(page);
        if (r.width() >= 1 && r.height() >= 1)
            model_.cropRect = CanvasRect{r.x(), r.y(), r.width(), r.height()};
        updateTransformOverlay();
        return;
    }
    if (session_ && shapeStart_) {
        shapeNow_ = toPicture(event->position());
        updateShapePreview();
        return;
    }
    if (session_ && moving_) {
        // The layer follows the pointer in whole pixels; history sees one
        // step when the button comes up.
        const QPointF d = toPicture(event->position()) - moveStart_;
        const QPoint offset(int(std::lround(d.x())), int(std::lround(d.y())));
        if (offset == moveOffset_) return;
        moveOffset_ = offset;
        StudioDocument& doc = *session_->doc;
        doc.revertToLastCommit();
        doc.offsetLayer(*moving_, offset.x(), offset.y());
        flush();
        return;
    }
    if (!panning_ || !session_) return;
    const QPointF delta = event->position() - lastDrag_;
    lastDrag_ = event->position();
    session_->pan.x += delta.x();
    session_->pan.y += delta.y();
    applyViewTransform();
}

void CanvasView::leaveEvent(QEvent* event) {
    QGraphicsView::leaveEvent(event);
    if (model_.cursorInfo.empty()) return;
    model_.cursorInfo.clear();
    if (onCursor) onCursor();
}

void CanvasView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (model_.tool == Tool::crop && model_.cropRect &&
        cropRectOnCanvas().contains(toPicture(event->position()))) {
        cropDrag_ = CropDrag::none;
        model_.applyCrop();
        return;
    }
    QGraphicsView::mouseDoubleClickEvent(event);
}

void CanvasView::mouseReleaseEvent(QMouseEvent*) {
    if (cropDrag_ != CropDrag::none) {
        cropDrag_ = CropDrag::none;
        model_.notify(); // the options bar offers Apply Crop now
    }
    panning_ = false;
    transformHandle_.reset();
    restoreCursor();
    if (shapeStart_ && session_) {
        const QPointF start = *shapeStart_;
        shapeStart_.reset();
        updateShapePreview();
        model_.shapeDrag({start.x(), start.y()}, {shapeNow_.x(), shapeNow_.y()}, session_->zoom);
    }
    if (moving_ && session_) {
        const Uuid id = *moving_;
        moving_.reset();
        session_->doc->revertToLastCommit();
        if (moveOffset_.isNull())
            model_.refresh(true);
        else if (model_.activeLayer() && model_.activeLayer()->id == id)
            model_.moveLayerBy(moveOffset_.x(), moveOffset_.y());
    }
}

void CanvasView::restoreCursor() {
    if (session_ && model_.tool == Tool::text)
        viewport()->setCursor(Qt::IBeamCursor);
    else if (session_ && model_.tool == Tool::shape)
        viewport()->setCursor(Qt::CrossCursor);
    else
        viewport()->unsetCursor();
}

void CanvasView::updateShapePreview() {
    std::optional<ShapeSpec> spec;
    if (shapeStart_ && session_)
        spec = shapeFromDrag(model_.shapeSpec, {shapeStart_->x(), shapeStart_->y()},
                             {shapeNow_.x(), shapeNow_.y()}, session_->zoom);
    QPainterPath outline;
    if (spec) {
        outline = painterPath(VectorRender::path(*spec));
    } else if (session_ && (model_.tool == Tool::text || model_.tool == Tool::shape)) {
        const auto layer = model_.activeLayer();
        if (layer && layer->kind == StudioLayerKind::shape && layer->shape) {
            outline = painterPath(VectorRender::path(*layer->shape));
        } else if (layer && layer->kind == StudioLayerKind::text && layer->text) {
            const Rect box = VectorRender::textBounds(*layer->text);
            outline.addRect(QRectF(box.x, box.y, box.w, box.h));
        }
    }
    // Between gestures the pointer tells what a click will do.
    if (!panning_ && !moving_ && !spaceDown_) restoreCursor();
    for (auto* item : {shapeUnder_, shapePreview_}) {
        item->setPath(outline);
        item->setVisible(!outline.isEmpty());
    }
}

void CanvasView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Space && !event->isAutoRepeat()) {
        spaceDown_ = true;
        viewport()->setCursor(Qt::OpenHandCursor);
        return;
    }
    const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (enter && !model_.transform && model_.cropRect) {
        model_.applyCrop();
        return;
    }
    if (event->key() == Qt::Key_Escape && !model_.transform) {
        if (model_.cropRect) {
            model_.cropRect.reset();
            updateTransformOverlay();
            model_.notify();
        } else {
            model_.deselect();
        }
        return;
    }
    QGraphicsView::keyPressEvent(event);
}

void CanvasView::keyReleaseEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Space && !event->isAutoRepeat()) {
        spaceDown_ = false;
        restoreCursor();
        return;
    }
    QGraphicsView::keyReleaseEvent(event);
}

} // namespace korv
