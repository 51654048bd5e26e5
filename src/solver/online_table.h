// Cache of box tables keyed by the quantised layer stack of the box.
//
// A key is a byte string of (grid node where a layer begins, permittivity / stack maximum /
// step) pairs, so boxes of any size with like stacks share one table. A table is a pure function
// of its key, so every solve and every walker thread shares one process-wide set of stores from
// the first solve on: walkers read it without a lock, and a table missing from it is solved once
// by the thread that meets it and published for all. The set can be kept on disk between runs.
#pragma once

#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "solver/gft_solver.h"
#include "solver/table_store.h"

namespace RW2D {

class RandGen;

using PDFGFT = gft_solver::PDFGFT;
using PDFWVTz = gft_solver::PDFWVTz;
using PDFWVTx = gft_solver::PDFWVTx;

// The solved tables that solves share: Green's function, z-weight and x-weight tables by key, and
// the three tables of the homogeneous box.
class table_stores {
public:
    table_store<PDFGFT> gft;
    table_store<PDFWVTz> wvtz;
    table_store<PDFWVTx> wvtx;

    table_stores() = default;
    table_stores(const table_stores&) = delete;
    table_stores& operator=(const table_stores&) = delete;

    // The process-wide set every solve reads and fills, built on first use.
    static table_stores& process();

    // Number of keyed tables held (the homogeneous box not counted).
    std::size_t size() const { return gft.size() + wvtz.size() + wvtx.size(); }

    // Homogeneous-box tables, solved on the first call of any of the three.
    const PDFGFT* single_gft();
    const PDFWVTz* single_wvtz();
    const PDFWVTx* single_wvtx();

    // True on the first call with this id and dir, false after: table files are read once.
    bool first_load(unsigned long id, const std::string& dir);

    // Adds the tables of a cache file written by save_cache; keys already held stay. Returns the
    // number of tables the file held: 0 for a missing file, and 0 with a warning on standard error
    // and nothing added for a file that is truncated, corrupt or not a table cache of this build.
    std::size_t load_cache(const std::string& path);
    // Writes every keyed table to path: into a temporary file beside it, then renamed over it, so
    // a reader never sees half a file. Returns false, with a warning on standard error, on failure.
    bool save_cache(const std::string& path) const;

private:
    struct singles {
        PDFGFT gft;
        PDFWVTz wvtz;
        PDFWVTx wvtx;
    };
    const singles& homogeneous();

    std::once_flag singles_once_;
    singles singles_;
    std::mutex loaded_mutex_;
    std::set<std::pair<unsigned long, std::string>> loaded_;
};

// The layers of a box read straight from a structure's boundaries, without copying them: n layers,
// layer j holding eps[j] and beginning at z[j] - lo, the first at the box bottom (0).
struct layer_stack {
    const double* z;
    const double* eps;
    double lo;
    std::size_t n;
    std::size_t size() const { return n; }
    double height(std::size_t j) const { return j == 0 ? 0.0 : z[j] - lo; }
    double permittivity(std::size_t j) const { return eps[j]; }
};

// What one manager did: table lookups by kind, and the tables it had to solve and the thread CPU
// time that took.
struct table_counts {
    std::int64_t gft_queries = 0;
    std::int64_t wvtz_queries = 0;
    std::int64_t wvtx_queries = 0;
    std::int64_t solved = 0;
    double solve_seconds = 0;

    std::int64_t queries() const { return gft_queries + wvtz_queries + wvtx_queries; }
    table_counts& operator+=(const table_counts& o);
};

// A walker thread's door to the shared stores: builds keys without allocating, solves what is
// missing, and counts what it did.
class online_table_manager {
public:
    // Quantisation step of permittivities in keys, as a fraction of the largest: 1/250 (the
    // finest a key byte holds), or the argument store's "RW2D_EPS_STEP" read on the first call,
    // clamped to [1/250, 0.01]. Rounded to the nearest step, 0.01 leaves a low-k layer up to 1.4%
    // off against a film of about three times its permittivity and 1/250 up to 0.44%, which
    // biased the plate-as-master rows by 0.4% and 0.15%; keys built with the walker's generator
    // round at random instead, so either step holds the ratios in the mean (docs/accuracy.md).
    static double eps_step();

    table_counts counts;

    // A manager over the given stores; the default is the process-wide set.
    explicit online_table_manager(table_stores& stores = table_stores::process())
        : stores_(&stores) {}

    table_stores& stores() const { return *stores_; }

    // Green's function table of the box of side size whose layers begin at heights (relative to
    // the box bottom, first 0) with permittivities eps. The pointer stays valid as long as the
    // stores. Solves the table when no thread has yet.
    // With rng, each interface goes to one of its two neighbouring grid nodes at random, the upper
    // with a chance equal to its fraction of a cell, so that the tables a walker meets hold the
    // interface where it is in the mean, and each permittivity likewise to one of its two
    // neighbouring steps; without, to the nearest node and step. Nearest rounding biased
    // boxes whose interfaces sit at like fractions hop after hop, as thin films near a wire's
    // face make them, by up to 0.8% of a capacitance (docs/accuracy.md). The argument store's
    // "RW2D_ROUND_NEAREST" 1 brings the nearest rounding back.
    const PDFGFT* get_GFT(const std::vector<double>& heights, const std::vector<double>& eps,
                          double size, RandGen* rng = nullptr);
    // The same for a stack read from the structure: the same key and table as for its copy in
    // vectors, with the same draws.
    const PDFGFT* get_GFT(const layer_stack& stack, double size, RandGen* rng);
    // Weight tables of the same box; middle_eps receives the factor the sampled weight is to be
    // scaled by: the permittivity at the box centre for x weights, unit_flux_scale for z weights
    // (the centre's permittivity, corrected for the key's rounding). Every call counts one query.
    // With rng the z-weight key is built as pack builds the others, interfaces rounded at random;
    // without, or with "RW2D_ROUND_NEAREST", from pack_avg's cell averages.
    const PDFWVTz* get_WVTz(const std::vector<double>& heights, const std::vector<double>& eps,
                            double size, double& middle_eps, RandGen* rng = nullptr);
    const PDFWVTx* get_WVTx(const std::vector<double>& heights, const std::vector<double>& eps,
                            double size, double& middle_eps, RandGen* rng = nullptr);

