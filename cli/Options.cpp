#include "cli/Options.h"

#include "engine/core/Selection.h"
#include "engine/formats/AtomicFile.h"
#include "engine/formats/ExportError.h"
#include "engine/formats/ImageImport.h"
#include "engine/formats/StudioFile.h"
#include "engine/formats/StudioImport.h"
#include "engine/formats/StudioPSD.h"
#include "engine/platform/Path.h"
#include "engine/render/StudioRenderer.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>

namespace korv::cli {

namespace {

// Past 4 GB no picture of 30,000 x 30,000 is plausible.
constexpr std::streamoff kLargestInput = std::streamoff(4) << 30;

std::vector<double> numberList(const std::string& text, size_t count, const std::string& what) {
    std::vector<double> out;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t comma = std::min(text.find(',', start), text.size());
        out.push_back(number(text.substr(start, comma - start), what));
        start = comma + 1;
    }
    if (out.size() != count) throw UsageError("the " + what + " must be X,Y,W,H.");
    return out;
}

const StudioLayer* topmostNamed(const std::vector<StudioLayer>& layers, const std::string& name) {
    for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
        if (it->name == name) return &*it;
        if (const StudioLayer* inner = topmostNamed(it->children, name)) return inner;
    }
    return nullptr;
}

} // namespace

std::optional<std::string> Args::value(const std::string& option) const {
    const auto it = values.find(option);
    if (it == values.end() || it->second.empty()) return std::nullopt;
    return it->second.back();
}

Args parse(int argc, char** argv, const OptionSpec& spec, const std::string& command) {
    Args args;
    for (int i = 0; i < argc; ++i) {
        const std::string a = argv[i];
        if (a.size() < 2 || a[0] != '-') {
            args.positional.push_back(a);
        } else if (spec.flags.count(a)) {
            args.flags.insert(a);
        } else if (spec.values.count(a)) {
            if (i + 1 >= argc) throw UsageError("the option \u201C" + a + "\u201D needs a value.");
            args.values[a].push_back(argv[++i]);
        } else {
            throw UsageError("unknown option \u201C" + a + "\u201D for " + command + ".");
        }
    }
    return args;
}

void addTargetOptions(OptionSpec& spec) {
    spec.values.insert("--layer");
    spec.flags.insert("--mask");
}

void addSelectionOptions(OptionSpec& spec) {
    spec.values.insert({"--select-rect", "--select-ellipse", "--select-mask"});
}

std::string quoted(const std::string& path) {
    if (path == "-") return "\u201Cstandard input\u201D";
    return "\u201C" + std::filesystem::path(path).filename().string() + "\u201D";
}

std::vector<uint8_t> readFile(const std::string& path) {
    if (path == "-") {
        std::vector<uint8_t> bytes;
        char chunk[65536];
        size_t n;
        while ((n = std::fread(chunk, 1, sizeof chunk, stdin)) > 0) {
            if (std::streamoff(bytes.size() + n) > kLargestInput) throw ExportError::cannotRead();
            bytes.insert(bytes.end(), chunk, chunk + n);
        }
        return bytes;
    }
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in)
        throw std::runtime_error("The file " + quoted(path) + " couldn't be opened: " + std::strerror(errno) +
                                 ".");
    const std::streamoff size = in.tellg();
    if (size < 0 || size > kLargestInput) throw ExportError::cannotRead();
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    in.seekg(0);
    if (!in.read(reinterpret_cast<char*>(bytes.data()), size))
        throw std::runtime_error("The file " + quoted(path) + " couldn't be read.");
    return bytes;
}

Opened openFile(const std::string& path) {
    const std::vector<uint8_t> bytes = readFile(path);
    std::unique_ptr<StudioDocument> doc = StudioImport::document(bytes);
    std::string format = "korvstudio";
    if (bytes.size() >= 4 && std::equal(bytes.begin(), bytes.begin() + 4, "8BPS"))
        format = "psd";
    else if (!StudioFile::isStudioFile(bytes))
        if (auto f = ImageImport::formatOf(bytes)) format = std::string(toString(*f));
    return {format, std::move(doc)};
}

double number(const std::string& text, const std::string& what) {
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(v))
        throw UsageError("the " + what + " must be a number, not \u201C" + text + "\u201D.");
    return v;
}

