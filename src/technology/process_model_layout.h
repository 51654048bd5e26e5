// Small helpers of the layout engine: moving a via edge with the edges of its conductor, and the
// height offsets of older technology files.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

class ViaSpacingModel {
public:
    // Position of a via edge x after the conductor edges lo and hi moved to new_lo and new_hi:
    // linear between the edges, shifted with the nearer edge outside them, and shifted with lo
    // when the conductor has no extent.
    static double eval(int32_t x, int32_t lo, int32_t hi, int32_t new_lo, int32_t new_hi);
};

// Height offsets by layer name, applied to the stacked layers of one wafer side.
class LayerOffsetCompat {
public:
    struct Entry {
        std::string name;
        double height = 0.0;
        double offset = 0.0;
    };
    std::vector<Entry> entries;
    double reference = 0.0;
    int32_t sorted = 0;

    virtual ~LayerOffsetCompat() = default;
    // Empties the list.
    virtual void reset();
    // A copy; the caller owns it.
    virtual LayerOffsetCompat* clone() const;

    // Appends an entry.
    void addLayerOffset(const std::string& name, double height, double offset);
    // Orders the entries by height (stable).
    void sort();

    // Moves the base of each conductor of `side` by every entry of its name (any named entry for
    // a conductor without a name) that lies below the conductor's top plus `reference`.
    template <typename Conductors>
    void applyCondOffset(Conductors& conductors, int side);
    // For each dielectric of `side`: every entry below its top plus `reference` adds its offset to
    // the thickness when it lies above the bottom plus `reference`, else to the base.
    template <typename Dielectrics>
    void applyDielOffset(Dielectrics& dielectrics, int side);
};

template <typename Conductors>
void LayerOffsetCompat::applyCondOffset(Conductors& conductors, int side) {
    if (!sorted) sort();
    for (auto& c : conductors) {
        if (c.side != side) continue;
        const double top = c.base + c.thickness + reference;
        for (const Entry& e : entries) {
            const bool named = c.name.empty() ? !e.name.empty() : e.name == c.name;
            if (named && e.height < top) c.base += e.offset;
        }
    }
}

template <typename Dielectrics>
void LayerOffsetCompat::applyDielOffset(Dielectrics& dielectrics, int side) {
    if (!sorted) sort();
    for (auto& d : dielectrics) {
        if (d.side != side) continue;
        const double bottom = d.base + reference;
        const double top = d.base + d.thickness + reference;
        for (const Entry& e : entries) {
            if (!(e.height < top)) continue;
            if (e.height > bottom) {
                d.thickness += e.offset;
            } else {
                d.base += e.offset;
            }
        }
    }
}
