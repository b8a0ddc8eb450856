#include "engine/formats/BEReader.h"

namespace korv {

const char* BEReader::Short::what() const noexcept {
    return "This Photoshop file ends too early. It may be damaged or incompletely copied.";
}

} // namespace korv
