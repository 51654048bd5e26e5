#include "solver/api_wrapper.h"

#include "solver/config.h"
#include "solver/mc_manager.h"
#include "solver/shapes.h"

namespace RW2D_API {

std::vector<double> extract_capacitance(
    const std::vector<std::array<double, 4>>& wires,
    const std::vector<std::array<double, 2>>& layers,
    const std::vector<std::pair<double, std::array<double, 4>>>& dielectrics,
    const std::array<double, 4>& window, double precision, int seed) {
    WalkCount unused;
    return extract_capacitance_counted(wires, layers, dielectrics, window, precision, seed, unused);
}

std::vector<double> extract_capacitance_counted(
    const std::vector<std::array<double, 4>>& wires,
    const std::vector<std::array<double, 2>>& layers,
    const std::vector<std::pair<double, std::array<double, 4>>>& dielectrics,
    const std::array<double, 4>& window, double precision, int seed, WalkCount& count) {
    using RW2D::Rectangle;
    std::vector<Rectangle> rects;
    rects.reserve(wires.size());
    for (const auto& w : wires) rects.push_back(Rectangle::from_array(w));
    std::vector<std::pair<double, Rectangle>> diel;
    diel.reserve(dielectrics.size());
    for (const auto& [eps, r] : dielectrics) diel.emplace_back(eps, Rectangle::from_array(r));
    const RW2D::Config config =
        RW2D::Config::for_entry(precision, static_cast<std::uint32_t>(seed));
    RW2D::MCManager manager;
    std::vector<double> result =
        manager.estimate(rects, layers, diel, Rectangle::from_array(window), config);
    const RW2D::table_counts& t = manager.last_tables;
    count = {manager.last_walks, manager.last_hops, static_cast<std::uint64_t>(t.queries()),
             static_cast<std::uint64_t>(t.solved), t.solve_seconds};
    return result;
}

}  // namespace RW2D_API
