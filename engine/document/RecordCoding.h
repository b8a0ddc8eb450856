#pragma once
// How layer records become JSON and back: by field name, every key required,
// and one canonical text per value so that hashes of records are stable.
#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace korv {

// The coded names of an enumeration, in case order: the one table that
// toString and the matching fromString read.
template <class E, size_t N>
struct EnumNames {
    std::array<std::string_view, N> names;

    constexpr std::string_view operator()(E e) const { return names[size_t(e)]; }
    constexpr std::optional<E> parse(std::string_view text) const {
        for (size_t i = 0; i < N; ++i)
            if (names[i] == text) return E(i);
        return std::nullopt;
    }
    // For decoding: an unknown name refuses the record that holds it.
    E decode(const nlohmann::json& j) const {
        if (auto e = parse(j.get<std::string>())) return *e;
        throw std::invalid_argument("unknown case name");
    }
};

// Encodes each field under its name. `fields(record, f)` calls f(key, field)
// once per field, in declared order.
template <class T, class Fields>
void writeFields(nlohmann::json& j, const T& value, const Fields& fields) {
    j = nlohmann::json::object();
    fields(value, [&](const char* key, const auto& field) { j[key] = field; });
}

// Decodes into a fresh value and assigns only when every key was read, so a
// record that lacks a key leaves the target exactly as it was.
template <class T, class Fields>
void readFields(const nlohmann::json& j, T& value, const Fields& fields) {
    T out;
    fields(out, [&](const char* key, auto& field) { j.at(key).get_to(field); });
    value = std::move(out);
}

// The record decoded, or absent when the JSON lacks a key or holds a wrong value.
template <class T>
std::optional<T> decoded(const nlohmann::json& j) noexcept {
    try {
        T out;
        from_json(j, out);
        return out;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// The one canonical text of a JSON value: no blanks, object keys sorted
// (nlohmann keeps objects ordered by key). Absent when the value can't be
// written, as a text that isn't valid UTF-8.
std::optional<std::string> canonicalJSON(const nlohmann::json& j) noexcept;
// FNV-1a of the canonical text.
std::optional<uint64_t> canonicalHash(const nlohmann::json& j) noexcept;

// FNV-1a of a record's canonical JSON; absent when it can't be encoded.
template <class T>
std::optional<uint64_t> recordHash(const T& value) noexcept {
    try {
        return canonicalHash(nlohmann::json(value));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace korv
