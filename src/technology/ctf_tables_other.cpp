// Readers of the thickness, resistance and TSV tables.
#include <algorithm>

#include "technology/ctf_tables.h"
#include "technology/ctf_tables_util.h"

using namespace ctf_tables;

namespace {

// Reads a tuple table with the generic list reader and returns the first token of each tuple.
std::vector<long> readTuples(CtfTuplevector& table, CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    table.CtfTuplevector::translate(ci);
    return tuplePositions(ci->stream, keyword_at, here(ci));
}

// Throws message at the first tuple that does not hold exactly n values.
void checkTupleSize(CtfInterpreter* ci, const CtfTuplevector& table, const std::vector<long>& at,
                    size_t n, const char* message) {
    for (size_t k = 0; k < table.tuples.size(); ++k)
        if (table.tuples[k].size() != n) fail(ci, message, at[k]);
}

// Vector `keyword` into out; returns false when the element is not that vector.
bool takeVector(const CtfVector& v, const char* keyword, std::vector<double>& out, bool& has) {
    if (v.keyword != keyword) return false;
    out = v.values;
    has = true;
    return true;
}

// Throws message at start unless every value is above 0.
void checkPositive(CtfInterpreter* ci, const std::vector<double>& values, long start,
                   const char* message) {
    for (double v : values)
        if (!(v > 0.0)) fail(ci, message, start);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Tuple tables

ElementProcessor* CtfThickness_density::translate(CtfInterpreter* ci) {
    model.reset();
    use = CtfUseSelection();
    const std::vector<long> at = readTuples(*this, ci);
    use.select(name);
    checkTupleSize(ci, *this, at, 2,
                   "expecting 2 elements (density and thickness change) in each tuple");
    std::vector<std::pair<double, double>> table;
    for (size_t k = 0; k < tuples.size(); ++k) {
        const double change = tuples[k][1];
        if (!(change >= -1.0 && change <= 1.0))
            fail(ci, "invalid thickness change values(must be in the range from -1.0 to 1.0)",
                 at[k]);
        table.emplace_back(tuples[k][0], change);
    }
    model.setDensityTable(table);
    return this;
}

ElementProcessor* CtfThickness_bottom_width::translate(CtfInterpreter* ci) {
    model.reset();
    use = CtfUseSelection();
    const std::vector<long> at = readTuples(*this, ci);
    use.select(name);
    checkTupleSize(ci, *this, at, 2,
                   "expecting 2 elements (width and thickness change) in each tuple");
    for (size_t k = 0; k < tuples.size(); ++k) {
        const double width = tuples[k][0];
        const double change = tuples[k][1];
        if (!(width > 0.0)) fail(ci, "invalid width values(must be larger than zero)", at[k]);
        if (k > 0 && !(width > tuples[k - 1][0]))
            fail(ci, "width values in the tuples must be in ascending order", at[k]);
        if (!(change >= -0.5 && change <= 0.5))
            fail(ci, "invalid thickness change values(must be in the range from -0.5 to 0.5)",
                 at[k]);
        model.table.emplace_back(width, change);
    }
    return this;
}

ElementProcessor* CtfDensity_box::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    boxes.clear();
    const std::vector<long> at = readTuples(*this, ci);
    if (tuples.empty()) fail(ci, "at least one density box shall be specified", keyword_at);
    checkTupleSize(
        ci, *this, at, 2,
        "expecting 2 elements (density box size and corresponding weights) in each tuple");
    if (tuples.size() > 5) fail(ci, "at most 5 density boxes are allowed", at[5]);
    for (size_t k = 0; k < tuples.size(); ++k) {
        const double size = tuples[k][0];
        const double weight = tuples[k][1];
        if (!(size >= 0.0 && size <= 500.0))
            fail(ci, "invalid density box sizes (must be in the range from 0.0 to 500.0)", at[k]);
        if (!(weight >= -10.0 && weight <= 10.0))
            fail(ci, "invalid weights (must be in the range from 10.0 to -10.0)", at[k]);
        boxes.emplace_back(size, weight);
    }
    return this;
}

ElementProcessor* CtfRPSQ_SI_width::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model.reset();
    const std::vector<long> at = readTuples(*this, ci);
    if (tuples.empty()) fail(ci, "at least one resistance tuple shall be specified", keyword_at);
    checkTupleSize(ci, *this, at, 2, "expecting 2 elements in each tuple");
    for (size_t k = 0; k < tuples.size(); ++k) {
        const double width = tuples[k][0];
        const double rpsq = tuples[k][1];
        if (!(width > 0.0)) fail(ci, "invalid width value", at[k]);
        if (k > 0 && !(width > tuples[k - 1][0]))
            fail(ci, "width values must be in ascending order", at[k]);
        if (!(rpsq > 0.0)) fail(ci, "rpsq values must be larger than zero", at[k]);
        model.widths.push_back(width);
        model.values.push_back(rpsq);
    }
    return this;
}

