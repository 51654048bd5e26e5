#include "patterns/solving.h"

#include <omp.h>

#include <cmath>
#include <iostream>
#include <stdexcept>
#include <string>

#include "patterns/derived.h"
#include "runtime/failure.h"
#include "runtime/progress_bar.h"
#include "solver/api_wrapper.h"

namespace KARVEN {

const FieldSolver& fieldSolver() {
    static const FieldSolver solver = RW2D_API::extract_capacitance;
    return solver;
}

FieldSolver countingSolver(SolveTally& tally) {
    return
        [&tally](const std::vector<Rect>& wires, const std::vector<std::array<double, 2>>& layers,
                 const std::vector<ConformalRect>& dielectrics, const Rect& window,
                 double precision, int seed) {
            RW2D_API::WalkCount count;
            std::vector<double> result = RW2D_API::extract_capacitance_counted(
                wires, layers, dielectrics, window, precision, seed, count);
            // Once per solve, never per walk: the counters stay off the walkers' path.
            tally.solves.fetch_add(1, std::memory_order_relaxed);
            tally.walks.fetch_add(count.walks, std::memory_order_relaxed);
            tally.hops.fetch_add(count.hops, std::memory_order_relaxed);
            tally.table_queries.fetch_add(count.table_queries, std::memory_order_relaxed);
            tally.table_solves.fetch_add(count.table_solves, std::memory_order_relaxed);
            tally.table_seconds.fetch_add(count.table_seconds, std::memory_order_relaxed);
            return result;
        };
}

Rect solveWindow(double window, const MCTF::MiniCTF& ctf) {
    return Rect{-window / 2, ctf.substrate.z_top, window / 2,
                ctf.dielectric_layers.back().z_top + 100.0};
}

std::vector<std::array<double, 2>> solverLayers(const MCTF::MiniCTF& ctf) {
    std::vector<std::array<double, 2>> layers;
    layers.reserve(ctf.plates.size());
    for (const auto& [z, er] : ctf.plates) layers.push_back({z, er});
    return layers;
}

namespace {

std::vector<ConformalRect> solverCoats(const Pattern& pattern, const ExtractionConfig& config) {
    // Merged plates already carry the coats' permittivity.
    if (config.merge_diel) return {};
    return pattern.flattenConformals();
}

}  // namespace

std::vector<double> solveRoles(const GenericStructure& family, const Pattern& pattern,
                               const MCTF::MiniCTF& ctf, const ExtractionConfig& config,
                               const FieldSolver& solve) {
    std::vector<double> r =
        solve(pattern.conductors, solverLayers(ctf), solverCoats(pattern, config),
              solveWindow(family.window, ctf), config.precision, config.seed);
    std::vector<double> answer(family.roles.size());
    for (size_t i = 0; i < answer.size(); ++i) answer[i] = r.at(i + 1);
    // The last value is folded by position: on the Monte Carlo route it is a variance, and that
    // is what the libraries have always carried.
    for (const char* plane : {"bottom", "further_plane", "closer_plane"}) {
        for (size_t i = 0; i < family.roles.size(); ++i) {
            if (family.roles[i] == plane) {
                answer[i] += r.back();
                return answer;
            }
        }
    }
    return answer;
}

bool solveConstrained(double window, Pattern& pattern, const MCTF::MiniCTF& ctf,
                      const ExtractionConfig& config, const FieldSolver& solve,
                      PatternResult& result, PlateRow plate) {
    const std::vector<ConformalRect> coats = solverCoats(pattern, config);
    const std::vector<std::array<double, 2>> layers = solverLayers(ctf);
    const Rect domain = solveWindow(window, ctf);
    const size_t n = pattern.conductors.size();
    const bool derive = plate == PlateRow::Derived && n >= 2;
    const size_t solved = derive ? n - 1 : n;
    Matrix C, E;
    for (size_t k = 0; k < solved; ++k) {
        std::swap(pattern.conductors[0], pattern.conductors[k]);
        std::vector<double> r =
            solve(pattern.conductors, layers, coats, domain, config.precision, config.seed);
        std::swap(pattern.conductors[0], pattern.conductors[k]);
        // The external route gives nothing when its program failed; it has said why.
        if (r.size() < n) throw FatalError("Error: the field solver gave no result");

        std::vector<double> row(r.begin(), r.begin() + static_cast<std::ptrdiff_t>(n));
        std::swap(row[0], row[k]);
        C.push_back(std::move(row));
        if (r.size() == 2 * n) {
            std::vector<double> var(r.begin() + static_cast<std::ptrdiff_t>(n), r.end());
            std::swap(var[0], var[k]);
            E.push_back(std::move(var));
        }
    }
    if (derive) {
        C.emplace_back(n, 0.0);
        if (!E.empty()) E.emplace_back(n, 0.0);
        derivePlateRow(C, E);
    }
    double tolerance = std::fabs(config.precision);
    bool ok = E.empty() ? constrain_matrix(C, tolerance) : constrain_matrix(C, E, tolerance);
    result.first = std::move(pattern.conductors);
    result.second.clear();
    for (const auto& row : C) result.second.insert(result.second.end(), row.begin(), row.end());
    return ok;
}

PatternResult solveFullMatrix(double window, Pattern& pattern, const MCTF::MiniCTF& ctf,
                              const ExtractionConfig& config, const FieldSolver& solve,
                              PlateRow plate) {
    PatternResult result;
    if (!solveConstrained(window, pattern, ctf, config, solve, result, plate))
        std::cout << "[WARN]: large row sum after constraining." << std::endl;
    return result;
}

void derivePlateRow(Matrix& c, Matrix& variances) {
    const size_t n = c.size();
    if (n < 2) return;
    const size_t p = n - 1;
    double sum = 0.0, var = 0.0;
    for (size_t j = 0; j < p; ++j) {
        c[p][j] = c[j][p];
        sum += c[j][p];
        if (!variances.empty()) {
            variances[p][j] = variances[j][p];
            var += variances[j][p];
        }
    }
    c[p][p] = -sum;
    // The diagonal is a sum of the column's estimates, independent from solve to solve.
    if (!variances.empty()) variances[p][p] = var;
}

namespace {

// Sets the diagonals so rows sum to zero; `before` holds the row sums before symmetrising.
bool zeroRowSums(Matrix& c, const std::vector<double>& before, double tolerance) {
    const size_t n = c.size();
    bool ok = true;
    for (size_t i = 0; i < n; ++i) {
        double after = 0.0;
        for (double v : c[i]) after += v;
        double d = c[i][i];
        if (std::fabs(before[i] / d) > 0.03 || std::fabs(after / d) > 0.03) {
            std::cout << "[WARN]: row sums for " << i << "/" << n - 1
                      << " are too large: OLD: " << before[i] << " vs " << d << " ("
                      << 100 * before[i] / d << "%), NEW: " << after << " vs " << d << " ("
                      << 100 * after / d << "%)" << std::endl;
        }
        c[i][i] = d - after;
        if (std::fabs(after / d) > 2 * tolerance) ok = false;
    }
    return ok;
}

std::vector<double> rowSums(const Matrix& c) {
    std::vector<double> sums;
    for (const auto& row : c) {
        double s = 0.0;
        for (double v : row) s += v;
        sums.push_back(s);
    }
    return sums;
}

}  // namespace

bool constrain_matrix(Matrix& c, const Matrix& variances, double tolerance) {
    const size_t n = c.size();
    if (n == 0) return true;
    std::vector<double> before = rowSums(c);
    for (size_t i = 0; i < n; ++i) {
        for (size_t j = i + 1; j < n; ++j) {
            double a = variances[i][j], b = variances[j][i];
            double m = 0.0;
            // A zero variance means no walk reached that conductor: the coupling is zero.
            if (a != 0.0 && b != 0.0) m = (a / (a + b)) * c[j][i] + (b / (a + b)) * c[i][j];
            c[i][j] = c[j][i] = m;
        }
    }
    return zeroRowSums(c, before, tolerance);
}

bool constrain_matrix(Matrix& c, double tolerance) {
    const size_t n = c.size();
    if (n == 0) return true;
    std::vector<double> before = rowSums(c);
    for (size_t i = 0; i < n; ++i) {
        for (size_t j = i + 1; j < n; ++j) c[i][j] = c[j][i] = (c[i][j] + c[j][i]) * 0.5;
    }
    return zeroRowSums(c, before, tolerance);
}

std::vector<double> GenericStructure::solvePattern(const Pattern& pattern, const MCTF::MiniCTF& ctf,
                                                   const ExtractionConfig& config) {
    return solveRoles(*this, pattern, ctf, config, fieldSolver());
}

std::vector<std::pair<Layers, CapLib>> GenericStructure::solveCapLibs(
    const MCTF::MiniCTF& ctf, const json& params, const ExtractionConfig& config) {
    std::vector<std::pair<Layers, CapLib>> libs;
    std::vector<std::pair<size_t, size_t>> tasks;
    for (Layers& layers : prepareLayerCombinations(ctf)) {
        if (layerOverlap(layers)) {
            libs.emplace_back(std::move(layers), CapLib{});
            continue;
        }
        CapLib lib = prepareCapLib(layers, params);
        size_t points = sweepSize(lib.params);
        lib.values.resize(points);
        libs.emplace_back(std::move(layers), std::move(lib));
        for (size_t j = 0; j < points; ++j) tasks.emplace_back(libs.size() - 1, j);
    }

    ProgressBar bar(tasks.size(), 50, 1);
    omp_set_num_threads(config.nthreads);
    FailureRelay relay;
#pragma omp parallel for schedule(dynamic, 1)
    for (size_t t = 0; t < tasks.size(); ++t) {
        if (relay.failed()) continue;
        relay.run([&] {
            auto& [layers, lib] = libs[tasks[t].first];
            size_t j = tasks[t].second;
            Pattern pattern = actualStructure(layers, sweepPoint(lib.params, param_order, j));
            lib.values[j] = solvePattern(pattern, ctf, config);
#pragma omp critical
            bar.tick(name);
        });
    }
    relay.rethrow();
    return libs;
}

}  // namespace KARVEN
