// The commands that describe, render, convert and make documents.
#include "cli/Commands.h"
#include "cli/Options.h"
#include "engine/document/SampleDocument.h"
#include "engine/formats/AtomicFile.h"
#include "engine/formats/ExportError.h"
#include "engine/formats/ImageExport.h"
#include "engine/formats/StudioFile.h"
#include "engine/render/StudioRenderer.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

namespace korv::cli {

namespace {

nlohmann::json describe(const std::vector<StudioLayer>& layers) {
    nlohmann::json out = nlohmann::json::array();
    // Top first, as the layer list shows them.
    for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
        const StudioLayer& l = *it;
        nlohmann::json j{{"id", l.id.toString()},
                         {"name", l.name},
                         {"kind", std::string(toString(l.kind))},
                         {"blendMode", std::string(toString(l.blendMode))},
                         {"opacity", l.opacity},
                         {"fillOpacity", l.fillOpacity},
                         {"visible", l.isVisible},
                         {"locked", l.isLocked},
                         {"clipping", l.isClipping},
                         {"mask", l.mask ? (l.maskEnabled ? "enabled" : "disabled") : "none"}};
        if (l.pixels) {
            const auto bounds = l.pixels->contentBounds();
            j["contentBounds"] = bounds ? nlohmann::json(*bounds) : nlohmann::json(nullptr);
        }
        if (l.isGroup()) j["children"] = describe(l.children);
        out.push_back(std::move(j));
    }
    return out;
}

int64_t canvasSide(const std::string& text, const char* what) {
    const double v = number(text, what);
    if (v != std::floor(v) || v < 1 || v > double(kMaxCanvasSide))
        throw UsageError(std::string("the ") + what + " must be a whole number from 1 to 30000.");
    return int64_t(v);
}

} // namespace

int info(int argc, char** argv) {
    const Args args = parse(argc, argv, {}, "info");
    if (args.positional.size() != 1) throw UsageError("info takes one file: korv info IN");
    const Opened opened = openFile(args.positional[0]);
    const StudioDocument& doc = *opened.document;
    const auto active = doc.activeID;
    const nlohmann::json j{{"format", opened.format},
                           {"width", doc.width()},
                           {"height", doc.height()},
                           {"dpi", doc.dpi},
                           {"active", active ? nlohmann::json(active->toString()) : nlohmann::json(nullptr)},
                           {"layers", describe(doc.layers)}};
    std::printf("%s\n", j.dump(2).c_str());
    return 0;
}

int render(int argc, char** argv) {
    const Args args = parse(argc, argv, {}, "render");
    if (args.positional.size() != 2) throw UsageError("render takes two files: korv render IN OUT.png");
    const Opened opened = openFile(args.positional[0]);
    const RGBABufferPtr flat = StudioRenderer::flatten(*opened.document);
    const auto png = ImageExport::pngData(flat, opened.document->dpi);
    if (!png) throw ExportError::cannotEncode("PNG");
    writeFileAtomically(args.positional[1], *png);
    return 0;
}

int convert(int argc, char** argv) {
    const Args args = parse(argc, argv, {{"--quality", "--scale", "--background"}, {}}, "convert");
    std::optional<double> quality, scale;
    std::optional<PaintColor> background;
    if (const auto q = args.value("--quality")) quality = number(*q, "quality");
    if (const auto s = args.value("--scale")) scale = number(*s, "scale");
    if (const auto b = args.value("--background")) {
        background = PaintColor::fromHex(*b);
        if (!background) throw UsageError("the background must be a colour like #RRGGBB.");
    }
    const std::vector<std::string>& files = args.positional;
    if (files.size() != 2) throw UsageError("convert takes two files: korv convert IN OUT [options]");
    if (isPSDName(files[1])) {
        const Opened opened = openFile(files[0]);
        std::printf("%s\n", writeDocument(*opened.document, files[1]).c_str());
        return 0;
    }
    if (isNativeName(files[1])) {
        const Opened opened = openFile(files[0]);
        const std::vector<uint8_t> bytes = StudioFile::encode(*opened.document);
        writeFileAtomically(files[1], bytes);
        std::printf("Wrote %s: KORV Lumenary document, %ldx%ld, %zu bytes\n", files[1].c_str(),
                    opened.document->width(), opened.document->height(), bytes.size());
        return 0;
    }
    const std::optional<PhotoExportFormat> format = formatForExtension(files[1]);
    if (!format)
        throw UsageError(
            "the output must end in .jpg, .jpeg, .png, .tif, .tiff, .heic, .psd or .korvstudio.");
    PhotoExportOptions options(*format);
    if (quality) options.quality = *quality;
    if (scale) options.scale = *scale;
    if (background) options.background = RGBA(*background);

    const Opened opened = openFile(files[0]);
    const std::vector<uint8_t> bytes = PhotoExport::data(*opened.document, options);
    writeFileAtomically(files[1], bytes);
    const PixelSize size = PhotoExport::outputSize(*opened.document, options);
    std::printf("Wrote %s: %s, %ldx%ld at %g dpi, %zu bytes\n", files[1].c_str(),
                std::string(displayName(*format)).c_str(), size.width, size.height, opened.document->dpi,
                bytes.size());
    return 0;
}

int newDocument(int argc, char** argv) {
    const Args args = parse(argc, argv, {{"--background", "--dpi"}, {}}, "new");
    std::optional<PaintColor> background;
    double dpi = 72;
    if (const auto b = args.value("--background")) background = colour(*b, "background");
    if (const auto d = args.value("--dpi")) {
        dpi = number(*d, "resolution");
        if (dpi <= 0) throw UsageError("the resolution must be above 0.");
    }
    const std::vector<std::string>& rest = args.positional;
    if (rest.size() != 3)
        throw UsageError("new takes a size and a file: korv new WIDTH HEIGHT OUT.korvstudio");
    const int64_t width = canvasSide(rest[0], "width"), height = canvasSide(rest[1], "height");
    if (!isNativeName(rest[2])) throw UsageError("the new document's name must end in .korvstudio.");
    StudioDocument doc(width, height, dpi, background);
    const std::vector<uint8_t> bytes = StudioFile::encode(doc);
    writeFileAtomically(rest[2], bytes);
    std::printf("Wrote %s: %ldx%ld, %zu bytes\n", rest[2].c_str(), width, height, bytes.size());
    return 0;
}

int demo(int argc, char** argv) {
    const Args args = parse(argc, argv, {{"--size"}, {}}, "demo");
    std::string out = args.positional.empty() ? "demo.png" : args.positional.back();
    int64_t width = 1600, height = 1000;
    if (const auto size = args.value("--size")) {
        if (std::sscanf(size->c_str(), "%ldx%ld", &width, &height) != 2 || width < 1 || height < 1 ||
            width > kMaxCanvasSide || height > kMaxCanvasSide)
            throw UsageError("the size must be WIDTHxHEIGHT, each from 1 to " +
                             std::to_string(kMaxCanvasSide) + ".");
    }
    auto doc = makeSampleDocument(width, height);
    const auto start = std::chrono::steady_clock::now();
    RGBABufferPtr flat = StudioRenderer::flatten(*doc);
    const double ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    const auto png = ImageExport::pngData(flat, doc->dpi);
    if (!png) throw ExportError::cannotEncode("PNG");
    writeFileAtomically(out, *png);
    std::printf("Rendered a %ldx%ld document of %zu layers in %.1f ms: %s\n", width, height,
                doc->allLayers().size(), ms, std::filesystem::absolute(out).c_str());
    return 0;
}

} // namespace korv::cli
