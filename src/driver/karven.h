#pragma once
// The run driver: the command line's settings and the run sequence.

#include <string>
#include <vector>

#include "patterns/generic.h"
#include "patterns/journal.h"

struct KarvenConfig {
    std::string ctf_path;
    std::string output_path;
    std::string tmp_folder = "tmp";  // accepted for scripts that pass it; the run does not read it
    std::string param_json_path;
    KARVEN::ExtractionConfig extraction;
    bool resume = false;      // --resume: finish the run in the journal beside the output
    std::string shard;        // "k/n" of --shard; empty for the whole run
    std::string table_cache;  // --table-cache: folder, "off", or empty for the default folder
    std::vector<std::string> command_line;  // the arguments as given, for the run's record
};

namespace KARVEN {

// The most walker threads a run may ask for.
inline constexpr int kMaxThreads = 1024;

class Karven {
public:
    // Runs the whole job: checks the command line's settings, reads the stack and the
    // parameters, makes the output folder, lets the family "Random" produce its output and
    // prints the totals; a run of "Random" also writes OUT.meta.json beside its output OUT. Every
    // failure leaves as an exception, KARVEN::FatalError for the expected ones; no output or
    // metadata file is left behind then, and older ones stay as they were.
    static void generate(const KarvenConfig& config);

    // The run after the stack is read: parameters, output folder, the family, the totals line.
    static void generate(const KarvenConfig& config, const MCTF::MiniCTF& ctf);
};

// Returns the long-run settings of the command line: shard, resume and the technology file.
// Throws FatalError when --shard is not k/n with 0 <= k < n.
LongRun longRun(const KarvenConfig& config);

// Checks the settings that come from the command line: an output path, a thread count from 1 to
// kMaxThreads, a finite precision of at most 1, and for a precision of 0 or below an installed
// external solver. Throws FatalError naming the option, its value and what is allowed.
void checkCommandLine(const KarvenConfig& config);

// Returns the folder part of an output path: everything before the last "/" or "\", or ""
// when it has neither (the current folder).
std::string outputFolder(const std::string& output_path);

// Creates `folder` and its missing parents with mode 0755, like mkdir -p; only "/" separates.
// An empty folder is the current one and needs nothing. Returns false when a mkdir fails.
bool makeFolders(const std::string& folder);

}  // namespace KARVEN
