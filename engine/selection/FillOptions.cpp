#include "engine/selection/FillOptions.h"

#include "engine/document/RecordCoding.h"

namespace korv {

namespace {
constexpr auto fillOptionFields = [](auto& o, auto&& f) {
    f("tolerance", o.tolerance);
    f("contiguous", o.contiguous);
    f("sampleAllLayers", o.sampleAllLayers);
    f("expand", o.expand);
};
} // namespace

void to_json(nlohmann::json& j, const FillOptions& o) {
    writeFields(j, o, fillOptionFields);
}
void from_json(const nlohmann::json& j, FillOptions& o) {
    readFields(j, o, fillOptionFields);
}

} // namespace korv
