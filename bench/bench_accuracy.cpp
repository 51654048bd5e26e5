// The bias instrument: full capacitance matrices of the finite-element reference structures,
// pooled over several seeds, entry by entry against the reference.
//
//   build/bench/bench_accuracy [--precision P=0.005] [--seeds K=4] [--first-seed S=1]
//                              [--dir FOLDER] [--plate-row | --plate-only]
//                              [--set KEY=VALUE ...] [structure ...]
//
// Each conductor (the ground plate last) is master once per seed; every solve runs one walker
// thread, and solves run in parallel on all cores. Per entry it prints the reference, the mean
// error over all seeds in percent of the row's diagonal, the standard error of that mean (from
// the solvers' own variances, which stay meaningful with two seeds) and z = mean / standard
// error, flagging |z| > 3. Per structure, the ratio of the spread between seeds to those standard
// errors checks that the solver's error bars are honest (about 1 when they are). Rows are the raw
// solver rows, before any symmetrisation, so a bias of one master's solve shows in its own row.
//
// --plate-row adds, per structure, the plate's row three ways, each pooled over all seeds: as
// solved with the plate as master, derived from the wire rows (their column, the diagonal closing
// the row), and both after the sample generator's constraint, which is what a sample file holds
// (solved then symmetrised: the old output; derived: the default output). Errors are in percent
// of the plate's diagonal, with the share of CPU time the plate's own solve took.
//
// --plate-only solves only the plate as master: its row alone, at a fraction of the cost.
// --set puts an entry into the argument store before the solves (e.g. RW2D_ROUND_NEAREST=1), to
// measure a switch against the default.
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "patterns/solving.h"
#include "runtime/pargument.h"
#include "solver/api_wrapper.h"
#include "support/validation_reference.h"

namespace {

const std::vector<std::string> kAllStructures = {
    "01_plate_full",  "02_wire_over_ground", "03_three_wires",
    "04_two_levels",  "05_layered_stack",    "06_conformal_coats",
    "07_random_like", "09_near_side_wall",   "10_thin_films"};

struct Options {
    double precision = 0.005;
    int seeds = 4;
    int first_seed = 1;
    std::string dir = KARVEN_VALIDATION_DIR;
    std::vector<std::string> structures;
    bool plate_row = false;
    bool plate_only = false;
};

Options parse(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto next = [&]() -> const char* {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "bench_accuracy: %s needs a value\n", a.c_str());
                std::exit(2);
            }
            return argv[++i];
        };
        if (a == "--precision")
            o.precision = std::atof(next());
        else if (a == "--seeds")
            o.seeds = std::atoi(next());
        else if (a == "--first-seed")
            o.first_seed = std::atoi(next());
        else if (a == "--dir")
            o.dir = next();
        else if (a == "--plate-row")
            o.plate_row = true;
        else if (a == "--plate-only")
            o.plate_only = true;
        else if (a == "--set") {
            const std::string kv = next();
            const auto eq = kv.find('=');
            if (eq == std::string::npos || eq == 0) {
                std::fprintf(stderr, "bench_accuracy: --set needs KEY=VALUE, got %s\n", kv.c_str());
                std::exit(2);
            }
            PARG::regArgument(kv.substr(0, eq), kv.substr(eq + 1));
        } else
            o.structures.push_back(a);
    }
    if (o.structures.empty()) o.structures = kAllStructures;
    if (o.plate_row && o.plate_only) {
        std::fprintf(stderr, "bench_accuracy: --plate-row needs every row; drop --plate-only\n");
        std::exit(2);
    }
    if (o.seeds < 1 || !(o.precision > 0)) {
        std::fprintf(stderr, "bench_accuracy: need --seeds >= 1 and --precision > 0\n");
        std::exit(2);
    }
    return o;
}

struct Solve {
    std::size_t structure, seed, master;
    std::vector<double> row, variance;  // in the structure's conductor order
    double seconds = 0;
};

