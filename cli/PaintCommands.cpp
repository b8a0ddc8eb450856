// The brush library and painting one stroke on a layer. The stroke runs on
// the same PaintDocument and BrushStroke as the editor's brush, over the
// layer's own tiles.
#include "cli/Commands.h"
#include "cli/Options.h"
#include "engine/core/Selection.h"
#include "engine/paint/BrushLibrary.h"
#include "engine/paint/BrushStroke.h"
#include "engine/paint/PaintDocument.h"

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace korv::cli {

namespace {

std::string stepName(BrushKind kind) {
    switch (kind) {
    case BrushKind::erase:
        return "Eraser";
    case BrushKind::smudge:
        return "Smudge";
    case BrushKind::paint:
    case BrushKind::blur:
        break;
    }
    return "Brush Stroke";
}

uint64_t seedOf(const std::string& text) {
    const double v = number(text, "seed");
    if (v < 0 || v != std::floor(v) || v > 9007199254740992.0)
        throw UsageError("the seed must be a whole number from 0 to 2^53.");
    return uint64_t(v);
}

} // namespace

int brushes(int argc, char** argv) {
    const Args args = parse(argc, argv, {{}, {"--json"}}, "brushes");
    if (!args.positional.empty()) throw UsageError("brushes takes no files: korv brushes");
    // Each record's keys in field order, as the coding keys list them.
    nlohmann::ordered_json out = nlohmann::ordered_json::array();
    for (const BrushSettings& b : BrushLibrary::builtIn()) {
        const nlohmann::json coded = b;
        nlohmann::ordered_json record = nlohmann::ordered_json::object();
        for (std::string_view key : BrushSettings::K)
            record[std::string(key)] = coded.at(std::string(key));
        out.push_back(std::move(record));
    }
    std::printf("%s\n", out.dump(2).c_str());
    return 0;
}

int paint(int argc, char** argv) {
    OptionSpec spec{{"--brush", "--color", "--points", "--seed", "--set", "--hold"}, {"--json"}};
    addTargetOptions(spec);
    addSelectionOptions(spec);
    const Args args = parse(argc, argv, spec, "paint");
    if (args.positional.size() != 2)
        throw UsageError(
            "paint takes two files: korv paint IN OUT --brush NAME --color #RRGGBB --points FILE");
    const std::string& in = args.positional[0];
    const std::string& out = args.positional[1];
    requireWritableName(out);

    const auto brushName = args.value("--brush");
    if (!brushName) throw UsageError("paint needs --brush NAME (see korv brushes).");
    std::optional<BrushSettings> brush = BrushLibrary::named(*brushName);
    if (!brush) throw UsageError("there is no brush \u201C" + *brushName + "\u201D (see korv brushes).");
    if (const auto sets = args.values.find("--set"); sets != args.values.end()) {
        nlohmann::json record = *brush;
        applySets(record, sets->second);
        brush = record.get<BrushSettings>();
    }
    const auto colourText = args.value("--color");
    if (!colourText) throw UsageError("paint needs --color #RRGGBB.");
    const PaintColor paintColour = colour(*colourText, "colour");
    const auto pointsFile = args.value("--points");
    if (!pointsFile) throw UsageError("paint needs --points FILE (or - for standard input).");
    const uint64_t seed = args.value("--seed") ? seedOf(*args.value("--seed")) : 1;
    std::optional<double> hold;
    if (const auto h = args.value("--hold")) {
        hold = number(*h, "hold");
        if (*hold < 0) throw UsageError("the hold must be 0 seconds or more.");
    }

    const std::vector<StrokePoint> strokePoints = points(*pointsFile);
    Opened opened = openFile(in);
    StudioDocument& doc = *opened.document;
    const Target t = target(doc, args);
    if (t.mask) throw std::runtime_error("Painting on a layer mask is not available yet.");
    const StudioLayer* layer = doc.find(t.id);
    if (layer->isLocked) throw std::runtime_error("The layer \u201C" + t.name + "\u201D is locked.");
    std::optional<TileSet> raster = doc.editableRaster(t.id, false);
    if (!raster) throw std::runtime_error("The layer \u201C" + t.name + "\u201D has no pixels to paint on.");
    const SelectionRef selected = selection(args, doc.width(), doc.height());

    // The layer's tiles lent to a one-layer host for the stroke, then handed back.
    PaintDocument host(doc.width(), doc.height(), doc.dpi);
    raster->ensureCells();
    host.activeLayer()->tiles = raster->tiles;
    host.setSelection(selected);
    BrushStroke stroke(host, host.activeLayer(), *brush, paintColour, seed);
    for (const StrokePoint& p : strokePoints)
        stroke.add(p);
    if (hold) stroke.hold(*hold);
    stroke.end();
    doc.setRaster(t.id, false, TileSet(host.grid, host.activeLayer()->tiles), true);
    doc.markDirty(stroke.dirty());
    doc.commit(stepName(brush->kind));

    const std::string line = writeDocument(doc, out);
    if (args.flags.count("--json")) {
        const nlohmann::json j{{"dirty", stroke.dirty()}, {"dabCount", stroke.dabCount()}, {"layer", t.name}};
        std::printf("%s\n", j.dump().c_str());
    } else {
        std::printf("%s\n", line.c_str());
    }
    return 0;
}

} // namespace korv::cli
