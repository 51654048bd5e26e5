#include "solver/config.h"

#include <cstdio>

#include "runtime/failure.h"

namespace RW2D {

std::atomic<Debugger::Sink> Debugger::sink_{nullptr};

Config Config::for_entry(double precision, std::uint32_t seed) {
    Config c;
    c.mc.precision = precision;
    c.mc.seed = seed;
    return c;
}

void Debugger::raise_error(std::string_view message) {
    std::fwrite("\033[31m[ERROR]", 1, 12, stdout);
    std::fwrite(message.data(), 1, message.size(), stdout);
    std::fwrite("\033[0m\n", 1, 5, stdout);
    std::fflush(stdout);
    // The line is the user's message; the caller's program decides how the run ends.
    throw KARVEN::FatalError(std::string(message), true);
}

Debugger::Sink Debugger::set_sink(Sink sink) {
    return sink_.exchange(sink);
}

void Debugger::stderr_sink(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fputc('\n', stderr);
}

}  // namespace RW2D
