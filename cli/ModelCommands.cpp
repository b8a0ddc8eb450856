#include "cli/ModelCommands.h"

#include "app/model/StudioModel.h"
#include "cli/CliHost.h"
#include "cli/UsageError.h"
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
    R"(Layer, mask and adjustment commands, each one step as the editor names it:
  COMMAND IN OUT [--layer NAME] [--mask] [selection] [--json]
    new-layer | new-group | ungroup | duplicate-layer | delete-layer |
    move-layer-up | move-layer-down | merge-down | flatten | stamp-visible |
    rasterize | delete-mask | apply-mask | invert-mask | toggle-mask
    new-adjustment --type TYPE [--set FIELD=VALUE]...
                                add an adjustment layer (levels, curves,
                                hueSaturation, ...) above the target; with a
                                selection it gets that selection as its mask
    adjust --set FIELD=VALUE... change the target adjustment layer's settings;
                                a FIELD is a coded name, with array indices
                                after dots: levels.0.inBlack=0.1,
                                hue=20, curves.0.1.y=0.8
    new-fill --kind KIND        add a fill layer (solid, linearGradient,
                                radialGradient, pattern)
    add-mask --kind KIND        revealAll, hideAll, revealSelection or
                                hideSelection
    set-layer --set FIELD=VALUE...
                                name, opacity, fillOpacity, blendMode,
                                visible, locked, clipping, maskEnabled
    image-size --size W,H       resample the picture; text and shapes stay sharp
    canvas-size --size W,H [--anchor AX,AY]
                                the canvas around the picture, placed by the
                                anchor (0,0 top left; default 0.5,0.5)
    rotate --turns N            clockwise quarter turns
    flip-horizontal | flip-vertical
    crop                        to the selection's bounds
    move-layer --by DX,DY       move the target layer (its mask stays)
  select IN OUT [selection] [STEP]...
                                write the selection as a grey picture (white is
                                selected) after these steps, in order:
                                --all, --invert, --deselect, --layer-shape,
                                --mask-area, --wand X,Y [--tolerance T]
                                [--contiguous true|false] [--all-layers
                                true|false] [--op replace|add|subtract|
                                intersect], --feather R, --grow P, --shrink P,
                                --smooth R, --border P

The target is the document's active layer, or --layer NAME (the topmost layer
of that name); --mask makes its mask the target. A selection comes from
--select-rect X,Y,W,H, --select-ellipse X,Y,W,H or --select-mask FILE (a
picture of the canvas size whose grey gives the selection). OUT is a native
document (.korvstudio) or a flattened picture (.png, .jpg, .tif, .heic).
--json prints the steps taken and the resulting layer tree's active layer.
)";

namespace {

std::string inQuotes(const std::string& text) {
    return "\u201C" + text + "\u201D";
}

std::vector<uint8_t> readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in)
        throw std::runtime_error("The file " + inQuotes(std::filesystem::path(path).filename().string()) +
                                 " couldn't be opened: " + std::strerror(errno) + ".");
    const std::streamoff size = in.tellg();
    if (size < 0 || size > (std::streamoff(4) << 30)) throw ExportError::cannotRead();
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    in.seekg(0);
    if (!in.read(reinterpret_cast<char*>(bytes.data()), size))
        throw std::runtime_error("The file " + inQuotes(std::filesystem::path(path).filename().string()) +
                                 " couldn't be read.");
    return bytes;
}

double number(const std::string& text, const std::string& what) {
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(v))
        throw UsageError("the " + what + " must be a number, not " + inQuotes(text) + ".");
    return v;
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

// A --set value: JSON where it reads as JSON (numbers, true, arrays,
// objects), otherwise the text itself, so that names need no quotes.
nlohmann::json setValue(const std::string& text) {
    auto parsed = nlohmann::json::parse(text, nullptr, false);
    return parsed.is_discarded() ? nlohmann::json(text) : parsed;
}

struct Args {
    std::vector<std::string> files;
    std::optional<std::string> layer;
    bool mask = false;
    bool json = false;
    // The selection given before the command runs.
    std::optional<std::pair<std::string, std::string>> selection; // option, value
    std::vector<std::pair<std::string, nlohmann::json>> sets;
    std::optional<std::string> type, kind;
    // --size, --anchor, --turns, --by
    std::map<std::string, std::string> values;
    // The select command's steps, in the order given.
    std::vector<std::pair<std::string, std::string>> steps;
};

