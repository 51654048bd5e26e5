// What the thickness models need of a density map: the metal density in a square window.
#pragma once

#include <cstdint>

class DensitySource {
public:
    virtual ~DensitySource() = default;
    // Covered fraction of the window of side `box` centred on (x, y), in layout units; 0 when the
    // source holds no data.
    virtual double getDensity(int32_t x, int32_t y, int32_t box) const = 0;
};
