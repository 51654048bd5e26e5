// Samples per core-hour of the whole job: the bundled example stack, the family "Random", run as
// the user runs it, each configuration in a fresh process so that no table survives in memory
// from one to the next.
//
//   build/bench/bench_sample [--samples N=8] [--seed S=1] [--repeat R=1]
//                            [--baseline PATH-TO-OLDER-KARVEN]
//
// Configurations: one thread from a cold table cache (which the run fills), one thread again from
// that warm cache, two threads from a cold cache, and one thread solving the plate's row instead
// of deriving it. Per configuration it prints wall and CPU seconds, seconds per sample, samples per
// core-hour (samples over threads times wall hours; on a busy machine read the CPU-hour figure
// beside it), and from the run's OUT.meta.json the solves,
// walks, hops, and the tables solved with the share of CPU time that took. --baseline also runs
// an older build of the tool on one thread with the same draws and prints the ratio. --repeat runs
// the whole round R times, configurations interleaved and each cold run with a cache of its own,
// and keeps the fastest run of each: on a shared machine the slower ones measure the neighbours.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

struct Run {
    double wall = 0, cpu = 0;
    int threads = 1;
    json meta;  // empty for a tool that writes none
};

// Runs the tool with `args` in a child process, its output into dir/name.log; returns its wall
// and CPU time and its metadata. Exits the benchmark when the tool fails.
Run runTool(const std::string& binary, const fs::path& dir, const std::string& name, int threads,
            std::vector<std::string> args) {
    const fs::path out = dir / name / "samples.jsonl";
    args.insert(args.begin(), {binary, "-i", std::string(KARVEN_SOURCE_DIR) + "/examples/stack.ctf",
                               "-o", out.string(), "-n", std::to_string(threads)});
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    const std::string log = (dir / (name + ".log")).string();
    const auto t0 = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    if (pid == 0) {
        std::freopen(log.c_str(), "w", stdout);
        std::freopen(log.c_str(), "a", stderr);
        execv(binary.c_str(), argv.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    Run r;
    r.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    r.cpu = usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
            1e-6 * (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
    r.threads = threads;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "bench_sample: %s failed, see %s\n", name.c_str(), log.c_str());
        std::exit(1);
    }
    std::ifstream meta(out.string() + ".meta.json");
    if (meta) r.meta = json::parse(std::string(std::istreambuf_iterator<char>(meta), {}));
    return r;
}

// A count from a run's metadata; 0 when an older tool did not record it.
double number(const json& meta, const char* key) {
    const auto it = meta.find(key);
    return it != meta.end() && it->is_number() ? it->get<double>() : 0.0;
}

double perHour(const Run& r, int samples) {
    return samples * 3600.0 / (r.threads * r.wall);
}

void print(const char* what, const Run& r, int samples) {
    std::printf(
        "  %-28s %6.1f s wall %6.1f s CPU %6.2f s/sample %6.0f samples/core-hour (%.0f/CPU-hour)\n",
        what, r.wall, r.cpu, r.wall / samples, perHour(r, samples), samples * 3600.0 / r.cpu);
    if (r.meta.is_null()) return;
    const double solves = number(r.meta, "solves"), walks = number(r.meta, "walks");
    const double hops = number(r.meta, "hops"), tables = number(r.meta, "table_solves");
    const double table_s = number(r.meta, "table_seconds");
    std::printf(
        "  %-28s %.0f solves, %.0f k walks/solve, %.2f hops/walk; %.0f tables solved,"
        " %.1f%% of CPU in tables\n",
        "", solves, walks / solves / 1e3, hops / walks, tables, 100 * table_s / r.cpu);
}

}  // namespace

