#pragma once
// The pattern families registered in the factory.

#include "patterns/generic.h"
#include "patterns/solving.h"

namespace KARVEN {

// Random cross-sections on the usable layers of a stack, or cross-sections read from a
// structure file; the family a run executes.
class Random : public GenericStructure {
public:
    Random();
    // Random draws its own wires; it has no sweep.
    ParameterSet getParameterSet(const Layers& layers) override;
    Pattern actualStructure(const Layers& layers, const std::array<double, 4>& p) override;
    // Writes the sample file; returns the number of solves made.
    int populate(const std::string& output_path, const MCTF::MiniCTF& ctf, const json& params,
                 const ExtractionConfig& config) override;

    // Solves each conductor as master; returns the conductors and the constrained matrix.
    PatternResult solve_pattern_full_matrix(Pattern& pattern, const MCTF::MiniCTF& ctf,
                                            const ExtractionConfig& config);
    // Writes one compact JSON object per result to `path`, rectangles turned into centre and
    // size. An unopenable file is not reported.
    void dump_to_json(std::vector<PatternResult>& results, const std::string& path);
};

}  // namespace KARVEN
