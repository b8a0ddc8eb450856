#pragma once
// The one coverage rule of every dab: an antialiased disc for hard tips and
// tiny radii, a smooth falloff from the hard core to the rim otherwise.
namespace korv {

struct CoverageProfile {
    double r;
    double inner;
    double span;
    bool hard;

    CoverageProfile(double radius, double hardness)
        : r(radius), inner(radius * hardness), span(radius - radius * hardness),
          hard(hardness >= 0.99 || radius < 1.5) {}

    static double hardAt(double r, double d) {
        const double a = r - d + 0.5;
        return a <= 0 ? 0 : (a >= 1 ? 1 : a);
    }
    static double softAt(double r, double inner, double span, double d) {
        if (d <= inner) return 1;
        if (d >= r) return 0;
        const double t = (d - inner) / span;
        return 1 - t * t * (3 - 2 * t);
    }
    double at(double d) const { return hard ? hardAt(r, d) : softAt(r, inner, span, d); }
};

} // namespace korv
