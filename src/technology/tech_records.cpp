#include "technology/tech_records.h"

namespace {

// Replaces a shared model pointer by a copy of its own.
template <class T>
void deepen(T*& p) {
    if (p) p = p->clone();
}

template <class T>
void deepen(std::vector<T*>& list) {
    for (T*& p : list) deepen(p);
}

// Exchanges the plain-field parts of two records; model pointers move with their record.
template <class Fields>
void swapFields(Fields& a, Fields& b) noexcept {
    Fields tmp(std::move(a));
    a = std::move(b);
    b = std::move(tmp);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Conductor

Conductor::Conductor(const Conductor& other) : ConductorFields(other) {
    deepen(cap_etch);
    deepen(res_etch);
    deepen(cap_mask_etch);
    deepen(res_mask_etch);
    deepen(cap_thickness_density);
    deepen(res_thickness_density);
    deepen(cap_bottom_thickness);
    deepen(res_bottom_thickness);
    deepen(thickness_polynomial);
    deepen(thickness_density_width);
    deepen(side_tan_model);
    deepen(ild_model);
    deepen(cap_thickness_ws);
    deepen(res_thickness_ws);
    deepen(gate_diff_caps);
    deepen(raised_diff);
    deepen(rho_ws);
    deepen(rho_si);
    deepen(rpsq_ws);
    deepen(rpsq_si);
}

Conductor::Conductor(Conductor&& other) noexcept {
    swap(other);
}

Conductor& Conductor::operator=(Conductor other) noexcept {
    swap(other);
    return *this;
}

Conductor::~Conductor() {
    clearModels();
}

void Conductor::swap(Conductor& other) noexcept {
    swapFields<ConductorFields>(*this, other);
}

void Conductor::clearResistanceModels() {
    dropOwned(rho_ws);
    dropOwned(rho_si);
    dropOwned(rpsq_ws);
    dropOwned(rpsq_si);
}

void Conductor::clearModels() {
    dropOwned(cap_etch);
    dropOwned(res_etch);
    dropOwned(cap_mask_etch);
    dropOwned(res_mask_etch);
    dropOwned(cap_thickness_density);
    dropOwned(res_thickness_density);
    dropOwned(cap_bottom_thickness);
    dropOwned(res_bottom_thickness);
    dropOwned(thickness_polynomial);
    dropOwned(thickness_density_width);
    dropOwned(side_tan_model);
    dropOwned(ild_model);
    dropOwned(cap_thickness_ws);
    dropOwned(res_thickness_ws);
    dropOwned(gate_diff_caps);
    gate_diff_names.clear();
    dropOwned(raised_diff);
    clearResistanceModels();
}

void Conductor::initConductor() {
    clearModels();
    static_cast<ConductorFields&>(*this) = ConductorFields();
}

// ---------------------------------------------------------------------------------------------
// ConformalLayer

ConformalLayer::ConformalLayer(const ConformalLayer& other) : ConformalLayerFields(other) {
    deepen(spacer_model);
}

ConformalLayer::ConformalLayer(ConformalLayer&& other) noexcept {
    swap(other);
}

ConformalLayer& ConformalLayer::operator=(ConformalLayer other) noexcept {
    swap(other);
    return *this;
}

ConformalLayer::~ConformalLayer() {
    clearModels();
}

void ConformalLayer::swap(ConformalLayer& other) noexcept {
    swapFields<ConformalLayerFields>(*this, other);
}

void ConformalLayer::clearModels() {
    dropOwned(spacer_model);
}

void ConformalLayer::init() {
    clearModels();
    static_cast<ConformalLayerFields&>(*this) = ConformalLayerFields();
}

// ---------------------------------------------------------------------------------------------
// Via

Via::Via(const Via& other) : ViaFields(other) {
    deepen(etch);
    deepen(gate_etch);
    deepen(rpv_area);
    deepen(rpv_wl);
}

Via::Via(Via&& other) noexcept {
    swap(other);
}

Via& Via::operator=(Via other) noexcept {
    swap(other);
    return *this;
}

Via::~Via() {
    clearModels();
}

void Via::swap(Via& other) noexcept {
    swapFields<ViaFields>(*this, other);
}

void Via::clearModels() {
    dropOwned(etch);
    dropOwned(gate_etch);
    gate_etch_names.clear();
    dropOwned(rpv_area);
    dropOwned(rpv_wl);
}

void Via::init() {
    clearModels();
    static_cast<ViaFields&>(*this) = ViaFields();
}
