#pragma once
// Shows the current document: one pixmap item per grid tile, each placed by
// the view transform, over a checker for transparency.
// Only dirty tiles are rendered and swapped. Wheel zooms around the pointer,
// a drag pans; with the magic wand a click selects, with the Text tool a click
// places or picks text, and with the Shape tool a drag draws a shape. The
// selection's outline is drawn as marching ants of constant width at any zoom.
#include "app/model/StudioModel.h"
#include "app/model/TransformHandles.h"

#include <QGraphicsView>
#include <map>
#include <vector>

class QGraphicsPathItem;
class QGraphicsPixmapItem;
class QGraphicsRectItem;
class QTimer;

namespace korv {

class CanvasView : public QGraphicsView, public CanvasLink {
public:
    explicit CanvasView(StudioModel& model, QWidget* parent = nullptr);

    void showSession(DocSession& session) override;
    void clear() override;
    void refresh() override;
    bool isBusy() const override { return panning_ || moving_ || transformHandle_; }

    // Renders the dirty tiles now.
    void flush();
    void fit();
    void actualPixels();
    void setZoom(double zoom, std::optional<QPointF> around = std::nullopt);
    void zoomStep(bool in, std::optional<QPointF> around = std::nullopt);
    // The outline of the shape being dragged; otherwise, with the Text or
    // Shape tool, the outline of the chosen text or shape, so the user sees
    // which one the Properties panel edits.
    void updateShapePreview();
    // Told when the pointer's picture position (model.cursorInfo) changes.
    std::function<void()> onCursor;

protected:
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;

private:
    void rebuildTiles();
    // Hides the shown picture's tiles and keeps them for when it comes back.
    void stash();
    // Drops the kept tiles of pictures that have been closed.
    void prune();
    void updateSelectionOutline();
    // The outline and handles of a live transform, or nothing.
    void updateTransformOverlay();
    // The Crop tool's rectangle, standardised, in picture pixels.
    QRectF cropRectOnCanvas() const;
    // The picture pixel under a view point.
    QPointF toPicture(const QPointF& view) const;
    void applyViewTransform();
    QTransform viewTransform() const;

    StudioModel& model_;
    QGraphicsScene scene_;
    QGraphicsRectItem* docItem_ = nullptr;
    QGraphicsRectItem* shadow_ = nullptr;
    QGraphicsRectItem* checker_ = nullptr;
    std::vector<QGraphicsPixmapItem*> tiles_;
    QGraphicsPathItem* antsLight_ = nullptr;
    QGraphicsPathItem* antsDark_ = nullptr;
    QTimer* antsTimer_ = nullptr;
    // Held so that a new selection can never reuse the shown one's address.
    SelectionRef shownSelection_;
    int antsPhase_ = 0;
    DocSession* session_ = nullptr;
    // The shown session's id: session_ may already be gone when the next one is shown.
    std::optional<Uuid> shownID_;
    // Tiles of the pictures not in front, so that switching back draws at once.
    std::map<Uuid, std::vector<QGraphicsPixmapItem*>> kept_;
    bool panning_ = false;
    bool spaceDown_ = false;
    QGraphicsPathItem* transformOutline_ = nullptr;
    QGraphicsPathItem* transformHandles_ = nullptr;
    std::optional<int> transformHandle_;
    TransformStart transformStart_;
    // The Crop tool's drag: a new rectangle, a corner, or the whole rectangle.
    enum class CropDrag { none, create, body, corner0, corner1, corner2, corner3 };
    CropDrag cropDrag_ = CropDrag::none;
    QPointF cropStartPoint_;
    QRectF cropStart_;
    QGraphicsPathItem* cropShade_ = nullptr;
    // The Move tool's drag: the layer, where it began and the offset shown.
    std::optional<Uuid> moving_;
    QPointF moveStart_;
    QPoint moveOffset_;
    QPointF lastDrag_;
    // The Shape tool's drag, in picture pixels, and the outline it would make.
    std::optional<QPointF> shapeStart_;
    QPointF shapeNow_;
    QGraphicsPathItem* shapePreview_ = nullptr;
    QGraphicsPathItem* shapeUnder_ = nullptr;
    // The pointer of the chosen tool when no gesture is under way.
    void restoreCursor();
};

} // namespace korv
