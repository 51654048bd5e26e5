// Rounding to the nearest integer, halves away from zero: the same result as std::llround, but
// inline, because key building on the hop path rounds several times per hop and the library call
// was a measurable share of it.
#pragma once

#include <cstdint>

namespace RW2D {

// Returns x rounded to the nearest integer, halves away from zero. Requires |x| < 2^62.
inline std::int64_t round_half_away(double x) {
    const std::int64_t t = static_cast<std::int64_t>(x);  // truncates toward zero
    const double frac = x - static_cast<double>(t);       // exact: t and x share their integer part
    // Without branches: on the hop path the fraction is a coin toss, mispredicted half the time.
    return t + static_cast<std::int64_t>(frac >= 0.5) - static_cast<std::int64_t>(frac <= -0.5);
}

}  // namespace RW2D
