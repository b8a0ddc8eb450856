#include "engine/paint/BrushLibrary.h"

#include <algorithm>
#include <functional>

namespace korv::BrushLibrary {

namespace {

BrushSettings make(const char* name, const char* category, BrushKind kind,
                   const std::function<void(BrushSettings&)>& overrides) {
    BrushSettings b(name, category, kind);
    b.isBuiltIn = true;
    overrides(b);
    b.sanitize();
    return b;
}

std::vector<BrushSettings> build() {
    using K = BrushKind;
    std::vector<BrushSettings> v;
    v.push_back(make("Studio Pen", "Pens", K::paint, [](BrushSettings& b) {
        b.size = 8, b.hardness = 1, b.spacing = 0.06, b.stabilizer = 20, b.minSize = 0.15;
    }));
    v.push_back(make("Fine Liner", "Pens", K::paint, [](BrushSettings& b) {
        b.size = 4, b.hardness = 1, b.spacing = 0.05, b.stabilizer = 15, b.pressureSize = false;
    }));
    v.push_back(make("Ballpoint", "Pens", K::paint, [](BrushSettings& b) {
        b.size = 3, b.hardness = 0.95, b.spacing = 0.05, b.texture = 0.15, b.pressureOpacity = true,
        b.minSize = 0.6;
    }));
    v.push_back(make("Pencil HB", "Pencils", K::paint, [](BrushSettings& b) {
        b.size = 4, b.opacity = 0.9, b.hardness = 0.8, b.spacing = 0.08, b.texture = 0.55,
        b.textureScale = 0.6, b.pressureOpacity = true, b.minSize = 0.7;
    }));
    v.push_back(make("Pencil 6B", "Pencils", K::paint, [](BrushSettings& b) {
        b.size = 9, b.hardness = 0.6, b.spacing = 0.07, b.texture = 0.7, b.textureScale = 0.8,
        b.pressureOpacity = true, b.minSize = 0.5;
    }));
    v.push_back(make("Sketch Pencil", "Pencils", K::paint, [](BrushSettings& b) {
        b.size = 6, b.opacity = 0.7, b.flow = 0.6, b.hardness = 0.7, b.stabilizer = 5, b.texture = 0.45,
        b.pressureOpacity = true;
    }));
    v.push_back(make("Ink Brush", "Inks", K::paint, [](BrushSettings& b) {
        b.size = 18, b.hardness = 0.97, b.spacing = 0.04, b.stabilizer = 40, b.minSize = 0.05;
    }));
    v.push_back(make("Calligraphy Ink", "Inks", K::paint, [](BrushSettings& b) {
        b.size = 22, b.hardness = 1, b.spacing = 0.03, b.stabilizer = 30, b.roundness = 0.25, b.angle = 45,
        b.minSize = 0.4;
    }));
    v.push_back(make("Dry Ink", "Inks", K::paint, [](BrushSettings& b) {
        b.size = 20, b.hardness = 0.9, b.spacing = 0.05, b.stabilizer = 20, b.texture = 0.6,
        b.textureScale = 1.6, b.minSize = 0.2;
    }));
    v.push_back(make("Marker", "Markers", K::paint, [](BrushSettings& b) {
        b.size = 24, b.opacity = 0.7, b.hardness = 0.85, b.spacing = 0.05, b.pressureSize = false;
    }));
    v.push_back(make("Chisel Marker", "Markers", K::paint, [](BrushSettings& b) {
        b.size = 28, b.opacity = 0.75, b.hardness = 0.95, b.spacing = 0.04, b.roundness = 0.35, b.angle = -30,
        b.pressureSize = false;
    }));
    v.push_back(make("Highlighter", "Markers", K::paint, [](BrushSettings& b) {
        b.size = 34, b.opacity = 0.4, b.hardness = 0.9, b.spacing = 0.04, b.roundness = 0.4,
        b.pressureSize = false;
    }));
    v.push_back(make("Hard Round", "Round Brushes", K::paint,
                     [](BrushSettings& b) { b.size = 30, b.hardness = 0.95, b.spacing = 0.08; }));
    v.push_back(make("Soft Round", "Round Brushes", K::paint, [](BrushSettings& b) {
        b.size = 60, b.flow = 0.7, b.hardness = 0, b.spacing = 0.1, b.pressureSize = false,
        b.pressureOpacity = true;
    }));
    v.push_back(make("Wet Wash", "Round Brushes", K::paint, [](BrushSettings& b) {
        b.size = 80, b.opacity = 0.45, b.flow = 0.35, b.hardness = 0.1, b.spacing = 0.08,
        b.pressureSize = false, b.pressureFlow = true;
    }));
    v.push_back(make("Airbrush Soft", "Airbrush", K::paint, [](BrushSettings& b) {
        b.size = 90, b.flow = 0.08, b.hardness = 0, b.spacing = 0.1, b.pressureSize = false,
        b.pressureFlow = true, b.airbrush = true, b.airbrushRate = 30;
    }));
    v.push_back(make("Airbrush Fine", "Airbrush", K::paint, [](BrushSettings& b) {
        b.size = 24, b.flow = 0.15, b.hardness = 0.2, b.spacing = 0.08, b.pressureSize = false,
        b.pressureFlow = true, b.airbrush = true, b.airbrushRate = 30;
    }));
    v.push_back(make("Spray Can", "Airbrush", K::paint, [](BrushSettings& b) {
        b.size = 110, b.flow = 0.9, b.hardness = 0.5, b.spacing = 0.15, b.pressureSize = false,
        b.airbrush = true, b.airbrushRate = 25, b.spray = true, b.sprayDensity = 60, b.particleSize = 2;
    }));
    v.push_back(make("Fine Mist", "Airbrush", K::paint, [](BrushSettings& b) {
        b.size = 70, b.flow = 0.5, b.spacing = 0.2, b.pressureSize = false, b.airbrush = true,
        b.airbrushRate = 30, b.spray = true, b.sprayDensity = 120, b.particleSize = 0.8;
    }));
    v.push_back(make("Splatter", "Airbrush", K::paint, [](BrushSettings& b) {
        b.size = 140, b.flow = 1, b.spacing = 0.6, b.sizeJitter = 0.5, b.pressureSize = false, b.spray = true,
        b.sprayDensity = 14, b.particleSize = 6;
    }));
    v.push_back(make("Charcoal", "Texture", K::paint, [](BrushSettings& b) {
        b.size = 26, b.hardness = 0.5, b.spacing = 0.06, b.sizeJitter = 0.15, b.scatter = 0.05,
        b.texture = 0.85, b.textureScale = 1.2, b.pressureOpacity = true, b.minSize = 0.6;
    }));
    v.push_back(make("Chalk", "Texture", K::paint, [](BrushSettings& b) {
        b.size = 34, b.hardness = 0.6, b.spacing = 0.07, b.texture = 0.75, b.textureScale = 2,
        b.roundness = 0.7, b.angleJitter = 0.3, b.pressureSize = false, b.pressureOpacity = true;
    }));
    v.push_back(make("Dry Brush", "Texture", K::paint, [](BrushSettings& b) {
        b.size = 40, b.hardness = 0.8, b.spacing = 0.05, b.opacityJitter = 0.3, b.texture = 0.65,
        b.textureScale = 3, b.roundness = 0.5, b.minSize = 0.5;
    }));
    v.push_back(make("Pastel Grain", "Texture", K::paint, [](BrushSettings& b) {
        b.size = 30, b.flow = 0.5, b.hardness = 0.4, b.spacing = 0.08, b.texture = 0.9, b.textureScale = 0.7,
        b.pressureSize = false, b.pressureFlow = true;
    }));
    v.push_back(make("Smudge", "Smudge & Blur", K::smudge, [](BrushSettings& b) {
        b.size = 40, b.hardness = 0.4, b.spacing = 0.08, b.pressureSize = false, b.strength = 0.6;
    }));
    v.push_back(make("Finger Blend", "Smudge & Blur", K::smudge, [](BrushSettings& b) {
        b.size = 70, b.hardness = 0, b.spacing = 0.06, b.pressureSize = false, b.strength = 0.85;
    }));
    v.push_back(make("Blur", "Smudge & Blur", K::blur, [](BrushSettings& b) {
        b.size = 50, b.hardness = 0.2, b.spacing = 0.15, b.pressureSize = false, b.strength = 0.5;
    }));
    v.push_back(make("Strong Blur", "Smudge & Blur", K::blur, [](BrushSettings& b) {
        b.size = 90, b.hardness = 0, b.spacing = 0.12, b.pressureSize = false, b.strength = 0.9;
    }));
    v.push_back(make("Hard Eraser", "Erasers", K::erase, [](BrushSettings& b) {
        b.size = 30, b.hardness = 0.95, b.spacing = 0.06, b.pressureSize = false;
    }));
    v.push_back(make("Soft Eraser", "Erasers", K::erase, [](BrushSettings& b) {
        b.size = 70, b.flow = 0.6, b.hardness = 0, b.spacing = 0.1, b.pressureSize = false,
        b.pressureFlow = true;
    }));
    v.push_back(make("Airbrush Eraser", "Erasers", K::erase, [](BrushSettings& b) {
        b.size = 90, b.flow = 0.08, b.hardness = 0, b.pressureSize = false, b.pressureFlow = true,
        b.airbrush = true, b.airbrushRate = 30;
    }));
    v.push_back(make("Pencil Eraser", "Erasers", K::erase, [](BrushSettings& b) {
        b.size = 8, b.hardness = 0.8, b.spacing = 0.07, b.texture = 0.4, b.minSize = 0.6;
    }));
    v.push_back(make("Pixel Eraser", "Erasers", K::erase, [](BrushSettings& b) {
        b.size = 1, b.hardness = 1, b.spacing = 0.2, b.pressureSize = false;
    }));
    return v;
}

} // namespace

const std::vector<BrushSettings>& builtIn() {
    static const std::vector<BrushSettings> brushes = build();
    return brushes;
}

std::vector<std::string> categories() {
    std::vector<std::string> out;
    for (const BrushSettings& b : builtIn())
        if (std::find(out.begin(), out.end(), b.category) == out.end()) out.push_back(b.category);
    return out;
}

std::optional<BrushSettings> named(std::string_view name) {
    for (const BrushSettings& b : builtIn())
        if (b.name == name) return b;
    return std::nullopt;
}

} // namespace korv::BrushLibrary
