#pragma once
// Names inside the messages the user reads stand in typographic quotes.
#include <string>

namespace korv {

inline std::string inQuotes(const std::string& text) {
    return "\u201C" + text + "\u201D";
}

} // namespace korv
