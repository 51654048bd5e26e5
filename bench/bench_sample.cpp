// Time per sample of the whole job: the bundled example stack, the family "Random", a few samples,
// with one and with two worker threads. A sample is one cross-section with its full matrix, so its
// time is one solve per conductor plus drawing, constraining and writing.
//
//   build/bench/bench_sample [samples=4] [seed=1]
#include <omp.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "driver/karven.h"
#include "solver/config.h"

namespace {

// Walk totals picked out of the solver's diagnostics: solves, walks, and walks times hops per walk.
std::atomic<long> g_solves{0};
std::atomic<double> g_walks{0}, g_hops{0};
std::atomic<double> g_last_walks{0};  // the "avg hop" line follows its own solve's "total walk"
void capture(std::string_view line) {
    constexpr std::string_view walks = "total walk: ", hops = "avg hop: ";
    if (line.substr(0, walks.size()) == walks) {
        const double w = std::strtod(std::string(line.substr(walks.size())).c_str(), nullptr);
        g_last_walks = w;
        g_walks = g_walks + w;
        ++g_solves;
    } else if (line.substr(0, hops.size()) == hops) {
        const double h = std::strtod(std::string(line.substr(hops.size())).c_str(), nullptr);
        g_hops = g_hops + h * g_last_walks;
    }
}

struct Run {
    double seconds;
    long lines;
};

Run run(const std::string& dir, int samples, int threads, unsigned seed) {
    const std::string params = dir + "/params.json";
    std::ofstream(params) << "{\"Random\": {\"nsamples\": " << samples
                          << ", \"nlayers\": 5, \"poisson_lambda\": 4, \"exponent_base\": 0.75,"
                             " \"window\": 20.0, \"conductor_window\": 6.0}}\n";
    KarvenConfig config;
    config.ctf_path = std::string(KARVEN_SOURCE_DIR) + "/examples/stack.ctf";
    config.output_path = dir + "/t" + std::to_string(threads) + "/samples.jsonl";
    config.param_json_path = params;
    config.extraction.nthreads = threads;
    config.extraction.seed = seed;
    const double t0 = omp_get_wtime();
    KARVEN::Karven::generate(config);
    Run r{omp_get_wtime() - t0, 0};
    std::ifstream in(config.output_path);
    for (std::string line; std::getline(in, line);) ++r.lines;
    return r;
}

}  // namespace

int main(int argc, char** argv) {
    const int samples = argc > 1 ? std::atoi(argv[1]) : 4;
    const unsigned seed = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 1u;
    char pattern[] = "/tmp/karven-bench-XXXXXX";
    const char* dir = mkdtemp(pattern);
    if (!dir) {
        std::perror("mkdtemp");
        return 1;
    }
    RW2D::Debugger::set_sink(capture);
    const Run one = run(dir, samples, 1, seed);
    const long solves = g_solves;
    const double walks = g_walks, hops = g_hops;
    const Run two = run(dir, samples, 2, seed);
    std::filesystem::remove_all(dir);
    std::printf("\nexample stack, %d samples drawn with seed %u (precision 0.005)\n", samples,
                seed);
    std::printf("  1 thread:  %.2f s in all, %.2f s per sample (%ld lines written)\n", one.seconds,
                one.seconds / samples, one.lines);
    std::printf(
        "  2 threads: %.2f s in all, %.2f s per sample (%ld lines written), speed-up %.2f\n",
        two.seconds, two.seconds / samples, two.lines, one.seconds / two.seconds);
    if (solves > 0)
        std::printf(
            "  1 thread: %ld solves, %.2f s and %.0f k walks per solve, %.2f hops per walk,"
            " %.2f M hops per second\n",
            solves, one.seconds / solves, walks / solves / 1e3, hops / walks,
            hops / one.seconds / 1e6);
    return 0;
}
