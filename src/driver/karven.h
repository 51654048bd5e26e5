#pragma once
// The run driver: the command line's settings and the run sequence.

#include <string>

#include "patterns/generic.h"
#include "patterns/journal.h"

struct KarvenConfig {
    std::string ctf_path;
    std::string output_path;
    std::string tmp_folder = "tmp";  // accepted for scripts that pass it; the run does not read it
    std::string param_json_path;
    KARVEN::ExtractionConfig extraction;
    bool resume = false;  // --resume: finish the run in the journal beside the output
    std::string shard;    // "k/n" of --shard; empty for the whole run
};

namespace KARVEN {

class Karven {
public:
    // Runs the whole job: reads the stack and the parameters, makes the output folder, lets the
    // family "Random" produce its output and prints the totals. Errors of the technology file,
    // of the parameter JSON and of the factory leave as exceptions; a folder that cannot be made
    // is reported on standard error and ends the run quietly.
    static void generate(const KarvenConfig& config);

    // The run after the stack is read: parameters, output folder, the family, the totals line.
    static void generate(const KarvenConfig& config, const MCTF::MiniCTF& ctf);
};

// Returns the long-run settings of the command line: shard, resume and the technology file.
// Throws std::runtime_error when --shard is not k/n with 0 <= k < n.
LongRun longRun(const KarvenConfig& config);

// Returns the folder part of an output path: everything before the last "/" or "\", or the
// whole path when it has neither.
std::string outputFolder(const std::string& output_path);

// Creates `folder` and its missing parents with mode 0755, like mkdir -p; only "/" separates.
// Returns false when a mkdir fails.
bool makeFolders(const std::string& folder);

}  // namespace KARVEN
