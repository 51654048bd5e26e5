#include "technology/process_model_layout.h"

double ViaSpacingModel::eval(int32_t x, int32_t lo, int32_t hi, int32_t new_lo, int32_t new_hi) {
    const double dx = x, dlo = lo, dhi = hi, nlo = new_lo, nhi = new_hi;
    if (hi <= lo || x <= lo) return dx + (nlo - dlo);
    if (x >= hi) return dx + (nhi - dhi);
    return nlo + (dx - dlo) * (nhi - nlo) / (dhi - dlo);
}

void LayerOffsetCompat::reset() {
    entries.clear();
    reference = 0.0;
    sorted = 0;
}

LayerOffsetCompat* LayerOffsetCompat::clone() const {
    return new LayerOffsetCompat(*this);
}

void LayerOffsetCompat::addLayerOffset(const std::string& name, double height, double offset) {
    entries.push_back({name, height, offset});
    sorted = 0;
}

void LayerOffsetCompat::sort() {
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry& a, const Entry& b) { return a.height < b.height; });
    sorted = 1;
}
