// korv add and korv fonts: fill, text and shape layers from their records, and
// the font families that text can be set in.
#include "app/model/StudioModel.h"
#include "cli/CliHost.h"
#include "cli/Commands.h"
#include "cli/Options.h"
#include "engine/document/ContentSpecs.h"
#include "engine/platform/TextLayout.h"

#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#if defined(__SANITIZE_ADDRESS__)
// Fontconfig keeps what it parses from configuration files (the system's, which
// Pango loads on a thread of its own) behind offset-coded pointers that the leak
// checker can't follow, so that memory looks lost at exit. Its frames carry no
// frame pointers, so the stack names only the library.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\n";
}
#endif

namespace korv::cli {

namespace {

// A record given inline (it starts with "{") or as the path of a file that
// holds one.
nlohmann::json recordText(const std::string& value, const std::string& option) {
    size_t start = 0;
    while (start < value.size() && std::isspace(static_cast<unsigned char>(value[start])))
        ++start;
    std::string text;
    if (start < value.size() && value[start] == '{') {
        text = value;
    } else {
        const std::vector<uint8_t> bytes = readFile(value);
        text.assign(bytes.begin(), bytes.end());
    }
    nlohmann::json j = nlohmann::json::parse(text, nullptr, false);
    if (j.is_discarded() || !j.is_object())
        throw UsageError(option + " takes a JSON object, inline or in a file.");
    return j;
}

// The record's defaults with the given fields laid over them; a field the
// record doesn't have, or a value that doesn't fit its field, is a usage error.
template <class Spec>
Spec specFrom(const nlohmann::json& given, Spec defaults, const std::string& option) {
    nlohmann::json j = defaults;
    for (const auto& [field, value] : given.items()) {
        if (!j.contains(field)) throw UsageError(option + " has no field \u201C" + field + "\u201D.");
        j[field] = value;
    }
    try {
        return j.get<Spec>();
    } catch (const std::exception&) {
        throw UsageError("a value given with " + option + " does not fit its field.");
    }
}

} // namespace

int add(int argc, char** argv) {
    OptionSpec spec{{"--text", "--shape", "--fill", "--name"}, {"--json"}};
    addTargetOptions(spec);
    const Args args = parse(argc, argv, spec, "add");
    if (args.positional.size() != 2)
        throw UsageError("add takes two files: korv add IN OUT (--text SPEC | --shape SPEC | --fill SPEC)");
    const int given = int(args.has("--text")) + int(args.has("--shape")) + int(args.has("--fill"));
    if (given != 1) throw UsageError("add needs exactly one of --text, --shape or --fill.");
    if (args.has("--mask")) throw UsageError("add puts a layer above the target; a mask can't hold one.");
    const std::optional<std::string> name = args.value("--name");
    if (name && name->empty()) throw UsageError("a layer's name can't be empty.");
    const std::string& out = args.positional[1];
    requireWritableName(out);

    // Decoded before anything is opened, so that a mistake costs nothing.
    std::optional<TextSpec> text;
    std::optional<ShapeSpec> shape;
    std::optional<FillSpec> fill;
    if (auto v = args.value("--text")) text = specFrom(recordText(*v, "--text"), TextSpec(), "--text");
    if (auto v = args.value("--shape")) shape = specFrom(recordText(*v, "--shape"), ShapeSpec(), "--shape");
    if (auto v = args.value("--fill")) fill = specFrom(recordText(*v, "--fill"), FillSpec(), "--fill");

    CliHost host;
    StudioModel model(host, false);
    model.open(args.positional[0]);
    if (!model.doc())
        throw std::runtime_error(host.alerts.empty() ? "The file couldn't be opened." : host.alerts.back());
    StudioDocument& doc = *model.doc();
    if (args.has("--layer")) model.select(target(doc, args).id);

    if (text) model.addText(*text);
    if (shape) model.addShape(*shape);
    if (fill) model.addFill(*fill);
    if (!host.alerts.empty()) throw std::runtime_error(host.alerts.back());
    const std::optional<StudioLayer> added = model.activeLayer();
    if (!added || !added->isVector()) throw std::runtime_error("The layer couldn't be added.");
    if (name) model.rename(added->id, *name);

    const std::string summary = writeDocument(doc, out);
    if (!args.has("--json")) {
        std::printf("%s\n", summary.c_str());
        return 0;
    }
    const StudioLayer* layer = doc.find(added->id);
    nlohmann::json report{{"layer", layer->name},
                          {"kind", std::string(toString(layer->kind))},
                          {"layers", doc.allLayers().size()}};
    std::printf("%s\n", report.dump().c_str());
    return 0;
}

int fonts(int argc, char** argv) {
    const Args args = parse(argc, argv, {{}, {"--json"}}, "fonts");
    if (!args.positional.empty()) throw UsageError("fonts takes no files: korv fonts [--json]");
    const std::vector<std::string> families = TextLayout::families();
    if (args.has("--json")) {
        nlohmann::json report{{"families", families},
                              {"default", TextLayout::resolveFamily(TextSpec().fontFamily)}};
        std::printf("%s\n", report.dump().c_str());
        return 0;
    }
    for (const std::string& f : families)
        std::printf("%s\n", f.c_str());
    return 0;
}

} // namespace korv::cli
