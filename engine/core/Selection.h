#pragma once
// Which pixels may be touched: a whole-canvas plane of 8-bit coverage (0
// outside, 255 inside) with its tight bounds and a display outline, fixed at
// construction and shared freely. No selection is an empty SelectionRef,
// never an object without coverage (all() of a zero-area canvas aside).
#include "engine/core/IRect.h"
#include "engine/core/SelectionRef.h"
#include "engine/platform/Path.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace korv {

// How a new shape combines with the selection that exists.
enum class SelectionOp : uint8_t { replace, add, subtract, intersect };

inline constexpr SelectionOp kAllSelectionOps[] = {SelectionOp::replace, SelectionOp::add,
                                                   SelectionOp::subtract, SelectionOp::intersect};
std::string_view toString(SelectionOp op);
std::optional<SelectionOp> selectionOpFromString(std::string_view text);

// floor((a * b + 127) / 255), the product of two coverage bytes, exact for
// every pair without a division.
inline uint8_t mulBytes(uint8_t a, uint8_t b) {
    return uint8_t(((uint32_t(a) * b + 127) * 32897u) >> 23);
}

class Selection {
public:
    // The path filled into a new plane and combined with existing, which must
    // have the same size. Subtracting or intersecting with no selection, and
    // any outcome that covers nothing, give none.
    static SelectionRef make(const Path& path, SelectionOp op, const SelectionRef& existing, int64_t width,
                             int64_t height, bool antialias);
    // The path's coverage as width x height bytes, row by row; all zero if it
    // cannot be drawn at that size.
    static std::vector<uint8_t> rasterize(const Path& path, int64_t width, int64_t height, bool antialias);
    // A copy of the mask; none if its size is not width x height or no byte is
    // set. The outline is the bounds' rectangle.
    static SelectionRef fromMask(const std::vector<uint8_t>& mask, int64_t width, int64_t height);
    // The same with an outline traced by the caller; the mask is taken over.
    static SelectionRef fromMask(std::vector<uint8_t>&& mask, int64_t width, int64_t height, Path outline);
    static SelectionRef all(int64_t width, int64_t height);
    // New coverage combined in place with existing coverage of the same
    // length: max for add, the exact byte products for subtract and intersect.
    static void combine(uint8_t* plane, const uint8_t* existing, size_t count, SelectionOp op);

    int64_t width() const { return width_; }
    int64_t height() const { return height_; }
    const uint8_t* data() const { return data_.data(); }
    const uint8_t* row(int64_t y) const { return data_.data() + y * width_; }
    // 0 anywhere off the canvas.
    uint8_t value(int64_t x, int64_t y) const {
        return x >= 0 && y >= 0 && x < width_ && y < height_ ? data_[size_t(y * width_ + x)] : 0;
    }
    const IRect& bounds() const { return bounds_; }
    bool isEmpty() const { return bounds_.isEmpty(); }
    // For display only: no pixel decision reads it.
    const Path& outline() const { return outline_; }

    // Moved by (dx, dy); what leaves the canvas is lost and nothing wraps.
    SelectionRef offsetBy(int64_t dx, int64_t dy) const;
    SelectionRef inverted() const;

private:
    Selection(int64_t width, int64_t height, std::vector<uint8_t> data, const IRect& bounds, Path outline);
    // The selection, or none when it covers nothing.
    static SelectionRef unlessEmpty(int64_t width, int64_t height, std::vector<uint8_t> data, Path outline);

    int64_t width_, height_;
    std::vector<uint8_t> data_;
    IRect bounds_;
    Path outline_;
};

} // namespace korv
