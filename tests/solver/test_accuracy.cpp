// Accuracy of whole solves against finite-element reference matrices computed independently.
// Row 0 of each reference is what one solve with conductor 0 as master must return.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "solver/api_wrapper.h"

namespace {

struct Reference {
    std::vector<std::array<double, 4>> wires;
    std::vector<std::array<double, 2>> layers;
    std::vector<std::pair<double, std::array<double, 4>>> dielectrics;
    std::array<double, 4> window{};
    std::vector<double> row0;
};

Reference load(const std::string& stem) {
    std::ifstream in(std::string(KARVEN_VALIDATION_DIR) + "/" + stem + ".json");
    const nlohmann::json j = nlohmann::json::parse(in);
    Reference r;
    r.window = j.at("window").get<std::array<double, 4>>();
    r.wires = j.at("conductors").get<std::vector<std::array<double, 4>>>();
    // The ground plate is the window's bottom edge: a thin wire reaching just below it.
    r.wires.push_back({r.window[0], r.window[1] - 0.1, r.window[2], r.window[1]});
    r.layers = j.at("layers").get<std::vector<std::array<double, 2>>>();
    for (const auto& d : j.at("dielectrics"))
        r.dielectrics.emplace_back(d.at(0).get<double>(), d.at(1).get<std::array<double, 4>>());
    r.row0 = j.at("matrix").at(0).get<std::vector<double>>();
    return r;
}

class Accuracy : public ::testing::TestWithParam<const char*> {};

TEST_P(Accuracy, RowZeroAgreesWithTheFiniteElementReference) {
    const Reference ref = load(GetParam());
    const std::size_t n = ref.wires.size();
    ASSERT_EQ(ref.row0.size(), n);
    const std::vector<double> c =
        RW2D_API::extract_capacitance(ref.wires, ref.layers, ref.dielectrics, ref.window, 0.002, 1);
    ASSERT_EQ(c.size(), 2 * n);
    const double diag = ref.row0[0];
    EXPECT_NEAR(c[0], diag, 0.01 * diag) << "diagonal";
    for (std::size_t j = 1; j < n; ++j) {
        const double sigma = std::sqrt(c[n + j]);
        const double tol = std::max(3 * sigma, 0.01 * diag);
        EXPECT_NEAR(c[j], ref.row0[j], tol) << "coupling to conductor " << j << ", sigma " << sigma;
    }
}

INSTANTIATE_TEST_SUITE_P(Validation, Accuracy,
                         ::testing::Values("01_plate_full", "02_wire_over_ground", "03_three_wires",
                                           "04_two_levels", "05_layered_stack",
                                           "06_conformal_coats", "07_random_like",
                                           "09_near_side_wall"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                             return std::string(info.param);
                         });

}  // namespace
