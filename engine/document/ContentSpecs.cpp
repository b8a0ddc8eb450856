#include "engine/document/ContentSpecs.h"

#include "engine/document/RecordCoding.h"

namespace korv {

namespace {
constexpr EnumNames<FillKind, 4> kFillKinds{{"solid", "linearGradient", "radialGradient", "pattern"}};
constexpr EnumNames<PatternKind, 4> kPatternKinds{{"checker", "stripes", "dots", "grid"}};
constexpr EnumNames<ShapeKind, 7> kShapeKinds{
    {"rectangle", "roundedRectangle", "ellipse", "line", "polygon", "star", "arrow"}};
constexpr EnumNames<TextAlign, 3> kTextAligns{{"left", "center", "right"}};

constexpr auto fillFields = [](auto& s, auto&& f) {
    f("kind", s.kind);
    f("color1", s.color1);
    f("color2", s.color2);
    f("angle", s.angle);
    f("centerX", s.centerX);
    f("centerY", s.centerY);
    f("radius", s.radius);
    f("pattern", s.pattern);
    f("scale", s.scale);
    f("reverse", s.reverse);
};

constexpr auto shapeFields = [](auto& s, auto&& f) {
    f("kind", s.kind);
    f("x", s.x);
    f("y", s.y);
    f("w", s.w);
    f("h", s.h);
    f("cornerRadius", s.cornerRadius);
    f("sides", s.sides);
    f("fillEnabled", s.fillEnabled);
    f("fillColor", s.fillColor);
    f("strokeEnabled", s.strokeEnabled);
    f("strokeColor", s.strokeColor);
    f("strokeWidth", s.strokeWidth);
    f("rotation", s.rotation);
};

constexpr auto textFields = [](auto& s, auto&& f) {
    f("text", s.text);
    f("fontFamily", s.fontFamily);
    f("size", s.size);
    f("bold", s.bold);
    f("italic", s.italic);
    f("color", s.color);
    f("align", s.align);
    f("tracking", s.tracking);
    f("lineSpacing", s.lineSpacing);
    f("x", s.x);
    f("y", s.y);
    f("boxWidth", s.boxWidth);
    f("rotation", s.rotation);
};
} // namespace

std::string_view toString(FillKind k) {
    return kFillKinds(k);
}
std::optional<FillKind> fillKindFromString(std::string_view text) {
    return kFillKinds.parse(text);
}
std::string_view toString(PatternKind k) {
    return kPatternKinds(k);
}
std::optional<PatternKind> patternKindFromString(std::string_view text) {
    return kPatternKinds.parse(text);
}
std::string_view toString(ShapeKind k) {
    return kShapeKinds(k);
}
std::optional<ShapeKind> shapeKindFromString(std::string_view text) {
    return kShapeKinds.parse(text);
}
std::string_view toString(TextAlign a) {
    return kTextAligns(a);
}
std::optional<TextAlign> textAlignFromString(std::string_view text) {
    return kTextAligns.parse(text);
}

void to_json(nlohmann::json& j, FillKind k) {
    j = std::string(toString(k));
}
void from_json(const nlohmann::json& j, FillKind& k) {
    k = kFillKinds.decode(j);
}
void to_json(nlohmann::json& j, PatternKind k) {
    j = std::string(toString(k));
}
void from_json(const nlohmann::json& j, PatternKind& k) {
    k = kPatternKinds.decode(j);
}
void to_json(nlohmann::json& j, ShapeKind k) {
    j = std::string(toString(k));
}
void from_json(const nlohmann::json& j, ShapeKind& k) {
    k = kShapeKinds.decode(j);
}
void to_json(nlohmann::json& j, TextAlign a) {
    j = std::string(toString(a));
}
void from_json(const nlohmann::json& j, TextAlign& a) {
    a = kTextAligns.decode(j);
}

void to_json(nlohmann::json& j, const FillSpec& s) {
    writeFields(j, s, fillFields);
}
void from_json(const nlohmann::json& j, FillSpec& s) {
    readFields(j, s, fillFields);
}
void to_json(nlohmann::json& j, const ShapeSpec& s) {
    writeFields(j, s, shapeFields);
}
void from_json(const nlohmann::json& j, ShapeSpec& s) {
    readFields(j, s, shapeFields);
}
void to_json(nlohmann::json& j, const TextSpec& s) {
    writeFields(j, s, textFields);
}
void from_json(const nlohmann::json& j, TextSpec& s) {
    readFields(j, s, textFields);
}

} // namespace korv
