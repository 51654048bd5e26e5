#pragma once
// Layer and device records that the CTF statements fill and the process database keeps. Layer
// records own their process models by raw pointer: a copy clones every model, and the destructor
// deletes them.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "technology/process_model.h"
#include "technology/process_model_resistance.h"
#include "technology/process_model_thickness.h"

// Deletes an owned model and leaves the pointer null. Never fails.
template <class T>
void dropOwned(T*& model) {
    delete model;
    model = nullptr;
}

// Deletes every owned model of a list and leaves the list empty. Never fails.
template <class T>
void dropOwned(std::vector<T*>& models) {
    for (T* m : models) delete m;
    models.clear();
}

// The fields of a conductor layer; copying this part alone shares the models.
struct ConductorFields {
    std::int32_t side = 0;
    std::string name;
    double base = -1.0;
    double thickness = -1.0;
    double scale = 1.0;
    std::vector<std::int32_t> conformal_ids;
    std::vector<double> conformal_side_offsets;
    std::vector<double> conformal_top_offsets;
    std::vector<std::int32_t> bottom_wall_ids;
    std::vector<double> bottom_wall_offsets;
    double side_tan = 0.0;
    std::vector<EtchModel*> cap_etch;
    std::vector<EtchModel*> res_etch;
    std::vector<SyntheticEtchModel*> cap_mask_etch;
    std::vector<SyntheticEtchModel*> res_mask_etch;
    ThicknessDensityModel* cap_thickness_density = nullptr;
    ThicknessDensityModel* res_thickness_density = nullptr;
    ThicknessDensityModel* cap_bottom_thickness = nullptr;
    ThicknessDensityModel* res_bottom_thickness = nullptr;
    ThicknessPolynomialModel* thickness_polynomial = nullptr;
    ThicknessDensityWidthModel* thickness_density_width = nullptr;
    EtchModel* side_tan_model = nullptr;
    ILDModel* ild_model = nullptr;
    EtchModel* cap_thickness_ws = nullptr;
    EtchModel* res_thickness_ws = nullptr;
    std::vector<std::pair<double, double>> density_box_weights;
    std::vector<GateDiffCapModel*> gate_diff_caps;
    std::vector<std::string> gate_diff_names;
    std::string layer_type;
    std::int32_t layer_type_code = 0;  // 1 GATE, 2 DIFFUSION, 3 FIELD_POLY, else 0
    RaisedDiffModel* raised_diff = nullptr;
    double wmin = 0.1;
    double smin = 0.1;
    std::vector<double> width_bounds;    // (low, high) for the polynomial thickness model
    std::vector<double> spacing_bounds;  // (low, high) for the polynomial thickness model
    std::int32_t flags = 0;
    std::int32_t needs_cap_modeling = 0;
    std::int32_t needs_res_modeling = 0;
    double rho = -1.0;
    EtchModel* rho_ws = nullptr;
    EtchModel* rho_si = nullptr;
    RPSQWidthSpacingModel* rpsq_ws = nullptr;
    RPSQSIWidthModel* rpsq_si = nullptr;
    double gate2contact_smin = -1.0;
    double bottom_diel_er = -1.0;
    double bottom_diel_thickness = -1.0;
};

// One metal or device layer. Owns its models.
class Conductor : public ConductorFields {
public:
    Conductor() = default;
    Conductor(const Conductor& other);
    Conductor(Conductor&& other) noexcept;
    Conductor& operator=(Conductor other) noexcept;
    ~Conductor();

    // Deletes every model and returns all fields to their state before a statement is read.
    void initConductor();
    // Deletes every model and nulls or empties its slot; plain values are kept.
    void clearModels();
    // Deletes the four resistance table models and nulls their slots.
    void clearResistanceModels();
    // Exchanges the whole content with `other`.
    void swap(Conductor& other) noexcept;
};

