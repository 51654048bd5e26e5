// Reads one finite-element reference structure of tests/data/validation into the arguments of
// RW2D_API::extract_capacitance. Shared by the accuracy tests and the benchmarks.
#pragma once

#include <array>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace karven_test {

struct ValidationReference {
    std::string name;
    std::vector<std::array<double, 4>> wires;  // the ground plate last, as the sampler passes it
    std::vector<std::array<double, 2>> layers;
    std::vector<std::pair<double, std::array<double, 4>>> dielectrics;
    std::array<double, 4> window{};
    std::vector<std::vector<double>> matrix;  // full reference matrix, plate row and column last
};

// Returns the structure `stem` (file name without ".json") of the folder `dir`; throws
// std::runtime_error when the file is missing and nlohmann's errors when it is malformed.
inline ValidationReference load_validation_reference(const std::string& dir,
                                                     const std::string& stem) {
    std::ifstream in(dir + "/" + stem + ".json");
    if (!in) throw std::runtime_error("cannot read reference " + dir + "/" + stem + ".json");
    const nlohmann::json j = nlohmann::json::parse(in);
    ValidationReference r;
    r.name = stem;
    r.window = j.at("window").get<std::array<double, 4>>();
    r.wires = j.at("conductors").get<std::vector<std::array<double, 4>>>();
    // The ground plate is the window's bottom edge: a thin wire reaching just below it.
    r.wires.push_back({r.window[0], r.window[1] - 0.1, r.window[2], r.window[1]});
    r.layers = j.at("layers").get<std::vector<std::array<double, 2>>>();
    for (const auto& d : j.at("dielectrics"))
        r.dielectrics.emplace_back(d.at(0).get<double>(), d.at(1).get<std::array<double, 4>>());
    r.matrix = j.at("matrix").get<std::vector<std::vector<double>>>();
    return r;
}

}  // namespace karven_test
