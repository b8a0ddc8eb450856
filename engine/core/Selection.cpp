#include "engine/core/Selection.h"

#include "engine/core/Require.h"
#include "engine/platform/Canvas2D.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace korv {

namespace {

constexpr std::array<std::string_view, 4> kOpNames{"replace", "add", "subtract", "intersect"};

size_t areaOf(int64_t width, int64_t height) {
    KORV_REQUIRE(width >= 0 && height >= 0);
    int64_t area = 0;
    KORV_REQUIRE(!__builtin_mul_overflow(width, height, &area));
    return size_t(area);
}

// The smallest rectangle holding every non-zero byte; zero when there is none.
// A row is first tested whole (a loop without exits, which vectorises); the
// edges of a row with coverage are then sought only outside the box so far.
IRect scanBounds(const uint8_t* data, int64_t width, int64_t height) {
    int64_t x0 = width, x1 = -1, y0 = -1, y1 = -1;
    for (int64_t y = 0; y < height; ++y) {
        const uint8_t* row = data + y * width;
        unsigned any = 0;
        for (int64_t x = 0; x < width; ++x)
            any |= row[x];
        if (!any) continue;
        if (y0 < 0) y0 = y;
        y1 = y;
        for (int64_t x = 0; x < x0; ++x)
            if (row[x]) {
                x0 = x;
                break;
            }
        for (int64_t x = width - 1; x > x1; --x)
            if (row[x]) {
                x1 = x;
                break;
            }
    }
    if (y0 < 0) return {};
    return {x0, y0, x1 - x0 + 1, y1 - y0 + 1};
}

Path rectPath(const IRect& r) {
    Path p;
    p.addRect({double(r.x), double(r.y), double(r.w), double(r.h)});
    return p;
}

} // namespace

std::string_view toString(SelectionOp op) {
    return kOpNames[size_t(op)];
}

std::optional<SelectionOp> selectionOpFromString(std::string_view text) {
    for (size_t i = 0; i < kOpNames.size(); ++i)
        if (kOpNames[i] == text) return SelectionOp(i);
    return std::nullopt;
}

Selection::Selection(int64_t width, int64_t height, std::vector<uint8_t> data, const IRect& bounds,
                     Path outline)
    : width_(width), height_(height), data_(std::move(data)), bounds_(bounds), outline_(std::move(outline)) {}

SelectionRef Selection::unlessEmpty(int64_t width, int64_t height, std::vector<uint8_t> data, Path outline) {
    const IRect bounds = scanBounds(data.data(), width, height);
    if (bounds.isEmpty()) return nullptr;
    return SelectionRef(new Selection(width, height, std::move(data), bounds, std::move(outline)));
}

std::vector<uint8_t> Selection::rasterize(const Path& path, int64_t width, int64_t height, bool antialias) {
    std::vector<uint8_t> plane(areaOf(width, height), 0);
    if (auto canvas = Canvas2D::gray(plane.data(), width, height, width)) {
        canvas->setAntialias(antialias);
        canvas->setGray(1.0);
        canvas->fill(path);
    }
    return plane;
}

SelectionRef Selection::make(const Path& path, SelectionOp op, const SelectionRef& existing, int64_t width,
                             int64_t height, bool antialias) {
    if (existing) KORV_REQUIRE(existing->width_ == width && existing->height_ == height);
    const bool combines = existing && op != SelectionOp::replace;
    if (!existing && (op == SelectionOp::subtract || op == SelectionOp::intersect)) return nullptr;

    std::vector<uint8_t> plane = rasterize(path, width, height, antialias);
    Path outline;
    if (combines) {
        // Both shapes are shown as they are: no boolean operation on the outlines.
        outline = existing->outline_;
        outline.addPath(path);
        combine(plane.data(), existing->data(), plane.size(), op);
    } else {
        outline = path;
    }
    return unlessEmpty(width, height, std::move(plane), std::move(outline));
}

SelectionRef Selection::fromMask(const std::vector<uint8_t>& mask, int64_t width, int64_t height) {
    if (mask.size() != areaOf(width, height)) return nullptr;
    const IRect bounds = scanBounds(mask.data(), width, height);
    if (bounds.isEmpty()) return nullptr;
    return SelectionRef(new Selection(width, height, mask, bounds, rectPath(bounds)));
}

SelectionRef Selection::fromMask(std::vector<uint8_t>&& mask, int64_t width, int64_t height, Path outline) {
    if (mask.size() != areaOf(width, height)) return nullptr;
    return unlessEmpty(width, height, std::move(mask), std::move(outline));
}

void Selection::combine(uint8_t* n, const uint8_t* e, size_t count, SelectionOp op) {
    switch (op) {
    case SelectionOp::add:
        for (size_t i = 0; i < count; ++i)
            n[i] = std::max(e[i], n[i]);
        break;
    case SelectionOp::subtract:
        for (size_t i = 0; i < count; ++i)
            n[i] = mulBytes(e[i], uint8_t(255 - n[i]));
        break;
    case SelectionOp::intersect:
        for (size_t i = 0; i < count; ++i)
            n[i] = mulBytes(e[i], n[i]);
        break;
    case SelectionOp::replace:
        break;
    }
}

SelectionRef Selection::all(int64_t width, int64_t height) {
    std::vector<uint8_t> plane(areaOf(width, height), 255);
    const IRect bounds = scanBounds(plane.data(), width, height);
    return SelectionRef(
        new Selection(width, height, std::move(plane), bounds, rectPath({0, 0, width, height})));
}

SelectionRef Selection::offsetBy(int64_t dx, int64_t dy) const {
    // Past a whole side everything is gone; clamping first keeps the sums below from overflowing.
    const int64_t cx = std::clamp(dx, -width_, width_), cy = std::clamp(dy, -height_, height_);
    std::vector<uint8_t> plane(data_.size(), 0);
    const int64_t x0 = std::max<int64_t>(cx, 0), x1 = std::min(width_, width_ + cx);
    const int64_t y0 = std::max<int64_t>(cy, 0), y1 = std::min(height_, height_ + cy);
    if (x1 > x0)
        for (int64_t y = y0; y < y1; ++y)
            std::memcpy(plane.data() + y * width_ + x0, row(y - cy) + (x0 - cx), size_t(x1 - x0));
    Path outline = outline_.transformed(AffineTransform::translation(double(dx), double(dy)));
    return unlessEmpty(width_, height_, std::move(plane), std::move(outline));
}

SelectionRef Selection::inverted() const {
    std::vector<uint8_t> plane(data_.size());
    const uint8_t* from = data_.data();
    uint8_t* to = plane.data();
    for (size_t i = 0; i < plane.size(); ++i)
        to[i] = uint8_t(255 - from[i]);
    Path outline = outline_;
    outline.addRect({0, 0, double(width_), double(height_)});
    return unlessEmpty(width_, height_, std::move(plane), std::move(outline));
}

} // namespace korv
