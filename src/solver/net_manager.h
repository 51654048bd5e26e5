#pragma once
// Conductors of a structure and the nearest-conductor query that the walk makes at every hop.

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "solver/config.h"
#include "solver/medium_manager.h"
#include "solver/shapes.h"

namespace RW2D {

// Walk-engine types, defined with the walk engine.
struct WalkPoint;
class RandGen;
enum NormDir : std::uint32_t;

// One conductor. Owns its shape and Gaussian rectangle.
struct WireNet {
    std::uint32_t net_kind = 0;  // 0: Gaussian rectangle at a common margin; 1: per-side clearances
    Shape* shape = nullptr;
    Rectangle* gauss = nullptr;  // set on the master only
    WireNet* partner = nullptr;  // mirror partner found by NetManager::symmetry_test
    bool is_master = false;
    std::string name;

    WireNet() = default;
    WireNet(const WireNet&) = delete;
    WireNet& operator=(const WireNet&) = delete;
    ~WireNet();

    // Master only (others return at once): sets gauss to the master's box grown by half the
    // clearance to the nearest other net, and, without reflecting walls, to the window sides.
    // margin is not read. Raises "wire net overlap" in the per-side form when a net overlaps.
    void build_gauss_surface(std::vector<WireNet*>& nets, Rectangle* window, double margin,
                             bool neumann);
};

// Four-point cumulative table over the sides of the Gaussian rectangle.
struct GaussSampler {
    std::array<double, 4> cdf{};
    int count = 0;
};

// Answer of the nearest-conductor query: a conductor-free square was found around the point, or
// the point is absorbed (by a conductor, or by the absorbing or guard boundary).
enum class NeighborResult : int { Free = 0, Absorbed = 2 };

class NetManager {
public:
    std::unique_ptr<GaussSampler> sampler;
    std::int32_t grid_nx = 0, grid_ny = 0;
    Rectangle* wire_window = nullptr;         // bounding box of all nets (grid mode)
    Rectangle* neighbor_window = nullptr;     // region covered by the grid (grid mode)
    std::vector<std::vector<WireNet*>> grid;  // grid_nx * grid_ny cells, index y*nx + x
    double max_radius = 0.0;
    Config::SpaceArgs space;
    Config::ApproxArgs approx;
    std::uint32_t boundary = 1;  // 1: reflecting window sides, 0: absorbing
    MediumManager media;
    Rectangle* window = nullptr;
    Rectangle* outer_window = nullptr;  // reflecting walls only: window grown by its own size
    WireNet* master = nullptr;
    bool symmetric = false;
    std::vector<WireNet*> nets;
    std::vector<std::pair<double, Rectangle*>> pieces;  // owned dielectric pieces, not overlapping

    // In-memory route: wires (first is the master), planar stack {bottom y, eps} bottom-up,
    // dielectric rectangles (later wins), and the window. Raises "parser error: nets empty".
    NetManager(const std::vector<Rectangle>& wires,
               const std::vector<std::array<double, 2>>& layers,
               const std::vector<std::pair<double, Rectangle>>& dielectrics,
               const Rectangle& window, const Config::SpaceArgs& space,
               const Config::ApproxArgs& approx);
    // Structure-text route; defined with the structure-text reader.
    NetManager(std::string path, const Config::SpaceArgs& space, const Config::ApproxArgs& approx);
    NetManager(const NetManager&) = delete;
    NetManager& operator=(const NetManager&) = delete;
    ~NetManager();

    // Builds the search grid when neighbor_mode is NEIGHBOR_GRID (bounding data in any mode).
    void preprocess();

    // Nearest conductor or boundary of p. Returns Absorbed when p touches a conductor (hit set) or
    // the absorbing/guard boundary (hit null), with r = 0; otherwise Free with r the half side of a
    // conductor-free square around p and hit the nearest net if a net was nearer than the boundary.
    // last, if given, is tried first. first has no effect. Raises "Point inside some net." (scan
    // mode) and "not implemented" (unknown mode). Allocates nothing; no virtual call for
    // rectangles.
    NeighborResult neighbor(const Vector2D& p, WireNet*& hit, double& r, WireNet* last,
                            bool first) const;

    // Start point on the Gaussian surface; defined with the walk engine.
    WalkPoint sample(NormDir& dir, RandGen* rng) const;

    // Sets symmetric when the nets pair up as mirror images about the master's vertical axis.
    void symmetry_test();
    // Appends to pieces the eight mirror images of each piece about the window's sides.
    void mirror_medium();
    // One approximate merge pass over pieces (series permittivity within approx.merge_tolerance);
    // returns true if the count changed.
    bool merge_medium(bool along_x, bool coarse);

