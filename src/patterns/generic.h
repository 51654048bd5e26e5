#pragma once
// What a pattern family is: a recipe that turns a combination of conductor layers and four
// numbers into one 2-D cross-section, and the factory that finds families by name.

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "technology/minictf.h"

namespace KARVEN {

using json = nlohmann::json;

// x0, y0, x1, y1 with x0 < x1 and y0 < y1; y is the CTF height.
using Rect = std::array<double, 4>;
// A coat rectangle with its permittivity.
using ConformalRect = std::pair<double, Rect>;
// Conductor layers, bottom-up.
using Layers = std::vector<const MCTF::ConductorLayer*>;
// The four parameter vectors of a family's sweep.
using ParameterSet = std::array<std::vector<double>, 4>;

// One combination's sweep (axes st, sb, wb, wt) and its results, one row per point and one column
// per role. Empty `values` marks a skipped combination.
struct CapLib {
    ParameterSet params;
    std::vector<std::vector<double>> values;
};

struct ExtractionConfig {
    int nthreads = 1;
    double precision = 0.005;
    bool merge_diel = true;
    int seed = 1;
};

struct Pattern {
    // Appends a wire spanning [x0, x1] over the layer's height range, and the coats of every
    // conformal dielectric of the layer around it, each wrapping what is already there.
    void addConductor(double x0, double x1, const MCTF::ConductorLayer* layer);

    // Returns the coat rectangles of all dielectrics, in ascending dielectric id.
    std::vector<ConformalRect> flattenConformals() const;

    std::vector<Rect> conductors;
    std::map<int, std::vector<ConformalRect>> conformal_rects;
};

class GenericStructure {
public:
    enum CombinationType { AnyPair = 0, AnyTriple = 1, PlatePair = 2, PlateTriple = 3 };

    GenericStructure(std::string name, CombinationType combination);
    // Families are owned through this base by the factory's unique pointers.
    virtual ~GenericStructure() = default;

    // Returns the four parameter vectors of the sweep for a layer combination.
    virtual ParameterSet getParameterSet(const Layers& layers) = 0;
    // Returns the cross-section for one parameter tuple; the master wire comes first.
    virtual Pattern actualStructure(const Layers& layers, const std::array<double, 4>& p) = 0;
    // Produces the family's output under `output_path`; returns the number of solves made.
    virtual int populate(const std::string& output_path, const MCTF::MiniCTF& ctf,
                         const json& params, const ExtractionConfig& config);

    // Returns true when two of the layers share height (touching is no overlap).
    bool layerOverlap(const Layers& layers) const;
    // Returns the layer combinations of this family's combination type, bottom-up each.
    std::vector<Layers> prepareLayerCombinations(const MCTF::MiniCTF& ctf) const;
    // Returns the sweep for `layers`: four arrays from `params` under the layers' key, or the
    // family's own. Raises the JSON library's type errors for malformed entries.
    CapLib prepareCapLib(const Layers& layers, const json& params);
    // Solves one pattern and returns one value per role.
    std::vector<double> solvePattern(const Pattern& pattern, const MCTF::MiniCTF& ctf,
                                     const ExtractionConfig& config);
    // Solves every point of every combination in parallel; returns the combinations with their
    // libraries, overlapping ones with an empty library.
    std::vector<std::pair<Layers, CapLib>> solveCapLibs(const MCTF::MiniCTF& ctf,
                                                        const json& params,
                                                        const ExtractionConfig& config);
    // Returns the skip lines written behind `role` ("" for those ahead of all roles).
    std::string writeSkip(const std::string& role) const;
    // Writes the capacitance library to `path`; returns the number of rows written, 0 when the
    // file cannot be opened.
    int writeCapLibs(const std::string& path,
                     const std::vector<std::pair<Layers, CapLib>>& libs) const;

    double window = 100.0;
    std::string name;
    std::vector<std::string> roles;
    std::map<std::string, std::vector<std::string>> skips;
    std::array<int, 4> param_order{0, 1, 2, 3};
    CombinationType combination;
};

// Returns the usable metal layers: each conductor layer that touches no earlier kept one.
// Prints the counts and one line per kept layer.
Layers get_nonoverlap_metal_layers(const MCTF::MiniCTF& ctf);

// Returns the number of points of a sweep.
size_t sweepSize(const ParameterSet& params);
// Returns point j of a sweep: slot k takes vector order[k], and vector order[3] varies fastest.
std::array<double, 4> sweepPoint(const ParameterSet& params, const std::array<int, 4>& order,
                                 size_t j);

using StructureCreator = std::function<std::unique_ptr<GenericStructure>()>;

// The registry of families by name, complete before main runs.
class PatternFactory {
public:
    PatternFactory() = delete;

    // Inserts or replaces the creator registered under `name`.
    static void regist(const std::string& name, StructureCreator creator);
    // Returns a new family object of that name; throws std::runtime_error "Unknown type: <name>".
    static std::unique_ptr<GenericStructure> create(const std::string& name);
    // Returns the registered names (for listings and tests).
    static std::vector<std::string> names();

private:
    static std::unordered_map<std::string, StructureCreator>& registry();
};

// A file-scope Register<T> object adds family T to the factory during static initialisation.
template <class T>
struct Register {
    explicit Register(const std::string& name) {
        PatternFactory::regist(name, [] { return std::unique_ptr<GenericStructure>(new T()); });
    }
};

}  // namespace KARVEN
