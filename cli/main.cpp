// korv: the engine from the command line.
#include "cli/ModelCommands.h"
#include "cli/UsageError.h"
#include "engine/document/SampleDocument.h"
#include "engine/document/StudioDocument.h"
#include "engine/formats/AtomicFile.h"
#include "engine/formats/ExportError.h"
#include "engine/formats/ImageExport.h"
#include "engine/formats/ImageImport.h"
#include "engine/formats/PhotoExport.h"
#include "engine/formats/StudioFile.h"
#include "engine/formats/StudioImport.h"
#include "engine/render/StudioRenderer.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr const char* kUsage = R"(Usage: korv COMMAND [ARGS]

Commands:
  info IN                       describe a document or picture as JSON: format,
                                width, height, dpi and the layer tree (kinds,
                                modes, opacity, masks)
  render IN OUT.png             flatten a document or picture to a PNG at its
                                own DPI
  convert IN OUT [--quality Q] [--scale S] [--background #RRGGBB]
                                export as JPEG, PNG, TIFF, HEIC or a native
                                document, chosen by OUT's extension (jpg, jpeg,
                                png, tif, tiff, heic, korvstudio); Q from 0.05
                                to 1 (default 0.9), S from 0.01 to 4 (default
                                1); the background (default white) goes under
                                transparent pixels of a JPEG
  new WIDTH HEIGHT OUT.korvstudio [--background #RRGGBBAA] [--dpi D]
                                make a document of one layer: "Background" in
                                that colour, or a transparent "Layer 1"
  demo [OUT.png] [--size WxH]   render a generated layered document to a PNG
                                (default build/demo.png, 1600x1000)
  help                          show this text

Native documents (.korvstudio) open, and pictures from JPEG, PNG, TIFF, HEIC,
AVIF, GIF, BMP, TGA and WebP; a file is recognised by its content, not its name.
Errors are printed on stderr and give a non-zero exit status; nothing is
written on failure.
)";

using korv::cli::UsageError;

std::string quoted(const std::string& path) {
    return "\u201C" + std::filesystem::path(path).filename().string() + "\u201D";
}

std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in)
        throw std::runtime_error("The file " + quoted(path) + " couldn't be opened: " + std::strerror(errno) +
                                 ".");
    const std::streamoff size = in.tellg();
    // Past 4 GB no picture of 30,000 x 30,000 is plausible.
    if (size < 0 || size > (std::streamoff(4) << 30)) throw korv::ExportError::cannotRead();
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    in.seekg(0);
    if (!in.read(reinterpret_cast<char*>(bytes.data()), size))
        throw std::runtime_error("The file " + quoted(path) + " couldn't be read.");
    return bytes;
}

struct Opened {
    std::string format;
    std::unique_ptr<korv::StudioDocument> document;
};

Opened openFile(const std::string& path) {
    const std::vector<uint8_t> bytes = readFile(path);
    std::unique_ptr<korv::StudioDocument> doc = korv::StudioImport::document(bytes);
    std::string format = "korvstudio";
    if (!korv::StudioFile::isStudioFile(bytes))
        if (auto f = korv::ImageImport::formatOf(bytes)) format = std::string(korv::toString(*f));
    return {format, std::move(doc)};
}