// The fields of a dielectric layer; copying this part alone shares the model.
struct ConformalLayerFields {
    std::int32_t side = 0;
    std::string name;
    double base = 0.0;
    double thickness = 0.0;
    double er = -1.0;
    std::vector<std::string> bottoms;
    double side_thickness = -1.0;
    double top_thickness = -1.0;
    double bw_t = -1.0;
    double damage_er = -1.0;
    double damage_size = -1.0;
    EtchModel* spacer_model = nullptr;
};

// A dielectric layer: planar, conformal on the conductors named in `bottoms`, or both. Owns its
// model.
class ConformalLayer : public ConformalLayerFields {
public:
    ConformalLayer() = default;
    ConformalLayer(const ConformalLayer& other);
    ConformalLayer(ConformalLayer&& other) noexcept;
    ConformalLayer& operator=(ConformalLayer other) noexcept;
    ~ConformalLayer();

    // Deletes the model and returns all fields to their defaults.
    void init();
    // Deletes the model and nulls its slot.
    void clearModels();
    // Exchanges the whole content with `other`.
    void swap(ConformalLayer& other) noexcept;
};

// The fields of a via layer; copying this part alone shares the models.
struct ViaFields {
    std::int32_t side = 0;
    std::string name;
    double base = 0.0;
    double thickness = 0.0;
    std::string bottom;
    std::string top;
    double via_size = -1.0;
    std::vector<EtchModel*> etch;       // width_var_from_wl: length model, then width model
    std::vector<EtchModel*> gate_etch;  // one per contact-gate sub table
    std::vector<std::string> gate_etch_names;
    ViaRPVAreaModel* rpv_area = nullptr;
    PRVWidthLength* rpv_wl = nullptr;
    double rpv = -1.0;
    double rho = -1.0;
};

// A via layer between two conductors. Owns its models.
class Via : public ViaFields {
public:
    Via() = default;
    Via(const Via& other);
    Via(Via&& other) noexcept;
    Via& operator=(Via other) noexcept;
    ~Via();

    // Deletes every model and returns all fields to their defaults.
    void init();
    // Deletes every model and nulls or empties its slot; plain values are kept.
    void clearModels();
    // Exchanges the whole content with `other`.
    void swap(Via& other) noexcept;
};

// A through-silicon via; it also separates the wafer's front side from its back side.
struct TSV {
    std::int32_t side = 0;
    std::string name;
    double base = 0.0;
    double thickness = -1.0;
    double rho = -1.0;
    std::string bottom;
    std::string top;
    double via_size = -1.0;
    double insulation_thickness = -1.0;
    double insulation_er = -1.0;
    double back_base = 0.0;
    double front_base = 0.0;
};

// A fin transistor model.
struct MultiGateModel {
    std::string name;
    double fin_spacing = -1.0;
    double fin_w = -1.0;
    double fin_l = -1.0;
    double fin_thickness = -1.0;
    double raised_diffusion_growth = -1.0;
    double gate_poly_extension = -1.0;
    double gate_poly_top_t = -1.0;
    double gate_poly_side_t = -1.0;
    double gate_oxide_top_t = -1.0;
    double gate_oxide_side_t = -1.0;
    double gate_oxide_er = -1.0;
    double channel_er = -1.0;
    std::vector<std::pair<std::string, std::string>> layer_pairs;  // (gate layer, diffusion layer)
};

// A vertical pillar transistor model.
struct SAMT_VPT_Model {
    std::string name;
    double core_size = -1.0;
    double waist_size = -1.0;
    double waist_corner_radius = -1.0;
    double source_height = -1.0;
    double drain_height = -1.0;
    double gate_height = -1.0;
    double gate_expansion_range = -1.0;
    double gate_oxide_thickness = -1.0;
    double gate_expansion_slice = -1.0;
    std::int32_t corner_rounding_points = 0;
    double gate_oxide_er = -1.0;
    double channel_er = -1.0;
    std::string drain_layer;
    std::string gate_layer;
    std::string source_layer;
    double source_base = -1.0;  // base of the source layer, filled once the stack is known
};
