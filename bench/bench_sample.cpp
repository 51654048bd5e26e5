// Time per sample of the whole job: the bundled example stack, the family "Random", a few samples,
// with one and with two worker threads. A sample is one cross-section with its full matrix, so its
// time is one solve per conductor plus drawing, constraining and writing.
//
//   build/bench/bench_sample [samples=4] [seed=1]
#include <omp.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "driver/karven.h"

namespace {

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
    const Run one = run(dir, samples, 1, seed);
    const Run two = run(dir, samples, 2, seed);
    std::filesystem::remove_all(dir);
    std::printf("\nexample stack, %d samples drawn with seed %u (precision 0.005)\n", samples, seed);
    std::printf("  1 thread:  %.2f s in all, %.2f s per sample (%ld lines written)\n", one.seconds,
                one.seconds / samples, one.lines);
    std::printf("  2 threads: %.2f s in all, %.2f s per sample (%ld lines written), speed-up %.2f\n",
                two.seconds, two.seconds / samples, two.lines, one.seconds / two.seconds);
    return 0;
}