    // Text of one box for the external solver; defined with the structure-text reader.
    static std::string format_ref(const Rectangle& r, const std::string& name,
                                  const std::string& suffix, const Rectangle& window);

    // ---- Construction steps shared by both routes ----
    // Cuts each dielectric by the edges of later ones crossing its interior; returns owned cells.
    static std::vector<std::pair<double, Rectangle*>> split_dielectrics(
        const std::vector<std::pair<double, Rectangle>>& dielectrics);
    // Moves a wire that sticks out of the window's bottom or top to a thin sheet just inside it.
    static void clip_wire(Rectangle& wire, const Rectangle& window);
    // Deletes every cell that a later cell overlaps by more than 1e-8 on all sides; keeps order.
    static void filter_pieces(std::vector<std::pair<double, Rectangle*>>& cells);
    // After media.init: mirror (reflecting walls), merge the media until stable, log the counts.
    void finish_media();
    // After the nets exist: radius, master check, Gaussian surface, sampler, search index.
    void finish_nets();
    // Rebuilds the flat search arrays from nets (and the grid lists when present). Call again after
    // replacing a net's shape.
    void index_nets();
    // Cell index of the default (box) mode: -1 (default) uses it from 12 nets on, where it beats a
    // scan of every net; 0 never; 1 always. The answers are identical either way.
    void set_cell_index(int policy);
    // Edges of the index cells along x and along y; empty when there is no index.
    const std::vector<double>& cell_edges(bool along_x) const {
        static const std::vector<double> none;
        return cells_ready_ ? (along_x ? cx_.edges : cy_.edges) : none;
    }
    // Mean number of nets a box-mode query examines in a cell of the index, over all cells; 0 when
    // there is no index (shapes other than rectangles, or turned off).
    double mean_cell_candidates() const;

private:
    // Flat copy of what the query reads: the bounding box, and the shape only when it needs a
    // virtual distance (null for rectangles).
    struct NetBox {
        double left, right, bottom, top;
        const Shape* virt;
        WireNet* net;
    };
    struct Bounds {
        double left = 0, right = 0, bottom = 0, top = 0;
    };

    // Cell index of the box mode: a rectilinear grid over the window, fine over the wires and
    // doubling outwards. Each cell lists, in net order, every net that can be nearest (or tie, or
    // touch) for some point of the cell, so the scan of one list gives exactly the full scan's
    // answer. Edges and lookup bins locate a point's cell without a search.
    struct CellAxis {
        std::vector<double> edges;       // cells + 1 increasing values
        std::vector<std::int32_t> bins;  // lookup bin -> the cell holding the bin's start
        double origin = 0, inv_bin = 0;
        // Cell whose closed interval holds v, which must lie within [edges.front(), edges.back()].
        int locate(double v) const noexcept;
        void build(double lo, double hi, double core_lo, double core_hi, double step);
    };

    std::vector<NetBox> boxes_;
    // The same rectangles by side, padded to a multiple of four with boxes at infinity, for the
    // vector scan.
    std::vector<double> side_left_, side_right_, side_bottom_, side_top_;
    // First nearest of boxes_ strictly nearer than r (its index), or -1: what the scalar running
    // minimum finds, four boxes at a time where the machine has the vector unit for it.
    std::ptrdiff_t nearest_box(const Vector2D& p, double& r) const;
    CellAxis cx_, cy_;
    std::vector<std::int32_t> list_start_;  // cells as offsets into list_items_, index y*nx + x
    std::vector<std::int32_t> list_items_;  // indices into boxes_, ascending within a cell
    bool cells_ready_ = false;
    int cell_policy_ = -1;
    std::vector<std::int32_t> cell_start_;  // grid cells as offsets into cell_items_
    std::vector<std::int32_t> cell_items_;  // indices into boxes_
    Bounds win_, outer_, nw_, ww_;
    bool grid_ready_ = false;
    bool all_rectangles_ = true;

    NeighborResult scan_all(const Vector2D& p, WireNet*& hit, double& r) const;
    NeighborResult scan_cells(const Vector2D& p, WireNet*& hit, double& r) const;
    void build_cell_index();
    NeighborResult scan_grid(const Vector2D& p, WireNet*& hit, double& r) const;
    NeighborResult classify_all(const Vector2D& p, WireNet*& hit, double& r) const;
    NeighborResult boundary_step(const Vector2D& p, WireNet*& hit, double& r) const;
    void build_grid_index();
};

}  // namespace RW2D
