#pragma once
// Monte Carlo estimator: per-thread walk statistics, the stopping rule, the merge of the threads'
// statistics, and the text reports of a result.

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "solver/config.h"
#include "solver/net_manager.h"
#include "solver/online_table.h"
#include "solver/shapes.h"

namespace RW2D {

// Vacuum permittivity in fF/um (estimates) and F/um (reports).
inline constexpr double EPS0_FF = 0.00885418781762039;
inline constexpr double EPS0_F = 8.85418781762039e-18;

// Sums of walk weights per stratum and net. With stratification, stratum 0 holds walks of
// positive weight and stratum 1 all others; each stratum has probability one half.
class Recorder {
public:
    std::vector<std::uint64_t> walks;
    std::vector<std::uint64_t> hops;
    double scale = 1.0;  // length of the Gaussian contour inside the window
    bool stratified = false;
    bool combine = false;
    bool symmetric = false;
    double seconds = 0.0;
    std::vector<std::unordered_map<const WireNet*, double>> sum;
    std::vector<std::unordered_map<const WireNet*, double>> sum_sq;

    // Empty statistics with every net of nets at 0. Raises "ss and combine" when both are set.
    Recorder(const Config::MCArgs& args, NetManager* nets);

    // Adds one finished walk (net may be null for a companion that left the structure).
    void record(double weight, const WireNet* net, std::uint32_t walk_hops) {
        const std::size_t s = (stratified && !(weight > 0)) ? 1 : 0;
        walks[s] += 1;
        hops[s] += walk_hops;
        sum[s][net] += weight;
        sum_sq[s][net] += weight * weight;
    }

    // Adds other's counts and sums into this recorder, creating missing entries.
    void merge(const Recorder* other);
    // Mean flux onto net, scale included, vacuum permittivity not; NaN while a stratum is empty.
    double expectation(const WireNet* net) const;
    // Relative standard error of the mean (may be negative; 1.0 for NaN in the plain form).
    double estimated_sigma(const WireNet* net) const;
    // Variance of the mean of net without scale and permittivity, and without partner terms.
    double variance_of_mean(const WireNet* net) const;
    // Walks counted as the report counts them (companion pairs as one).
    std::uint64_t total_walks() const;
    // Mean hops per walk.
    double hops_per_walk() const;

private:
    double mean(std::size_t s, const WireNet* net) const;
    double mean_sq(std::size_t s, const WireNet* net) const;
};

class MCManager {
public:
    std::uint32_t threads = 1;
    std::uint32_t batch = 1000;  // walks between two looks at the stopping rule
    double precision = 0.01;
    std::uint64_t max_walks = 1000000000ULL;
    bool combine = false;
    // Totals of the last estimate: walks as total_walks() counts them, and their hops.
    std::uint64_t last_walks = 0;
    std::uint64_t last_hops = 0;
    // The last estimate's table lookups, and the tables its walkers had to solve.
    table_counts last_tables;

    // Renders a result as text in one of four forms.
    struct Reporter {
        std::string name;
        bool report_full = false;
        bool report_values = false;
        bool report_named = false;
        Recorder* recorder = nullptr;  // not owned
        NetManager* nets = nullptr;    // not owned

        // Returns the report (at most 1 MiB); the named form also prints each line to standard
        // output as it is made.
        std::string to_string() const;
    };

    // Capacitances of every wire to wires[0] after filtering degenerate wires: 2N values (N
    // capacitances in fF/um, then N variances), zeros for filtered wires. Precision <= 0 selects
    // the external solver: see ref_solve.
    std::vector<double> estimate(const std::vector<Rectangle>& wires,
                                 const std::vector<std::array<double, 2>>& layers,
                                 const std::vector<std::pair<double, Rectangle>>& dielectrics,
                                 const Rectangle& window, const Config& config);

    // Solves one structure file with the caller's per-thread tables (one per thread, at least
    // config.mc.threads) from the fixed base seed 10007, and returns the report in the form the
    // config's flags select. Structure-file errors end the process (status 0).
    std::string estimate(std::string path, std::vector<online_table_manager>& tables,
                         const Config& config);
    // Solves config.input_path, or each ".txt" file of that directory in name order behind a
    // "$$<path>" line, and writes the reports to config.output_path. Raises "Failed to open output
    // file: <path>"; throws std::runtime_error "Failed to open directory: <path>".
    void estimate(const Config& config);

    // Capacitances of the unfiltered wires by the reference solver: N values in fF/um (charges with
    // wires[0] at 1 V), no variances. Prints "Error: " and the reason on standard error and returns
    // an empty vector when the solver cannot be run or its output cannot be read.
    std::vector<double> ref_solve(const std::vector<Rectangle>& wires,
                                  const std::vector<std::array<double, 2>>& layers,
                                  const std::vector<std::pair<double, Rectangle>>& dielectrics,
                                  const Rectangle& window, double precision);

private:
    // The body each walker thread runs: seed step, batches until the stopping rule holds, merge
    // into global under the same critical section, optional table dump.
    void walk_worker(NetManager* nets, const Config& config,
                     std::vector<online_table_manager>& tables, Recorder* global,
                     std::uint32_t& seed_base) const;
};

}  // namespace RW2D
