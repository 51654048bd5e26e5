#pragma once
// The family a run executes: random cross-sections on the usable layers of a stack, or
// cross-sections read from a structure file.

#include <string>
#include <vector>

#include "patterns/generic.h"
#include "patterns/journal.h"
#include "patterns/solving.h"

namespace KARVEN {

class Random : public GenericStructure {
public:
    Random();
    // Random draws its own wires; it has no sweep.
    ParameterSet getParameterSet(const Layers& layers) override;
    Pattern actualStructure(const Layers& layers, const std::array<double, 4>& p) override;
    // Draws and solves "nsamples" samples (or the structure file's) and writes the sample file;
    // returns the number of samples.
    int populate(const std::string& output_path, const MCTF::MiniCTF& ctf, const json& params,
                 const ExtractionConfig& config) override;
    // Solves the structures of the file named by "structure_input"; returns their number.
    int populate_with_structure_input(const std::string& output_path, const MCTF::MiniCTF& ctf,
                                      const json& params, const ExtractionConfig& config);

    // Solves each conductor as master; returns the conductors and the constrained matrix.
    PatternResult solve_pattern_full_matrix(Pattern& pattern, const MCTF::MiniCTF& ctf,
                                            const ExtractionConfig& config);
    // Writes one compact JSON object per result to `path`, rectangles turned into centre and
    // size. An unopenable file is not reported.
    void dump_to_json(std::vector<PatternResult>& results, const std::string& path);

    // As populate and populate_with_structure_input, with the field solver given.
    int populate(const std::string& output_path, const MCTF::MiniCTF& ctf, const json& params,
                 const ExtractionConfig& config, const FieldSolver& solve);
    int populate_with_structure_input(const std::string& output_path, const MCTF::MiniCTF& ctf,
                                      const json& params, const ExtractionConfig& config,
                                      const FieldSolver& solve);

    // The share of the samples this run draws, whether it resumes, the technology file.
    LongRun long_run;
};

// Returns the JSON documents of a JSON-lines file, one per line; a line that does not parse is
// reported on standard error and skipped, an unopenable file gives none.
std::vector<json> parse_jsonl(const std::string& path);

}  // namespace KARVEN
