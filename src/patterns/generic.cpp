#include "patterns/generic.h"

#include <stdexcept>
#include <unordered_map>

namespace KARVEN {

void Pattern::addConductor(double x0, double x1, const MCTF::ConductorLayer* layer) {
    conductors.push_back(Rect{x0, layer->z_bottom, x1, layer->z_top});
    double left = x0, right = x1, top = layer->z_top;
    for (const MCTF::DielectricLayer* d : layer->conformals) {
        if (0.0 >= d->side_thickness && 0.0 >= d->top_thickness) continue;
        auto& coats = conformal_rects[d->id];
        right += d->side_thickness;
        top += d->top_thickness;
        left -= d->side_thickness;
        coats.emplace_back(d->er, Rect{left, layer->z_bottom, right, top});
    }
}

std::vector<ConformalRect> Pattern::flattenConformals() const {
    std::vector<ConformalRect> flat;
    for (const auto& [id, coats] : conformal_rects)
        flat.insert(flat.end(), coats.begin(), coats.end());
    return flat;
}

GenericStructure::GenericStructure(std::string name_, CombinationType combination_)
    : name(std::move(name_)), combination(combination_) {}

int GenericStructure::populate(const std::string& output_path, const MCTF::MiniCTF& ctf,
                               const json& params, const ExtractionConfig& config) {
    return writeCapLibs(output_path, solveCapLibs(ctf, params, config));
}

std::unordered_map<std::string, StructureCreator>& PatternFactory::registry() {
    static std::unordered_map<std::string, StructureCreator> families;
    return families;
}

void PatternFactory::regist(const std::string& name, StructureCreator creator) {
    registry()[name] = std::move(creator);
}

std::unique_ptr<GenericStructure> PatternFactory::create(const std::string& name) {
    auto it = registry().find(name);
    if (it == registry().end()) throw std::runtime_error("Unknown type: " + name);
    return it->second();
}

std::vector<std::string> PatternFactory::names() {
    std::vector<std::string> all;
    for (const auto& entry : registry()) all.push_back(entry.first);
    return all;
}

}  // namespace KARVEN
