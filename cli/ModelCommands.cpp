#include "cli/ModelCommands.h"

#include "app/model/StudioModel.h"
#include "cli/CliHost.h"
#include "cli/Options.h"
#include "engine/core/Constants.h"
#include "engine/document/AdjustmentSpec.h"
#include "engine/document/ContentSpecs.h"
#include "engine/document/StudioDocument.h"
#include "engine/formats/AtomicFile.h"
#include "engine/formats/ExportError.h"
#include "engine/formats/ImageExport.h"
#include "engine/formats/ImageImport.h"
#include "engine/formats/PhotoExport.h"
#include "engine/formats/StudioFile.h"
#include "engine/render/BlendMode.h"
#include "engine/selection/SelectionTools.h"
#include "engine/transform/TransformSession.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace korv::cli {

const char* const kModelCommandsUsage =
    R"(Editor commands: each runs as the history step the editor names, on the
target layer (--layer NAME, the topmost of that name, or the active one; --mask
for its mask) with an optional selection (--select-rect X,Y,W,H,
--select-ellipse X,Y,W,H or --select-mask FILE), and writes OUT (.korvstudio,
.psd, .png, .jpg, .tif, .heic); --json prints the steps, the active layer, the size
and the selection's bounds. Nothing to act on exits 1 and writes nothing.
  new-layer IN OUT              an empty pixel layer above the target
  new-group IN OUT              the target put into a new group
  ungroup IN OUT                the target group's layers put in its place
  duplicate-layer IN OUT        a copy of the target above it
  delete-layer IN OUT           remove the target
  move-layer-up IN OUT          the target one place up, or down
  move-layer-down IN OUT
  merge-down IN OUT             the target merged onto the layer below
  flatten IN OUT                every layer into one
  stamp-visible IN OUT          what shows, as a new layer on top
  rasterize IN OUT              a fill, text or shape layer into pixels
  new-adjustment IN OUT --type TYPE [--set FIELD=VALUE]...
                                an adjustment layer (levels, curves,
                                hueSaturation, vibrance, colorBalance,
                                blackWhite, photoFilter, gradientMap,
                                posterize, threshold, brightnessContrast,
                                exposure, invert) above the target; with a
                                selection it gets that selection as its mask
  adjust IN OUT --set FIELD=VALUE...
                                the target adjustment's values; a FIELD is a
                                coded name, with array indices after dots:
                                levels.0.inBlack=0.1, hue=20, curves.0.1.y=0.8
  new-fill IN OUT --kind KIND   a fill layer: solid, linearGradient,
                                radialGradient or pattern
  add-mask IN OUT [--kind KIND] revealAll (default), hideAll, revealSelection
                                or hideSelection
  delete-mask IN OUT            remove, apply or invert the target's mask, or
  apply-mask IN OUT             turn it off and on
  invert-mask IN OUT
  toggle-mask IN OUT
  set-layer IN OUT --set FIELD=VALUE...
                                name, opacity, fillOpacity, blendMode, visible,
                                locked, clipping or maskEnabled, each a step
  resize IN OUT --size WxH      resample the picture; text and shapes stay sharp
  canvas IN OUT --size WxH [--anchor AX,AY]
                                the canvas around the picture, placed by the
                                anchor (0,0 top left; default 0.5,0.5)
  crop IN OUT [--rect X,Y,W,H]  to the rectangle, or to the selection's bounds
  rotate IN OUT --turns N       clockwise quarter turns
  flip IN OUT --horizontal|--vertical
                                mirror the picture
  move IN OUT --by DX,DY        move the target layer; its mask stays
  transform IN OUT [options]    transform the target's pixels (or mask) under
                                the selection, or all its content: free with
                                --scale SX,SY, --rotate DEGREES (clockwise)
                                and --translate DX,DY about the area's centre,
                                or --affine A,B,C,D,TX,TY; perspective with
                                --corners X0,Y0,...,X3,Y3 (top left, top right,
                                bottom right, bottom left); warp with --warp
                                and 16 points, row by row
  select IN OUT.png [STEP]...   write the selection as a grey picture (white is
                                selected) after these steps, in order: --all,
                                --invert, --deselect, --layer-shape, --mask-area,
                                --wand X,Y (with --tolerance T, --contiguous
                                true|false, --all-layers true|false and --op
                                replace|add|subtract|intersect before it),
                                --feather R, --grow P, --shrink P, --smooth R,
                                --border P
)";

