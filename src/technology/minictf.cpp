#include "technology/minictf.h"

#include <cmath>
#include <cstdint>
#include <iterator>
#include <map>
#include <stdexcept>

#include "runtime/failure.h"
#include "runtime/logger.h"
#include "technology/ctf_error.h"
#include "technology/process_info.h"
#include "technology/task.h"

namespace MCTF {

MiniCTF::MiniCTF() : substrate_ref(&substrate) {}

void MiniCTF::parseCtf(const std::string& ctf_path) {
    clearStack();
    Task task;
    task.ctf_file = ctf_path;
    ProcessInfo info;
    int status = 0;
    try {
        status = info.parseCtfwithInterpreter(task);
    } catch (const Ctf_Error& e) {
        // The reader lets the empty-file error through; report it as it reports the others.
        PLOG::log(5) << e.text << PLOG::endl;
    }
    // The reader has logged its failure; a stack cut at the failing statement must not be used.
    if (status != 1)
        throw KARVEN::FatalError("Error: the technology file " + ctf_path + " could not be read",
                                 true);
    for (const Conductor& c : info.conductors)
        appendConductor(c.name, c.base, c.thickness, c.wmin, c.smin, c.side_tan);
    for (const ConformalLayer& d : info.dielectrics)
        appendDielectric(d.name, d.base, d.thickness, d.er, d.side_thickness, d.top_thickness,
                         d.bw_t, d.bottoms);
    finishStack();
}

void MiniCTF::clearStack() {
    dielectric_layers.clear();
    conductor_layers.clear();
    conductors.clear();
    dielectrics.clear();
}

ConductorLayer& MiniCTF::appendConductor(const std::string& name, double base, double thickness,
                                         double wmin, double smin, double side_tan) {
    ConductorLayer c;
    c.id = static_cast<int>(conductor_layers.size());
    c.name = name;
    c.z_bottom = base;
    c.z_top = base + thickness;
    c.wmin = wmin;
    c.smin = smin;
    c.side_tan = side_tan;
    return conductor_layers.emplace_back(std::move(c));
}

DielectricLayer& MiniCTF::appendDielectric(const std::string& name, double base, double thickness,
                                           double er, double side_thickness, double top_thickness,
                                           double bw_t, const std::vector<std::string>& bottoms) {
    DielectricLayer d;
    d.id = static_cast<int>(dielectric_layers.size());
    d.name = name;
    d.z_bottom = base;
    d.z_top = base + thickness;
    d.er = er;
    d.side_thickness = side_thickness;
    d.top_thickness = top_thickness;
    d.bw_t = bw_t;
    DielectricLayer& added = dielectric_layers.emplace_back(std::move(d));
    for (const std::string& b : bottoms) {
        ConductorLayer* coated = nullptr;
        // A later layer of the same name wins, as a name map filled in order would have it.
        for (auto it = conductor_layers.rbegin(); it != conductor_layers.rend(); ++it) {
            if (it->name == b) {
                coated = &*it;
                break;
            }
        }
        if (coated == nullptr) {
            throw std::runtime_error("Dielectric layer \"" + name + "\" coats \"" + b +
                                     "\", which is not a conductor layer");
        }
        added.bottoms.push_back(coated);
        coated->conformals.push_back(&added);
    }
    return added;
}

void MiniCTF::finishStack() {
    if (!conductor_layers.empty() && dielectric_layers.empty()) {
        throw std::runtime_error(
            "The technology has conductor layers but no dielectric layer: the stack has no top");
    }
    substrate = ConductorLayer{};
    substrate.id = -1;
    substrate.name = "substrate";
    substrate.z_bottom = substrate_z - 0.1;
    substrate.z_top = substrate_z;
    substrate.wmin = substrate.smin = substrate.side_tan = 0.0;

    conductors.clear();
    for (const ConductorLayer& c : conductor_layers) conductors.push_back(&c);
    dielectrics.clear();
    for (const DielectricLayer& d : dielectric_layers) {
        dielectrics.push_back(&d);
        if (d.z_bottom != d.z_top) plates.emplace_back(d.z_bottom, d.er);
    }
    if (!dielectrics.empty()) plates.emplace_back(dielectrics.back()->z_top, 1.0);
}

namespace {

constexpr double kGrid = 1e-6;
constexpr double kTopMarker = -1.0;

// Heights are compared on a 1e-6 grid: the nearest grid index, halves away from zero.
int32_t heightKey(double h) {
    return static_cast<int32_t>(std::lround(h / kGrid));
}

}  // namespace

void MiniCTF::mergePlate() {
    std::map<int32_t, double> medium;
    for (const DielectricLayer* d : dielectrics) {
        int32_t lo = heightKey(d->z_bottom);
        if (lo == heightKey(d->z_top)) continue;
        medium[lo] = d->er;
    }
    if (!dielectrics.empty()) medium[heightKey(dielectrics.back()->z_top)] = kTopMarker;

    for (const ConductorLayer* c : conductors) {
        int32_t lo = heightKey(c->z_bottom);
        int32_t hi = heightKey(c->z_top);

        auto afterLo = medium.upper_bound(lo);
        if (afterLo == medium.begin()) throw std::runtime_error("Can't merge layer");
        auto A = std::prev(afterLo);
        auto B = medium.lower_bound(hi);

        double er = 1.0;
        if (A != B) {
            double num = 0.0, den = 0.0;
            for (auto E = A; E != B; ++E) {
                auto F = std::next(E);
                if (E->second == kTopMarker) {
                    if (F == B) break;
                    continue;
                }
                double start = E == A ? c->z_bottom : E->first * kGrid;
                double end = F == B ? c->z_top : F->first * kGrid;
                num += E->second * (end - start);
                den += end - start;
                if (F == B) break;
            }
            er = den == 0.0 ? 1.0 : num / den;
        }

        auto afterHi = medium.upper_bound(hi);
        if (afterHi == medium.begin()) throw std::runtime_error("Can't merge layer");
        double above = std::prev(afterHi)->second;

        if (A != B) medium.erase(std::next(A), B);
        medium[lo] = er;
        medium[hi] = above;
    }

    plates.clear();
    for (const auto& [key, value] : medium) plates.emplace_back(key * kGrid, value);
    if (plates.empty() || plates.back().second != kTopMarker) {
        throw std::runtime_error("Can't merge layer plate");
    }
    plates.back().second = 1.0;
}

}  // namespace MCTF
