#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "technology/process_model.h"

namespace {

constexpr double kAxisTol = 1e-10;

// Bracket of x by the first axis value above it: both ends at the edge index outside the axis,
// so that nothing is extrapolated. The axis must not be empty.
void bracketAbove(const std::vector<double>& axis, double x, size_t& lo, size_t& hi) {
    size_t i = 0;
    while (i < axis.size() && !(axis[i] > x)) ++i;
    if (i == axis.size()) {
        lo = hi = axis.size() - 1;
    } else if (i == 0) {
        lo = hi = 0;
    } else {
        lo = i - 1;
        hi = i;
    }
}

// Position of x inside the bracket; false when two distinct bracket ends coincide.
bool bracketWeight(const std::vector<double>& axis, size_t lo, size_t hi, double x, double& t) {
    t = 0.0;
    if (lo == hi) return true;
    const double span = axis[hi] - axis[lo];
    if (std::fabs(span) < kAxisTol) return false;
    t = (x - axis[lo]) / span;
    return true;
}

double lerp(double a, double b, double t) {
    return a + t * (b - a);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// EtchModel

int EtchModel::modelOK() const {
    if (widths.empty() || spacings.empty() || values.empty()) return 0;
    return values.size() == widths.size() * spacings.size() ? 1 : 0;
}

double EtchModel::getMaxFeatureSize() const {
    if (widths.empty() || spacings.empty()) return -1.0;
    return std::max(widths.back(), spacings.back());
}

int EtchModel::outOfRange(double width, double spacing) const {
    constexpr double tol = 1e-9;
    if (widths.empty() || spacings.empty()) return 1;
    if (width < widths.front() - tol || width > widths.back() + tol) return 1;
    if (spacing < spacings.front() - tol || spacing > spacings.back() + tol) return 1;
    return 0;
}

int EtchModel::searchGrid(const std::vector<double>& axis, double x, int& low, int& high) {
    if (axis.empty()) {
        low = high = -1;
        return 0;
    }
    const int n = static_cast<int>(axis.size());
    int i = 0;
    while (i < n && axis[i] <= x) ++i;
    low = std::max(i - 1, 0);
    high = low + 1 < n ? low + 1 : n - 1;
    return 1;
}

int EtchModel::evalEtch(double width, double spacing, double& out) const {
    if (is_constant) {
        out = constant;
        return 1;
    }
    if (!modelOK()) return 0;
    size_t w0, w1, s0, s1;
    bracketAbove(widths, width, w0, w1);
    bracketAbove(spacings, spacing, s0, s1);
    double tw, ts;
    if (!bracketWeight(widths, w0, w1, width, tw)) return 0;
    if (!bracketWeight(spacings, s0, s1, spacing, ts)) return 0;
    const double low_s = lerp(at(w0, s0), at(w1, s0), tw);
    const double high_s = lerp(at(w0, s1), at(w1, s1), tw);
    double result = lerp(low_s, high_s, ts);
    if (add_constant) result += constant;
    out = result;
    return 1;
}

int EtchModel::evalEtchwPoly(double width, double spacing, double& out) const {
    if (is_constant) {
        out = constant;
        return 1;
    }
    if (!modelOK()) return 0;
    size_t w0, w1, s0, s1;
    bracketAbove(widths, width, w0, w1);
    double tw;
    if (!bracketWeight(widths, w0, w1, width, tw)) return 0;
    bracketAbove(spacings, spacing, s0, s1);

    // One row's value at `spacing`: the edge value outside the axis, else the Lagrange polynomial
    // through every point of the row.
    auto rowValue = [&](size_t row, double& v) -> bool {
        if (s0 == s1) {
            v = at(row, s0);
            return true;
        }
        const size_t n = spacings.size();
        double sum = 0.0;
        for (size_t j = 0; j < n; ++j) {
            double basis = 1.0;
            for (size_t m = 0; m < n; ++m) {
                if (m == j) continue;
                const double d = spacings[j] - spacings[m];
                if (std::fabs(d) < kAxisTol) return false;
                basis *= (spacing - spacings[m]) / d;
            }
            sum += basis * at(row, j);
        }
        v = sum;
        return true;
    };

    double v0, v1;
    if (!rowValue(w0, v0) || !rowValue(w1, v1)) return 0;
    double result = lerp(v0, v1, tw);
    if (add_constant) result += constant;
    out = result;
    return 1;
}

void EtchModel::reset() {
    widths.clear();
    spacings.clear();
    values.clear();
    constant = 0.0;
    is_constant = 0;
    add_constant = 0;
}

EtchModel* EtchModel::clone() const {
    return new EtchModel(*this);
}

// ---------------------------------------------------------------------------------------------
// ILDModel, GateDiffCapModel

void ILDModel::reset() {
    EtchModel::reset();
    dielectric.clear();
    dielectric_id = -1;
}

ILDModel* ILDModel::clone() const {
    return new ILDModel(*this);
}

void GateDiffCapModel::reset() {
    EtchModel::reset();
    by_gate_width = 1;
}

GateDiffCapModel* GateDiffCapModel::clone() const {
    return new GateDiffCapModel(*this);
}

// ---------------------------------------------------------------------------------------------
// EtchModelSet

EtchModelSet::EtchModelSet(const EtchModelSet& other) : EtchModel(other) {
    models.reserve(other.models.size());
    for (const EtchModel* m : other.models) models.push_back(m->clone());
}

EtchModelSet& EtchModelSet::operator=(const EtchModelSet& other) {
    if (this == &other) return *this;
    EtchModelSet copy(other);
    EtchModel::operator=(copy);
    std::swap(models, copy.models);
    return *this;
}

EtchModelSet::~EtchModelSet() {
    for (EtchModel* m : models) delete m;
}

void EtchModelSet::pushEtchModel(EtchModel* model) {
    if (model) models.push_back(model);
}

int EtchModelSet::evalEtch(double width, double spacing, double& out) const {
    double sum = 0.0;
    for (const EtchModel* m : models) {
        double v;
        if (m->evalEtch(width, spacing, v)) sum += v;
    }
    out = sum;
    return 1;
}

void EtchModelSet::reset() {
    EtchModel::reset();
    for (EtchModel* m : models) delete m;
    models.clear();
}

EtchModelSet* EtchModelSet::clone() const {
    return new EtchModelSet(*this);
}

// ---------------------------------------------------------------------------------------------
// SyntheticEtchModel

void SyntheticEtchModel::copyFrom(const SyntheticEtchModel& other) {
    nmask = other.nmask;
    max_feature = other.max_feature;
    rule = other.rule;
    std::unordered_map<const EtchModel*, EtchModel*> copies;
    owned.reserve(other.owned.size());
    for (const EtchModel* m : other.owned) {
        EtchModel* c = m ? m->clone() : nullptr;
        if (m) copies[m] = c;
        owned.push_back(c);
    }
    for (const auto& [key, m] : other.models) {
        auto it = copies.find(m);
        if (it != copies.end()) models[key] = it->second;
    }
}

SyntheticEtchModel::SyntheticEtchModel(const SyntheticEtchModel& other) {
    copyFrom(other);
}

SyntheticEtchModel& SyntheticEtchModel::operator=(const SyntheticEtchModel& other) {
    if (this == &other) return *this;
    reset();
    copyFrom(other);
    return *this;
}

SyntheticEtchModel::~SyntheticEtchModel() {
    for (EtchModel* m : owned) delete m;
}

void SyntheticEtchModel::reset() {
    for (EtchModel* m : owned) delete m;
    owned.clear();
    models.clear();
    nmask = 0;
    max_feature = 0.0;
    rule = 1;
}

SyntheticEtchModel* SyntheticEtchModel::move() {
    auto* taken = new SyntheticEtchModel;
    taken->nmask = nmask;
    taken->max_feature = max_feature;
    taken->rule = rule;
    taken->owned.swap(owned);
    taken->models.swap(models);
    reset();
    return taken;
}

SyntheticEtchModel* SyntheticEtchModel::clone() const {
    return new SyntheticEtchModel(*this);
}

int SyntheticEtchModel::regEtchModel(EtchModel* model, const std::set<MaskPair>& pairs) {
    if (!model) return 0;
    if (std::find(owned.begin(), owned.end(), model) == owned.end()) owned.push_back(model);
    int ok = 1;
    for (const MaskPair& p : pairs) {
        if (!models.emplace(p, model).second) {
            ok = 0;
            continue;
        }
        if (p.first != 0 && p.second != 0 && !model->spacings.empty())
            max_feature = std::max(max_feature, model->spacings.back());
    }
    return ok;
}

int SyntheticEtchModel::checkMaskValidity() const {
    int64_t real_pairs = 0;
    for (const auto& entry : models) {
        const MaskPair& p = entry.first;
        if (p.first > nmask || p.second > nmask) return 1;
        if (p.first > 0 && p.second > 0) ++real_pairs;
    }
    const int64_t needed = static_cast<int64_t>(nmask) * nmask;
    return real_pairs < needed ? -1 : 0;
}

void SyntheticEtchModel::settingDefaultModels() {
    auto fill = [this](MaskPair target, MaskPair source) {
        if (models.count(target)) return;
        auto it = models.find(source);
        if (it != models.end()) models[target] = it->second;
    };
    fill({0, 0}, {1, 2});
    fill({0, 1}, {2, 1});
    fill({1, 0}, {1, 2});
}

int SyntheticEtchModel::evalEtch(double width, double spacing, int32_t mask_a, int32_t mask_b,
                                 double& out) const {
    auto it = models.find({mask_a, mask_b});
    if (it == models.end() || !it->second) return 0;
    return it->second->evalEtch(width, spacing, out);
}

EtchModel* SyntheticEtchModel::disColor() {
    auto it = models.find({0, 0});
    if (it == models.end()) it = models.find({1, 2});
    if (it == models.end()) return nullptr;
    EtchModel* taken = it->second;
    // Every pair that shares the table loses it too, so that no entry points at memory this
    // object no longer owns.
    for (auto m = models.begin(); m != models.end();) {
        if (m->second == taken) {
            m = models.erase(m);
        } else {
            ++m;
        }
    }
    for (EtchModel*& m : owned)
        if (m == taken) m = nullptr;
    return taken;
}

// ---------------------------------------------------------------------------------------------
// RaisedDiffModel

void RaisedDiffModel::reset() {
    *this = RaisedDiffModel();
}

RaisedDiffModel* RaisedDiffModel::clone() const {
    return new RaisedDiffModel(*this);
}

double RaisedDiffModel::getEtch(const std::string& layer) const {
    auto it = raiseddiffu_etch_table.find(layer);
    return it != raiseddiffu_etch_table.end() ? it->second : etch;
}

double RaisedDiffModel::getSmin(const std::string& layer) const {
    auto it = raiseddiffu2gate_smin_table.find(layer);
    return it != raiseddiffu2gate_smin_table.end() ? it->second : smin;
}