namespace {

std::string inQuotes(const std::string& text) {
    return "\u201C" + text + "\u201D";
}

std::vector<double> numbers(const std::string& text, size_t count, const std::string& what) {
    std::vector<double> out;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t comma = text.find(',', start);
        out.push_back(number(text.substr(start, comma - start), what));
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    if (out.size() != count)
        throw UsageError("the " + what + " takes " + std::to_string(count) + " numbers separated by commas.");
    return out;
}

bool boolean(const std::string& text, const std::string& what) {
    if (text == "true" || text == "1" || text == "yes") return true;
    if (text == "false" || text == "0" || text == "no") return false;
    throw UsageError("the " + what + " must be true or false, not " + inQuotes(text) + ".");
}

// The select command's steps, which run in the order given.
const std::set<std::string> kStepFlags = {"--all", "--invert", "--deselect", "--layer-shape", "--mask-area"};
const std::set<std::string> kStepValues = {"--wand",   "--tolerance", "--contiguous", "--all-layers",
                                           "--op",     "--feather",   "--grow",       "--shrink",
                                           "--smooth", "--border"};
using Steps = std::vector<std::pair<std::string, std::string>>;

// Takes the steps out of the arguments, in order, and leaves the rest.
Steps takeSteps(int argc, char** argv, std::vector<char*>& rest) {
    Steps steps;
    for (int i = 0; i < argc; ++i) {
        const std::string a = argv[i];
        if (kStepFlags.count(a)) {
            steps.emplace_back(a, "");
        } else if (kStepValues.count(a)) {
            if (i + 1 >= argc) throw UsageError("the option \u201C" + a + "\u201D needs a value.");
            steps.emplace_back(a, argv[++i]);
        } else {
            rest.push_back(argv[i]);
        }
    }
    return steps;
}

void applyTarget(StudioModel& model, const Args& args) {
    StudioDocument& doc = *model.doc();
    if (args.has("--layer") || args.has("--mask")) {
        const Target t = target(doc, args);
        model.select(t.id);
        if (t.mask) model.setEditMask(true);
    }
    if (SelectionRef s = selection(args, doc.width(), doc.height())) doc.setSelection(std::move(s));
}

Uuid requireActive(StudioModel& model) {
    const auto active = model.activeLayer();
    if (!active) throw std::runtime_error("The picture has no layer to act on.");
    return active->id;
}

// The layer's fields a user sets in the Layers panel, each as its own step.
void setLayerField(StudioModel& model, const Uuid& id, const std::string& field,
                   const nlohmann::json& value) {
    auto number01 = [&](const char* what) {
        if (!value.is_number())
            throw UsageError(std::string("the ") + what + " must be a number from 0 to 1.");
        const double v = value.get<double>();
        if (!(v >= 0 && v <= 1))
            throw UsageError(std::string("the ") + what + " must be a number from 0 to 1.");
        return v;
    };
    auto flag = [&](const char* what) {
        if (!value.is_boolean()) throw UsageError(std::string("the ") + what + " must be true or false.");
        return value.get<bool>();
    };
    if (field == "name") {
        const std::string name = value.is_string() ? value.get<std::string>() : value.dump();
        if (name.empty()) throw UsageError("a layer's name can't be empty.");
        model.rename(id, name);
    } else if (field == "opacity") {
        const double v = number01("opacity");
        model.setLayer(id, "Opacity", false, [v](StudioLayer& l) { l.opacity = v; });
    } else if (field == "fillOpacity") {
        const double v = number01("fill opacity");
        model.setLayer(id, "Fill Opacity", false, [v](StudioLayer& l) { l.fillOpacity = v; });
    } else if (field == "blendMode") {
        const auto mode = value.is_string() ? blendModeFromString(value.get<std::string>()) : std::nullopt;
        if (!mode) throw UsageError("unknown blend mode " + inQuotes(value.dump()) + ".");
        model.setLayer(id, "Blend Mode", false, [m = *mode](StudioLayer& l) { l.blendMode = m; });
    } else if (field == "visible") {
        if (model.doc()->find(id)->isVisible != flag("visible")) model.toggleVisible(id);
    } else if (field == "locked") {
        if (model.doc()->find(id)->isLocked != flag("locked")) model.toggleLock(id);
    } else if (field == "clipping") {
        if (model.doc()->find(id)->isClipping != flag("clipping")) model.toggleClip(id);
    } else if (field == "maskEnabled") {
        if (model.doc()->find(id)->maskEnabled != flag("maskEnabled")) model.toggleMaskEnabled();
    } else {
        throw UsageError(
            "unknown layer field " + inQuotes(field) +
            "; use name, opacity, fillOpacity, blendMode, visible, locked, clipping or maskEnabled.");
    }
}

// The adjustment record with the fields changed, as one "Adjust" step: the
// record is decoded whole again, so a value that doesn't fit is refused.
void adjust(StudioModel& model, const Uuid& id, const std::vector<std::string>& sets) {
    const StudioLayer* layer = model.doc()->find(id);
    if (!layer || !layer->adjustment)
        throw std::runtime_error(inQuotes(layer ? layer->name : std::string()) +
                                 " is not an adjustment layer.");
    nlohmann::json j = *layer->adjustment;
    for (const std::string& set : sets)
        if (fieldValue(set).first == "type") throw UsageError("an adjustment layer keeps its type.");
    applySets(j, sets);
    AdjustmentSpec spec;
    try {
        spec = j.get<AdjustmentSpec>();
    } catch (const std::exception&) {
        throw UsageError("a value given with --set does not fit its field.");
    }
    model.setLayer(id, "Adjust", false, [&](StudioLayer& l) { l.adjustment = spec; });
}

SelectionOp selectionOp(const std::string& text) {
    const auto op = selectionOpFromString(text);
    if (!op) throw UsageError("the selection op must be replace, add, subtract or intersect.");
    return *op;
}

void runSelectStep(StudioModel& model, const std::string& option, const std::string& value,
                   std::optional<SelectionOp>& op) {
    if (option == "--all") return model.selectAll();
    if (option == "--invert") return model.invertSelection();
    if (option == "--deselect") return model.deselect();
    if (option == "--layer-shape") return model.selectLayerShape();
    if (option == "--mask-area") return model.selectMaskArea();
    if (option == "--tolerance") {
        const double t = number(value, "tolerance");
        if (t < 0 || t > 255) throw UsageError("the tolerance must be from 0 to 255.");
        model.wandTolerance = t;
        return;
    }
    if (option == "--contiguous") {
        model.wandContiguous = boolean(value, "contiguous setting");
        return;
    }
    if (option == "--all-layers") {
        model.sampleAllLayers = boolean(value, "all-layers setting");
        return;
    }
    if (option == "--op") {
        op = selectionOp(value);
        return;
    }
    if (option == "--wand") {
        const auto p = numbers(value, 2, "wand point");
        model.magicWandClick(int64_t(std::floor(p[0])), int64_t(std::floor(p[1])), op);
        return;
    }
    const double amount = number(value, option.substr(2) + " amount");
    if (amount < 0 || amount > 1000)
        throw UsageError("the " + option.substr(2) + " amount must be from 0 to 1000.");
    model.refineSelection(option.substr(2), amount);
}

void writeSelection(const StudioDocument& doc, const std::string& out) {
    std::string ext = std::filesystem::path(out).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    if (ext != ".png") throw UsageError("the selection is written as a PNG: OUT must end in .png.");
    auto picture = std::make_shared<RGBABuffer>(doc.width(), doc.height());
    if (doc.selection) {
        for (int64_t y = 0; y < doc.height(); ++y) {
            const uint8_t* in = doc.selection->row(y);
            uint8_t* p = picture->row(y);
            for (int64_t x = 0; x < doc.width(); ++x, p += 4)
                p[0] = p[1] = p[2] = in[x], p[3] = 255;
        }
    } else {
        for (int64_t y = 0; y < doc.height(); ++y) {
            uint8_t* p = picture->row(y);
            for (int64_t x = 0; x < doc.width(); ++x, p += 4)
                p[0] = p[1] = p[2] = 0, p[3] = 255;
        }
    }
    const auto png = ImageExport::pngData(picture, doc.dpi);
    if (!png) throw ExportError::cannotEncode("PNG");
    writeFileAtomically(out, *png);
}

std::pair<int64_t, int64_t> canvasSize(const Args& a, const std::string& command) {
    auto text = a.value("--size");
    if (!text) throw UsageError(command + " needs --size WxH in pixels.");
    std::replace(text->begin(), text->end(), 'x', ',');
    const auto size = numbers(*text, 2, "size");
    for (double v : size)
        if (v != std::floor(v) || v < 1 || v > double(kMaxCanvasSide))
            throw UsageError("each side must be a whole number from 1 to 30000.");
    return {int64_t(size[0]), int64_t(size[1])};
}

// The sets given with --set, in order.
std::vector<std::string> sets(const Args& a) {
    const auto it = a.values.find("--set");
    return it == a.values.end() ? std::vector<std::string>{} : it->second;
}

using Body = std::function<void(StudioModel&, const Args&, const Steps&)>;

struct Command {
    const char* name;
    Body run;
};

const std::vector<Command>& commands() {
    static const std::vector<Command> table = {
        {"new-layer", [](StudioModel& m, const Args&, const Steps&) { m.addLayer(); }},
        {"new-group", [](StudioModel& m, const Args&, const Steps&) { m.addGroup(); }},
        {"ungroup", [](StudioModel& m, const Args&, const Steps&) { m.ungroup(); }},
        {"duplicate-layer", [](StudioModel& m, const Args&, const Steps&) { m.duplicateLayer(); }},
        {"delete-layer", [](StudioModel& m, const Args&, const Steps&) { m.deleteLayer(); }},
        {"move-layer-up", [](StudioModel& m, const Args&, const Steps&) { m.moveLayer(true); }},
        {"move-layer-down", [](StudioModel& m, const Args&, const Steps&) { m.moveLayer(false); }},
        {"merge-down", [](StudioModel& m, const Args&, const Steps&) { m.mergeDown(); }},
        {"flatten", [](StudioModel& m, const Args&, const Steps&) { m.flatten(); }},
        {"stamp-visible", [](StudioModel& m, const Args&, const Steps&) { m.stampVisible(); }},
        {"rasterize", [](StudioModel& m, const Args&, const Steps&) { m.rasterize(); }},
        {"delete-mask", [](StudioModel& m, const Args&, const Steps&) { m.deleteMask(); }},
        {"apply-mask", [](StudioModel& m, const Args&, const Steps&) { m.applyMask(); }},
        {"invert-mask", [](StudioModel& m, const Args&, const Steps&) { m.invertMask(); }},
        {"toggle-mask", [](StudioModel& m, const Args&, const Steps&) { m.toggleMaskEnabled(); }},
        {"new-adjustment",
         [](StudioModel& m, const Args& a, const Steps&) {
             const auto typeName = a.value("--type");
             const auto type = typeName ? adjustmentTypeFromString(*typeName) : std::nullopt;
             if (!type)
                 throw UsageError(
                     "new-adjustment needs --type with an adjustment's coded name, e.g. levels.");
             m.addAdjustment(*type);
             if (!sets(a).empty()) adjust(m, requireActive(m), sets(a));
         }},
        {"adjust",
         [](StudioModel& m, const Args& a, const Steps&) {
             if (sets(a).empty()) throw UsageError("adjust needs at least one --set FIELD=VALUE.");
             adjust(m, requireActive(m), sets(a));
         }},
        {"new-fill",
         [](StudioModel& m, const Args& a, const Steps&) {
             const auto kindName = a.value("--kind");
             const auto kind = kindName ? fillKindFromString(*kindName) : std::nullopt;
             if (!kind)
                 throw UsageError("new-fill needs --kind solid, linearGradient, radialGradient or pattern.");
             m.addFill(*kind);
         }},
        {"add-mask",
         [](StudioModel& m, const Args& a, const Steps&) {
             static const std::pair<const char*, NewMask> kinds[] = {
                 {"revealAll", NewMask::revealAll},
                 {"hideAll", NewMask::hideAll},
                 {"revealSelection", NewMask::revealSelection},
                 {"hideSelection", NewMask::hideSelection}};
             const std::string k = a.value("--kind").value_or("revealAll");
             auto it = std::find_if(std::begin(kinds), std::end(kinds),
                                    [&](const auto& e) { return k == e.first; });
             if (it == std::end(kinds))
                 throw UsageError(
                     "add-mask takes --kind revealAll, hideAll, revealSelection or hideSelection.");
             m.addMask(it->second);
         }},
        {"set-layer",
         [](StudioModel& m, const Args& a, const Steps&) {
             if (sets(a).empty()) throw UsageError("set-layer needs at least one --set FIELD=VALUE.");
             const Uuid id = requireActive(m);
             for (const std::string& set : sets(a)) {
                 const auto [field, value] = fieldValue(set);
                 setLayerField(m, id, field, value);
             }
         }},
        {"resize",
         [](StudioModel& m, const Args& a, const Steps&) {
             const auto size = canvasSize(a, "resize");
             m.resizeImage(size.first, size.second);
         }},
        {"canvas",
         [](StudioModel& m, const Args& a, const Steps&) {
             const auto size = canvasSize(a, "canvas");
             const auto it = a.value("--anchor");
             const auto anchor = it ? numbers(*it, 2, "anchor") : std::vector<double>{0.5, 0.5};
             if (anchor[0] < 0 || anchor[0] > 1 || anchor[1] < 0 || anchor[1] > 1)
                 throw UsageError(
                     "the anchor is two fractions from 0 to 1: 0,0 is the top left, 0.5,0.5 the centre.");
             m.resizeCanvas(size.first, size.second, anchor[0], anchor[1]);
         }},
        {"rotate",
         [](StudioModel& m, const Args& a, const Steps&) {
             const auto it = a.value("--turns");
             if (!it) throw UsageError("rotate needs --turns 1, 2 or 3 (clockwise quarter turns).");
             const double turns = number(*it, "number of turns");
             if (turns != std::floor(turns) || std::fabs(turns) > 1e6)
                 throw UsageError("the number of turns must be a whole number.");
             m.rotate(int64_t(turns));
         }},
        {"flip",
         [](StudioModel& m, const Args& a, const Steps&) {
             const bool h = a.has("--horizontal"), v = a.has("--vertical");
             if (h == v) throw UsageError("flip takes --horizontal or --vertical.");
             m.flip(h);
         }},
        {"crop",
         [](StudioModel& m, const Args& a, const Steps&) {
             const auto rect = a.value("--rect");
             if (!rect) return m.cropToSelection();
             const auto r = numbers(*rect, 4, "rectangle");
             if (!(r[2] > 0 && r[3] > 0)) throw UsageError("the rectangle needs a width and height above 0.");
             m.cropRect = CanvasRect{r[0], r[1], r[2], r[3]};
             m.applyCrop();
         }},
        {"move",
         [](StudioModel& m, const Args& a, const Steps&) {
             const auto it = a.value("--by");
             if (!it) throw UsageError("move needs --by DX,DY in pixels.");
             const auto by = numbers(*it, 2, "offset");
             if (by[0] != std::floor(by[0]) || by[1] != std::floor(by[1]) || std::fabs(by[0]) > 1e6 ||
                 std::fabs(by[1]) > 1e6)
                 throw UsageError("the offset must be whole pixels.");
             m.moveLayerBy(int64_t(by[0]), int64_t(by[1]));
         }},
        {"transform",
         [](StudioModel& m, const Args& a, const Steps&) {
             // The mode follows from the points given, unless it is named.
             const std::string modeName = a.value("--mode").value_or(a.has("--corners") ? "perspective"
                                                                     : a.has("--warp")  ? "warp"
                                                                                        : "free");
             const auto mode = transformModeFromString(modeName);
             if (!mode) throw UsageError("the mode must be free, perspective or warp.");
             m.beginTransform(*mode);
             if (!m.transform) return; // the status says why
             TransformSession& t = *m.transform;
             if (*mode == TransformMode::free) {
                 // Scale, then rotate, about the lifted area's centre, then move.
                 const double cx = double(t.source.x) + double(t.source.w) / 2;
                 const double cy = double(t.source.y) + double(t.source.h) / 2;
                 const auto scale = a.value("--scale") ? numbers(*a.value("--scale"), 2, "scale")
                                                       : std::vector<double>{1, 1};
                 const double degrees = a.value("--rotate") ? number(*a.value("--rotate"), "angle") : 0;
                 const auto move = a.value("--translate") ? numbers(*a.value("--translate"), 2, "translation")
                                                          : std::vector<double>{0, 0};
                 if (!(scale[0] != 0 && scale[1] != 0))
                     throw UsageError("a scale of 0 would leave nothing of the picture.");
                 AffineTransform affine = AffineTransform::translation(-cx, -cy)
                                              .then(AffineTransform::scale(scale[0], scale[1]))
                                              .then(AffineTransform::rotation(degrees * M_PI / 180))
                                              .then(AffineTransform::translation(cx + move[0], cy + move[1]));
                 if (const auto matrix = a.value("--affine")) {
                     const auto v = numbers(*matrix, 6, "matrix");
                     affine = {v[0], v[1], v[2], v[3], v[4], v[5]};
                 }
                 t.affine = affine;
             } else if (*mode == TransformMode::perspective) {
                 const auto text = a.value("--corners");
                 if (!text) throw UsageError("a perspective transform needs --corners with 8 numbers.");
                 const auto v = numbers(*text, 8, "corners");
                 for (size_t i = 0; i < 4; ++i)
                     t.corners[i] = {v[2 * i], v[2 * i + 1]};
             } else {
                 const auto text = a.value("--warp");
                 if (!text) throw UsageError("a warp needs --warp with 32 numbers, 16 points row by row.");
                 const auto v = numbers(*text, 32, "warp points");
                 for (size_t i = 0; i < 16; ++i)
                     t.warp[i] = {v[2 * i], v[2 * i + 1]};
             }
             m.updateTransform();
             m.applyTransform();
         }},
        {"select",
         [](StudioModel& m, const Args&, const Steps& steps) {
             std::optional<SelectionOp> op;
             for (const auto& [option, value] : steps)
                 runSelectStep(m, option, value, op);
         }},
    };
    return table;
}

} // namespace

