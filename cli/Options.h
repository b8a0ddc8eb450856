#pragma once
// The one option parser of `korv` and the pieces that every command shares:
// reading files, opening documents, the layer target, the selection, colours,
// stroke points and record fields set by name.
#include "engine/core/PaintColor.h"
#include "engine/core/SelectionRef.h"
#include "engine/document/StudioDocument.h"
#include "engine/formats/PhotoExport.h"
#include "engine/paint/StrokePoint.h"

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace korv::cli {

// A mistake in the command line itself (exit status 2).
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What a command accepts: options that take a value (they may repeat) and
// flags without one.
struct OptionSpec {
    std::set<std::string> values;
    std::set<std::string> flags;
};

struct Args {
    std::vector<std::string> positional;
    std::map<std::string, std::vector<std::string>> values;
    std::set<std::string> flags;

    bool has(const std::string& option) const { return values.count(option) || flags.count(option); }
    // The last value given for the option.
    std::optional<std::string> value(const std::string& option) const;
};

// Unknown options and a missing value are usage errors naming the command.
// A lone "-" is positional (standard input).
Args parse(int argc, char** argv, const OptionSpec& spec, const std::string& command);

// The options of a target layer and a selection, for commands that use them.
void addTargetOptions(OptionSpec& spec);
void addSelectionOptions(OptionSpec& spec);

std::string quoted(const std::string& path);
// "-" reads standard input.
std::vector<uint8_t> readFile(const std::string& path);

struct Opened {
    std::string format;
    std::unique_ptr<StudioDocument> document;
};
Opened openFile(const std::string& path);

double number(const std::string& text, const std::string& what);
PaintColor colour(const std::string& text, const std::string& what);

std::optional<PhotoExportFormat> formatForExtension(const std::string& path);
bool isNativeName(const std::string& path);
// OUT ends in .psd, in any case: a layered Photoshop file.
bool isPSDName(const std::string& path);
// Throws a usage error unless OUT's extension names something `korv` writes.
void requireWritableName(const std::string& path);
// The document written atomically as OUT's extension chooses; the summary line.
std::string writeDocument(StudioDocument& doc, const std::string& path);

// The layer the command works on: --layer NAME (the topmost of that name,
// groups included) or the active one. Refusals throw a runtime error.
struct Target {
    Uuid id;
    std::string name;
    bool mask = false;
};
Target target(const StudioDocument& doc, const Args& args);

// The selection of --select-rect, --select-ellipse or --select-mask; none
// without them. One that covers nothing is refused.
SelectionRef selection(const Args& args, int64_t width, int64_t height);

// A JSON array of [x, y], [x, y, pressure] or [x, y, pressure, time];
// pressure 1 and time i x 0.01 s where left out.
std::vector<StrokePoint> points(const std::string& path);

// FIELD=VALUE: VALUE read as JSON, and as text when it isn't.
std::pair<std::string, nlohmann::json> fieldValue(const std::string& set);
// FIELD=VALUE pairs applied by coded name to a record; a FIELD may go into
// arrays and objects with dots ("levels.0.inBlack"). An unknown field or a
// value of the wrong type is a usage error.
void applySets(nlohmann::json& record, const std::vector<std::string>& sets);

} // namespace korv::cli
