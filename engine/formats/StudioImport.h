#pragma once
// File > Open: decides what a file is by its first bytes, never by its name,
// and hands it to the matching reader.
#include "engine/document/StudioDocument.h"

#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>

namespace korv {

namespace StudioImport {

// Throws StudioFileError, ExportError::cannotRead, or for a PSD its reader's
// PSDError or BEReader::Short: a PSD never falls back to its flat picture.
std::unique_ptr<StudioDocument> document(std::span<const uint8_t> bytes);

} // namespace StudioImport
} // namespace korv
