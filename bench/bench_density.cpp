// Density map and effective width grid on a random layout: a square frame in nanometres with
// random wires (rectangles) and random star-shaped polygons of 3 to 12 vertices, grid 1 um,
// window 5 um. Prints the time to add, to calculate, the memory, and the time of getDensity
// queries; then the same for the effective width grid with expansion 10 nm.
//
//   bench_density [scale=1] [seed=1]
//
// scale 1 is a 1 mm frame with 1,000,000 rectangles and 100,000 polygons; a smaller scale shrinks
// the counts and the frame's area alike, so the layout keeps its density.
#include <omp.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "process_effects/density_map.h"
#include "process_effects/eff_width_grid.h"

namespace {

using clock_type = std::chrono::steady_clock;

double secondsSince(clock_type::time_point t0) {
    return std::chrono::duration<double>(clock_type::now() - t0).count();
}

// CPU seconds of the whole process: on a loaded machine the figure that other work does not move.
double cpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

// Wall and CPU seconds of one step.
struct Timer {
    clock_type::time_point wall = clock_type::now();
    double cpu = cpuSeconds();
    void print(const char* what) const {
        std::printf("  %-17s %8.3f s wall, %8.3f s CPU\n", what, secondsSince(wall),
                    cpuSeconds() - cpu);
    }
};

// VmRSS or VmHWM of this process in MiB.
double procMiB(const char* key) {
    std::ifstream f("/proc/self/status");
    std::string word;
    while (f >> word)
        if (word == key) {
            double kib = 0;
            f >> kib;
            return kib / 1024.0;
        }
    return 0.0;
}

struct Layout {
    int32_t side = 0;
    LayoutPolygonSet rects;
    LayoutPolygonSet polys;
};

Layout randomLayout(double scale, unsigned seed) {
    Layout l;
    l.side = static_cast<int32_t>(std::lround(1e6 * std::sqrt(scale)));
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int32_t> pos(0, l.side);
    std::uniform_int_distribution<int32_t> width(20, 200), length(100, 5000);
    const size_t nrect = static_cast<size_t>(std::lround(1e6 * scale));
    const size_t npoly = static_cast<size_t>(std::lround(1e5 * scale));
    l.rects.reserve(nrect);
    for (size_t k = 0; k < nrect; ++k) {
        const int32_t x = pos(rng), y = pos(rng), w = width(rng), len = length(rng);
        const bool horizontal = rng() & 1;
        const int32_t dx = horizontal ? len : w, dy = horizontal ? w : len;
        l.rects.push_back({{x, y}, {x + dx, y}, {x + dx, y + dy}, {x, y + dy}, {x, y}});
    }
    std::uniform_int_distribution<int> vertices(3, 12);
    std::uniform_real_distribution<double> radius(50.0, 1000.0), unit(0.0, 1.0);
    l.polys.reserve(npoly);
    for (size_t k = 0; k < npoly; ++k) {
        const int32_t cx = pos(rng), cy = pos(rng);
        const int n = vertices(rng);
        std::vector<double> angles(n);
        for (double& a : angles) a = 2.0 * M_PI * unit(rng);
        std::sort(angles.begin(), angles.end());
        LayoutPolygon p;
        for (double a : angles) {
            const double r = radius(rng);
            p.push_back({cx + static_cast<int32_t>(std::lround(r * std::cos(a))),
                         cy + static_cast<int32_t>(std::lround(r * std::sin(a)))});
        }
        p.push_back(p.front());
        l.polys.push_back(std::move(p));
    }
    return l;
}

}  // namespace

int main(int argc, char** argv) {
    const double scale = argc > 1 ? std::atof(argv[1]) : 1.0;
    const unsigned seed = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 1u;
    if (!(scale > 0.0)) {
        std::fprintf(stderr, "usage: bench_density [scale>0] [seed]\n");
        return 1;
    }
    const int32_t grid = 1000, win = 5000, expansion = 10;
    const Layout l = randomLayout(scale, seed);
    std::printf(
        "frame %d x %d nm, %zu rectangles, %zu polygons (3-12 vertices), grid %d, "
        "window %d, %d OpenMP threads\n",
        l.side, l.side, l.rects.size(), l.polys.size(), grid, win, omp_get_max_threads());
    const double rss_data = procMiB("VmRSS:");
    std::printf("  input layout in memory: RSS %.0f MiB\n", rss_data);

    {
        Timer t;
        DensityMap map(grid, win, 0, 0, l.side, l.side);
        std::printf("DensityMap %d x %d cells (grid_size %d, win_size %d)\n", map.range_x,
                    map.range_y, map.grid_size, map.win_size);
        t.print("construct");
        t = Timer();
        for (const auto& r : l.rects) map.addOverlappedPoly(r);
        for (const auto& p : l.polys) map.addOverlappedPoly(p);
        t.print("add polygons");
        const double mib_add = map.memoryBytes() / 1048576.0;
        const double rss_add = procMiB("VmRSS:");
        t = Timer();
        map.calculateDensity();
        t.print("calculateDensity");
        double mean = 0.0;
        for (double d : map.densities) mean += d;
        mean /= static_cast<double>(map.densities.size());
        std::printf(
            "  memory: map %.1f MiB after adding, %.1f MiB after calculating; process "
            "RSS %.0f MiB after adding, peak %.0f MiB\n",
            mib_add, map.memoryBytes() / 1048576.0, rss_add, procMiB("VmHWM:"));
        std::printf("  mean cell density %.4f\n", mean);

        std::mt19937 rng(seed + 7);
        std::uniform_int_distribution<int32_t> pos(0, l.side);
        std::vector<std::pair<int32_t, int32_t>> points(1000000);
        for (auto& p : points) p = {pos(rng), pos(rng)};
        for (int32_t box : {5000, 50000}) {
            t = Timer();
            double sum = 0.0;
            for (const auto& [x, y] : points) sum += map.getDensity(x, y, box);
            const std::string what =
                std::to_string(points.size() / 1000000) + "M getDensity " + std::to_string(box);
            t.print(what.c_str());
            std::printf("    (mean answer %.4f)\n", sum / static_cast<double>(points.size()));
        }
    }

    {
        Timer t;
        EffWidthGrid g(grid, win, 0, 0, l.side, l.side, expansion);
        std::printf("EffWidthGrid %d x %d cells, expansion %d\n", g.getGridRangeX(),
                    g.getGridRangeY(), expansion);
        for (const auto& r : l.rects) g.addPoly(r);
        for (const auto& p : l.polys) g.addPoly(p);
        t.print("construct + add");
        const double mib_add = g.memoryBytes() / 1048576.0;
        t = Timer();
        g.calculateEffWidthSpacing(nullptr, nullptr, nullptr);
        t.print("calculate");
        size_t finite = 0;
        double mean_w = 0.0;
        for (int32_t j = 0; j < g.getGridRangeY(); ++j)
            for (int32_t i = 0; i < g.getGridRangeX(); ++i) {
                const double w = g.getEffWidth(i, j);
                if (w > 0.0 && w < EffWidthGrid::kUnbounded) ++finite, mean_w += w;
            }
        std::printf(
            "  memory: grid %.1f MiB after adding, %.1f MiB after calculating; process "
            "peak RSS %.0f MiB\n",
            mib_add, g.memoryBytes() / 1048576.0, procMiB("VmHWM:"));
        std::printf("  cells with a finite width: %zu, mean width %.1f nm\n", finite,
                    finite ? mean_w / static_cast<double>(finite) : 0.0);
    }
    return 0;
}
