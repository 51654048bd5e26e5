// Reduction of what lies in a walker's box to a layer stack, and the draws from the box tables.
//
// Before each hop the fitter looks at the dielectric blocks in the box, may shrink the box,
// picks the axis along which the contents are most nearly layered and reduces them to heights
// and permittivities for the table store's key. Where no stack is a fair picture it falls back
// on one mean permittivity per quarter of the box.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "solver/medium_manager.h"
#include "solver/online_table.h"
#include "solver/online_table_random.h"
#include "solver/shapes.h"

namespace RW2D {

class online_table_fitter {
public:
    // 0: quarter model; 1: stack along z; 2: stack along x (the table's z is the real x).
    int direction = 1;
    // Layer bottoms along the stack axis relative to the box's low edge (first 0), or four zeros in
    // the quarter model.
    std::vector<double> heights;
    // One permittivity per entry of heights, or the four quarter means.
    std::vector<double> eps;
    // Media of the present box.
    std::vector<const Medium*> candidates;

    // Fits the box of half side size around centre: may reduce size, sets direction, heights and
    // eps. weight_hop marks the first hop of a walk, which never falls back on the quarter model.
    // Draws from rng only when media lie in the box.
    void fit(const MediumManager& media, const Vector2D& centre, double& size, bool weight_hop,
             RandGen* rng);
    // The same, except that where no block lies in the box it returns true with stack set to the
    // box's layers read in place, and leaves heights and eps as they were: a plain hop keys its
    // table from the stack without copying it. Returns false after fitting as fit does.
    bool fit_in_place(const MediumManager& media, const Vector2D& centre, double& size,
                      bool weight_hop, RandGen* rng);
    // The box's layers after fit_in_place returned true.
    layer_stack stack{};
    // The stack a box of half side size around centre sees: the structure's, or its mirrored
    // continuation where the box reaches past the window. Never fails.
    static const MediumLayer& layers_of(const MediumManager& media, const Vector2D& centre,
                                        double size) {
        const double depth = -media.window->chebyshev(centre);
        return size > depth && !media.mirror_layer.z.empty() ? media.mirror_layer : media.layer;
    }
    // The layers of that stack between lo and hi, read in place: the one holding lo, then one
    // per boundary below hi (boundaries within 1e-8 of hi left out). Needs the stack's guards.
    static layer_stack stack_of(const MediumLayer& layers, double lo, double hi) {
        const auto i = static_cast<std::size_t>(layers.search_layer(lo).first);
        std::size_t n = 1;
        while (layers.z[i + n] < hi - GEO_EPS) ++n;
        return {layers.z.data() + i, layers.eps.data() + i, lo, n};
    }
    // Sets heights/eps to the z stack of the box and direction to the axis along which the
    // candidates' edges cross the box least.
    void determine_direction(const Vector2D& centre, double size, const MediumLayer& layers);
    // Replaces heights/eps by strata along the chosen axis, each stratum's permittivity the
    // harmonic mean over four transverse samples (four draws).
    void stratified_pack_sample(const Vector2D& centre, double size, const MediumLayer& layers,
                                RandGen* rng);
    // Quarter model: eps gets the harmonic mean permittivity of each quarter (eight draws),
    // heights four zeros.
    void oct_pack_sample(const Vector2D& centre, double size, const MediumLayer& layers,
                         RandGen* rng);

private:
    struct stratum {
        double pos = 0;
        double eps = 0;
        std::vector<const Medium*> media;
        int64_t key = 0;
    };
    // Ordered strata; entries past n_strata_ are spares kept for their storage.
    std::vector<stratum> strata_;
    size_t n_strata_ = 0;

    void fill_layers(const MediumLayer& layers, double lo, double hi);
    // Sets heights and eps to the layers of s.
    void copy_stack(const layer_stack& s);
    // Index of the stratum with key, or of the first with a larger key.
    size_t find_stratum(int64_t key) const;
    // Adds a stratum at key (if missing) that copies its predecessor; returns its index.
    size_t split_at(int64_t key, double pos);
};

// Centre of panel j of a face in box units: (2j+1)/24 - 1.
class online_table_id2offset {
public:
    // The process-wide table.
    static const online_table_id2offset& instance();
    double operator[](int j) const { return offset_[j]; }

private:
    online_table_id2offset();
    double offset_[gft_solver::NGRID];
};

// Point on the box surface, (tx, tz) in box units, drawn from a Green's function table.
std::array<double, 2> online_sampling(const PDFGFT* table, RandGen* rng);
// (weight, tx, tz) drawn from a weight table; weight is +-total_weight.
std::array<double, 3> online_sampling(const PDFWVTz* table, RandGen* rng);
std::array<double, 3> online_sampling(const PDFWVTx* table, RandGen* rng);
// (tx, tz) on one of the eight half-faces: the quarter in proportion to quarter_eps (turned
// into a cumulative distribution in place), the half-face of that quarter with equal chance, the
// panel from the homogeneous table's lower block.
std::array<double, 2> oct_sampling(const PDFGFT* table, std::vector<double>& quarter_eps,
                                   RandGen* rng);

}  // namespace RW2D