ElementProcessor* CtfRPV_Area::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model.reset();
    const std::vector<long> at = readTuples(*this, ci);
    if (tuples.empty()) fail(ci, "at least one resistance tuple shall be specified", keyword_at);
    checkTupleSize(ci, *this, at, 2, "expecting 2 elements in each tuple");
    for (size_t k = 0; k < tuples.size(); ++k) {
        const double area = tuples[k][0];
        const double rpv = tuples[k][1];
        if (!(area > 0.0)) fail(ci, "invalid area value", at[k]);
        if (!(rpv > 0.0)) fail(ci, "rpv values must be larger than zero", at[k]);
        for (size_t e = 0; e < k; ++e)
            if (tuples[e][0] == area) fail(ci, "area values can not be duplicated", at[k]);
        model.pairs.emplace_back(area, rpv);
    }
    std::sort(model.pairs.begin(), model.pairs.end());
    return this;
}

// ---------------------------------------------------------------------------------------------
// thickness_vs_density_and_width

ElementProcessor* CtfThickness_density_width::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model.reset();
    si_width = si_density = 0;
    use = CtfUseSelection();
    processHead(ci);
    use.select(name);
    std::vector<double> widths, densities, values;
    bool has_w = false, has_d = false, has_v = false;
    ElementProcessor* element = nullptr;
    long start = 0;
    while (nextField(ci, element, start)) {
        auto* v = dynamic_cast<CtfVector*>(element);
        if (!v) fail(ci, kUnknowClass, start);
        const std::string& k = v->keyword;
        if (k == "widths" || k == "siwidths") {
            if (!v->isAscent()) fail(ci, kAscending, start);
            widths = v->values;
            has_w = true;
            si_width = k == "siwidths";
        } else if (k == "densities" || k == "sidensities") {
            if (!v->isAscent()) fail(ci, kAscending, start);
            densities = v->values;
            has_d = true;
            si_density = k == "sidensities";
        } else if (!takeVector(*v, "values", values, has_v)) {
            fail(ci, kUnknowField, start);
        }
    }
    if (!has_w || !has_d || !has_v) fail(ci, kMissingFields, keyword_at);
    if (widths.size() * densities.size() != values.size())
        fail(ci, "dimensions of widths and densities vectors do not match with the values vector",
             keyword_at);
    model.table.widths = std::move(densities);
    model.table.spacings = std::move(widths);
    model.table.values = std::move(values);
    return this;
}

// ---------------------------------------------------------------------------------------------
// thickness_var_from_polynomial

ElementProcessor* CtfThickness_polynomial::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model.reset();
    valid = 0;
    has_density_bounds = 0;
    processHead(ci);
    bool has_density_orders = false, has_width_orders = false;
    auto toOrders = [](const std::vector<double>& v) {
        std::vector<int32_t> orders;
        for (double x : v) orders.push_back(truncateToInt(x));
        return orders;
    };
    ElementProcessor* element = nullptr;
    long start = 0;
    while (nextField(ci, element, start)) {
        if (auto* v = dynamic_cast<CtfVector*>(element)) {
            const std::string& k = v->keyword;
            if (k == "density_polynomial_orders" || k == "si_density_polynomial_orders") {
                model.density_orders = toOrders(v->values);
                model.si_density = k == "si_density_polynomial_orders";
                has_density_orders = true;
            } else if (k == "width_polynomial_orders" || k == "si_width_polynomial_orders") {
                model.width_orders = toOrders(v->values);
                model.si_width = k == "si_width_polynomial_orders";
                has_width_orders = true;
            } else if (k == "width_ranges") {
                if (!v->isAscent()) fail(ci, "elements must in ascending order", start);
                model.width_ranges = v->values;
            } else if (k == "polynomial_coefficients") {
                model.coefficients.push_back(v->values);
            } else if (k == "thickness_bounds") {
                if (v->values.size() != 2) fail(ci, "must have 2 thickness values", start);
                checkPositive(ci, v->values, start,
                              "thickness bounds values must be larger than zero");
                if (!(v->values[0] < v->values[1]))
                    fail(ci, "lower boundary value must be smaller than upper boundary value",
                         start);
                model.setThicknessBounds(v->values[0], v->values[1]);
            } else {
                fail(ci, "unknown field in the table", start);
            }
        } else if (auto* tv = dynamic_cast<CtfTuplevector*>(element);
                   tv && tv->keyword == "density_bounds_vs_width") {
            const std::vector<long> at = tuplePositions(ci->stream, start, here(ci));
            checkTupleSize(ci, *tv, at, 3, "must have 3 values in each tuples");
            model.bound_widths.clear();
            model.bound_densities.clear();
            for (size_t k = 0; k < tv->tuples.size(); ++k) {
                const std::vector<double>& t = tv->tuples[k];
                if (k > 0 && t[0] < tv->tuples[k - 1][0])
                    fail(ci, "width series in the tuples must be in ascending order", at[k]);
                model.bound_widths.push_back(t[0]);
                model.bound_densities.emplace_back(t[1], t[2]);
            }
            has_density_bounds = 1;
        } else {
            fail(ci, kUnknowClass, start);
        }
    }
    if (!has_density_orders || !has_width_orders || model.coefficients.empty())
        fail(ci, kMissingFields, keyword_at);
    // width_ranges are break points: one coefficient table per interval.
    if (model.coefficients.size() != model.width_ranges.size() + 1)
        fail(ci, "number of polynomial_coefficients tables do not match with the width_ranges",
             keyword_at);
    const size_t terms = model.density_orders.size() * model.width_orders.size();
    for (const std::vector<double>& c : model.coefficients)
        if (c.size() != terms)
            fail(ci,
                 "dimensions of density_polynomial_orders and width_polynomial_orders vectors do "
                 "not "
                 "match with the polynomial_coefficients",
                 keyword_at);
    valid = 1;
    return this;
}

