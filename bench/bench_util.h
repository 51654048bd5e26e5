// Helpers shared by the benchmarks: a heap-allocation counter and process CPU and wall clocks.
// Each benchmark is a single source file, so the replacement operator new below is defined once
// per program; include this header from that file only.
#pragma once

#include <time.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>

// Heap allocations made so far by the whole program.
inline std::atomic<long> g_allocations{0};

void* operator new(std::size_t n) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

// CPU time of the process: on a shared machine the wall time also counts other jobs' turns.
inline double cpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec + 1e-9 * t.tv_nsec;
}

// Wall seconds since `since`.
inline double seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}
