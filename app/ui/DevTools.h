#pragma once
// Development tooling started from the command line: the built-in check, the
// screenshot writer and the hooks the crash test drives.
#include "app/model/StudioModel.h"

#include <string>

namespace korv {

// Opens a generated picture, saves it to a temporary folder, reopens it and
// compares fingerprints; also checks that the canvas shows it. 0 when all pass.
int runSelfTest();
// Screenshots of the window with a sample document, as PNG files in folder.
int writeSnapshots(const std::string& folder);
// Places a coloured block on the current picture (a new one if none is
// open) and prints "edited <fingerprint>".
void applyTestEdit(StudioModel& model);
// One line per session: "session <name>\t<fingerprint>\t<dirty|clean>".
void printSessions(const StudioModel& model);

} // namespace korv
