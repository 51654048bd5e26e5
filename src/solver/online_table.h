// Cache of box tables keyed by the quantised layer stack of the box.
//
// A key is a byte string of (grid node where a layer begins, permittivity / stack maximum /
// step) pairs, so boxes of any size with like stacks share one table. Each walker thread owns an
// online_table_manager and walks without locks; at the end of a solve the private stores feed a
// process-wide store which, once it stops growing, is frozen and then read without a lock.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "solver/gft_solver.h"

namespace RW2D {

class RandGen;

using PDFGFT = gft_solver::PDFGFT;
using PDFWVTz = gft_solver::PDFWVTz;
using PDFWVTx = gft_solver::PDFWVTx;

// Writer flag and reader count of a shared store.
struct online_table_lock {
    std::atomic<int32_t> readers{0};
    std::atomic<uint8_t> writer{0};
};

template <class T>
class online_table_database {
public:
    absl::flat_hash_map<std::string, T, std::hash<std::string>> map;
    // Set once, in the shared store only, when it has stopped growing; never cleared.
    std::atomic<bool> frozen{false};
    int64_t query_count = 0;

    online_table_database() = default;
    online_table_database(online_table_database&& o) noexcept
        : map(std::move(o.map)), frozen(o.frozen.load()), query_count(o.query_count) {}
    online_table_database(const online_table_database&) = delete;
    online_table_database& operator=(const online_table_database&) = delete;

    // Process-wide shared store of T, built on first use and destroyed at exit.
    static online_table_database& instance();
    // Lock of the shared store.
    static online_table_lock& lock_instance();

    // Returns the stored record or null. No lock, no allocation.
    const T* find(const std::string& key) const {
        auto it = map.find(key);
        return it == map.end() ? nullptr : &it->second;
    }
    // True once the store is frozen: it may then be read without a lock.
    bool is_frozen() const { return frozen.load(std::memory_order_acquire); }

    // Feeds this private store into the shared one (see merge_into), then empties this store.
    void merge_into_global();
    // The same against a given shared store and lock: entries the shared store lacks are copied,
    // the query count added, and the shared store frozen (with a "[DEBUG] ... shutdown" line on
    // standard output) when it holds more than 1e7 queries at fewer than 1e-5 entries per query.
    // Does nothing when this store is empty and unqueried, or the shared store frozen.
    void merge_into(online_table_database& shared, online_table_lock& lock);
};

class online_table_manager {
public:
    PDFGFT* single_gft = nullptr;
    PDFWVTz* single_wvtz = nullptr;
    PDFWVTx* single_wvtx = nullptr;
    online_table_database<PDFGFT> gft_tables;
    online_table_database<PDFWVTz> wvtz_tables;
    online_table_database<PDFWVTx> wvtx_tables;
    gft_solver solver;
    double wvt_step = 0.01;
    double gft_step = 0.01;

    online_table_manager() = default;
    online_table_manager(online_table_manager&& o) noexcept;
    online_table_manager(const online_table_manager&) = delete;
    online_table_manager& operator=(const online_table_manager&) = delete;
    ~online_table_manager();

    // Green's function table of the box of side size whose layers begin at heights (relative to
    // the box bottom, first 0) with permittivities eps. The pointer stays valid until the next
    // insertion into this manager's store. Solves the table on the first request of its key.
    const PDFGFT* get_GFT(const std::vector<double>& heights, const std::vector<double>& eps,
                          double size, RandGen* rng = nullptr);
    // Weight tables of the same box; middle_eps receives the permittivity at the box centre that
    // the sampled weight is to be scaled by. Each counts one query in its store.
    const PDFWVTz* get_WVTz(const std::vector<double>& heights, const std::vector<double>& eps,
                            double size, double& middle_eps);
    const PDFWVTx* get_WVTx(const std::vector<double>& heights, const std::vector<double>& eps,
                            double size, double& middle_eps);

    // Homogeneous-box tables; the first call solves all three.
    const PDFGFT* get_single_gft();
    const PDFWVTz* get_single_wvtz();
    const PDFWVTx* get_single_wvtx();

    // Key of a Green's function or x-weight table, written into key (reused, so no allocation once
    // it has grown). Heights that round to one node leave the topmost; equal neighbours merge.
    static void pack(const std::vector<double>& heights, const std::vector<double>& eps,
                     double size, double step, std::string& key);
    static std::string pack(const std::vector<double>& heights, const std::vector<double>& eps,
                            double size, double step);
    // Key of a z-weight table: a cell holding interfaces gets their series average instead of
    // rounding them away. width is the cell width in grid cells.
    static void pack_avg(const std::vector<double>& heights, const std::vector<double>& eps,
                         double size, double step, int width, std::string& key);
    static std::string pack_avg(const std::vector<double>& heights, const std::vector<double>& eps,
                                double size, double step, int width);
    // Real permittivity at the box centre for a weight key: the true eps of the closest layer that
    // quantises to the centre pair's value, else the dequantised value.
    static double get_middle_eps(const std::vector<double>& heights, const std::vector<double>& eps,
                                 const std::string& key, double size, double step);

    // Feeds the three private stores into the shared ones (Green's function, x, z in that order).
    void merge_all_into_global();

    // Writes the private stores to dir/<id>X24, <id>Y24, <id>Z24, creating dir (mode 0755) when
    // missing. Failures are reported on standard error and never thrown.
    void dump(unsigned long id, const std::string& dir) const;
    // Adds the tables of those files to the private stores; keys already held stay. A missing
    // directory or file is passed over silently; other failures are reported on standard error.
    void load(unsigned long id, const std::string& dir);

    // Name of the table file of id with the given letter in dir.
    static std::string table_path(const std::string& dir, unsigned long id, char letter);

private:
    std::string key_;
    std::vector<int> itf_;
    std::vector<double> eps_;

    void make_singles();
    // Renormalises the permittivity bytes of key_ so that the largest is 100.
    void renormalise_key();
    // Rebuilds the stack of key_ for the solver.
    void unpack_key();
    template <class T>
    const T* lookup(online_table_database<T>& store, gft_solver::solver_code code);
};

}  // namespace RW2D
