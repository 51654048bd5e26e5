// Cost of the box tables: one solve of each kind, and one key build plus a hit lookup (the part
// that runs on every hop), with a count of heap allocations on the hit path.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

#include "bench_util.h"
#include "solver/gft_solver.h"
#include "solver/online_table.h"

namespace {

using clock_type = std::chrono::steady_clock;

template <class F>
double time_per_call_us(int reps, F&& f) {
    f();  // warm up
    const auto t0 = clock_type::now();
    for (int i = 0; i < reps; ++i) f();
    const auto t1 = clock_type::now();
    return std::chrono::duration<double, std::micro>(t1 - t0).count() / reps;
}

}  // namespace

int main() {
    using RW2D::gft_solver;
    gft_solver solver;
    const std::vector<int> itf{5, 12, 17};
    const std::vector<double> eps{3.9, 2.5, 7.0, 1.0};
    const int reps = 2000;

    std::printf("table solves (stack of 3 interfaces, 24x24 eigenproblem), mean of %d:\n", reps);
    std::printf("  homogeneous (all three)  %8.2f us\n",
                time_per_call_us(reps, [&] { solver.solve_single(); }));
    std::printf("  PDFGFT                   %8.2f us\n", time_per_call_us(reps, [&] {
                    solver.solve_pack(gft_solver::SOLVE_GFT, itf, eps);
                }));
    std::printf("  PDFWVTz                  %8.2f us\n", time_per_call_us(reps, [&] {
                    solver.solve_pack(gft_solver::SOLVE_WVTZ, itf, eps);
                }));
    std::printf("  PDFWVTx                  %8.2f us\n", time_per_call_us(reps, [&] {
                    solver.solve_pack(gft_solver::SOLVE_WVTX, itf, eps);
                }));

    RW2D::online_table_manager tables;
    const std::vector<double> heights{0.0, 0.41, 1.02, 1.43};
    const std::vector<double> layer_eps{3.9, 2.5, 7.0, 1.0};
    const double size = 2.0;
    double middle = 0;
    tables.get_GFT(heights, layer_eps, size);  // first request solves
    tables.get_WVTz(heights, layer_eps, size, middle);
    tables.get_WVTx(heights, layer_eps, size, middle);
    const int hits = 2000000;
    volatile double sink = 0;
    const long a0 = g_allocations.load();
    const double gft_us = time_per_call_us(
        hits, [&] { sink = sink + tables.get_GFT(heights, layer_eps, size)->face_cdf[0]; });
    const double wvtz_us = time_per_call_us(hits, [&] {
        sink = sink + tables.get_WVTz(heights, layer_eps, size, middle)->total_weight;
    });
    const double wvtx_us = time_per_call_us(hits, [&] {
        sink = sink + tables.get_WVTx(heights, layer_eps, size, middle)->total_weight;
    });
    const long allocations = g_allocations.load() - a0;
    std::printf("key build + hit lookup, mean of %d:\n", hits);
    std::printf("  get_GFT                  %8.1f ns\n", gft_us * 1000);
    std::printf("  get_WVTz                 %8.1f ns\n", wvtz_us * 1000);
    std::printf("  get_WVTx                 %8.1f ns\n", wvtx_us * 1000);
    std::printf("  heap allocations on the hit path: %ld\n", allocations);
    std::printf("  stores: %zu GFT, %zu WVTz, %zu WVTx\n", tables.stores().gft.size(),
                tables.stores().wvtz.size(), tables.stores().wvtx.size());
    return allocations == 0 ? 0 : 1;
}
