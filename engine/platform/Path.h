#pragma once
// A vector outline: subpaths of lines and Bézier curves, as drawn by
// Canvas2D, filled into selections and shown as selection borders. A plain
// value; copies are independent.
#include "engine/platform/Geometry.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace korv {

class Path {
public:
    // Each verb takes its points from the point list in order: move and line
    // one, quad two (control, end), cubic three (control, control, end),
    // close none.
    enum class Verb : uint8_t { move, line, quad, cubic, close };

    void moveTo(Point p);
    // Without a current point a segment starts where its first point lies.
    void lineTo(Point p);
    void quadTo(Point control, Point end);
    void cubicTo(Point control1, Point control2, Point end);
    // Closes the current subpath; its start becomes the current point.
    void close();

    // Closed subpaths, each starting at the top left (the right end of the
    // middle for an ellipse) and turning from +x towards +y.
    void addRect(const Rect& r);
    void addEllipse(const Rect& in);
    // Corner radii are limited to half the width and half the height.
    void addRoundedRect(const Rect& r, double rx, double ry);
    // A closed polygon through the points; fewer than two add nothing.
    void addPolygon(const std::vector<Point>& points);
    void addPath(const Path& other);

    Path transformed(const AffineTransform& t) const;
    // The smallest rectangle holding every point of the outline, curves'
    // extremes included and their control points not; zero for an empty path.
    Rect boundingBox() const;

    bool isEmpty() const { return verbs_.empty(); }
    std::optional<Point> currentPoint() const { return current_; }
    const std::vector<Verb>& verbs() const { return verbs_; }
    const std::vector<Point>& points() const { return points_; }

    bool operator==(const Path&) const = default;

private:
    void ensureStart(Point p);

    std::vector<Verb> verbs_;
    std::vector<Point> points_;
    std::optional<Point> start_; // of the current subpath
    std::optional<Point> current_;
};

} // namespace korv
