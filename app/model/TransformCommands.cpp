// Free, perspective and warp transforms of the pixel target as a live state:
// the layer shows each change of the handles, and history sees one step when
// it is applied.
#include "app/model/StudioModel.h"
#include "engine/transform/Homography.h"

namespace korv {

namespace {

std::string transformStatus(TransformMode mode) {
    switch (mode) {
    case TransformMode::perspective:
        return "Drag the four corners. Return applies, Esc cancels.";
    case TransformMode::warp:
        return "Drag the 16 warp points. Return applies, Esc cancels.";
    case TransformMode::free:
        break;
    }
    return "Drag inside to move, corners to scale (Shift keeps proportions), outside a corner to rotate. "
           "Return applies.";
}

} // namespace

void StudioModel::beginTransform(TransformMode mode) {
    if (!doc()) return;
    cancelLive();
    const auto target = pixelTarget(false);
    if (!target) {
        refresh(true);
        return;
    }
    transform = korv::beginTransform(*doc(), target->id, target->mask);
    if (!transform) {
        status = "Nothing to transform on this layer.";
        refresh(false);
        return;
    }
    transform->mode = mode;
    previewTransform(*doc(), *transform);
    status = transformStatus(mode);
    refresh(false);
}

void StudioModel::setTransformMode(TransformMode mode) {
    if (!transform || !doc()) return;
    // The shape on screen stays: the new mode starts from what the old one showed.
    const std::vector<Point> shown = transform->shownCorners();
    transform->mode = mode;
    if (mode == TransformMode::perspective) transform->corners = shown;
    if (mode == TransformMode::warp) {
        const Homography h = Homography::unitSquare(shown);
        for (size_t i = 0; i < 16; ++i)
            transform->warp[i] = h.map(double(i & 3) / 3, double(i >> 2) / 3);
    }
    status = transformStatus(mode);
    updateTransform();
}

void StudioModel::updateTransform() {
    if (!transform || !doc()) return;
    previewTransform(*doc(), *transform);
    refresh(false);
}

void StudioModel::applyTransform() {
    if (!transform || !doc()) return;
    const auto session = transform;
    transform.reset();
    status.clear(); // the handles' instructions are done with
    doc()->revertToLastCommit();
    act("Transform", [&](StudioDocument& d) {
        korv::applyTransform(d, *session);
        return true;
    });
}

void StudioModel::cancelTransform() {
    if (!transform) return;
    if (auto* d = doc()) d->revertToLastCommit();
    transform.reset();
    status.clear();
    refresh(true);
}

} // namespace korv
