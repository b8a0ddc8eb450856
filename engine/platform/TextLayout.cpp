#include "engine/platform/TextLayout.h"

#include <algorithm>
#include <cairo.h>
#include <cmath>
#include <fontconfig/fontconfig.h>
#include <mutex>
#include <pango/pangocairo.h>
#include <pango/pangofc-fontmap.h>

namespace korv {

namespace {

// The engine's font configuration: the system's font folders and caches, the
// aliases that map well-known names to installed look-alikes with the same
// metrics, and nothing of the user's own settings. (Pango itself passes over
// Type 1 fonts, which it can't draw; their OpenType twins stand in.)
constexpr const char* kFontConfig = R"(<?xml version="1.0"?>
<!DOCTYPE fontconfig SYSTEM "urn:fontconfig:fonts.dtd">
<fontconfig>
  <dir>/usr/share/fonts</dir>
  <dir>/usr/local/share/fonts</dir>
  <cachedir>/var/cache/fontconfig</cachedir>
  <cachedir prefix="xdg">fontconfig</cachedir>
  <alias binding="same">
    <family>Helvetica Neue</family>
    <accept><family>Liberation Sans</family><family>Nimbus Sans</family><family>DejaVu Sans</family></accept>
  </alias>
  <include ignore_missing="yes">/usr/share/fontconfig/conf.avail/30-metric-aliases.conf</include>
  <include ignore_missing="yes">/usr/share/fontconfig/conf.avail/40-nonlatin.conf</include>
  <include ignore_missing="yes">/usr/share/fontconfig/conf.avail/45-generic.conf</include>
  <include ignore_missing="yes">/usr/share/fontconfig/conf.avail/45-latin.conf</include>
  <include ignore_missing="yes">/usr/share/fontconfig/conf.avail/49-sansserif.conf</include>
  <include ignore_missing="yes">/usr/share/fontconfig/conf.avail/60-generic.conf</include>
  <include ignore_missing="yes">/usr/share/fontconfig/conf.avail/60-latin.conf</include>
  <include ignore_missing="yes">/usr/share/fontconfig/conf.avail/65-nonlatin.conf</include>
</fontconfig>
)";

FcConfig* fontConfig() {
    static FcConfig* config = [] {
        FcConfig* c = FcConfigCreate();
        if (!FcConfigParseAndLoadFromMemory(c, reinterpret_cast<const FcChar8*>(kFontConfig), FcTrue) ||
            !FcConfigBuildFonts(c)) {
            FcConfigDestroy(c);
            // Without our own configuration the system's stands in.
            c = FcConfigReference(nullptr);
        }
        return c;
    }();
    return config;
}

// Pango's font maps are not safe to share between threads, so each thread
// that lays out text keeps its own, all on the one configuration.
struct ThreadFontMap {
    PangoFontMap* map = nullptr;
    ThreadFontMap() {
        map = pango_cairo_font_map_new_for_font_type(CAIRO_FONT_TYPE_FT);
        if (map) pango_fc_font_map_set_config(PANGO_FC_FONT_MAP(map), fontConfig());
    }
    ~ThreadFontMap() {
        if (map) g_object_unref(map);
    }
};

PangoFontMap* fontMap() {
    thread_local ThreadFontMap local;
    return local.map;
}

std::string matchedFamily(FcPattern* pattern, int* weight, int* slant) {
    FcConfig* config = fontConfig();
    FcConfigSubstitute(config, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern* match = FcFontMatch(config, pattern, &result);
    std::string family;
    if (match) {
        FcChar8* name = nullptr;
        if (FcPatternGetString(match, FC_FAMILY, 0, &name) == FcResultMatch && name)
            family = reinterpret_cast<const char*>(name);
        if (weight && FcPatternGetInteger(match, FC_WEIGHT, 0, weight) != FcResultMatch) *weight = 0;
        if (slant && FcPatternGetInteger(match, FC_SLANT, 0, slant) != FcResultMatch) *slant = 0;
        FcPatternDestroy(match);
    }
    FcPatternDestroy(pattern);
    return family;
}

// Whether the family has a face with the traits, rather than a substitute
// from another family or a plain face.
bool hasFace(const std::string& family, bool bold, bool italic) {
    FcPattern* p = FcPatternCreate();
    FcPatternAddString(p, FC_FAMILY, reinterpret_cast<const FcChar8*>(family.c_str()));
    if (bold) FcPatternAddInteger(p, FC_WEIGHT, FC_WEIGHT_BOLD);
    if (italic) FcPatternAddInteger(p, FC_SLANT, FC_SLANT_ITALIC);
    int weight = 0, slant = 0;
    const std::string found = matchedFamily(p, &weight, &slant);
    if (found != family) return false;
    if (bold && weight < FC_WEIGHT_DEMIBOLD) return false;
    if (italic && slant == FC_SLANT_ROMAN) return false;
    return true;
}

PangoAlignment pangoAlignment(TextLayout::Align a) {
    switch (a) {
    case TextLayout::Align::center:
        return PANGO_ALIGN_CENTER;
    case TextLayout::Align::right:
        return PANGO_ALIGN_RIGHT;
    case TextLayout::Align::left:
        break;
    }
    return PANGO_ALIGN_LEFT;
}

} // namespace

std::string TextLayout::resolveFamily(const std::string& family) {
    FcPattern* p = FcPatternCreate();
    FcPatternAddString(p, FC_FAMILY, reinterpret_cast<const FcChar8*>(family.c_str()));
    std::string found = matchedFamily(p, nullptr, nullptr);
    return found.empty() ? family : found;
}

TextLayout::Font TextLayout::resolveFont(const std::string& family, double size, bool bold, bool italic) {
    Font f;
    f.family = resolveFamily(family);
    f.size = std::isfinite(size) ? std::clamp(size, 2.0, 3000.0) : 2.0;
    if ((bold || italic) && hasFace(f.family, bold, italic)) {
        f.bold = bold;
        f.italic = italic;
    }
    return f;
}

std::vector<std::string> TextLayout::families() {
    std::vector<std::string> names;
    PangoFontMap* map = fontMap();
    if (!map) return names;
    PangoFontFamily** list = nullptr;
    int count = 0;
    pango_font_map_list_families(map, &list, &count);
    for (int i = 0; i < count; ++i)
        names.emplace_back(pango_font_family_get_name(list[i]));
    g_free(list);
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

TextLayout::TextLayout(const std::string& text, const Style& style) {
    font_ = resolveFont(style.family, style.size, style.bold, style.italic);
    PangoFontMap* map = fontMap();
    if (!map) return;
    PangoContext* context = pango_font_map_create_context(map);
    // Unhinted outlines and metrics, and glyphs placed at fractional
    // positions: the layout then scales and turns without changing shape.
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_subpixel_order(options, CAIRO_SUBPIXEL_ORDER_DEFAULT);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    pango_cairo_context_set_font_options(context, options);
    cairo_font_options_destroy(options);
    pango_cairo_context_set_resolution(context, 72);
    pango_context_set_round_glyph_positions(context, FALSE);

    layout_ = pango_layout_new(context);
    g_object_unref(context);

    PangoFontDescription* desc = pango_font_description_new();
    pango_font_description_set_family(desc, font_.family.c_str());
    pango_font_description_set_absolute_size(desc, font_.size * PANGO_SCALE);
    pango_font_description_set_weight(desc, font_.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
    pango_font_description_set_style(desc, font_.italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
    pango_layout_set_font_description(layout_, desc);
    pango_font_description_free(desc);

    PangoAttrList* attrs = pango_attr_list_new();
    if (style.tracking != 0 && std::isfinite(style.tracking))
        pango_attr_list_insert(attrs,
                               pango_attr_letter_spacing_new(int(std::lround(style.tracking * PANGO_SCALE))));
    const double spacing = std::isfinite(style.lineSpacing) ? style.lineSpacing : 1.0;
    if (spacing != 1) pango_attr_list_insert(attrs, pango_attr_line_height_new(spacing));
    pango_layout_set_attributes(layout_, attrs);
    pango_attr_list_unref(attrs);

    pango_layout_set_alignment(layout_, pangoAlignment(style.align));
    const bool wraps = style.wrapWidth > 0 && std::isfinite(style.wrapWidth);
    if (wraps) {
        pango_layout_set_width(layout_, int(std::min(style.wrapWidth, 1e6) * PANGO_SCALE));
        pango_layout_set_wrap(layout_, PANGO_WRAP_WORD_CHAR);
    }
    // An empty layout has no line to measure: a blank gives an empty text the
    // height of one line.
    const std::string& laid = text.empty() ? std::string(" ") : text;
    pango_layout_set_text(layout_, laid.c_str(), int(laid.size()));

    PangoRectangle ink, logical;
    pango_layout_get_extents(layout_, &ink, &logical);
    width_ = wraps ? style.wrapWidth : double(logical.width) / PANGO_SCALE;
    height_ = double(logical.height) / PANGO_SCALE;
    ink_ = {double(ink.x) / PANGO_SCALE, double(ink.y) / PANGO_SCALE, double(ink.width) / PANGO_SCALE,
            double(ink.height) / PANGO_SCALE};
}

TextLayout::~TextLayout() {
    if (layout_) g_object_unref(layout_);
}

void TextLayout::draw(Canvas2D& canvas, Point origin, const PaintColor& color) const {
    if (!layout_ || canvas.isGray()) return;
    cairo_t* cr = canvas.context();
    cairo_save(cr);
    cairo_set_operator(cr, CAIRO_OPERATOR_OVER);
    cairo_set_source_rgba(cr, color.r, color.g, color.b, color.a);
    cairo_move_to(cr, origin.x, origin.y);
    pango_cairo_show_layout(cr, layout_);
    cairo_restore(cr);
}

} // namespace korv
