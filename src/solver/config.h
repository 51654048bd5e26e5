#pragma once
// Settings record of the RW2D field solver and its single fatal-error / diagnostics channel.

#include <atomic>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

namespace RW2D {

// How NetManager::neighbor looks for the nearest conductor.
enum NeighborMode : std::uint32_t {
    NEIGHBOR_SCAN = 0,  // every net, full classification
    NEIGHBOR_GRID = 1,  // uniform grid built by NetManager::preprocess
    NEIGHBOR_BOX = 2,   // every net, bounding-box rejection first
};

// Plain settings record, passed by const reference everywhere. Default member values are the
// values the library entry uses; precision and seed are overwritten from its arguments.
struct Config {
    struct SpaceArgs {
        bool neumann_walls = true;  // reflecting window sides, structure continued by mirroring
        std::uint32_t neighbor_mode = NEIGHBOR_BOX;
        double block_x = 0.0;  // grid block size, filled by NetManager::preprocess only
        double block_y = 0.0;
    };
    struct MCArgs {
        double precision = 0.005;  // relative one-sigma target; <= 0 selects the external solver
        bool stratified = true;    // record walks in two strata by the sign of their weight
        bool combine = false;      // follow each walk by its mirrored companion
        std::uint32_t threads = 1;
        std::uint32_t seed = 0;
    };
    struct ApproxArgs {
        std::uint32_t approx_order = 8;
        double merge_tolerance = 0.01;  // relative error allowed by NetManager::merge_medium
        double approx_ratio = 0.5;
    };

    std::string input_path;
    bool input_is_directory = false;
    bool report_full = false;
    bool report_values = false;
    bool report_named = true;
    std::string output_path;
    std::string data_dir = "rw2ddata";
    bool dump_tables = false;
    bool load_tables = true;
    SpaceArgs space;
    MCArgs mc;
    ApproxArgs approx;
    // Kept for the record's shape; nothing in the solver reads them.
    bool reserved_flag = false;
    std::string reserved_text_a;
    std::string reserved_text_b;

    // Returns the record the library entry builds for a solve with this precision and seed.
    static Config for_entry(double precision, std::uint32_t seed);
};

// Stateless fatal-error path plus one switchable diagnostics sink (silent unless a sink is set).
class Debugger {
public:
    using Sink = void (*)(std::string_view line);

    // Prints "\033[31m[ERROR]" message "\033[0m" and a newline to standard output, then throws
    // KARVEN::FatalError with the message, marked as printed. Never returns normally.
    [[noreturn]] static void raise_error(std::string_view message);

    // Composes one diagnostic line from its parts (streamed as by operator<<) and hands it to the
    // sink; does nothing at all while no sink is set, which is the default.
    template <class... Parts>
    static void log(const Parts&... parts) {
        Sink s = sink_.load(std::memory_order_relaxed);
        if (s == nullptr) return;
        std::ostringstream os;
        (os << ... << parts);
        s(os.str());
    }

    // Installs the diagnostics sink (nullptr silences it again); returns the previous sink.
    static Sink set_sink(Sink sink);

    // A ready-made sink that writes each line to standard error.
    static void stderr_sink(std::string_view line);

private:
    static std::atomic<Sink> sink_;
};

}  // namespace RW2D