bool takesValue(const std::string& option) {
    static const char* const withValue[] = {
        "--layer",  "--select-rect", "--select-ellipse", "--select-mask", "--set",    "--type",    "--kind",
        "--wand",   "--tolerance",   "--contiguous",     "--all-layers",  "--op",     "--feather", "--grow",
        "--shrink", "--smooth",      "--border",         "--size",        "--anchor", "--turns",   "--by"};
    return std::find(std::begin(withValue), std::end(withValue), option) != std::end(withValue);
}

Args parse(std::string_view command, int argc, char** argv) {
    Args a;
    const bool isSelect = command == "select";
    for (int i = 0; i < argc; ++i) {
        const std::string option = argv[i];
        if (option.size() < 2 || option[0] != '-') {
            a.files.push_back(option);
            continue;
        }
        if (option == "--mask") {
            a.mask = true;
            continue;
        }
        if (option == "--json") {
            a.json = true;
            continue;
        }
        const bool stepWithoutValue = option == "--all" || option == "--invert" || option == "--deselect" ||
                                      option == "--layer-shape" || option == "--mask-area";
        if (isSelect && stepWithoutValue) {
            a.steps.emplace_back(option, "");
            continue;
        }
        if (!takesValue(option))
            throw UsageError("unknown option " + inQuotes(option) + " for " + std::string(command) + ".");
        if (i + 1 >= argc) throw UsageError("the option " + inQuotes(option) + " needs a value.");
        const std::string value = argv[++i];
        if (option == "--layer") {
            a.layer = value;
        } else if (option == "--select-rect" || option == "--select-ellipse" || option == "--select-mask") {
            if (a.selection)
                throw UsageError("give one of --select-rect, --select-ellipse and --select-mask.");
            a.selection = {option, value};
        } else if (option == "--set") {
            const size_t eq = value.find('=');
            if (eq == std::string::npos || eq == 0) throw UsageError("--set takes FIELD=VALUE.");
            a.sets.emplace_back(value.substr(0, eq), setValue(value.substr(eq + 1)));
        } else if (option == "--type") {
            a.type = value;
        } else if (option == "--kind") {
            a.kind = value;
        } else if (option == "--size" || option == "--anchor" || option == "--turns" || option == "--by") {
            a.values[option.substr(2)] = value;
        } else if (isSelect) {
            a.steps.emplace_back(option, value);
        } else {
            throw UsageError("the option " + inQuotes(option) + " belongs to the select command.");
        }
    }
    if (a.files.size() != 2)
        throw UsageError(std::string(command) + " takes two files: korv " + std::string(command) +
                         " IN OUT [options]");
    return a;
}

// What a picture given as a selection selects: the grey of its straight
// colour times its alpha, which for premultiplied pixels is the grey of the
// stored bytes.
SelectionTools::Mask maskFromPicture(const std::string& path, int64_t width, int64_t height) {
    const auto decoded = ImageImport::decode(readWholeFile(path));
    if (!decoded || !decoded->image) throw ExportError::cannotRead();
    const RGBABuffer& img = *decoded->image;
    if (img.width() != width || img.height() != height)
        throw std::runtime_error(
            "The selection picture " + inQuotes(std::filesystem::path(path).filename().string()) + " is " +
            std::to_string(img.width()) + " \u00D7 " + std::to_string(img.height()) + " px; the picture is " +
            std::to_string(width) + " \u00D7 " + std::to_string(height) + " px.");
    SelectionTools::Mask mask(size_t(width * height));
    for (int64_t y = 0; y < height; ++y) {
        const uint8_t* p = img.row(y);
        uint8_t* out = mask.data() + y * width;
        for (int64_t x = 0; x < width; ++x, p += 4)
            out[x] = uint8_t(0.3 * p[0] + 0.59 * p[1] + 0.11 * p[2] + 0.5);
    }
    return mask;
}

