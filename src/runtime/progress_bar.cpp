#include "runtime/progress_bar.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace KARVEN {

namespace {

// The time left as "1h2m3s", "2m3s" or "3s".
std::string formatEta(uint64_t eta) {
    std::ostringstream out;
    if (eta >= 3600) out << eta / 3600 << 'h';
    if (eta % 3600 >= 60) out << (eta % 3600) / 60 << 'm';
    out << eta % 60 << 's';
    return out.str();
}

}  // namespace

ProgressBar::ProgressBar(uint64_t total_, uint64_t width_, uint64_t step_, uint64_t done)
    : total(total_),
      width(width_),
      step(step_),
      count(done),
      is_tty(isatty(fileno(stdout)) != 0),
      start_time(std::chrono::steady_clock::now()),
      first_count(done) {}

void ProgressBar::tick(const std::string& label) {
    ++count;
    if (step == 0 || total == 0 || count % step != 0) return;

    double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start_time).count();
    double f = static_cast<double>(count) / static_cast<double>(total);
    auto percent = static_cast<uint64_t>(f * 100);
    // Only this run's ticks tell its pace.
    const auto made = static_cast<double>(count - std::min(count, first_count));
    const auto eta = static_cast<uint64_t>(
        made > 0 ? static_cast<double>(total - std::min(total, count)) * elapsed / made : 0.0);

    if (!is_tty) {
        // In a log file one line per percent is plenty; the last tick always shows.
        uint64_t every = total / 100;
        if (total >= 200 && count != total && count % every != 0) {
            std::cout.flush();
            return;
        }
        std::cout << label << ' ' << percent << "% (" << count << '/' << total << ")   Elapsed "
                  << std::fixed << std::setprecision(2) << elapsed << 's';
        if (count < total) std::cout << "  ETA " << formatEta(eta);
        std::cout << '\n';
        std::cout.unsetf(std::ios::floatfield);
        std::cout << std::setprecision(6);
        std::cout.flush();
        return;
    }

    std::ostringstream line;
    line << '\r' << label << " [";
    auto filled = static_cast<uint64_t>(static_cast<double>(width) * f + 0.5);
    for (uint64_t i = 0; i < width; ++i) line << (i < filled ? '=' : ' ');
    line << "] " << std::setw(3) << percent << "%  " << count << '/' << total;
    if (count < total) {
        line << "  ETA " << formatEta(eta);
    } else {
        line << "  Elapsed " << std::fixed << std::setprecision(2) << elapsed << 's';
    }
    std::string text = line.str();
    if (text.size() < last_length) text.append(last_length - text.size(), ' ');
    last_length = text.size();
    std::cout << text;
    std::cout.flush();
    if (count == total) std::cout << '\n';
}

}  // namespace KARVEN