    // Homogeneous-box tables.
    const PDFGFT* get_single_gft() {
        if (single_gft_ == nullptr) single_gft_ = stores_->single_gft();
        return single_gft_;
    }
    const PDFWVTz* get_single_wvtz() {
        if (single_wvtz_ == nullptr) single_wvtz_ = stores_->single_wvtz();
        return single_wvtz_;
    }
    const PDFWVTx* get_single_wvtx() {
        if (single_wvtx_ == nullptr) single_wvtx_ = stores_->single_wvtx();
        return single_wvtx_;
    }

    // The shift that asks pack for nearest rounding.
    static constexpr double kNearest = -1;
    // Longest key: one (position, permittivity) pair per grid node.
    static constexpr std::size_t kKeyBytes = 2 * gft_solver::NGRID;

    // Key of a Green's function or x-weight table, written into key (reused, so no allocation once
    // it has grown). Heights that round to one node leave the topmost; equal neighbours merge.
    // shift: kNearest rounds each height to the nearest node and each permittivity to the nearest
    // step of the stack maximum; a draw u in [0, 1) takes floor(h + u) for heights and floor(e +
    // u) for permittivities in steps of the largest the key keeps.
    static void pack(const std::vector<double>& heights, const std::vector<double>& eps,
                     double size, double step, std::string& key, double shift = kNearest);
    // The same into key[0, kKeyBytes); returns the key's length.
    static std::size_t pack(const std::vector<double>& heights, const std::vector<double>& eps,
                            double size, double step, char* key, double shift);
    static std::string pack(const std::vector<double>& heights, const std::vector<double>& eps,
                            double size, double step);
    // Key of a z-weight table: a cell holding interfaces gets their series average instead of
    // rounding them away. width is the cell width in grid cells.
    static void pack_avg(const std::vector<double>& heights, const std::vector<double>& eps,
                         double size, double step, int width, std::string& key);
    static std::string pack_avg(const std::vector<double>& heights, const std::vector<double>& eps,
                                double size, double step, int width);
    // Scale of the z weights of table t in the box of side size whose layers begin at heights
    // (first 0) with permittivities eps: the factor that makes the drawn weight times the
    // potential at the landing point average to exactly the flux of phi(z) = integral dz/eps,
    // which is 1 in every layered box. It stands in for the centre's permittivity and also
    // absorbs what the key's rounding of interfaces and permittivities does to that flux. NaN or
    // a value <= 0 only for a degenerate table.
    static double unit_flux_scale(const PDFWVTz& t, const std::vector<double>& heights,
                                  const std::vector<double>& eps, double size);
    // Real permittivity at the box centre for a weight key: the true eps of the closest layer that
    // quantises to the centre pair's value, else the dequantised value.
    static double get_middle_eps(const std::vector<double>& heights, const std::vector<double>& eps,
                                 std::string_view key, double size, double step);

    // Writes the stores to dir/<id>X24, <id>Y24, <id>Z24, creating dir (mode 0755) when missing.
    // Failures are reported on standard error and never thrown.
    void dump(unsigned long id, const std::string& dir) const;
    // Adds the tables of those files to the stores, once per id and dir in a process; keys already
    // held stay. A missing directory or file is passed over silently; other failures are reported
    // on standard error.
    void load(unsigned long id, const std::string& dir);

    // Name of the table file of id with the given letter in dir.
    static std::string table_path(const std::string& dir, unsigned long id, char letter);

private:
    // True when the argument store asks for nearest rounding ("RW2D_ROUND_NEAREST"), read once.
    static bool round_to_nearest();
    // True when keys round interfaces at random: a generator is given and the switch is off.
    static bool rounds_at_random(const RandGen* rng);
    // The shift pack takes: a draw of rng when rounds_at_random, else kNearest.
    static double node_shift(RandGen* rng);

    table_stores* stores_;
    const PDFGFT* single_gft_ = nullptr;
    const PDFWVTz* single_wvtz_ = nullptr;
    const PDFWVTx* single_wvtx_ = nullptr;
    // The key being looked up, in a fixed buffer: building it never allocates.
    struct fixed_key {
        char bytes[kKeyBytes];
        std::size_t size = 0;
        int at(std::size_t i) const { return static_cast<unsigned char>(bytes[i]); }
        std::string_view view() const { return {bytes, size}; }
    };
    fixed_key key_;
    std::string avg_key_;  // pack_avg's key before it is copied into key_
    std::vector<int> itf_;
    std::vector<double> eps_;
    gft_solver solver_;

    // Renormalises the permittivity bytes of key_ so that the largest is 100.
    void renormalise_key();
    // Rebuilds the stack of key_ for the solver.
    void unpack_key();
    template <class T>
    const T* lookup(table_store<T>& store, gft_solver::solver_code code);
    template <class Stack>
    const PDFGFT* gft_of(const Stack& stack, double size, RandGen* rng);
};

}  // namespace RW2D
