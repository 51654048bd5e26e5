#pragma once
// Progress of a long parallel loop on standard output: a redrawn bar on a terminal, about one
// line per percent in a pipe or file. Callers serialise tick() (an OpenMP critical section).

#include <chrono>
#include <cstdint>
#include <string>

namespace KARVEN {

class ProgressBar {
public:
    // A bar of `width` characters reaching 100% after `total` ticks, drawn every `step` ticks.
    // `done` ticks count as made before this run (samples found in a journal): the bar starts
    // there, and the time left is estimated from the pace of this run's own ticks.
    ProgressBar(uint64_t total, uint64_t width, uint64_t step, uint64_t done = 0);

    // Counts one unit of work and redraws when due. Not thread-safe.
    void tick(const std::string& label);

    uint64_t total;
    uint64_t width;
    uint64_t step;
    uint64_t count = 0;
    uint64_t last_length = 0;
    bool is_tty;
    std::chrono::steady_clock::time_point start_time;
    uint64_t first_count = 0;
};

}  // namespace KARVEN
