#include <iostream>
#include <string>

#include "patterns/generic.h"

namespace KARVEN {

Layers get_nonoverlap_metal_layers(const MCTF::MiniCTF& ctf) {
    Layers all = ctf.conductors;
    std::cout << "[INFO]: " << all.size() << " metal layers found." << std::endl;
    Layers kept;
    for (const MCTF::ConductorLayer* a : all) {
        bool touches = false;
        // Equal heights count as touching, so the earlier layer wins a shared boundary.
        for (const MCTF::ConductorLayer* b : kept) {
            if (b->z_top >= a->z_bottom && a->z_top >= b->z_bottom) {
                touches = true;
                break;
            }
        }
        if (!touches) kept.push_back(a);
    }
    std::cout << "[INFO]: " << kept.size() << " non-overlapping metal layers selected."
              << std::endl;
    for (size_t i = 0; i < kept.size(); ++i) {
        const MCTF::ConductorLayer* l = kept[i];
        std::cout << "  Layer " << i << ": " << l->name << " (" << l->z_bottom << " - " << l->z_top
                  << "), wmin = " << l->wmin << ", smin = " << l->smin << std::endl;
    }
    return kept;
}

bool GenericStructure::layerOverlap(const Layers& layers) const {
    for (size_t i = 0; i < layers.size(); ++i) {
        for (size_t j = i + 1; j < layers.size(); ++j) {
            if (layers[i]->z_top > layers[j]->z_bottom) return true;
        }
    }
    return false;
}

std::vector<Layers> GenericStructure::prepareLayerCombinations(const MCTF::MiniCTF& ctf) const {
    const MCTF::ConductorLayer* P = ctf.substrate_ref;
    const Layers& M = ctf.conductors;
    Layers A{P};
    A.insert(A.end(), M.begin(), M.end());
    const size_t n = A.size(), m = M.size();

    // Outer loops run upward; each entry lists its layers bottom-up.
    std::vector<Layers> out;
    switch (combination) {
        case AnyPair:
            for (size_t i = 1; i < n; ++i)
                for (size_t j = 0; j < i; ++j) out.push_back({A[j], A[i]});
            break;
        case AnyTriple:
            for (size_t k = 1; k < n; ++k)
                for (size_t b = 1; b < k; ++b)
                    for (size_t l = 0; l < b; ++l) out.push_back({A[l], A[b], A[k]});
            break;
        case PlatePair:
            for (size_t i = 1; i < m; ++i)
                for (size_t j = 0; j < i; ++j) out.push_back({P, M[j], M[i]});
            break;
        case PlateTriple:
            for (size_t k = 1; k < m; ++k)
                for (size_t b = 1; b < k; ++b)
                    for (size_t l = 0; l < b; ++l) out.push_back({P, M[l], M[b], M[k]});
            break;
    }
    return out;
}

CapLib GenericStructure::prepareCapLib(const Layers& layers, const json& params) {
    std::string key;
    for (const MCTF::ConductorLayer* l : layers) {
        if (!key.empty()) key += ' ';
        key += std::to_string(l->id + 1);
    }

    CapLib lib;
    if (params.is_object()) {
        auto found = params.find(key);
        if (found != params.end()) {
            const json& entry = *found;
            bool fourParts = (entry.is_array() || entry.is_object()) && entry.size() == 4;
            // On an object of four, entry[0] raises the library's numeric-index error.
            if (fourParts && entry[0].is_array()) {
                for (size_t k = 0; k < 4; ++k)
                    lib.params[k] = entry.at(k).get<std::vector<double>>();
                return lib;
            }
        }
    }
    lib.params = getParameterSet(layers);
    return lib;
}

size_t sweepSize(const ParameterSet& params) {
    return params[0].size() * params[1].size() * params[2].size() * params[3].size();
}

std::array<double, 4> sweepPoint(const ParameterSet& params, const std::array<int, 4>& order,
                                 size_t j) {
    const size_t s0 = params[order[0]].size(), s1 = params[order[1]].size(),
                 s2 = params[order[2]].size(), s3 = params[order[3]].size();
    const size_t index[4] = {(j / (s3 * s2 * s1)) % s0, (j / (s3 * s2)) % s1, (j / s3) % s2,
                             j % s3};
    std::array<double, 4> p{};
    for (size_t k = 0; k < 4; ++k) p[k] = params[order[k]][index[k]];
    return p;
}

}  // namespace KARVEN
