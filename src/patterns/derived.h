#pragma once
// The pattern families registered in the factory.

#include "patterns/generic.h"

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
};

}  // namespace KARVEN
