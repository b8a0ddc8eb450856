#include "engine/paint/PaperGrain.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace korv::PaperGrain {

namespace {

std::vector<float> build() {
    std::vector<float> v(size_t(size * size), 0.0f);
    uint64_t s = 0x51E51D0E685A197Bull;
    struct Octave {
        int64_t period;
        double amplitude;
    };
    const Octave octaves[] = {{8, 0.35}, {32, 0.30}, {64, 0.20}, {128, 0.15}};
    std::vector<float> lattice;
    for (const Octave& o : octaves) {
        const int64_t p = o.period;
        lattice.resize(size_t(p * p));
        for (float& f : lattice) {
            s ^= s << 13;
            s ^= s >> 7;
            s ^= s << 17;
            f = float(double(s >> 11) * 0x1.0p-53);
        }
        const double cell = double(size) / double(p);
        for (int64_t y = 0; y < size; ++y) {
            const double fy = double(y) / cell;
            const int64_t iy = int64_t(fy) % p, iy1 = (iy + 1) % p;
            const double ty = fy - std::floor(fy), sy = ty * ty * (3 - 2 * ty);
            for (int64_t x = 0; x < size; ++x) {
                const double fx = double(x) / cell;
                const int64_t ix = int64_t(fx) % p, ix1 = (ix + 1) % p;
                const double tx = fx - std::floor(fx), sx = tx * tx * (3 - 2 * tx);
                const double v00 = lattice[size_t(iy * p + ix)], v10 = lattice[size_t(iy * p + ix1)];
                const double v01 = lattice[size_t(iy1 * p + ix)], v11 = lattice[size_t(iy1 * p + ix1)];
                const double top = v00 + (v10 - v00) * sx, bottom = v01 + (v11 - v01) * sx;
                v[size_t(y * size + x)] += float(o.amplitude * (top + (bottom - top) * sy));
            }
        }
    }
    for (float& f : v)
        f = std::clamp((f - 0.5f) * 2.2f + 0.6f, 0.0f, 1.0f);
    return v;
}

} // namespace

const float* values() {
    static const std::vector<float> grain = build();
    return grain.data();
}

} // namespace korv::PaperGrain
