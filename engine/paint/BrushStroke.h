#pragma once
// Turns a stream of pen samples into dabs on one layer of a PaintDocument:
// input smoothing, spacing along the path, per-dab randomness, and the four
// dab kinds. Paint and erase keep, per touched tile, a float coverage plane
// and the tile as it was before the stroke, and recompute each pixel from
// those two; so overlapping dabs never pass the stroke's opacity.
#include "engine/core/IRect.h"
#include "engine/core/PaintColor.h"
#include "engine/core/SeededRandom.h"
#include "engine/paint/BrushSettings.h"
#include "engine/paint/Layer.h"
#include "engine/paint/StrokePoint.h"

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace korv {

class PaintDocument;

class BrushStroke {
public:
    // The document must outlive the stroke. The brush is sanitised and every
    // present tile of the layer frozen, so that the first write copies it.
    BrushStroke(PaintDocument& document, LayerPtr layer, const BrushSettings& brush, const PaintColor& color,
                uint64_t seed);
    BrushStroke(const BrushStroke&) = delete;
    BrushStroke& operator=(const BrushStroke&) = delete;
    ~BrushStroke() = default;

    void begin(const StrokePoint& p) { add(p); }
    void add(const StrokePoint& p);
    // The pointer rested this long: airbrush and spray keep laying dabs.
    void hold(double seconds);
    // Catches up with the pen and frees the coverage planes; later input is ignored.
    void end();

    const IRect& dirty() const { return dirty_; }
    int64_t dabCount() const { return dabCount_; }
    const BrushSettings& brush() const { return brush_; }
    const PaintColor& color() const { return color_; }
    double holdCarry() const { return holdCarry_; }
    // The distance still to go to the next dab.
    double need() const { return need_; }
    const SeededRandom& rng() const { return rng_; }

private:
    struct Plane {
        std::unique_ptr<float[]> mask;
        TilePtr before; // absent when the tile was
    };

    void place(const StrokePoint& p);
    double step(double pressure) const;
    void dab(const StrokePoint& p);
    void stamp(bool textured, double cx, double cy, double radius, double hardness, double ceiling,
               double flow, double angle, double roundness);
    void blurDab(double cx, double cy, double size);
    void smudgeDab(double cx, double cy, double size);
    void touch(const IRect& rect);

    PaintDocument& document_;
    const LayerPtr layer_;
    BrushSettings brush_;
    const PaintColor color_;
    IRect dirty_;
    int64_t dabCount_ = 0;
    SeededRandom rng_;
    std::optional<StrokePoint> smoothed_;
    std::optional<StrokePoint> lastRaw_;
    std::optional<StrokePoint> lastPlaced_;
    double need_ = 0;
    double holdCarry_ = 0;
    std::unordered_map<int64_t, Plane> masks_;
    std::vector<float> load_;
    int64_t loadR_ = 0;
    bool loadReady_ = false;
    const float* grain_;
    float cr_, cg_, cb_;
    int64_t W_, H_;
    bool ended_ = false;
    // Reused by the blur dab, so that a dab allocates only when it grows.
    std::vector<float> region_, pass_, blurScratch_;
};

} // namespace korv
