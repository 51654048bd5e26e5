#pragma once
// The reduced technology view: the vertical stack that pattern generation and the field solver
// work on. Read once from a CTF file, optionally merged into plates, then read-only.

#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace MCTF {

struct DielectricLayer;

struct ConductorLayer {
    int id = -1;
    std::string name;
    double z_bottom = 0.0;
    double z_top = 0.0;
    double wmin = 0.1;
    double smin = 0.1;
    double side_tan = 0.0;
    std::vector<const DielectricLayer*> conformals;
};

struct DielectricLayer {
    int id = -1;
    std::string name;
    double z_bottom = 0.0;
    double z_top = 0.0;
    double er = 1.0;
    double side_thickness = -1.0;
    double top_thickness = -1.0;
    double bw_t = -1.0;
    std::vector<const ConductorLayer*> bottoms;
};

class MiniCTF {
public:
    MiniCTF();
    // The object hands out pointers into itself, so it stays where it was built.
    MiniCTF(const MiniCTF&) = delete;
    MiniCTF& operator=(const MiniCTF&) = delete;

    // Reads the stack of the CTF file at `ctf_path` into this object. Throws KARVEN::FatalError,
    // marked as printed, when the reader failed (it has logged why), and std::runtime_error when
    // the file yields a stack the pattern generator cannot use.
    void parseCtf(const std::string& ctf_path);

    // Rewrites `plates` so that no plate boundary lies inside a conductor's height range; each
    // conductor's range gets the thickness-weighted mean permittivity. Throws std::runtime_error
    // "Can't merge layer" or "Can't merge layer plate" when the stack has no plate below a
    // conductor or lost its top marker.
    void mergePlate();

    // Stack building, used by parseCtf and by anyone who builds a stack in memory.
    // Empties the layer stores and pointer lists (not `plates`).
    void clearStack();
    // Appends a conductor layer with its base height and thickness; returns it.
    ConductorLayer& appendConductor(const std::string& name, double base, double thickness,
                                    double wmin = 0.1, double smin = 0.1, double side_tan = 0.0);
    // Appends a dielectric layer; each name in `bottoms` must be a conductor appended before,
    // else std::runtime_error naming the layer. Returns the new layer.
    DielectricLayer& appendDielectric(const std::string& name, double base, double thickness,
                                      double er, double side_thickness = -1.0,
                                      double top_thickness = -1.0, double bw_t = -1.0,
                                      const std::vector<std::string>& bottoms = {});
    // Sets the substrate and fills the pointer lists and `plates` from the stores. Throws
    // std::runtime_error when conductors exist but no dielectric does.
    void finishStack();

    ConductorLayer substrate;
    std::deque<DielectricLayer> dielectric_layers;
    std::deque<ConductorLayer> conductor_layers;
    double substrate_z = 0.0;
    const ConductorLayer* substrate_ref;
    std::vector<const ConductorLayer*> conductors;
    std::vector<const DielectricLayer*> dielectrics;
    std::vector<std::pair<double, double>> plates;
};

}  // namespace MCTF
