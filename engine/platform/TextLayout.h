#pragma once
// Lays out and draws a paragraph of text in one font, through Pango over
// Cairo with fonts found by fontconfig. Every layout uses the engine's own
// font configuration (the system's font folders, no user settings) and fixed
// rendering options (grey antialiasing, no hinting, unrounded glyph
// positions), so that the same text gives the same pixels on every machine
// with the same fonts, at any scale or rotation.
#include "engine/core/PaintColor.h"
#include "engine/platform/Canvas2D.h"
#include "engine/platform/Geometry.h"

#include <cstdint>
#include <string>
#include <vector>

struct _PangoLayout;

namespace korv {

class TextLayout {
public:
    enum class Align : uint8_t { left, center, right };

    // A face as the text is drawn with it: the family that fontconfig chose
    // for the name asked for, and the traits that family has.
    struct Font {
        std::string family;
        double size = 12; // pixels
        bool bold = false;
        bool italic = false;
        bool operator==(const Font&) const = default;
    };

    struct Style {
        std::string family;
        double size = 12; // pixels
        bool bold = false;
        bool italic = false;
        Align align = Align::left;
        double tracking = 0;    // extra pixels between letters
        double lineSpacing = 1; // multiple of the font's line height
        double wrapWidth = 0;   // 0 or less: lines break only at line breaks
    };

    TextLayout(const std::string& text, const Style& style);
    ~TextLayout();
    TextLayout(const TextLayout&) = delete;
    TextLayout& operator=(const TextLayout&) = delete;

    const Font& font() const { return font_; }
    // The laid-out block: its width is the wrap width when there is one.
    double width() const { return width_; }
    double height() const { return height_; }
    // Where the glyphs' ink lies, relative to the block's top left; it can
    // reach outside the block (italic overhangs, tall accents).
    Rect inkBounds() const { return ink_; }

    // Draws the block with its top left at the origin, through the canvas's
    // transform, in a straight colour.
    void draw(Canvas2D& canvas, Point origin, const PaintColor& color) const;

    // The family that draws text asked for by this name (an installed family
    // as it stands; an alias such as "Helvetica Neue" or "sans-serif" mapped
    // to the installed family that stands in for it).
    static std::string resolveFamily(const std::string& family);
    // The font as it will be drawn: size clamped to 2...3000, bold and italic
    // together, or neither if the family has no such face.
    static Font resolveFont(const std::string& family, double size, bool bold, bool italic);
    // Every family that text can be set in, sorted by name.
    static std::vector<std::string> families();

private:
    _PangoLayout* layout_ = nullptr;
    Font font_;
    double width_ = 0, height_ = 0;
    Rect ink_;
};

} // namespace korv