// ---------------------------------------------------------------------------------------------
// ild_thickness_var_from_effective_ws

ElementProcessor* CtfILD_thickness::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model.reset();
    processHead(ci);
    // `dielectric` opens a statement elsewhere; here it names the layer.
    CtfKeywordBinding layer_name(ci, "dielectric", ci->processorOf("CtfStringAttri"));
    std::vector<double> widths, spacings, changes;
    bool has_w = false, has_s = false, has_c = false;
    ElementProcessor* element = nullptr;
    long start = 0;
    while (nextField(ci, element, start)) {
        if (auto* s = dynamic_cast<CtfStringAttri*>(element)) {
            if (s->keyword != "dielectric" && s->keyword != "dielectric_layer")
                fail(ci, kUnknowField, start);
            model.dielectric = s->value;
        } else if (auto* v = dynamic_cast<CtfVector*>(element)) {
            if (!takeVector(*v, "widths", widths, has_w) &&
                !takeVector(*v, "spacings", spacings, has_s) &&
                !takeVector(*v, "thickness_changes", changes, has_c))
                fail(ci, kUnknowField, start);
        } else {
            fail(ci, kUnknowClass, start);
        }
    }
    if (!has_w || !has_s || !has_c) fail(ci, kMissingFields, keyword_at);
    if (widths.size() * spacings.size() != changes.size())
        fail(ci,
             "dimensions of widths and spacings vectors do not match with the thickness_changes "
             "vector",
             keyword_at);
    model.widths = std::move(widths);
    model.spacings = std::move(spacings);
    model.values = std::move(changes);
    return this;
}

// ---------------------------------------------------------------------------------------------
// rho_vs_si_width_and_thickness

ElementProcessor* CtfRHO_SI_width_thickness::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model.reset();
    processHead(ci);
    // `thickness` is a number attribute elsewhere; here it is an axis.
    CtfKeywordBinding thickness_axis(ci, "thickness", ci->processorOf("CtfVector"));
    std::vector<double> widths, thicknesses, values;
    bool has_w = false, has_t = false, has_v = false;
    ElementProcessor* element = nullptr;
    long start = 0;
    while (nextField(ci, element, start)) {
        auto* v = dynamic_cast<CtfVector*>(element);
        if (!v) fail(ci, kUnknowClass, start);
        if (takeVector(*v, "values", values, has_v)) {
            checkPositive(ci, values, start, "rho values must be larger than zero");
        } else if (!takeVector(*v, "width", widths, has_w) &&
                   !takeVector(*v, "thickness", thicknesses, has_t)) {
            fail(ci, kUnknowField, start);
        }
    }
    if (!has_w || !has_t || !has_v) fail(ci, kMissingFields, keyword_at);
    if (widths.size() * thicknesses.size() != values.size())
        fail(ci, "dimensions of width and thickness vectors do not match with the values vector",
             keyword_at);
    model.widths = std::move(widths);
    model.spacings = std::move(thicknesses);
    model.values = std::move(values);
    return this;
}

// ---------------------------------------------------------------------------------------------
// rpsq_vs_width_and_spacing

