#pragma once
// Joining patterns to the field solver: the solve domain, one solve per master, and the
// correction that makes a noisy capacitance matrix symmetric with zero row sums.

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "patterns/generic.h"

namespace KARVEN {

using Matrix = std::vector<std::vector<double>>;
// The conductors of one sample and its matrix, row by row.
using PatternResult = std::pair<std::vector<Rect>, std::vector<double>>;

// A field solver: capacitances of every wire to wires[0] (2N values with variances, or N).
using FieldSolver = std::function<std::vector<double>(
    const std::vector<Rect>& wires, const std::vector<std::array<double, 2>>& layers,
    const std::vector<ConformalRect>& dielectrics, const Rect& window, double precision, int seed)>;

// Returns the in-process random-walk solver.
const FieldSolver& fieldSolver();

// What a run's solves cost: solver calls, walks and hops, table lookups, the tables solved and
// the thread seconds that took, summed as each solve ends.
struct SolveTally {
    std::atomic<std::uint64_t> solves{0};
    std::atomic<std::uint64_t> walks{0};
    std::atomic<std::uint64_t> hops{0};
    std::atomic<std::uint64_t> table_queries{0};
    std::atomic<std::uint64_t> table_solves{0};
    std::atomic<double> table_seconds{0};
};

// Returns the in-process solver adding each call's counts to `tally`, which must outlive the
// returned function.
FieldSolver countingSolver(SolveTally& tally);

// The solve domain of a pattern: x across the family's window, y from the substrate top to
// 100 above the last dielectric.
Rect solveWindow(double window, const MCTF::MiniCTF& ctf);

// Returns the stack's plates in the solver's form.
std::vector<std::array<double, 2>> solverLayers(const MCTF::MiniCTF& ctf);

// Solves `pattern` once with its first conductor as master and returns one value per role of
// `family`, the last solver value folded into the first plane role.
std::vector<double> solveRoles(const GenericStructure& family, const Pattern& pattern,
                               const MCTF::MiniCTF& ctf, const ExtractionConfig& config,
                               const FieldSolver& solve);

// How the row of the substrate plate (the pattern's last conductor) is obtained. With walls that
// carry no flux the matrix is symmetric with zero row sums, so the wire rows fix the plate's row:
// its couplings are their column and its diagonal is minus their sum. Deriving it saves the
// plate's own solve, the costliest of a sample, whose Gaussian surface spans the window.
enum class PlateRow { Derived, Solved };

// Solves every conductor of `pattern` as master (the plate only when `plate` is Solved, and
// always when it is the only conductor) and puts the conductors (moved out of the pattern) and
// the constrained matrix into `result`. Returns false when the constraint left a row sum above
// twice the precision.
bool solveConstrained(double window, Pattern& pattern, const MCTF::MiniCTF& ctf,
                      const ExtractionConfig& config, const FieldSolver& solve,
                      PatternResult& result, PlateRow plate = PlateRow::Derived);

// As solveConstrained, and returns the result; prints a warning when the constraint failed.
PatternResult solveFullMatrix(double window, Pattern& pattern, const MCTF::MiniCTF& ctf,
                              const ExtractionConfig& config, const FieldSolver& solve,
                              PlateRow plate = PlateRow::Derived);

// Replaces the last row of `c` (and of `variances` when not empty) by the column of the other
// rows, with the diagonal minus their sum (the variances' sum), so the row sums to zero before
// the constraint. Does nothing for fewer than two rows.
void derivePlateRow(Matrix& c, Matrix& variances);

// Makes `c` symmetric, weighting each pair by the other's variance (a zero variance zeroes the
// pair), then sets each diagonal so its row sums to zero. Returns false when a row's sum before
// that step exceeded twice `tolerance` of its diagonal.
bool constrain_matrix(Matrix& c, const Matrix& variances, double tolerance);
// As above with the plain mean of each pair.
bool constrain_matrix(Matrix& c, double tolerance);

}  // namespace KARVEN
