// korv: the engine from the command line.
#include "cli/Commands.h"
#include "cli/Options.h"

#include <cstdio>
#include <cstring>
#include <exception>

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
                                (default demo.png, 1600x1000)
  brushes                       list the built-in brushes as JSON, every coded
                                field of each
  paint IN OUT --brush NAME --color #RRGGBB[AA] --points FILE [options]
                                paint one stroke on a pixel layer and write
                                OUT (.korvstudio, .png, .jpg, .tif, .heic);
                                FILE (or - for standard input) is a JSON array
                                of [x,y], [x,y,pressure] or [x,y,pressure,time]
                                (pressure 1 and time i x 0.01 s when left out)
      --seed N                  seed of the brush's randomness (default 1)
      --set FIELD=VALUE         change a field of the brush, by coded name
      --hold SECONDS            rest at the last point (airbrush, spray)
      --layer NAME              the topmost layer of that name (default: the
                                active layer)
      --select-rect X,Y,W,H     paint only inside a rectangle, or an ellipse
      --select-ellipse X,Y,W,H  (or a grey picture of the canvas size:
      --select-mask FILE        white paints, black protects)
      --json                    print the dirty rectangle and dab count
  help                          show this text

Native documents (.korvstudio) open, and pictures from JPEG, PNG, TIFF, HEIC,
AVIF, GIF, BMP, TGA and WebP; a file is recognised by its content, not its name.
Errors are printed on stderr and give a non-zero exit status; nothing is
written on failure.
)";

} // namespace

int main(int argc, char** argv) {
    using namespace korv::cli;
    if (argc < 2 || !std::strcmp(argv[1], "help") || !std::strcmp(argv[1], "--help") ||
        !std::strcmp(argv[1], "-h")) {
        std::fputs(kUsage, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    try {
        const char* command = argv[1];
        struct Entry {
            const char* name;
            int (*run)(int, char**);
        };
        static constexpr Entry kCommands[] = {
            {"demo", demo},       {"info", info},       {"render", render}, {"convert", convert},
            {"new", newDocument}, {"brushes", brushes}, {"paint", paint}};
        for (const Entry& e : kCommands)
            if (!std::strcmp(command, e.name)) return e.run(argc - 2, argv + 2);
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