ElementProcessor* CtfRPSQ_width_spacing::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model.reset();
    processHead(ci);
    std::vector<double> widths, spacings, values;
    bool has_w = false, has_s = false, has_v = false;
    ElementProcessor* element = nullptr;
    long start = 0;
    while (nextField(ci, element, start)) {
        auto* v = dynamic_cast<CtfVector*>(element);
        if (!v) fail(ci, kUnknowClass, start);
        if (takeVector(*v, "values", values, has_v)) {
            checkPositive(ci, values, start, "rpsq values must be larger than zero");
        } else if (!takeVector(*v, "widths", widths, has_w) &&
                   !takeVector(*v, "spacings", spacings, has_s)) {
            fail(ci, kUnknowField, start);
        }
    }
    has_w = has_w && !widths.empty();
    has_s = has_s && !spacings.empty();
    if (!has_w && !has_s)
        fail(ci, "must specify one of the spacings and widths field at least", keyword_at);
    if (!has_v) fail(ci, "missing rpsq value fields", keyword_at);
    if (has_w && !has_s && widths.size() != values.size())
        fail(ci, "dimensions of width vectors do not match with the values vector", keyword_at);
    if (has_s && !has_w && spacings.size() != values.size())
        fail(ci, "dimensions of spacing vectors do not match with the values vector", keyword_at);
    if (has_w && has_s && widths.size() * spacings.size() != values.size())
        fail(ci, "dimensions of widths and spacings vectors do not match with the values vector",
             keyword_at);
    model.widths = std::move(widths);
    model.spacings = std::move(spacings);
    model.values = std::move(values);
    return this;
}

// ---------------------------------------------------------------------------------------------
// rpv_vs_width_and_length

ElementProcessor* CtfRPV_width_length::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model.reset();
    processHead(ci);
    bool has_w = false, has_l = false, has_v = false;
    ElementProcessor* element = nullptr;
    long start = 0;
    while (nextField(ci, element, start)) {
        auto* v = dynamic_cast<CtfVector*>(element);
        if (!v) fail(ci, kUnknowClass, start);
        if (takeVector(*v, "widths", model.widths, has_w)) {
            checkPositive(ci, v->values, start, "width values must be larger than zero");
            if (!v->isAscent()) fail(ci, kAscending, start);
        } else if (takeVector(*v, "lengths", model.lengths, has_l)) {
            checkPositive(ci, v->values, start, "length values must be larger than zero");
            if (!v->isAscent()) fail(ci, kAscending, start);
        } else if (takeVector(*v, "values", model.values, has_v)) {
            checkPositive(ci, v->values, start, "rpv values must be larger than zero");
        } else {
            fail(ci, kUnknowField, start);
        }
    }
    if (!has_w || !has_l) fail(ci, "must specify the lengths and widths field", keyword_at);
    if (!has_v) fail(ci, "missing rpv value fields", keyword_at);
    if (model.widths.size() * model.lengths.size() != model.values.size())
        fail(ci, "dimensions of widths and lengths vectors do not match with the values vector",
             keyword_at);
    return this;
}

// ---------------------------------------------------------------------------------------------
// ceff_vs_frq_and_spacing

ElementProcessor* CtfTSVCeffTable::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    processHead(ci);
    std::vector<double> frq, spacings, values;
    bool has_f = false, has_s = false, has_v = false;
    ElementProcessor* element = nullptr;
    long start = 0;
    while (nextField(ci, element, start)) {
        auto* v = dynamic_cast<CtfVector*>(element);
        if (!v) fail(ci, kUnknowClass, start);
        if (!takeVector(*v, "frq", frq, has_f) && !takeVector(*v, "spacings", spacings, has_s) &&
            !takeVector(*v, "values", values, has_v))
            fail(ci, kUnknowField, start);
    }
    if (!has_f || !has_s || !has_v) fail(ci, kMissingFields, keyword_at);
    if (frq.size() * spacings.size() != values.size())
        fail(ci, "dimensions of frq and spacings vectors do not match with the values vector",
             keyword_at);
    return this;
}

CTF_REGISTER_PROCESSOR(CtfThickness_density);
CTF_REGISTER_PROCESSOR(CtfThickness_bottom_width);
CTF_REGISTER_PROCESSOR(CtfDensity_box);
CTF_REGISTER_PROCESSOR(CtfRPSQ_SI_width);
CTF_REGISTER_PROCESSOR(CtfRPV_Area);
CTF_REGISTER_PROCESSOR(CtfThickness_density_width);
CTF_REGISTER_PROCESSOR(CtfThickness_polynomial);
CTF_REGISTER_PROCESSOR(CtfILD_thickness);
CTF_REGISTER_PROCESSOR(CtfRHO_SI_width_thickness);
CTF_REGISTER_PROCESSOR(CtfRPSQ_width_spacing);
CTF_REGISTER_PROCESSOR(CtfRPV_width_length);
CTF_REGISTER_PROCESSOR(CtfTSVCeffTable);