nlohmann::json describe(const std::vector<korv::StudioLayer>& layers) {
    nlohmann::json out = nlohmann::json::array();
    // Top first, as the layer list shows them.
    for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
        const korv::StudioLayer& l = *it;
        nlohmann::json j{{"id", l.id.toString()},
                         {"name", l.name},
                         {"kind", std::string(korv::toString(l.kind))},
                         {"blendMode", std::string(korv::toString(l.blendMode))},
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

double number(const char* text, const char* what) {
    char* end = nullptr;
    const double v = std::strtod(text, &end);
    if (end == text || *end != '\0' || !std::isfinite(v))
        throw UsageError(std::string("the ") + what + " must be a number, not \u201C" + text + "\u201D.");
    return v;
}

std::optional<korv::PhotoExportFormat> formatForExtension(const std::string& path) {
    std::string ext = std::filesystem::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    if (ext == ".jpg" || ext == ".jpeg") return korv::PhotoExportFormat::jpeg;
    if (ext == ".png") return korv::PhotoExportFormat::png;
    if (ext == ".tif" || ext == ".tiff") return korv::PhotoExportFormat::tiff;
    if (ext == ".heic") return korv::PhotoExportFormat::heic;
    return std::nullopt;
}

bool isNativeName(const std::string& path) {
    return std::filesystem::path(path).extension() == "." + std::string(korv::StudioFile::fileExtension);
}

int info(int argc, char** argv) {
    if (argc != 1) throw UsageError("info takes one file: korv info IN");
    const Opened opened = openFile(argv[0]);
    const korv::StudioDocument& doc = *opened.document;
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
    if (argc != 2) throw UsageError("render takes two files: korv render IN OUT.png");
    const Opened opened = openFile(argv[0]);
    const korv::RGBABufferPtr flat = korv::StudioRenderer::flatten(*opened.document);
    const auto png = korv::ImageExport::pngData(flat, opened.document->dpi);
    if (!png) throw korv::ExportError::cannotEncode("PNG");
    korv::writeFileAtomically(argv[1], *png);
    return 0;
}

int convert(int argc, char** argv) {
    std::vector<std::string> files;
    std::optional<double> quality, scale;
    std::optional<korv::PaintColor> background;
    for (int i = 0; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (!std::strcmp(argv[i], "--quality") && hasValue) {
            quality = number(argv[++i], "quality");
        } else if (!std::strcmp(argv[i], "--scale") && hasValue) {
            scale = number(argv[++i], "scale");
        } else if (!std::strcmp(argv[i], "--background") && hasValue) {
            background = korv::PaintColor::fromHex(argv[++i]);
            if (!background) throw UsageError("the background must be a colour like #RRGGBB.");
        } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
            throw UsageError(std::string("unknown option \u201C") + argv[i] + "\u201D for convert.");
        } else {
            files.emplace_back(argv[i]);
        }
    }
    if (files.size() != 2) throw UsageError("convert takes two files: korv convert IN OUT [options]");
    if (isNativeName(files[1])) {
        const Opened opened = openFile(files[0]);
        const std::vector<uint8_t> bytes = korv::StudioFile::encode(*opened.document);
        korv::writeFileAtomically(files[1], bytes);
        std::printf("Wrote %s: KORV Lumenary document, %ldx%ld, %zu bytes\n", files[1].c_str(),
                    opened.document->width(), opened.document->height(), bytes.size());
        return 0;
    }
    const std::optional<korv::PhotoExportFormat> format = formatForExtension(files[1]);
    if (!format)
        throw UsageError("the output must end in .jpg, .jpeg, .png, .tif, .tiff, .heic or .korvstudio.");
    korv::PhotoExportOptions options(*format);
    if (quality) options.quality = *quality;
    if (scale) options.scale = *scale;
    if (background) options.background = korv::RGBA(*background);

    const Opened opened = openFile(files[0]);
    const std::vector<uint8_t> bytes = korv::PhotoExport::data(*opened.document, options);
    korv::writeFileAtomically(files[1], bytes);
    const korv::PixelSize size = korv::PhotoExport::outputSize(*opened.document, options);
    std::printf("Wrote %s: %s, %ldx%ld at %g dpi, %zu bytes\n", files[1].c_str(),
                std::string(korv::displayName(*format)).c_str(), size.width, size.height,
                opened.document->dpi, bytes.size());
    return 0;
}

int64_t canvasSide(const char* text, const char* what) {
    const double v = number(text, what);
    if (v != std::floor(v) || v < 1 || v > double(korv::kMaxCanvasSide))
        throw UsageError(std::string("the ") + what + " must be a whole number from 1 to 30000.");
    return int64_t(v);
}

int newDocument(int argc, char** argv) {
    std::vector<std::string> args;
    std::optional<korv::PaintColor> background;
    double dpi = 72;
    for (int i = 0; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (!std::strcmp(argv[i], "--background") && hasValue) {
            background = korv::PaintColor::fromHex(argv[++i]);
            if (!background) throw UsageError("the background must be a colour like #RRGGBB or #RRGGBBAA.");
        } else if (!std::strcmp(argv[i], "--dpi") && hasValue) {
            dpi = number(argv[++i], "resolution");
            if (dpi <= 0) throw UsageError("the resolution must be above 0.");
        } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
            throw UsageError(std::string("unknown option \u201C") + argv[i] + "\u201D for new.");
        } else {
            args.emplace_back(argv[i]);
        }
    }
    if (args.size() != 3)
        throw UsageError("new takes a size and a file: korv new WIDTH HEIGHT OUT.korvstudio");
    const int64_t width = canvasSide(args[0].c_str(), "width"),
                  height = canvasSide(args[1].c_str(), "height");
    if (!isNativeName(args[2])) throw UsageError("the new document's name must end in .korvstudio.");
    korv::StudioDocument doc(width, height, dpi, background);
    const std::vector<uint8_t> bytes = korv::StudioFile::encode(doc);
    korv::writeFileAtomically(args[2], bytes);
    std::printf("Wrote %s: %ldx%ld, %zu bytes\n", args[2].c_str(), width, height, bytes.size());
    return 0;
}

