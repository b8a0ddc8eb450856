#pragma once
// The editor's layer, mask, adjustment and selection commands from the
// command line. Each runs through the same StudioModel command the menus and
// panels call, as the same named history step, on a document opened from IN.
#include <string_view>

namespace korv::cli {

// The usage lines of these commands, for `korv help`.
extern const char* const kModelCommandsUsage;

bool isModelCommand(std::string_view name);
// argv holds the command's own arguments (IN OUT and options). Throws
// UsageError for a mistake in the command line, anything else for a refusal.
int runModelCommand(std::string_view name, int argc, char** argv);

} // namespace korv::cli
