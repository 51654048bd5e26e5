// Throughput of the network file and DSPF writers and readers on two designs: one grid net of
// 1,000,000 nodes and about 2,000,000 resistors, and 10,000 small nets. Prints MB/s of each
// write and read, the peak memory of each read against the size of the networks it holds, the
// heap allocations per line read, and the time of the connectivity check and repair.
//
//     build/bench/bench_rnetwork [grid side = 1000] [small nets = 10000]
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "bench_util.h"
#include "resistance/rdspf.h"
#include "resistance/rnetwork.h"

namespace {

// Peak resident memory of the process in MB since the last resetPeak().
double peakMB() {
    std::ifstream in("/proc/self/status");
    for (std::string line; std::getline(in, line);)
        if (line.rfind("VmHWM:", 0) == 0) return std::atol(line.c_str() + 6) / 1024.0;
    return 0;
}
double currentMB() {
    std::ifstream in("/proc/self/status");
    for (std::string line; std::getline(in, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6) / 1024.0;
    return 0;
}
void resetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

// The networks' own size: coordinates, layers, resistor ends and values, and the names.
double networkMB(const std::vector<RNetwork>& nets) {
    double bytes = 0;
    for (const RNetwork& n : nets) {
        bytes += n.nodes.size() * 12.0 + n.res_from.size() * 24.0;
        for (const auto& [id, name] : n.node_names) bytes += 8 + name.size();
    }
    return bytes / 1048576.0;
}

long lines(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    long n = 0;
    for (std::string l; std::getline(in, l);) ++n;
    return n;
}

std::vector<RNetwork> gridDesign(int side) {
    std::vector<RNetwork> nets(2);
    RNetwork& g = nets[1];
    g.name = "GRID";
    g.nodes.reserve(static_cast<size_t>(side) * side);
    for (int i = 0; i < side; ++i)
        for (int j = 0; j < side; ++j) g.addNode(j * 100, i * 100, 1 + (i + j) % 3);
    std::mt19937 rng(1);
    std::uniform_real_distribution<double> r(0.05, 5.0);
    for (int i = 0; i < side; ++i)
        for (int j = 0; j < side; ++j) {
            const long v = static_cast<long>(i) * side + j;
            if (j + 1 < side) g.addResistor(v, v + 1, r(rng));
            if (i + 1 < side) g.addResistor(v, v + side, r(rng));
        }
    for (int k = 0; k < 1000; ++k)
        g.node_names[(k * 997L) % g.nodeCount()] = "M" + std::to_string(k) + ":S";
    g.node_names[0] = "uGRID";
    return nets;
}

std::vector<RNetwork> smallNets(int count) {
    std::vector<RNetwork> nets(count + 1);
    std::mt19937 rng(2);
    std::uniform_real_distribution<double> r(0.05, 5.0);
    for (int k = 1; k <= count; ++k) {
        RNetwork& n = nets[k];
        n.name = "net" + std::to_string(k);
        const int size = 20 + rng() % 160;
        for (int i = 0; i < size; ++i) n.addNode(rng() % 100000, rng() % 100000, 1);
        for (int i = 1; i < size; ++i) n.addResistor(rng() % i, i, r(rng));
        for (int i = 0; i < size / 4; ++i) n.addResistor(rng() % size, rng() % size, r(rng));
        n.node_names[0] = "u" + n.name;
        for (int i = 1; i < 4; ++i) n.node_names[i * size / 4] = "I" + std::to_string(i) + ":D";
    }
    return nets;
}

void measure(const char* label, std::vector<RNetwork>& nets, const std::filesystem::path& dir) {
    const double own = networkMB(nets);
    std::printf("%s: %zu nets, %.1f MB of network data\n", label, nets.size() - 1, own);
    const auto rn = dir / "design.rn";
    const auto spf = dir / "design.spf";
    {
        RNWriter w;
        const auto t = std::chrono::steady_clock::now();
        const double cpu = cpuSeconds();
        w.write(rn.string(), nets, {{"M1", 1}, {"M2", 2}, {"M3", 3}}, {0.1, 0.1, -1});
        const double s = seconds(t), c = cpuSeconds() - cpu;
        const double mb = std::filesystem::file_size(rn) / 1048576.0;
        std::printf(
            "  network file write: %7.1f MB in %6.3f s = %6.1f MB/s (CPU %6.3f s = %6.1f MB/s)\n",
            mb, s, mb / s, c, mb / c);
    }
    {
        RDspfWriter w;
        std::vector<long> ids;
        for (size_t i = 1; i < nets.size(); ++i) ids.push_back(static_cast<long>(i));
        const auto t = std::chrono::steady_clock::now();
        const double cpu = cpuSeconds();
        w.write(spf.string(), nets, ids, {"top", {"1"}}, {});
        const double s = seconds(t), c = cpuSeconds() - cpu;
        const double mb = std::filesystem::file_size(spf) / 1048576.0;
        std::printf(
            "  DSPF write:         %7.1f MB in %6.3f s = %6.1f MB/s (CPU %6.3f s = %6.1f MB/s)\n",
            mb, s, mb / s, c, mb / c);
    }
    {
        const long file_lines = lines(rn);
        std::vector<RNetwork> back;
        std::vector<RLayer> layers;
        std::vector<double> values;
        const double base = currentMB();
        resetPeak();
        const long alloc0 = g_allocations.load();
        const auto t = std::chrono::steady_clock::now();
        const double cpu = cpuSeconds();
        RNLoader loader;
        loader.load(rn.string(), back, layers, values);
        const double s = seconds(t), c = cpuSeconds() - cpu;
        const long allocs = g_allocations.load() - alloc0;
        const double mb = std::filesystem::file_size(rn) / 1048576.0;
        std::printf(
            "  network file read:  %7.1f MB in %6.3f s = %6.1f MB/s (CPU %6.3f s = %6.1f MB/s)\n"
            "    peak %.1f MB above the start for %.1f MB of networks (x%.2f); %.3f allocations "
            "per line\n",
            mb, s, mb / s, c, mb / c, peakMB() - base, networkMB(back),
            (peakMB() - base) / networkMB(back), static_cast<double>(allocs) / file_lines);
    }
    {
        const long file_lines = lines(spf);
        std::vector<RNetwork> back;
        const double base = currentMB();
        resetPeak();
        const long alloc0 = g_allocations.load();
        const auto t = std::chrono::steady_clock::now();
        const double cpu = cpuSeconds();
        RDspfLoader loader;
        loader.load(spf.string(), back);
        const double s = seconds(t), c = cpuSeconds() - cpu;
        const long allocs = g_allocations.load() - alloc0;
        const double mb = std::filesystem::file_size(spf) / 1048576.0;
        std::printf(
            "  DSPF read:          %7.1f MB in %6.3f s = %6.1f MB/s (CPU %6.3f s = %6.1f MB/s)\n"
            "    peak %.1f MB above the start for %.1f MB of networks (x%.2f); %.3f allocations "
            "per line\n",
            mb, s, mb / s, c, mb / c, peakMB() - base, networkMB(back),
            (peakMB() - base) / networkMB(back), static_cast<double>(allocs) / file_lines);
    }
    std::filesystem::remove(rn);
    std::filesystem::remove(spf);
}

}  // namespace

int main(int argc, char** argv) {
    const int side = argc > 1 ? std::atoi(argv[1]) : 1000;
    const int small = argc > 2 ? std::atoi(argv[2]) : 10000;
    char tmpl[] = "/tmp/karven_bench_rnetwork_XXXXXX";
    if (!mkdtemp(tmpl)) return 1;
    const std::filesystem::path dir = tmpl;
    {
        auto grid = gridDesign(side);
        measure("grid net", grid, dir);
        // Connectivity on the grid cut into strips: label, then chain the pieces.
        RNetwork& g = grid[1];
        std::vector<long> keep_from, keep_to;
        std::vector<double> keep_value;
        for (size_t i = 0; i < g.res_from.size(); ++i)
            if (g.res_to[i] - g.res_from[i] != side || (g.res_from[i] / side) % 100 != 99) {
                keep_from.push_back(g.res_from[i]);
                keep_to.push_back(g.res_to[i]);
                keep_value.push_back(g.res_value[i]);
            }
        g.res_from.swap(keep_from);
        g.res_to.swap(keep_to);
        g.res_value.swap(keep_value);
        auto t = std::chrono::steady_clock::now();
        g.checkConnectivity(nullptr);
        const double label = seconds(t);
        const int pieces = g.group_count;
        t = std::chrono::steady_clock::now();
        g.fixGroups();
        const double fix = seconds(t);
        std::printf("  connectivity: %d pieces labelled in %.3f s, chained in %.3f s\n", pieces,
                    label, fix);
    }
    {
        auto nets = smallNets(small);
        measure("small nets", nets, dir);
    }
    std::filesystem::remove_all(dir);
    return 0;
}
