#pragma once
// Shared helpers of the resistance tests: a temporary folder per test, whole-file text, network
// generators, and the effective resistance by the dense Laplacian pseudo-inverse.

#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "resistance/rnetwork.h"

namespace rtest {

// A fresh folder under the test temporary directory, named after the running test.
inline std::filesystem::path tempDir() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    const auto dir = std::filesystem::path(::testing::TempDir()) /
                     ("karven_res_" + std::string(info->test_suite_name()) + "_" + info->name());
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir;
}

inline std::string readText(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void writeText(const std::filesystem::path& p, const std::string& text) {
    std::ofstream(p, std::ios::binary) << text;
}

// A net of `n` nodes at (i, 0) on layer 1 and the given (from, to, value) resistors.
inline RNetwork fromEdges(long n, const std::vector<std::tuple<long, long, double>>& edges) {
    RNetwork net;
    net.name = "t";
    for (long i = 0; i < n; ++i) net.addNode(static_cast<int>(i), 0, 1);
    for (auto [a, b, r] : edges) net.addResistor(a, b, r);
    return net;
}

// Two nets: "A" with names, a resistor below the writers' floor of 0.001 and two layers; "B" with
// a removed node in the middle, whose resistor is kept.
inline std::vector<RNetwork> smallDesign() {
    std::vector<RNetwork> nets{RNetwork(), fromEdges(3, {{0, 1, 2.5}, {1, 2, 0.0001}}),
                               fromEdges(3, {{0, 1, 3.0}, {0, 2, 4.0}})};
    nets[1].name = "A";
    nets[1].nodes = {{0, 0}, {1000, 0}, {1000, 500}};
    nets[1].node_layers = {1, 2, 1};
    nets[1].node_names = {{2, "uA"}, {0, "I1:G"}};
    nets[2].name = "B";
    nets[2].nodes = {{-20, 30}, {5, 5}, {40, -70}};
    nets[2].node_layers = {3, 3, 4};
    nets[2].removed_nodes.insert(1);
    return nets;
}

// A rows x cols grid of nodes 10 units apart, resistors uniform in [lo, hi] between neighbours.
inline RNetwork grid(int rows, int cols, std::mt19937& rng, double lo, double hi) {
    RNetwork net;
    std::uniform_real_distribution<double> r(lo, hi);
    for (int i = 0; i < rows * cols; ++i) net.addNode(10 * (i % cols), 10 * (i / cols), 1);
    for (long v = 0; v < rows * cols; ++v) {
        if ((v + 1) % cols != 0) net.addResistor(v, v + 1, r(rng));
        if (v + cols < rows * cols) net.addResistor(v, v + cols, r(rng));
    }
    return net;
}

// A random connected graph: a random spanning tree plus `extra` random chords (parallel edges
// allowed), resistances uniform in [0.1, 10].
inline RNetwork randomConnected(int n, int extra, std::mt19937& rng) {
    RNetwork net;
    net.name = "rnd";
    std::uniform_real_distribution<double> r(0.1, 10.0);
    for (int i = 0; i < n; ++i) net.addNode(i, i % 7, 1);
    for (int i = 1; i < n; ++i) net.addResistor(rng() % i, i, r(rng));
    for (int k = 0; k < extra; ++k) {
        const long a = rng() % n, b = rng() % n;
        if (a != b) net.addResistor(a, b, r(rng));
    }
    return net;
}

// Effective resistance between a and b by R = (e_a - e_b)^T L^+ (e_a - e_b), with the dense
// pseudo-inverse of the whole graph's Laplacian (the graph must be connected).
inline double pseudoInverseResistance(const RNetwork& net, long a, long b) {
    const long n = net.nodeCount();
    Eigen::MatrixXd L = Eigen::MatrixXd::Zero(n, n);
    for (size_t i = 0; i < net.res_from.size(); ++i) {
        const long u = net.res_from[i], v = net.res_to[i];
        const double g = u == v ? 0.0 : 1.0 / net.res_value[i];
        L(u, u) += g;
        L(v, v) += g;
        L(u, v) -= g;
        L(v, u) -= g;
    }
    Eigen::VectorXd e = Eigen::VectorXd::Zero(n);
    e[a] = 1;
    e[b] = -1;
    return e.dot(L.completeOrthogonalDecomposition().pseudoInverse() * e);
}

}  // namespace rtest