int demo(int argc, char** argv) {
    std::string out = "demo.png";
    int64_t width = 1600, height = 1000;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--size") == 0 && i + 1 < argc) {
            if (std::sscanf(argv[++i], "%ldx%ld", &width, &height) != 2 || width < 1 || height < 1 ||
                width > korv::kMaxCanvasSide || height > korv::kMaxCanvasSide) {
                std::fprintf(stderr, "korv: the size must be WIDTHxHEIGHT, each from 1 to %ld.\n",
                             korv::kMaxCanvasSide);
                return 2;
            }
        } else {
            out = argv[i];
        }
    }
    auto doc = korv::makeSampleDocument(width, height);
    const auto start = std::chrono::steady_clock::now();
    korv::RGBABufferPtr flat = korv::StudioRenderer::flatten(*doc);
    const double ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    const auto png = korv::ImageExport::pngData(flat, doc->dpi);
    if (!png) throw korv::ExportError::cannotEncode("PNG");
    korv::writeFileAtomically(out, *png);
    std::printf("Rendered a %ldx%ld document of %zu layers in %.1f ms: %s\n", width, height,
                doc->allLayers().size(), ms, std::filesystem::absolute(out).c_str());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2 || !std::strcmp(argv[1], "help") || !std::strcmp(argv[1], "--help") ||
        !std::strcmp(argv[1], "-h")) {
        std::fputs(kUsage, argc < 2 ? stderr : stdout);
        std::fputs("\n", argc < 2 ? stderr : stdout);
        std::fputs(korv::cli::kModelCommandsUsage, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    try {
        const char* command = argv[1];
        if (!std::strcmp(command, "demo")) return demo(argc - 2, argv + 2);
        if (!std::strcmp(command, "info")) return info(argc - 2, argv + 2);
        if (!std::strcmp(command, "render")) return render(argc - 2, argv + 2);
        if (!std::strcmp(command, "convert")) return convert(argc - 2, argv + 2);
        if (!std::strcmp(command, "new")) return newDocument(argc - 2, argv + 2);
        if (korv::cli::isModelCommand(command))
            return korv::cli::runModelCommand(command, argc - 2, argv + 2);
        std::fprintf(stderr,
                     "korv: unknown command \u201C%s\u201D. Run \u201Ckorv --help\u201D for the list.\n",
                     command);
        return 2;
    } catch (const UsageError& e) {
        std::fprintf(stderr, "korv: %s\n", e.what());
        return 2;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "korv: %s\n", e.what());
        return 1;
    }
}
