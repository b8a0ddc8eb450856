#pragma once
// The parameters of fill, shape and text layers: small values from which the
// layer's pixels are drawn again whenever they change, so the content stays
// editable for ever. Colours are straight sRGB, 0...1.
#include "engine/core/PaintColor.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace korv {

enum class FillKind : uint8_t { solid, linearGradient, radialGradient, pattern };
enum class PatternKind : uint8_t { checker, stripes, dots, grid };
enum class ShapeKind : uint8_t { rectangle, roundedRectangle, ellipse, line, polygon, star, arrow };
enum class TextAlign : uint8_t { left, center, right };

std::string_view toString(FillKind k);
std::optional<FillKind> fillKindFromString(std::string_view text);
std::string_view toString(PatternKind k);
std::optional<PatternKind> patternKindFromString(std::string_view text);
std::string_view toString(ShapeKind k);
std::optional<ShapeKind> shapeKindFromString(std::string_view text);
std::string_view toString(TextAlign a);
std::optional<TextAlign> textAlignFromString(std::string_view text);

struct FillSpec {
    FillKind kind = FillKind::solid;
    RGBA color1{0.2, 0.45, 0.9, 1};
    RGBA color2 = RGBA::white();
    // Degrees, for linear gradients and stripes: 0 runs left to right, 90 top to bottom.
    double angle = 90;
    // Radial centre as fractions of the canvas width and height.
    double centerX = 0.5;
    double centerY = 0.5;
    // Radial radius as a fraction of the longer canvas side.
    double radius = 0.5;
    PatternKind pattern = PatternKind::checker;
    double scale = 32; // pattern period in pixels
    bool reverse = false;

    FillSpec() = default;
    explicit FillSpec(FillKind kind) : kind(kind) {}
    bool operator==(const FillSpec&) const = default;
};

struct ShapeSpec {
    ShapeKind kind = ShapeKind::rectangle;
    // The shape's box in canvas pixels; for a line, w and h are the offset of
    // its end and may be negative.
    double x = 0;
    double y = 0;
    double w = 100;
    double h = 100;
    double cornerRadius = 16;
    int64_t sides = 6; // of a polygon, or points of a star
    bool fillEnabled = true;
    RGBA fillColor{0.25, 0.55, 0.95, 1};
    bool strokeEnabled = false;
    RGBA strokeColor = RGBA::white();
    double strokeWidth = 4;
    double rotation = 0; // degrees about the box centre, clockwise on screen

    ShapeSpec() = default;
    explicit ShapeSpec(ShapeKind kind) : kind(kind) {}
    bool operator==(const ShapeSpec&) const = default;
};

struct TextSpec {
    std::string text; // may hold line breaks
    std::string fontFamily = "Helvetica Neue";
    double size = 72; // points, drawn as pixels
    bool bold = true; // a new text starts bold
    bool italic = false;
    RGBA color = RGBA::white();
    TextAlign align = TextAlign::left;
    double tracking = 0; // extra space between letters, in points
    double lineSpacing = 1;
    double x = 40;
    double y = 40;
    // Wrapping width; 0 or less sets one unwrapped block as wide as it needs.
    double boxWidth = 0;
    double rotation = 0;

    TextSpec() = default;
    explicit TextSpec(std::string text) : text(std::move(text)) {}
    bool operator==(const TextSpec&) const = default;
};

void to_json(nlohmann::json& j, FillKind k);
void from_json(const nlohmann::json& j, FillKind& k);
void to_json(nlohmann::json& j, PatternKind k);
void from_json(const nlohmann::json& j, PatternKind& k);
void to_json(nlohmann::json& j, ShapeKind k);
void from_json(const nlohmann::json& j, ShapeKind& k);
void to_json(nlohmann::json& j, TextAlign a);
void from_json(const nlohmann::json& j, TextAlign& a);
void to_json(nlohmann::json& j, const FillSpec& s);
void from_json(const nlohmann::json& j, FillSpec& s);
void to_json(nlohmann::json& j, const ShapeSpec& s);
void from_json(const nlohmann::json& j, ShapeSpec& s);
void to_json(nlohmann::json& j, const TextSpec& s);
void from_json(const nlohmann::json& j, TextSpec& s);

} // namespace korv
