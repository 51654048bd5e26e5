#include "patterns/derived.h"

#include <iostream>

namespace KARVEN {

// Random has no combination of its own; the value lies beyond the four named kinds.
Random::Random() : GenericStructure("Random", static_cast<CombinationType>(4)) {}

ParameterSet Random::getParameterSet(const Layers&) { return {}; }

Pattern Random::actualStructure(const Layers&, const std::array<double, 4>&) { return {}; }

int Random::populate(const std::string&, const MCTF::MiniCTF&, const json&,
                     const ExtractionConfig&) {
    // Sampling needs the field solver, which is not part of this build yet.
    std::cout << "[WARN]: Random sample generation is not available yet; no samples made"
              << std::endl;
    return 0;
}

static Register<Random> registerRandom("Random");

}  // namespace KARVEN
