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

template <class T>
void drop(T*& p) {
    delete p;
    p = nullptr;
}

template <class T>
void drop(std::vector<T*>& list) {
    for (T* p : list) delete p;
    list.clear();
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
    drop(rho_ws);
    drop(rho_si);
    drop(rpsq_ws);
    drop(rpsq_si);
}

void Conductor::clearModels() {
    drop(cap_etch);
    drop(res_etch);
    drop(cap_mask_etch);
    drop(res_mask_etch);
    drop(cap_thickness_density);
    drop(res_thickness_density);
    drop(cap_bottom_thickness);
    drop(res_bottom_thickness);
    drop(thickness_polynomial);
    drop(thickness_density_width);
    drop(side_tan_model);
    drop(ild_model);
    drop(cap_thickness_ws);
    drop(res_thickness_ws);
    drop(gate_diff_caps);
    gate_diff_names.clear();
    drop(raised_diff);
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
    drop(spacer_model);
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
    drop(etch);
    drop(gate_etch);
    gate_etch_names.clear();
    drop(rpv_area);
    drop(rpv_wl);
}

void Via::init() {
    clearModels();
    static_cast<ViaFields&>(*this) = ViaFields();
}
