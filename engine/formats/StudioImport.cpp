#include "engine/formats/StudioImport.h"

#include "engine/formats/ExportError.h"
#include "engine/formats/ImageImport.h"
#include "engine/formats/StudioFile.h"
#include "engine/formats/StudioPSD.h"

#include <algorithm>

namespace korv::StudioImport {

std::unique_ptr<StudioDocument> document(std::span<const uint8_t> bytes) {
    if (StudioFile::isStudioFile(bytes)) return StudioFile::decode(bytes);
    static constexpr uint8_t kPSD[4] = {'8', 'B', 'P', 'S'};
    if (bytes.size() >= 4 && std::equal(kPSD, kPSD + 4, bytes.begin())) return StudioPSD::read(bytes);
    std::optional<DecodedImage> decoded = ImageImport::decode(bytes);
    if (!decoded) throw ExportError::cannotRead();
    return std::make_unique<StudioDocument>(*decoded->image, decoded->dpi, "Background");
}

} // namespace korv::StudioImport
