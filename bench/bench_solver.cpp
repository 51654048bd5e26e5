// Speed of the random-walk solver on three reference structures: raw hop and walk throughput of
// one walker, allocations in the hot loop, time per solve, and the gain from a second thread.
//
//   build/bench/bench_solver [precision=0.005] [--raw] [structure ...]
// --raw measures only the single walker (for profiling under callgrind).
#include <omp.h>
#include <time.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "solver/api_wrapper.h"
#include "solver/config.h"
#include "solver/gft_solver.h"
#include "solver/mc_manager.h"
#include "solver/net_manager.h"
#include "solver/online_table.h"
#include "solver/walk_manager.h"
#include "support/validation_reference.h"

// ---- Allocation counter: every operator new while armed. ----
namespace {
std::atomic<bool> g_armed{false};
std::atomic<long> g_allocs{0};
void* counted(std::size_t n) {
    if (g_armed.load(std::memory_order_relaxed)) g_allocs.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
}  // namespace
void* operator new(std::size_t n) {
    return counted(n);
}
void* operator new[](std::size_t n) {
    return counted(n);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {

using namespace RW2D;

using Structure = karven_test::ValidationReference;

Structure load(const std::string& stem) {
    try {
        return karven_test::load_validation_reference(KARVEN_VALIDATION_DIR, stem);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        std::exit(1);
    }
}

// Picks the walk count out of the solver's diagnostics.
std::atomic<unsigned long long> g_last_walks{0};
void capture(std::string_view line) {
    constexpr std::string_view key = "total walk: ";
    if (line.substr(0, key.size()) == key)
        g_last_walks = std::strtoull(std::string(line.substr(key.size())).c_str(), nullptr, 10);
}

struct Solve {
    double seconds;
    double cpu_seconds;  // of the calling thread: the whole solve when it runs one thread
    unsigned long long walks;
    std::vector<double> values;
};

double thread_cpu();

Solve solve(const Structure& s, double precision, std::uint32_t threads, int seed) {
    std::vector<Rectangle> wires;
    for (const auto& w : s.wires) wires.push_back(Rectangle::from_array(w));
    std::vector<std::pair<double, Rectangle>> diel;
    for (const auto& [e, r] : s.dielectrics) diel.emplace_back(e, Rectangle::from_array(r));
    Config config = Config::for_entry(precision, static_cast<std::uint32_t>(seed));
    config.mc.threads = threads;
    MCManager mc;
    const double c0 = thread_cpu();
    const double t0 = omp_get_wtime();
    Solve out;
    out.values = mc.estimate(wires, s.layers, diel, Rectangle::from_array(s.window), config);
    out.seconds = omp_get_wtime() - t0;
    out.cpu_seconds = thread_cpu() - c0;
    out.walks = g_last_walks.load();
    return out;
}

// CPU time of the calling thread: a figure that other processes on the machine do not change.
double thread_cpu() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

// Raw throughput of one walker with warm tables: walks, hops and allocations of n walks.
struct Raw {
    double seconds;
    double cpu_seconds;
    unsigned long long hops;
    long walks;
    long allocs;
    long new_tables;  // tables first met during the measured walks
    long all_tables;  // tables met by warm-up and measured walks together
};

Raw raw_walks(const Structure& s, long n) {
    std::vector<Rectangle> wires;
    for (const auto& w : s.wires) wires.push_back(Rectangle::from_array(w));
    std::vector<std::pair<double, Rectangle>> diel;
    for (const auto& [e, r] : s.dielectrics) diel.emplace_back(e, Rectangle::from_array(r));
    const Config config = Config::for_entry(0.005, 1);
    NetManager nets(wires, s.layers, diel, Rectangle::from_array(s.window), config.space,
                    config.approx);
    table_stores stores;  // its own, so that the counts below start from nothing
    online_table_manager tables(stores);
    WalkManager walker(&nets, config, tables, 3);
    for (long k = 0; k < 20000; ++k) walker.walk();  // tables solved, vectors grown
    const auto stored = [&stores] { return static_cast<long>(stores.size()); };
    const long before = stored();
    Raw out{0, 0, 0, n, 0, 0, 0};
    g_allocs = 0;
    g_armed = true;
    const double c0 = thread_cpu();
    const double t0 = omp_get_wtime();
    for (long k = 0; k < n; ++k) {
        walker.walk();
        out.hops += walker.hops;
    }
    out.seconds = omp_get_wtime() - t0;
    out.cpu_seconds = thread_cpu() - c0;
    g_armed = false;
    out.allocs = g_allocs.load();
    out.new_tables = stored() - before;
    out.all_tables = stored();
    return out;
}

// CPU milliseconds to compute one layered Green's function table.
double table_cost_ms() {
    gft_solver solver;
    std::vector<int> itf = {5, 9, 17};
    const std::vector<double> eps = {0.5, 1.0, 0.3, 0.8};
    const int n = 100;
    const double c0 = thread_cpu();
    for (int k = 0; k < n; ++k) {
        itf[0] = 1 + k % 4;
        solver.solve_pack(gft_solver::SOLVE_GFT, itf, eps);
    }
    return (thread_cpu() - c0) / n * 1e3;
}

}  // namespace

int main(int argc, char** argv) {
    double precision = 0.005;
    std::vector<std::string> names;
    bool raw_only = false;
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]) == "--raw") {
            raw_only = true;
            continue;
        }
        char* end = nullptr;
        const double p = std::strtod(argv[i], &end);
        if (end && *end == '\0')
            precision = p;
        else
            names.emplace_back(argv[i]);
    }
    if (names.empty()) names = {"03_three_wires", "05_layered_stack", "07_random_like"};
    Debugger::set_sink(capture);
    const double table_ms = table_cost_ms();

    std::printf("precision %g; solve times are wall clock, best of 3 solves\n", precision);
    std::printf("one layered table: %.3f CPU ms\n\n", table_ms);
    for (const std::string& name : names) {
        const Structure s = load(name);
        const Raw raw = raw_walks(s, raw_only ? 20000 : 200000);
        const double hops = static_cast<double>(raw.hops), walks = static_cast<double>(raw.walks);
        std::printf("%s\n", name.c_str());
        std::printf("  one walker, per CPU second:   %.2f M hops/s, %.0f k walks/s\n",
                    hops / raw.cpu_seconds / 1e6, walks / raw.cpu_seconds / 1e3);
        std::printf("  one walker, per wall second:  %.2f M hops/s, %.0f k walks/s\n",
                    hops / raw.seconds / 1e6, walks / raw.seconds / 1e3);
        std::printf("  %.2f hops/walk; %ld allocations in %ld walks, which met %ld new tables\n",
                    hops / walks, raw.allocs, raw.walks, raw.new_tables);
        const double solving = static_cast<double>(raw.new_tables) * table_ms / 1e3;
        std::printf(
            "  one walker, per CPU second without its %.3f s of table solving: %.2f M hops/s\n",
            solving, hops / (raw.cpu_seconds - solving) / 1e6);
        std::printf("  %ld tables in all after %ld walks: about %.2f s of table solving\n",
                    raw.all_tables, raw.walks + 20000, raw.all_tables * table_ms / 1e3);
        if (raw_only) continue;

        // Solves share the process-wide stores: the first fills them, later ones find their
        // tables there.
        const auto global_tables = [] { return table_stores::process().size(); };
        const std::size_t tables_before = global_tables();
        const double c0 = thread_cpu();
        solve(s, precision, 1, 10);
        const double first_cpu = thread_cpu() - c0;
        std::printf("  first solve: %zu tables computed, %.3f CPU s\n",
                    global_tables() - tables_before, first_cpu);

        Solve best1{1e30, 0, 0, {}}, best2{1e30, 0, 0, {}};
        for (int rep = 0; rep < 3; ++rep) {
            const Solve a = solve(s, precision, 1, 11 + rep);
            if (a.seconds < best1.seconds) best1 = a;
            const Solve b = solve(s, precision, 2, 11 + rep);
            if (b.seconds < best2.seconds) best2 = b;
        }
        const double rate1 = static_cast<double>(best1.walks) / best1.seconds;
        const double rate2 = static_cast<double>(best2.walks) / best2.seconds;
        std::printf("  solve, 1 thread:  %.3f s (%.3f CPU s), %llu walks (%.0f k walks/s)\n",
                    best1.seconds, best1.cpu_seconds, best1.walks, rate1 / 1e3);
        std::printf("  solve, 2 threads: %.3f s, %llu walks (%.0f k walks/s), speed-up %.2f\n",
                    best2.seconds, best2.walks, rate2 / 1e3, rate2 / rate1);
        const std::size_t n = s.wires.size();
        std::printf("  row 0 (1 thread) against the reference:\n");
        for (std::size_t j = 0; j < n; ++j) {
            const double v = best1.values[j], sd = std::sqrt(best1.values[n + j]);
            std::printf("    C0%zu  %+.5f  ref %+.5f  diff %+.2f%% of diag  (%.1f sigma)\n", j, v,
                        s.matrix[0][j], 100 * (v - s.matrix[0][j]) / s.matrix[0][0],
                        sd > 0 ? (v - s.matrix[0][j]) / sd : 0.0);
        }
        std::printf("\n");
    }
    return 0;
}