bool isModelCommand(std::string_view name) {
    const auto& table = commands();
    return std::any_of(table.begin(), table.end(), [&](const Command& c) { return name == c.name; });
}

int runModelCommand(std::string_view name, int argc, char** argv) {
    const auto& table = commands();
    const auto command =
        std::find_if(table.begin(), table.end(), [&](const Command& c) { return name == c.name; });
    const bool isSelect = name == "select";
    const std::string commandName(name);

    std::vector<char*> rest;
    const Steps steps = isSelect ? takeSteps(argc, argv, rest) : Steps{};
    if (!isSelect) rest.assign(argv, argv + argc);
    OptionSpec spec{{"--set", "--type", "--kind", "--size", "--anchor", "--turns", "--by", "--mode",
                     "--scale", "--rotate", "--translate", "--affine", "--corners", "--warp", "--rect"},
                    {"--json", "--horizontal", "--vertical"}};
    addTargetOptions(spec);
    addSelectionOptions(spec);
    const Args args = parse(int(rest.size()), rest.data(), spec, commandName);
    if (args.positional.size() != 2)
        throw UsageError(commandName + " takes two files: korv " + commandName + " IN OUT [options]");
    const std::string& out = args.positional[1];
    if (isSelect) {
        if (formatForExtension(out) != PhotoExportFormat::png)
            throw UsageError("the selection is written as a PNG: OUT must end in .png.");
    } else {
        requireWritableName(out);
    }

    CliHost host;
    StudioModel model(host, false);
    model.open(args.positional[0]);
    if (!model.doc())
        throw std::runtime_error(host.alerts.empty() ? "The file couldn't be opened." : host.alerts.back());
    StudioDocument& doc = *model.doc();
    applyTarget(model, args);

    const int64_t changesBefore = doc.changeCount();
    model.status.clear();
    command->run(model, args, steps);
    if (!host.alerts.empty()) throw std::runtime_error(host.alerts.back());
    // A refusal is told in the status line; for select it is the only sign
    // that a step was refused.
    if (isSelect && !model.status.empty()) throw std::runtime_error(model.status);
    if (!isSelect && doc.changeCount() == changesBefore)
        throw std::runtime_error(model.status.empty() ? "There was nothing for " + inQuotes(commandName) +
                                                            " to act on; nothing was written."
                                                      : model.status);
    std::string summary;
    if (isSelect)
        writeSelection(doc, out);
    else
        summary = writeDocument(doc, out);

    if (!args.has("--json")) {
        if (!summary.empty()) std::printf("%s\n", summary.c_str());
        return 0;
    }
    nlohmann::json stepNames = nlohmann::json::array();
    const auto& history = doc.history();
    for (int64_t i = 1; i <= doc.cursor(); ++i)
        stepNames.push_back(history[size_t(i)].name);
    const auto active = doc.activeLayer();
    nlohmann::json report{{"steps", stepNames},
                          {"active", active ? nlohmann::json(active->name) : nlohmann::json(nullptr)},
                          {"layers", doc.allLayers().size()},
                          {"width", doc.width()},
                          {"height", doc.height()}};
    if (doc.selection) {
        const IRect& b = doc.selection->bounds();
        report["selection"] = {b.x, b.y, b.w, b.h};
    } else {
        report["selection"] = nullptr;
    }
    if (!model.status.empty()) report["status"] = model.status;
    std::printf("%s\n", report.dump().c_str());
    return 0;
}

} // namespace korv::cli
