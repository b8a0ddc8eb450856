#pragma once
// The two failures of picture import and export, each with its sentence for the user.
#include <stdexcept>
#include <string>

namespace korv {

class ExportError : public std::runtime_error {
public:
    enum class Kind { cannotEncode, cannotRead };

    // formatName is the format's display name ("JPEG", "PNG (keeps transparency)").
    static ExportError cannotEncode(const std::string& formatName) {
        return {Kind::cannotEncode, "The picture could not be saved as " + formatName + "."};
    }
    static ExportError cannotRead() {
        return {
            Kind::cannotRead,
            "This picture could not be opened. It may be damaged or in a format this computer cannot read."};
    }

    Kind kind;

private:
    ExportError(Kind k, const std::string& message) : std::runtime_error(message), kind(k) {}
};

} // namespace korv
