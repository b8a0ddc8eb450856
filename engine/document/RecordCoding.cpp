#include "engine/document/RecordCoding.h"

#include "engine/core/Fnv.h"

namespace korv {

std::optional<std::string> canonicalJSON(const nlohmann::json& j) noexcept {
    try {
        return j.dump();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<uint64_t> canonicalHash(const nlohmann::json& j) noexcept {
    auto text = canonicalJSON(j);
    if (!text) return std::nullopt;
    return fnv(text->data(), text->size());
}

} // namespace korv