SelectionRef shapeSelection(const std::string& option, const std::string& value, int64_t width,
                            int64_t height) {
    const auto v = numbers(value, 4, option.substr(2));
    if (v[2] <= 0 || v[3] <= 0)
        throw UsageError("the " + option.substr(2) + " needs a width and height above 0.");
    Path path;
    const Rect r{v[0], v[1], v[2], v[3]};
    if (option == "--select-rect")
        path.addRect(r);
    else
        path.addEllipse(r);
    return Selection::make(path, SelectionOp::replace, nullptr, width, height, option != "--select-rect");
}

void applyTarget(StudioModel& model, const Args& a) {
    StudioDocument& doc = *model.doc();
    if (a.layer) {
        const auto rows = doc.rows(); // top first
        auto it = std::find_if(rows.begin(), rows.end(),
                               [&](const LayerRow& r) { return r.layer.name == *a.layer; });
        if (it == rows.end()) throw std::runtime_error("There is no layer named " + inQuotes(*a.layer) + ".");
        model.select(it->id);
    }
    if (a.mask) {
        const auto active = model.activeLayer();
        if (!active) throw std::runtime_error("The picture has no layer to act on.");
        if (!active->mask) throw std::runtime_error("The layer " + inQuotes(active->name) + " has no mask.");
        model.setEditMask(true);
    }
    if (a.selection) {
        const auto& [option, value] = *a.selection;
        if (option == "--select-mask")
            doc.setSelection(Selection::fromMask(maskFromPicture(value, doc.width(), doc.height()),
                                                 doc.width(), doc.height()));
        else
            doc.setSelection(shapeSelection(option, value, doc.width(), doc.height()));
    }
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

// A field of a coded record by its path: names and array indices joined by
// dots ("levels.0.inBlack", "curves.1.2.y"); none when the record has no such
// field, so that a typing mistake is not silently added.
nlohmann::json* fieldSlot(nlohmann::json& record, const std::string& path) {
    nlohmann::json* at = &record;
    size_t start = 0;
    while (true) {
        const size_t dot = path.find('.', start);
        const std::string part = path.substr(start, dot - start);
        if (at->is_object()) {
            auto it = at->find(part);
            if (it == at->end()) return nullptr;
            at = &*it;
        } else if (at->is_array()) {
            if (part.empty() || part.size() > 6 || !std::all_of(part.begin(), part.end(), ::isdigit))
                return nullptr;
            const size_t index = std::stoul(part);
            if (index >= at->size()) return nullptr;
            at = &(*at)[index];
        } else {
            return nullptr;
        }
        if (dot == std::string::npos) return at;
        start = dot + 1;
    }
}

// The adjustment record with the fields changed, as one "Adjust" step: the
// record is decoded whole again, so a field of the wrong type is refused.
void adjust(StudioModel& model, const Uuid& id,
            const std::vector<std::pair<std::string, nlohmann::json>>& sets) {
    const StudioLayer* layer = model.doc()->find(id);
    if (!layer || !layer->adjustment)
        throw std::runtime_error(inQuotes(layer ? layer->name : std::string()) +
                                 " is not an adjustment layer.");
    nlohmann::json j = *layer->adjustment;
    for (const auto& [field, value] : sets) {
        nlohmann::json* slot = fieldSlot(j, field);
        if (!slot || field == "type")
            throw UsageError("the " + std::string(displayName(layer->adjustment->type)) +
                             " adjustment has no field " + inQuotes(field) + ".");
        *slot = value;
    }
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

void writeDocument(const StudioDocument& doc, const std::string& out) {
    std::string ext = std::filesystem::path(out).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    if (ext == "." + std::string(StudioFile::fileExtension)) {
        writeFileAtomically(out, StudioFile::encode(doc));
        return;
    }
    std::optional<PhotoExportFormat> format;
    if (ext == ".jpg" || ext == ".jpeg") format = PhotoExportFormat::jpeg;
    if (ext == ".png") format = PhotoExportFormat::png;
    if (ext == ".tif" || ext == ".tiff") format = PhotoExportFormat::tiff;
    if (ext == ".heic") format = PhotoExportFormat::heic;
    if (!format)
        throw UsageError("the output must end in .korvstudio, .png, .jpg, .jpeg, .tif, .tiff or .heic.");
    writeFileAtomically(out, PhotoExport::data(doc, PhotoExportOptions(*format)));
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
    auto it = a.values.find("size");
    if (it == a.values.end()) throw UsageError(command + " needs --size W,H in pixels.");
    const auto size = numbers(it->second, 2, "size");
    for (double v : size)
        if (v != std::floor(v) || v < 1 || v > double(kMaxCanvasSide))
            throw UsageError("each side must be a whole number from 1 to 30000.");
    return {int64_t(size[0]), int64_t(size[1])};
}

using Body = std::function<void(StudioModel&, const Args&)>;

struct Command {
    const char* name;
    Body run;
};

const std::vector<Command>& commands() {
    static const std::vector<Command> table = {
        {"new-layer", [](StudioModel& m, const Args&) { m.addLayer(); }},
        {"new-group", [](StudioModel& m, const Args&) { m.addGroup(); }},
        {"ungroup", [](StudioModel& m, const Args&) { m.ungroup(); }},
        {"duplicate-layer", [](StudioModel& m, const Args&) { m.duplicateLayer(); }},
        {"delete-layer", [](StudioModel& m, const Args&) { m.deleteLayer(); }},
        {"move-layer-up", [](StudioModel& m, const Args&) { m.moveLayer(true); }},
        {"move-layer-down", [](StudioModel& m, const Args&) { m.moveLayer(false); }},
        {"merge-down", [](StudioModel& m, const Args&) { m.mergeDown(); }},
        {"flatten", [](StudioModel& m, const Args&) { m.flatten(); }},
        {"stamp-visible", [](StudioModel& m, const Args&) { m.stampVisible(); }},
        {"rasterize", [](StudioModel& m, const Args&) { m.rasterize(); }},
        {"delete-mask", [](StudioModel& m, const Args&) { m.deleteMask(); }},
        {"apply-mask", [](StudioModel& m, const Args&) { m.applyMask(); }},
        {"invert-mask", [](StudioModel& m, const Args&) { m.invertMask(); }},
        {"toggle-mask", [](StudioModel& m, const Args&) { m.toggleMaskEnabled(); }},
        {"new-adjustment",
         [](StudioModel& m, const Args& a) {
             const auto type = a.type ? adjustmentTypeFromString(*a.type) : std::nullopt;
             if (!type)
                 throw UsageError(
                     "new-adjustment needs --type with an adjustment's coded name, e.g. levels.");
             m.addAdjustment(*type);
             if (!a.sets.empty()) adjust(m, requireActive(m), a.sets);
         }},
        {"adjust",
         [](StudioModel& m, const Args& a) {
             if (a.sets.empty()) throw UsageError("adjust needs at least one --set FIELD=VALUE.");
             adjust(m, requireActive(m), a.sets);
         }},
        {"new-fill",
         [](StudioModel& m, const Args& a) {
             const auto kind = a.kind ? fillKindFromString(*a.kind) : std::nullopt;
             if (!kind)
                 throw UsageError("new-fill needs --kind solid, linearGradient, radialGradient or pattern.");
             m.addFill(*kind);
         }},
        {"add-mask",
         [](StudioModel& m, const Args& a) {
             static const std::pair<const char*, NewMask> kinds[] = {
                 {"revealAll", NewMask::revealAll},
                 {"hideAll", NewMask::hideAll},
                 {"revealSelection", NewMask::revealSelection},
                 {"hideSelection", NewMask::hideSelection}};
             const std::string k = a.kind.value_or("revealAll");
             auto it = std::find_if(std::begin(kinds), std::end(kinds),
                                    [&](const auto& e) { return k == e.first; });
             if (it == std::end(kinds))
                 throw UsageError(
                     "add-mask takes --kind revealAll, hideAll, revealSelection or hideSelection.");
             m.addMask(it->second);
         }},
        {"set-layer",
         [](StudioModel& m, const Args& a) {
             if (a.sets.empty()) throw UsageError("set-layer needs at least one --set FIELD=VALUE.");
             const Uuid id = requireActive(m);
             for (const auto& [field, value] : a.sets)
                 setLayerField(m, id, field, value);
         }},
        {"image-size",
         [](StudioModel& m, const Args& a) {
             const auto size = canvasSize(a, "image-size");
             m.resizeImage(size.first, size.second);
         }},
        {"canvas-size",
         [](StudioModel& m, const Args& a) {
             const auto size = canvasSize(a, "canvas-size");
             auto it = a.values.find("anchor");
             const auto anchor =
                 it == a.values.end() ? std::vector<double>{0.5, 0.5} : numbers(it->second, 2, "anchor");
             if (anchor[0] < 0 || anchor[0] > 1 || anchor[1] < 0 || anchor[1] > 1)
                 throw UsageError(
                     "the anchor is two fractions from 0 to 1: 0,0 is the top left, 0.5,0.5 the centre.");
             m.resizeCanvas(size.first, size.second, anchor[0], anchor[1]);
         }},
        {"rotate",
         [](StudioModel& m, const Args& a) {
             auto it = a.values.find("turns");
             if (it == a.values.end())
                 throw UsageError("rotate needs --turns 1, 2 or 3 (clockwise quarter turns).");
             const double turns = number(it->second, "number of turns");
             if (turns != std::floor(turns) || std::fabs(turns) > 1e6)
                 throw UsageError("the number of turns must be a whole number.");
             m.rotate(int64_t(turns));
         }},
        {"flip-horizontal", [](StudioModel& m, const Args&) { m.flip(true); }},
        {"flip-vertical", [](StudioModel& m, const Args&) { m.flip(false); }},
        {"crop", [](StudioModel& m, const Args&) { m.cropToSelection(); }},
        {"move-layer",
         [](StudioModel& m, const Args& a) {
             auto it = a.values.find("by");
             if (it == a.values.end()) throw UsageError("move-layer needs --by DX,DY in pixels.");
             const auto by = numbers(it->second, 2, "offset");
             if (by[0] != std::floor(by[0]) || by[1] != std::floor(by[1]) || std::fabs(by[0]) > 1e6 ||
                 std::fabs(by[1]) > 1e6)
                 throw UsageError("the offset must be whole pixels.");
             m.moveLayerBy(int64_t(by[0]), int64_t(by[1]));
         }},
        {"select",
         [](StudioModel& m, const Args& a) {
             std::optional<SelectionOp> op;
             for (const auto& [option, value] : a.steps)
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
    const Args args = parse(name, argc, argv);

    CliHost host;
    StudioModel model(host, false);
    model.open(args.files[0]);
    if (!model.doc())
        throw std::runtime_error(host.alerts.empty() ? "The file couldn't be opened." : host.alerts.back());
    StudioDocument& doc = *model.doc();
    applyTarget(model, args);

    const int64_t stepsBefore = doc.changeCount();
    model.status.clear();
    command->run(model, args);
    if (!host.alerts.empty()) throw std::runtime_error(host.alerts.back());

    const bool isSelect = name == "select";
    // A refusal is told in the status line; for the select command it is the
    // only sign that a step was refused.
    if (isSelect && !model.status.empty()) throw std::runtime_error(model.status);
    if (!isSelect && doc.changeCount() == stepsBefore)
        throw std::runtime_error(model.status.empty()
                                     ? "There was nothing for " + inQuotes(std::string(name)) +
                                           " to act on; nothing was written."
                                     : model.status);
    if (isSelect)
        writeSelection(doc, args.files[1]);
    else
        writeDocument(doc, args.files[1]);

    if (args.json) {
        nlohmann::json steps = nlohmann::json::array();
        const auto& history = doc.history();
        for (int64_t i = 1; i <= doc.cursor(); ++i)
            steps.push_back(history[size_t(i)].name);
        const auto active = doc.activeLayer();
        nlohmann::json out{{"steps", steps},
                           {"active", active ? nlohmann::json(active->name) : nlohmann::json(nullptr)},
                           {"layers", doc.allLayers().size()}};
        if (doc.selection) {
            const IRect& b = doc.selection->bounds();
            out["selection"] = {b.x, b.y, b.w, b.h};
        } else {
            out["selection"] = nullptr;
        }
        if (!model.status.empty()) out["status"] = model.status;
        std::printf("%s\n", out.dump().c_str());
    }
    return 0;
}

} // namespace korv::cli
