#pragma once
// Single floating random walks: a weighted first hop off the Gaussian surface around the master,
// then Green's-function hops over conductor-free squares until a conductor absorbs the walker.

#include <array>
#include <cstdint>
#include <string>

#include "solver/config.h"
#include "solver/net_manager.h"
#include "solver/online_table.h"
#include "solver/online_table_fitter.h"
#include "solver/online_table_random.h"
#include "solver/shapes.h"

namespace RW2D {

// Outward normal of the Gaussian-surface side a walk starts on.
enum NormDir : std::uint32_t {
    NORM_X_POS = 1,  // right
    NORM_X_NEG = 2,  // left
    NORM_Y_POS = 3,  // top
    NORM_Y_NEG = 4,  // bottom
};

// Kind of the next hop: the weighted first hop, or a plain Green's-function hop.
enum HopType : std::uint32_t { HOP_WVT = 1, HOP_GFT = 2 };

// A start point with its weight.
struct WalkPoint {
    double weight = 1.0;
    Vector2D point;
};

// Returns x folded into [lo, hi] like a triangle wave: unchanged strictly inside, a point on a
// wall stays there, one past a wall comes back by as much. Never fails.
double neumann_reflect(double lo, double x, double hi);

// One walker: private to one thread, reused for thousands of walks.
class WalkManager {
public:
    online_table_manager& tables;
    online_table_fitter fitter;
    NetManager* nets;
    RandGen rng;                  // this walker's own draws
    WireNet* last_net = nullptr;  // nearest net of the last query that found one; kept across walks
    double weight = 0.0;
    const WireNet* hit_net = nullptr;  // absorbing net; null when a companion left the structure
    std::uint32_t hops = 0;
    WalkPoint start;
    WalkPoint comb_center;  // reference point of the companion walk; never changes
    Vector2D position;
    NormDir norm_dir = NORM_X_POS;
    HopType hop_type = HOP_WVT;
    static constexpr std::uint32_t TABLE_SIZE = 1024;
    std::array<double, TABLE_SIZE> cos_table{};
    std::array<double, TABLE_SIZE> sin_table{};
    std::uint32_t table_size = TABLE_SIZE;
    bool dump_tables = false;
    std::string data_dir;

    // Binds the walker to the structure and this thread's table store, loading stored tables of
    // the structure's stack when config.load_tables is set; seeds the generator with seed.
    WalkManager(NetManager* nets, const Config& config, online_table_manager& tables, int seed);
    WalkManager(const WalkManager&) = delete;
    WalkManager& operator=(const WalkManager&) = delete;

    // One complete walk; afterwards weight, hit_net (never null) and hops hold its result. Walks
    // that reach the outer boundary are silently begun again. Fatal errors go to raise_error.
    void walk();
    // The mirrored companion of the walk just made, starting with a plain hop and weight minus the
    // start weight; hit_net is null when it reached the outer boundary.
    void comb_walk();
    // One step of a companion walk; returns false once it is absorbed.
    bool hop();
    // Weighted first hop of half side r, from the fitter's stack and the start side.
    void transfer_online_table_wvt(double r);
    // Plain hop of half side r.
    void transfer_online_table_gft(double r);

private:
    const MediumManager* media_;
    bool neumann_;
    double win_left_, win_right_, win_bottom_, win_top_;

    void fold() {
        if (!neumann_) return;
        position.x = neumann_reflect(win_left_, position.x, win_right_);
        position.y = neumann_reflect(win_bottom_, position.y, win_top_);
    }
    // Fits the box around position and makes the hop of the present type.
    void step(double r);
    // A plain hop of half side r through a box of layers alone, from the fitter's stack read in
    // place: what transfer_online_table_gft does with the same layers copied.
    void layered_hop(double r);
};

}  // namespace RW2D
