// korv: the engine from the command line.
#include "engine/document/SampleDocument.h"
#include "engine/formats/AtomicFile.h"
#include "engine/formats/ImageExport.h"
#include "engine/render/StudioRenderer.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>

namespace {

constexpr const char* kUsage = R"(Usage: korv COMMAND [ARGS]

Commands:
  demo [OUT.png] [--size WxH]   render a generated layered document to a PNG
                                (default build/demo.png, 1600x1000)
  help                          show this text

Errors are printed on stderr and give a non-zero exit status; nothing is
written on failure.
)";

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
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    korv::writeFileAtomically(out, *korv::ImageExport::pngData(flat, doc->dpi));
    std::printf("Rendered a %ldx%ld document of %zu layers in %.1f ms: %s\n", width, height,
                doc->allLayers().size(), ms, std::filesystem::absolute(out).c_str());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2 || !std::strcmp(argv[1], "help") || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")) {
        std::fputs(kUsage, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    try {
        if (!std::strcmp(argv[1], "demo")) return demo(argc - 2, argv + 2);
        std::fprintf(stderr, "korv: unknown command \u201C%s\u201D. Run \u201Ckorv --help\u201D for the list.\n", argv[1]);
        return 2;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "korv: %s\n", e.what());
        return 1;
    }
}
