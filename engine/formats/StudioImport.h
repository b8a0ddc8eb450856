#pragma once
// File > Open: decides what a file is by its first bytes, never by its name,
// and hands it to the matching reader.
#include "engine/document/StudioDocument.h"

#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>

namespace korv {

// Layered PSD files are recognised, but their reader comes later; they get
// this error rather than a flat decode of their composite picture.
class PSDNotYetError : public std::runtime_error {
public:
    PSDNotYetError()
        : std::runtime_error("This Photoshop document can't be opened yet: KORV Lumenary doesn't read layered "
                             "PSD files so far.") {}
};

namespace StudioImport {

// Throws StudioFileError, PSDNotYetError or ExportError::cannotRead.
std::unique_ptr<StudioDocument> document(std::span<const uint8_t> bytes);

} // namespace StudioImport
} // namespace korv
