// korv: the engine from the command line.
#include "cli/Commands.h"
#include "cli/ModelCommands.h"
#include "cli/Options.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

namespace {

constexpr const char* kUsage = R"(Usage: korv COMMAND [ARGS]

Commands:
  info IN                       describe a document or picture as JSON: format,
                                width, height, dpi and the layer tree (kinds,
                                modes, opacity, masks)
  render IN OUT.png             flatten a document or picture to a PNG at its
                                own DPI
  convert IN OUT [--quality Q] [--scale S] [--background #RRGGBB]
                                export as JPEG, PNG, TIFF, HEIC, a layered PSD
                                or a native document, chosen by OUT's extension
                                (jpg, jpeg, png, tif, tiff, heic, psd,
                                korvstudio); Q from 0.05
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
                                OUT (.korvstudio, .psd, .png, .jpg, .tif, .heic);
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
  add IN OUT (--text SPEC | --shape SPEC | --fill SPEC) [--name NAME]
                                add a text, shape or fill layer above the
                                target (--layer NAME, or the active layer) and
                                write OUT (.korvstudio, .png, .jpg, .tif,
                                .heic); SPEC is a JSON record, inline or in a
                                file, coded as in a native document, and the
                                fields it leaves out take their defaults:
                                '{"text":"Hello","size":96,"x":40,"y":40}',
                                '{"kind":"star","x":10,"y":10,"w":200,"h":200}',
                                '{"kind":"linearGradient","angle":0}'
      --json                    print the new layer's name and kind
  fonts [--json]                list the font families text can be set in;
                                --json adds the family that draws the default
                                "Helvetica Neue"
  help [COMMAND]                show this text, or the part of one command

Native documents (.korvstudio) and 8-bit RGB Photoshop files (.psd) open with
their layers, and pictures from JPEG, PNG, TIFF, HEIC, AVIF, GIF, BMP, TGA and
WebP; a file is recognised by its content, not its name.
Errors are printed on stderr and give a non-zero exit status; nothing is
written on failure.
)";

// The lines of the usage text that belong to one command: its own line,
// starting two spaces in, and those indented further below it.
std::string commandHelp(const std::string& name) {
    const std::string text = std::string(kUsage) + korv::cli::kModelCommandsUsage;
    std::string out;
    bool inside = false;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = std::min(text.find('\n', start), text.size());
        const std::string line = text.substr(start, end - start);
        start = end + 1;
        const bool commandLine = line.size() > 2 && line.compare(0, 2, "  ") == 0 && line[2] != ' ';
        if (commandLine)
            inside = line.compare(2, name.size() + 1, name + " ") == 0 || line.substr(2) == name;
        else if (line.empty() || line[0] != ' ')
            inside = false;
        if (inside) out += line + "\n";
    }
    return out;
}

} // namespace

int main(int argc, char** argv) {
    using namespace korv::cli;
    const bool help = argc >= 2 && (!std::strcmp(argv[1], "help") || !std::strcmp(argv[1], "--help") ||
                                    !std::strcmp(argv[1], "-h"));
    if (help && argc >= 3) {
        const std::string text = commandHelp(argv[2]);
        if (text.empty()) {
            std::fprintf(
                stderr, "korv: there is no command \u201C%s\u201D. Run \u201Ckorv help\u201D for the list.\n",
                argv[2]);
            return 2;
        }
        std::fputs(("Usage: korv" + text.substr(1)).c_str(), stdout);
        return 0;
    }
    if (argc < 2 || help) {
        std::FILE* to = argc < 2 ? stderr : stdout;
        std::fputs(kUsage, to);
        std::fputs("\n", to);
        std::fputs(korv::cli::kModelCommandsUsage, to);
        return argc < 2 ? 2 : 0;
    }
    try {
        const char* command = argv[1];
        struct Entry {
            const char* name;
            int (*run)(int, char**);
        };
        static constexpr Entry kCommands[] = {
            {"demo", demo},       {"info", info},       {"render", render},
            {"convert", convert}, {"new", newDocument}, {"brushes", brushes},
            {"paint", paint},     {"add", add},         {"fonts", fonts}};
        for (const Entry& e : kCommands)
            if (!std::strcmp(command, e.name)) return e.run(argc - 2, argv + 2);
        if (isModelCommand(command)) return runModelCommand(command, argc - 2, argv + 2);
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