int main(int argc, char** argv) {
    int samples = 8;
    unsigned seed = 1;
    int repeat = 1;
    std::string baseline;
    for (int k = 1; k + 1 < argc; k += 2) {
        if (!std::strcmp(argv[k], "--samples")) samples = std::atoi(argv[k + 1]);
        if (!std::strcmp(argv[k], "--seed")) seed = static_cast<unsigned>(std::atoi(argv[k + 1]));
        if (!std::strcmp(argv[k], "--baseline")) baseline = argv[k + 1];
        if (!std::strcmp(argv[k], "--repeat")) repeat = std::max(1, std::atoi(argv[k + 1]));
    }
    char pattern[] = "/tmp/karven-bench-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    const fs::path dir = pattern;
    auto params = [&](const char* name, bool plate_row) {
        const fs::path path = dir / name;
        std::ofstream(path) << "{\"Random\": {\"nsamples\": " << samples
                            << ", \"nlayers\": 5, \"poisson_lambda\": 4, \"exponent_base\": 0.75,"
                               " \"window\": 20.0, \"conductor_window\": 6.0"
                            << (plate_row ? ", \"solve_plate_row\": true" : "") << "}}\n";
        return path.string();
    };
    const std::string common = params("params.json", false);
    const std::string plate = params("plate.json", true);
    const std::string karven = KARVEN_BINARY;
    const std::string s = std::to_string(seed);

    Run cold, warm, two, solved, base;
    auto keep_fastest = [](Run& best, Run r) {
        if (best.wall == 0 || r.wall < best.wall) best = std::move(r);
    };
    for (int r = 0; r < repeat; ++r) {
        const std::string n = std::to_string(r);
        const std::string cache = (dir / ("cache" + n)).string();
        const std::string cache2 = (dir / ("cache2-" + n)).string();
        keep_fastest(cold, runTool(karven, dir, "cold1-" + n, 1,
                                   {"--seed", s, "--param-json", common, "--table-cache", cache}));
        keep_fastest(warm, runTool(karven, dir, "warm1-" + n, 1,
                                   {"--seed", s, "--param-json", common, "--table-cache", cache}));
        keep_fastest(two, runTool(karven, dir, "cold2-" + n, 2,
                                  {"--seed", s, "--param-json", common, "--table-cache", cache2}));
        keep_fastest(solved, runTool(karven, dir, "plate1-" + n, 1,
                                     {"--seed", s, "--param-json", plate, "--table-cache", "off"}));
        if (!baseline.empty())
            keep_fastest(base, runTool(baseline, dir, "baseline1-" + n, 1,
                                       {"--seed", s, "--param-json", common}));
    }
    fs::remove_all(dir);

    std::printf("\nexample stack, %d samples drawn with seed %u, precision 0.005, fastest of %d\n",
                samples, seed, repeat);
    print("1 thread, cold table cache", cold, samples);
    print("1 thread, warm table cache", warm, samples);
    print("2 threads, cold table cache", two, samples);
    print("1 thread, plate row solved", solved, samples);
    const double loaded = number(warm.meta, "tables_loaded");
    const double missed = number(warm.meta, "table_solves");
    std::printf("  table cache: the warm run loaded %.0f tables and solved %.0f (%.1f%% hits)\n",
                loaded, missed, 100 * (1 - missed / number(cold.meta, "table_solves")));
    std::printf("  plate row: solving it would add %.1f%% to the wall time (%.1f%% of a run)\n",
                100 * (solved.wall / cold.wall - 1), 100 * (1 - cold.wall / solved.wall));
    std::printf(
        "  2 threads: speed-up %.2f, parallel efficiency %.2f (CPU busy %.0f%% of 2 x wall)\n",
        cold.wall / two.wall, cold.wall / (2 * two.wall), 100 * two.cpu / (2 * two.wall));
    if (!baseline.empty()) {
        print("baseline, 1 thread", base, samples);
        std::printf("  samples per core-hour against the baseline: %.2fx cold, %.2fx warm\n",
                    perHour(cold, samples) / perHour(base, samples),
                    perHour(warm, samples) / perHour(base, samples));
    }
    return 0;
}
