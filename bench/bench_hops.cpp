// Cost of one hop against the number of wires: a row of equal wires over a plate, one walker with
// warm tables, with the nearest-conductor query as by default (cell index from 12 nets on) and by a
// scan of every net.
//
//   build/bench/bench_hops [walks=100000] [wire counts ...]   (default counts 5 20 40 80)
// Prints CPU nanoseconds per hop; the walks of the two columns are identical (same seed, same
// answers), so their hop counts must agree.
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "solver/config.h"
#include "solver/net_manager.h"
#include "solver/online_table.h"
#include "solver/walk_manager.h"

namespace {

using namespace RW2D;

double thread_cpu() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

struct Run {
    double ns_per_hop;
    unsigned long long hops;
};

// n wires 0.1 wide at pitch 0.2, master in the middle, a plate below, 5 um of margin each side.
Run run(int n, long walks, bool indexed, double& candidates) {
    std::vector<Rectangle> wires;
    const double span = 0.2 * n;
    const int mid = n / 2;
    wires.emplace_back(-0.05, 0.05, 0.5, 0.3);
    for (int k = 0; k < n; ++k) {
        if (k == mid) continue;
        const double x = (k - mid) * 0.2;
        wires.emplace_back(x - 0.05, x + 0.05, 0.5, 0.3);
    }
    const double half = span / 2 + 5;
    wires.emplace_back(-half, half, 0.0, -0.1);
    const std::vector<std::array<double, 2>> layers = {
        {0, 4.0}, {0.3, 2.9}, {0.65, 7.5}, {0.67, 2.9}};
    const Config config = Config::for_entry(0.005, 1);
    NetManager nets(wires, layers, {}, Rectangle(-half, half, 10, 0), config.space, config.approx);
    nets.set_cell_index(indexed ? -1 : 0);
    candidates = nets.mean_cell_candidates();
    online_table_manager tables;
    WalkManager walker(&nets, config, tables, 3);
    for (long k = 0; k < 20000; ++k) walker.walk();  // tables solved, vectors grown
    Run out{0, 0};
    const double c0 = thread_cpu();
    for (long k = 0; k < walks; ++k) {
        walker.walk();
        out.hops += walker.hops;
    }
    out.ns_per_hop = (thread_cpu() - c0) / static_cast<double>(out.hops) * 1e9;
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    long walks = 100000;
    std::vector<int> counts;
    for (int i = 1; i < argc; ++i) {
        if (i == 1)
            walks = std::atol(argv[i]);
        else
            counts.push_back(std::atoi(argv[i]));
    }
    if (counts.empty()) counts = {5, 20, 40, 80};
    Debugger::set_sink([](std::string_view) {});
    std::printf("%ld walks after 20000 warm-up walks; CPU ns per hop\n", walks);
    std::printf("%6s %12s %12s %12s %14s\n", "wires", "hops", "scan all", "default",
                "nets per cell");
    for (int n : counts) {
        double cand = 0, unused = 0;
        const Run scan = run(n, walks, false, unused);
        const Run cells = run(n, walks, true, cand);
        std::printf("%6d %12llu %12.1f %12.1f %14.2f%s\n", n, cells.hops, scan.ns_per_hop,
                    cells.ns_per_hop, cand, scan.hops == cells.hops ? "" : "  HOPS DIFFER");
    }
    return 0;
}
