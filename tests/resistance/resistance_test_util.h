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
#include <vector>

#include "resistance/rnetwork.h"

namespace rtest {

// A fresh folder under the test temporary directory, named after the running test.
inline std::filesystem::path tempDir() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(info->test_suite_name()) + "_" + info->name();
    for (char& c : name)
        if (c == '/') c = '_';
    const auto dir = std::filesystem::path(::testing::TempDir()) / ("karven_res_" + name);
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
    std::ofstream out(p, std::ios::binary);
    out << text;
}

// A rows x cols grid of nodes 10 units apart, resistors of uniform random value in [lo, hi]
// (or exactly lo when hi == lo) between neighbours.
inline RNetwork grid(const std::string& name, int rows, int cols, std::mt19937& rng,
                     double lo = 1.0, double hi = 1.0) {
    RNetwork net;
    net.name = name;
    std::uniform_real_distribution<double> r(lo, hi);
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) net.addNode(10 * j, 10 * i, 1);
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) {
            const long v = static_cast<long>(i) * cols + j;
            if (j + 1 < cols) net.addResistor(v, v + 1, hi == lo ? lo : r(rng));
            if (i + 1 < rows) net.addResistor(v, v + cols, hi == lo ? lo : r(rng));
        }
    return net;
}

// A random connected graph: a random spanning tree plus `extra` random chords (parallel edges
// allowed), resistances uniform in [lo, hi].
inline RNetwork randomConnected(int n, int extra, std::mt19937& rng, double lo = 0.1,
                                double hi = 10.0) {
    RNetwork net;
    net.name = "rnd";
    std::uniform_real_distribution<double> r(lo, hi);
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
        if (u == v) continue;
        const double g = 1.0 / net.res_value[i];
        L(u, u) += g;
        L(v, v) += g;
        L(u, v) -= g;
        L(v, u) -= g;
    }
    const Eigen::MatrixXd pinv = L.completeOrthogonalDecomposition().pseudoInverse();
    Eigen::VectorXd e = Eigen::VectorXd::Zero(n);
    e[a] = 1;
    e[b] = -1;
    return e.dot(pinv * e);
}

}  // namespace rtest
