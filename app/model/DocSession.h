#pragma once
// One open picture: its document, where it is saved, how far it is saved and
// copied for recovery, and the canvas's view of it.
#include "engine/core/Uuid.h"
#include "engine/document/StudioDocument.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace korv {

struct ViewPoint {
    double x = 0, y = 0;
    bool operator==(const ViewPoint&) const = default;
};

struct CanvasRect {
    double x = 0, y = 0, w = 0, h = 0;
    bool operator==(const CanvasRect&) const = default;
};

class DocSession {
public:
    // A dirty session starts with savedChange one below the document's count,
    // so that nothing but a save makes it clean.
    DocSession(std::unique_ptr<StudioDocument> doc, std::string name,
               std::optional<std::filesystem::path> fileURL = std::nullopt, bool dirty = false,
               Uuid id = Uuid::random());
    DocSession(const DocSession&) = delete;
    DocSession& operator=(const DocSession&) = delete;

    const Uuid id;
    const std::unique_ptr<StudioDocument> doc;
    std::string name;
    std::optional<std::filesystem::path> fileURL;
    // The file the picture was opened from, also when it is no document of
    // ours (a JPEG): its folder is where file panels start.
    std::optional<std::filesystem::path> sourceURL;
    int64_t savedChange = 0;
    int64_t autosavedChange = 0;
    std::chrono::system_clock::time_point lastAutosave = std::chrono::system_clock::time_point::min();
    double zoom = 1.0;
    ViewPoint pan;
    bool needsFit = true;
    // A crop being drawn while another picture is in front waits here.
    std::optional<CanvasRect> cropRect;

    bool isDirty() const { return doc->changeCount() != savedChange; }
};

using DocSessionPtr = std::shared_ptr<DocSession>;

} // namespace korv
