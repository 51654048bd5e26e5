#pragma once
// Dielectric environment of a structure: a planar layer stack plus rectangles of other
// permittivity, kept as given and continued by mirroring for reflecting window sides.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "solver/shapes.h"

namespace RW2D {

// One dielectric rectangle. Owns its rectangle. A negative eps marks background that takes the
// value of whatever it merges with.
struct Medium {
    double eps = 1.0;
    Rectangle* shape = nullptr;

    Medium(double e, const Rectangle& r) : eps(e), shape(new Rectangle(r)) {}
    Medium(const Medium& o) : eps(o.eps), shape(new Rectangle(*o.shape)) {}
    Medium& operator=(const Medium&) = delete;
    ~Medium() { delete shape; }
};

// Layer boundaries with their offsets from the start of a range, and the permittivity above each.
struct MultilayerResult {
    std::vector<double> heights;
    std::vector<double> eps;
};

struct MediumLayer {
    // Number of guard entries on each side of z / eps.
    static constexpr int GUARDS = 5;

    std::vector<double> z;        // boundaries with guards, ascending
    std::vector<double> eps;      // eps[i] lies above z[i]
    double top = 0.0;             // top of the region
    std::vector<double> raw_z;    // layer bottoms as given, repeats removed
    std::vector<double> raw_eps;  // their permittivities
    std::vector<Medium*> media;   // owned rectangles that are not layers

    // An empty stack: vacuum, with its guards, so that a search on it is still valid.
    MediumLayer() { guard(); }
    MediumLayer(const MediumLayer& o);
    MediumLayer& operator=(const MediumLayer& o);
    MediumLayer(MediumLayer&& o) noexcept;
    MediumLayer& operator=(MediumLayer&& o) noexcept;
    ~MediumLayer();

    // Replaces raw_z/raw_eps by the {bottom y, eps} entries, folding an entry into the previous one
    // when their permittivities agree within 1e-8, then rebuilds the guarded arrays.
    void set_layers(const std::vector<std::array<double, 2>>& layers);

    // Rebuilds z and eps from raw_z/raw_eps: five guards at -1e10 and +1e10, the first layer's
    // bottom dropped so the lowest layer runs down without end. An empty stack is vacuum (eps 1).
    void guard();

    // Identity of the layer stack (not of media) for stored tables: djb-style with multiplier 5
    // over round(1e4*z), round(1e4*eps) per layer. Returns 5381 for an empty stack.
    std::uint64_t hash_value() const;

    // Returns {i, true} when y lies within 1e-8 of boundary z[i], else {i, false} with y inside
    // layer i (between z[i] and z[i+1]). Needs guard() to have run.
    std::pair<int, bool> search_layer(double y) const {
        const double* b = z.data();
        const double* it = std::lower_bound(b, b + z.size(), y);
        const int i = static_cast<int>(it - b);
        if (std::abs(y - *it) < GEO_EPS) return {i, true};
        return {i - 1, false};
    }

    // Fills out with the layers met between lo and hi: heights relative to lo (first 0.0) and the
    // permittivity above each. A lo on a boundary starts with the permittivity above it.
    void search_layer(double lo, double hi, MultilayerResult& out) const;

private:
    void clear_media();
};

class MediumManager {
public:
    Rectangle* window = nullptr;  // owned copy of the structure's window
    MediumLayer layer;            // the real structure
    MediumLayer mirror_layer;     // continued by mirroring; empty without reflecting walls

    MediumManager() = default;
    MediumManager(const MediumManager&) = delete;
    MediumManager& operator=(const MediumManager&) = delete;
    ~MediumManager();

    // In-memory route: stores the window, builds the stack from {bottom y, eps} entries and copies
    // each piece into layer.media. Never fails.
    void init(const std::vector<std::array<double, 2>>& layers,
              const std::vector<std::pair<double, Rectangle*>>& pieces, Rectangle* window);

    // Structure-text route: derives the stack from pieces that tile the window. Defined with the
    // structure-text reader, not here.
    void init(const std::vector<std::pair<double, Rectangle*>>& pieces, Rectangle* window);

    // Builds mirror_layer: the stack reflected at the window's bottom and top, and every medium
    // with its eight images reflected at the window's sides, bottom and top.
    void mirror_medium();

    // One merge pass over media: joins touching neighbours of equal (or background) permittivity in
    // rows of equal bottom/top (along_x) or columns of equal left/right. Returns true if the count
    // changed. Old media are deleted.
    static bool merge_medium(bool along_x, std::vector<Medium*>& media);

    // Runs merge_medium along x, y, x, ... and stops at the first pass that changes nothing.
    static void merge_until_stable(std::vector<Medium*>& media);

private:
    void set_window(Rectangle* w);
};

}  // namespace RW2D
