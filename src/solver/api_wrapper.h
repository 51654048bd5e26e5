#pragma once
// The solver's single in-process entry for the pattern generator.

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

namespace RW2D_API {

// Capacitances between every wire and the master, the first wire of non-zero width and height.
// wires and window are {x_min, y_min, x_max, y_max} in um; layers {bottom y, eps_r} bottom-up;
// dielectrics {eps_r, rectangle}, a later one winning where they overlap. For N wires returns 2N
// values: N capacitances in fF/um (positive for the master, negative for the others) and then
// their N variances; a degenerate wire keeps 0 in both of its slots. precision is the relative
// one-sigma target of the stopping rule; a precision <= 0 asks for the external solver instead and
// returns its N capacitances without variances, or an empty vector when it cannot be run.
// Re-entrant: concurrent calls share only the process-wide table stores. A fatal structure error
// prints the solver's red line and throws KARVEN::FatalError, also when a walker thread raised it.
std::vector<double> extract_capacitance(
    const std::vector<std::array<double, 4>>& wires,
    const std::vector<std::array<double, 2>>& layers,
    const std::vector<std::pair<double, std::array<double, 4>>>& dielectrics,
    const std::array<double, 4>& window, double precision, int seed);

// The work of one solve: its walks (companion pairs counted once) and their hops, its table
// lookups, the tables it had to solve and the thread time that took; all 0 when the external
// solver answered or no wire was left to solve.
struct WalkCount {
    std::uint64_t walks = 0;
    std::uint64_t hops = 0;
    std::uint64_t table_queries = 0;
    std::uint64_t table_solves = 0;
    double table_seconds = 0;
};

// As extract_capacitance, and puts the solve's walks and hops into `count`.
std::vector<double> extract_capacitance_counted(
    const std::vector<std::array<double, 4>>& wires,
    const std::vector<std::array<double, 2>>& layers,
    const std::vector<std::pair<double, std::array<double, 4>>>& dielectrics,
    const std::array<double, 4>& window, double precision, int seed, WalkCount& count);

}  // namespace RW2D_API