// The plate row (last) of one structure four ways, pooled over seeds, against the reference.
void print_plate_row(const karven_test::ValidationReference& ref, std::size_t s,
                     const std::vector<Solve>& solves, int seeds, double precision) {
    const std::size_t n = ref.wires.size(), p = n - 1;
    if (n < 2) return;
    const char* names[4] = {"solved", "derived", "solved+constrained", "derived+constrained"};
    std::vector<std::vector<double>> sum(4, std::vector<double>(n, 0.0));
    std::vector<double> var_solved(n, 0.0), var_derived(n, 0.0);
    double plate_cpu = 0, all_cpu = 0;
    for (int k = 0; k < seeds; ++k) {
        KARVEN::Matrix c(n), v(n);
        for (const auto& sv : solves) {
            if (sv.structure != s || sv.seed != static_cast<std::size_t>(k)) continue;
            c[sv.master] = sv.row;
            v[sv.master] = sv.variance;
            all_cpu += sv.seconds;
            if (sv.master == p) plate_cpu += sv.seconds;
        }
        KARVEN::Matrix d = c, dv = v;
        KARVEN::derivePlateRow(d, dv);
        KARVEN::Matrix cc = c, dc = d;
        KARVEN::constrain_matrix(cc, v, precision);
        KARVEN::constrain_matrix(dc, dv, precision);
        for (std::size_t j = 0; j < n; ++j) {
            sum[0][j] += c[p][j];
            sum[1][j] += d[p][j];
            sum[2][j] += cc[p][j];
            sum[3][j] += dc[p][j];
            var_solved[j] += v[p][j];
            var_derived[j] += dv[p][j];
        }
    }
    const double diag = ref.matrix[p][p], m = seeds;
    std::printf(
        "  plate row (%zu), error %% of its diagonal, mean of %d seeds; the plate's solve "
        "took %.0f%% of the CPU time\n",
        p, seeds, all_cpu > 0 ? 100 * plate_cpu / all_cpu : 0.0);
    std::printf("  %5s %12s", "entry", "reference");
    for (const char* name : names) std::printf(" %20s", name);
    std::printf("   s.e. solved/derived\n");
    std::vector<double> worst(4, 0.0), rms(4, 0.0);
    int terms = 0;
    for (std::size_t j = 0; j < n; ++j) {
        const bool significant = std::fabs(ref.matrix[p][j]) >= 0.01 * diag;
        std::printf("  %2zu,%-2zu %12.6g", p, j, ref.matrix[p][j]);
        for (int w = 0; w < 4; ++w) {
            const double e = (sum[w][j] / m - ref.matrix[p][j]) / diag;
            std::printf(" %+20.3f", 100 * e);
            if (significant) {
                worst[w] = std::max(worst[w], std::fabs(e));
                rms[w] += e * e;
            }
        }
        terms += significant;
        std::printf("   %.3f/%.3f\n", 100 * std::sqrt(var_solved[j]) / m / diag,
                    100 * std::sqrt(var_derived[j]) / m / diag);
    }
    std::printf("  plate row, entries above 1%% of the diagonal: worst |error| / rms %%:");
    for (int w = 0; w < 4; ++w)
        std::printf("  %s %.3f/%.3f", names[w], 100 * worst[w],
                    terms ? 100 * std::sqrt(rms[w] / terms) : 0.0);
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    const Options opt = parse(argc, argv);
    std::vector<karven_test::ValidationReference> refs;
    for (const auto& s : opt.structures)
        refs.push_back(karven_test::load_validation_reference(opt.dir, s));

    std::vector<Solve> solves;
    for (std::size_t s = 0; s < refs.size(); ++s)
        for (int k = 0; k < opt.seeds; ++k)
            for (std::size_t m = opt.plate_only ? refs[s].wires.size() - 1 : 0;
                 m < refs[s].wires.size(); ++m)
                solves.push_back({s, static_cast<std::size_t>(k), m, {}, {}, 0});

    std::printf("precision %g, %d seeds from %d, %zu solves on %d threads\n", opt.precision,
                opt.seeds, opt.first_seed, solves.size(), omp_get_max_threads());
    const double t0 = omp_get_wtime();
#pragma omp parallel for schedule(dynamic, 1)
    for (std::size_t t = 0; t < solves.size(); ++t) {
        Solve& sv = solves[t];
        const auto& ref = refs[sv.structure];
        const std::size_t n = ref.wires.size();
        auto wires = ref.wires;
        std::swap(wires[0], wires[sv.master]);
        const double s0 = omp_get_wtime();
        std::vector<double> r = RW2D_API::extract_capacitance(
            wires, ref.layers, ref.dielectrics, ref.window, opt.precision,
            opt.first_seed + static_cast<int>(sv.seed));
        sv.seconds = omp_get_wtime() - s0;
        r.resize(2 * n, 0.0);
        // Back to the structure's order: the solver's entry 0 is the master.
        std::swap(r[0], r[sv.master]);
        std::swap(r[n], r[n + sv.master]);
        sv.row.assign(r.begin(), r.begin() + n);
        sv.variance.assign(r.begin() + n, r.end());
    }
    const double wall = omp_get_wtime() - t0;

    double worst_diag = 0, worst_coupling = 0;
    int flagged = 0;
    for (std::size_t s = 0; s < refs.size(); ++s) {
        const auto& ref = refs[s];
        const std::size_t n = ref.wires.size();
        double cpu = 0, spread_ratio2 = 0;
        int ratio_terms = 0;
        std::printf("\n%s (%zu conductors; the plate is %zu)\n", ref.name.c_str(), n, n - 1);
        std::printf("  %5s %12s %10s %9s %7s\n", "entry", "reference", "error %", "s.e. %", "z");
        for (std::size_t k = opt.plate_only ? n - 1 : 0; k < n; ++k) {
            const double diag = ref.matrix[k][k];
            for (std::size_t j = 0; j < n; ++j) {
                std::vector<double> e;
                double var = 0;
                for (const auto& sv : solves)
                    if (sv.structure == s && sv.master == k) {
                        e.push_back((sv.row[j] - ref.matrix[k][j]) / diag);
                        var += sv.variance[j] / (diag * diag);
                    }
                const double m = static_cast<double>(e.size());
                double mean = 0;
                for (double x : e) mean += x;
                mean /= m;
                double ss = 0;
                for (double x : e) ss += (x - mean) * (x - mean);
                const double se = std::sqrt(var) / m;
                if (e.size() > 1 && se > 0) {
                    spread_ratio2 += ss / (m - 1) / m / (se * se);
                    ++ratio_terms;
                }
                const double z = mean / se;
                // Entries below 1% of the diagonal carry no weight in a data set; keep them out of
                // the verdict but print them.
                const bool significant = std::fabs(ref.matrix[k][j]) >= 0.01 * diag;
                const bool flag = significant && std::fabs(z) > 3;
                flagged += flag;
                if (significant) {
                    double& worst = (j == k) ? worst_diag : worst_coupling;
                    worst = std::max(worst, std::fabs(mean));
                }
                std::printf("  %2zu,%-2zu %12.6g %+10.3f %9.3f %+7.1f%s\n", k, j, ref.matrix[k][j],
                            100 * mean, 100 * se, z, flag ? "  <-- |z| > 3" : "");
            }
        }
        for (const auto& sv : solves)
            if (sv.structure == s) cpu += sv.seconds;
        std::printf("  mean time per solve: %.3f s; seed spread / solver s.e.: %.2f (rms)\n",
                    cpu / (opt.seeds * (opt.plate_only ? 1 : n)),
                    ratio_terms ? std::sqrt(spread_ratio2 / ratio_terms) : NAN);
        if (opt.plate_row) print_plate_row(ref, s, solves, opt.seeds, opt.precision);
    }
    std::printf(
        "\nworst |bias|: diagonal %.3f%%, coupling %.3f%% of the row's diagonal; %d entries "
        "with |z| > 3; wall %.1f s\n",
        100 * worst_diag, 100 * worst_coupling, flagged, wall);
    return 0;
}
