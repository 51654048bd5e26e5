#pragma once
// The family a run executes: random cross-sections on the usable layers of a stack, or
// cross-sections read from a structure file.

#include <string>
#include <vector>

#include "patterns/generic.h"
#include "patterns/journal.h"
#include "patterns/solving.h"
#include "patterns/writer.h"

namespace KARVEN {

class Random : public GenericStructure {
public:
    Random();
    // Random draws its own wires; it has no sweep.
    ParameterSet getParameterSet(const Layers& layers) override;
    Pattern actualStructure(const Layers& layers, const std::array<double, 4>& p) override;
    // Checks the parameters and the stack, opens the sample file, then draws and solves
    // "nsamples" samples (or the structure file's) and commits the sample file; returns the
    // number of samples in it (this shard's share). Throws FatalError on a bad parameter, a stack
    // that cannot carry wires, an output that cannot be written, or a sample that cannot be drawn
    // or solved.
    int populate(const std::string& output_path, const MCTF::MiniCTF& ctf, const json& params,
                 const ExtractionConfig& config) override;
    // Solves the structures of the file named by "structure_input"; returns their number. Every
    // line is checked before the first solve; throws FatalError naming a bad line.
    int populate_with_structure_input(const std::string& output_path, const MCTF::MiniCTF& ctf,
                                      const json& params, const ExtractionConfig& config);

    // Solves each conductor as master; returns the conductors and the constrained matrix.
    PatternResult solve_pattern_full_matrix(Pattern& pattern, const MCTF::MiniCTF& ctf,
                                            const ExtractionConfig& config);
    // Writes one compact JSON object per result to `path`, rectangles turned into centre and
    // size, through a SampleOutput. Throws FatalError when the file cannot be written.
    void dump_to_json(std::vector<PatternResult>& results, const std::string& path);
    // As above into an open sample file, which is committed. Throws FatalError on a failed write.
    void dump_to_json(std::vector<PatternResult>& results, SampleOutput& out);

    // As populate and populate_with_structure_input, with the field solver given.
    int populate(const std::string& output_path, const MCTF::MiniCTF& ctf, const json& params,
                 const ExtractionConfig& config, const FieldSolver& solve);
    int populate_with_structure_input(const std::string& output_path, const MCTF::MiniCTF& ctf,
                                      const json& params, const ExtractionConfig& config,
                                      const FieldSolver& solve);

    // Whether the substrate plate is solved as master too ("solve_plate_row"); by default its row
    // is derived from the wire rows.
    PlateRow plate_row = PlateRow::Derived;
    // The share of the samples this run draws, whether it resumes, the technology file.
    LongRun long_run;
    // Set by populate for the run's record: every parameter key read, with its value after
    // defaults and the automatic window search; the usable layers, bottom-up.
    json effective_parameters = json::object();
    Layers usable_layers;
    // The solves of populate's in-process solver (not of a solver passed in).
    SolveTally tally;
};

// Returns the JSON documents of a JSON-lines file, one per line that is not blank, and their line
// numbers (from 1) in `line_numbers` when given. Throws FatalError "Error: Unable to open file"
// with the path, or "Error parsing JSON line: " with the library's text and the line's number.
std::vector<json> parse_jsonl(const std::string& path, std::vector<int>* line_numbers = nullptr);

}  // namespace KARVEN