PaintColor colour(const std::string& text, const std::string& what) {
    const std::optional<PaintColor> c = PaintColor::fromHex(text);
    if (!c) throw UsageError("the " + what + " must be a colour like #RRGGBB or #RRGGBBAA.");
    return *c;
}

std::optional<PhotoExportFormat> formatForExtension(const std::string& path) {
    std::string ext = std::filesystem::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    if (ext == ".jpg" || ext == ".jpeg") return PhotoExportFormat::jpeg;
    if (ext == ".png") return PhotoExportFormat::png;
    if (ext == ".tif" || ext == ".tiff") return PhotoExportFormat::tiff;
    if (ext == ".heic") return PhotoExportFormat::heic;
    return std::nullopt;
}

bool isNativeName(const std::string& path) {
    return std::filesystem::path(path).extension() == "." + std::string(StudioFile::fileExtension);
}

bool isPSDName(const std::string& path) {
    std::string ext = std::filesystem::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return ext == ".psd";
}

void requireWritableName(const std::string& path) {
    if (!isNativeName(path) && !isPSDName(path) && !formatForExtension(path))
        throw UsageError(
            "the output must end in .jpg, .jpeg, .png, .tif, .tiff, .heic, .psd or .korvstudio.");
}

std::string writeDocument(StudioDocument& doc, const std::string& path) {
    requireWritableName(path);
    char line[512];
    if (isNativeName(path)) {
        const std::vector<uint8_t> bytes = StudioFile::encode(doc);
        writeFileAtomically(path, bytes);
        std::snprintf(line, sizeof line, "Wrote %s: KORV Lumenary document, %ldx%ld, %zu bytes", path.c_str(),
                      doc.width(), doc.height(), bytes.size());
        return line;
    }
    if (isPSDName(path)) {
        const std::vector<uint8_t> bytes = StudioPSD::write(doc);
        writeFileAtomically(path, bytes);
        std::snprintf(line, sizeof line, "Wrote %s: layered Photoshop PSD, %ldx%ld, %zu bytes", path.c_str(),
                      doc.width(), doc.height(), bytes.size());
        return line;
    }
    const PhotoExportOptions options(*formatForExtension(path));
    const std::vector<uint8_t> bytes = PhotoExport::data(doc, options);
    writeFileAtomically(path, bytes);
    std::snprintf(line, sizeof line, "Wrote %s: %s, %ldx%ld at %g dpi, %zu bytes", path.c_str(),
                  std::string(displayName(options.format)).c_str(), doc.width(), doc.height(), doc.dpi,
                  bytes.size());
    return line;
}

Target target(const StudioDocument& doc, const Args& args) {
    const StudioLayer* layer = nullptr;
    if (const auto name = args.value("--layer")) {
        layer = topmostNamed(doc.layers, *name);
        if (!layer) throw std::runtime_error("There is no layer \u201C" + *name + "\u201D.");
    } else {
        if (doc.activeID) layer = doc.find(*doc.activeID);
        if (!layer) throw std::runtime_error("The document has no layer to work on.");
    }
    const bool mask = args.flags.count("--mask") > 0;
    if (mask && !layer->hasMask())
        throw std::runtime_error("The layer \u201C" + layer->name + "\u201D has no mask.");
    return {layer->id, layer->name, mask};
}

SelectionRef selection(const Args& args, int64_t width, int64_t height) {
    const int given =
        int(args.has("--select-rect")) + int(args.has("--select-ellipse")) + int(args.has("--select-mask"));
    if (given == 0) return nullptr;
    if (given > 1) throw UsageError("give one of --select-rect, --select-ellipse and --select-mask.");
    SelectionRef s;
    if (const auto mask = args.value("--select-mask")) {
        const Opened opened = openFile(*mask);
        if (opened.document->width() != width || opened.document->height() != height)
            throw std::runtime_error("The selection mask " + quoted(*mask) + " must be " +
                                     std::to_string(width) + " \u00D7 " + std::to_string(height) +
                                     " pixels.");
        const RGBABufferPtr flat = StudioRenderer::flatten(*opened.document);
        std::vector<uint8_t> bytes(size_t(width * height));
        // Premultiplied bytes already hold the straight colour times alpha.
        for (int64_t i = 0; i < width * height; ++i) {
            const uint8_t* p = flat->data() + i * 4;
            bytes[size_t(i)] = uint8_t(std::min(0.3 * p[0] + 0.59 * p[1] + 0.11 * p[2] + 0.5, 255.0));
        }
        s = Selection::fromMask(bytes, width, height);
    } else {
        const bool ellipse = args.has("--select-ellipse");
        const std::string what = ellipse ? "ellipse" : "rectangle";
        const std::vector<double> r =
            numberList(*args.value(ellipse ? "--select-ellipse" : "--select-rect"), 4, what);
        if (r[2] <= 0 || r[3] <= 0)
            throw UsageError("the " + what + " must have a width and height above 0.");
        Path path;
        if (ellipse)
            path.addEllipse({r[0], r[1], r[2], r[3]});
        else
            path.addRect({r[0], r[1], r[2], r[3]});
        s = Selection::make(path, SelectionOp::replace, nullptr, width, height, ellipse);
    }
    if (!s) throw std::runtime_error("The selection covers no pixel of the canvas.");
    return s;
}

