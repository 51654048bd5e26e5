// Point-to-point resistance on large nets, in four cases that each run alone; "all" runs all but
// cg, whose 4,000-odd iterations on the large grid take over half a minute of CPU time:
//   direct  one pair on a 1000 x 1000 grid net (1,000,000 nodes), sparse LDLT;
//   cg      the same pair by conjugate gradients;
//   trim    two nearby pins on a net that carries a long dangling tree, with and without the trim;
//   batch   1,000 pairs of a 3,000-node net by the batch path and by 1,000 separate solves.
// Prints wall and CPU times and the peak memory of each solve.
//
//     build/bench/bench_p2p [all|direct|cg|trim|batch] [grid side = 1000] [tree nodes = 1000000]
//                           [cg tolerance = 1e-6]
#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "bench_util.h"
#include "resistance/rp2p_solver.h"

namespace {

double statusMB(const char* key) {
    std::ifstream in("/proc/self/status");
    const std::string k = key;
    for (std::string line; std::getline(in, line);)
        if (line.rfind(k, 0) == 0) return std::atol(line.c_str() + k.size()) / 1024.0;
    return 0;
}
void resetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

RNetwork grid(int side, std::mt19937& rng) {
    RNetwork g;
    g.name = "GRID";
    std::uniform_real_distribution<double> r(0.5, 1.5);
    for (int i = 0; i < side; ++i)
        for (int j = 0; j < side; ++j) g.addNode(j, i, 1);
    for (int i = 0; i < side; ++i)
        for (int j = 0; j < side; ++j) {
            const long v = static_cast<long>(i) * side + j;
            if (j + 1 < side) g.addResistor(v, v + 1, r(rng));
            if (i + 1 < side) g.addResistor(v, v + side, r(rng));
        }
    return g;
}

// One timed solve: prints the result, the wall time and the peak memory above the start.
void timedSolve(const char* label, RP2PSolver& s, long a, long b) {
    const double base = statusMB("VmRSS:");
    resetPeak();
    const auto t = std::chrono::steady_clock::now();
    const double cpu = cpuSeconds();
    const double r = s.solveP2pResistances(a, b);
    std::printf("  %-34s R = %.9g in %7.3f s (CPU %7.3f s), peak +%.0f MB\n", label, r, seconds(t),
                cpuSeconds() - cpu, statusMB("VmHWM:") - base);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string which = argc > 1 ? argv[1] : "all";
    const int side = argc > 2 ? std::atoi(argv[2]) : 1000;
    const long tree = argc > 3 ? std::atol(argv[3]) : 1000000;
    const double tolerance = argc > 4 ? std::atof(argv[4]) : 1e-6;
    auto wanted = [&](const std::string& c) { return which == c || (which == "all" && c != "cg"); };
    std::mt19937 rng(1);

    RNetwork g = grid(side, rng);
    if (wanted("direct") || wanted("cg")) {
        RP2PSolver s;
        s.loadNetwork(g, -1);
        const long a = static_cast<long>(side / 10) * side + side / 10;
        const long b = static_cast<long>(side - side / 10) * side + side - side / 10;
        std::printf("grid %d x %d (%ld nodes, %zu resistors), pins at (%d, %d) and (%d, %d):\n",
                    side, side, g.nodeCount(), g.res_from.size(), side / 10, side / 10,
                    side - side / 10, side - side / 10);
        if (wanted("direct")) timedSolve("direct (LDLT, AMD)", s, a, b);
        s.use_cg = 1;
        s.cg_tolerance = tolerance;
        s.verbose = true;
        char label[64];
        std::snprintf(label, sizeof label, "conjugate gradient (tol %g)", tolerance);
        if (wanted("cg")) timedSolve(label, s, a, b);
    }

    // A long dangling tree hangs off one grid corner; the pins are two nodes of the tree 20
    // branches apart. The trim keeps the path between them; without it the whole net is solved.
    if (wanted("trim")) {
        RNetwork net = g;
        std::uniform_real_distribution<double> r(0.5, 1.5);
        const long root = net.nodeCount();
        net.addNode(-1, -1, 1);
        net.addResistor(0, root, 1.0);
        for (long k = 1; k < tree; ++k) {
            // Mostly a long spine with short side branches.
            const long parent = k % 8 == 0 ? root + k - 1 - rng() % 7 : root + k - 1;
            net.addNode(-1, -1, 1);
            net.addResistor(parent, root + k, r(rng));
        }
        const long a = root + tree / 2, b = a + 20;
        RP2PSolver s;
        s.loadNetwork(net, -1);
        s.trim_threshold = 3000;
        std::printf("grid with a dangling tree of %ld nodes (%ld nodes in all), two tree pins:\n",
                    tree, net.nodeCount());
        timedSolve("trimmed", s, a, b);
        s.use_trim = 0;
        timedSolve("untrimmed (whole net, direct)", s, a, b);
    }

    // The batch path: 1,000 pairs on a net of 3,000 nodes (a 50 x 60 grid).
    if (wanted("batch")) {
        RNetwork small;
        std::uniform_real_distribution<double> r(0.5, 1.5);
        for (int i = 0; i < 50; ++i)
            for (int j = 0; j < 60; ++j) small.addNode(j, i, 1);
        for (int i = 0; i < 50; ++i)
            for (int j = 0; j < 60; ++j) {
                const long v = i * 60 + j;
                if (j + 1 < 60) small.addResistor(v, v + 1, r(rng));
                if (i + 1 < 50) small.addResistor(v, v + 60, r(rng));
            }
        std::vector<long> from, to;
        for (int k = 0; k < 1000; ++k) {
            from.push_back(rng() % 3000);
            to.push_back((from.back() + 1 + rng() % 2999) % 3000);
        }
        RP2PSolver s;
        s.loadNetwork(small, -1);
        std::vector<double> batch;
        double cpu = cpuSeconds();
        s.batchsolveCurrentFirst(from, to, batch);
        const double batch_s = cpuSeconds() - cpu;
        cpu = cpuSeconds();
        double worst = 0;
        for (size_t i = 0; i < from.size(); ++i) {
            const double r1 = s.solveP2pResistances(from[i], to[i]);
            worst = std::max(worst, std::abs(r1 - batch[i]) / r1);
        }
        const double single_s = cpuSeconds() - cpu;
        std::printf(
            "3000-node net, 1000 pairs (CPU time): batch %.3f s, separate solves %.3f s (x%.0f), "
            "largest "
            "relative difference %.1e\n",
            batch_s, single_s, single_s / batch_s, worst);
    }
    std::printf("peak memory of the whole run: %.0f MB\n", statusMB("VmHWM:"));
    return 0;
}