std::vector<StrokePoint> points(const std::string& path) {
    const std::vector<uint8_t> bytes = readFile(path);
    const nlohmann::json j = nlohmann::json::parse(bytes.begin(), bytes.end(), nullptr, false);
    const std::runtime_error bad(
        "The points in " + quoted(path) +
        " must be a JSON array of [x, y], [x, y, pressure] or [x, y, pressure, time].");
    if (!j.is_array()) throw bad;
    std::vector<StrokePoint> out;
    out.reserve(j.size());
    for (size_t i = 0; i < j.size(); ++i) {
        const nlohmann::json& p = j[i];
        if (!p.is_array() || p.size() < 2 || p.size() > 4) throw bad;
        for (const nlohmann::json& v : p)
            if (!v.is_number()) throw bad;
        StrokePoint s;
        s.x = p[0].get<double>();
        s.y = p[1].get<double>();
        s.pressure = p.size() > 2 ? p[2].get<double>() : 1.0;
        s.time = p.size() > 3 ? p[3].get<double>() : double(i) * 0.01;
        out.push_back(s);
    }
    return out;
}

std::pair<std::string, nlohmann::json> fieldValue(const std::string& set) {
    const size_t eq = set.find('=');
    if (eq == std::string::npos || eq == 0)
        throw UsageError("--set takes FIELD=VALUE, not \u201C" + set + "\u201D.");
    nlohmann::json value = nlohmann::json::parse(set.substr(eq + 1), nullptr, false);
    if (value.is_discarded()) value = set.substr(eq + 1);
    return {set.substr(0, eq), std::move(value)};
}

namespace {

// A field by its path: names and array indices joined by dots
// ("levels.0.inBlack"); none when the record has no such field, so that a
// mistyped name is never added.
nlohmann::json* fieldAt(nlohmann::json& record, const std::string& path) {
    nlohmann::json* at = &record;
    size_t start = 0;
    while (true) {
        const size_t dot = std::min(path.find('.', start), path.size());
        const std::string part = path.substr(start, dot - start);
        if (at->is_object()) {
            const auto it = at->find(part);
            if (it == at->end()) return nullptr;
            at = &*it;
        } else if (at->is_array()) {
            if (part.empty() || part.size() > 6 ||
                !std::all_of(part.begin(), part.end(), [](unsigned char c) { return std::isdigit(c); }))
                return nullptr;
            const size_t index = std::stoul(part);
            if (index >= at->size()) return nullptr;
            at = &(*at)[index];
        } else {
            return nullptr;
        }
        if (dot == path.size()) return at;
        start = dot + 1;
    }
}

} // namespace

void applySets(nlohmann::json& record, const std::vector<std::string>& sets) {
    for (const std::string& set : sets) {
        auto [field, value] = fieldValue(set);
        nlohmann::json* slot = fieldAt(record, field);
        if (!slot) throw UsageError("there is no field \u201C" + field + "\u201D to set.");
        const bool fits = (slot->is_number() && value.is_number()) ||
                          (slot->is_boolean() && value.is_boolean()) ||
                          (slot->is_string() && value.is_string()) ||
                          (slot->is_array() && value.is_array()) || (slot->is_object() && value.is_object());
        if (!fits)
            throw UsageError("the field \u201C" + field + "\u201D can't take \u201C" +
                             set.substr(set.find('=') + 1) + "\u201D.");
        *slot = std::move(value);
    }
}

} // namespace korv::cli
