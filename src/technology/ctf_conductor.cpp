#include "technology/ctf_conductor.h"

#include <cmath>
#include <cstddef>
#include <string>
#include <vector>

#include "runtime/logger.h"
#include "runtime/pargument.h"
#include "technology/ctf_device.h"
#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"
#include "technology/ctf_tables.h"

namespace {

[[noreturn]] void fail(CtfInterpreter* ci, const char* message, long index) {
    throw Ctf_Syntax_Error(ci->stream, message, index);
}

// Entries of the leading half of an axis of n entries: the middle one counts for odd n.
std::size_t leadingHalf(std::size_t n) {
    return n % 2 ? n / 2 + 1 : n / 2;
}

// One value standing for a table of rows x cols values (row-major): the first value (mode 0),
// the mean of all (mode 1), or the mean of the leading half block (other modes). -1 when empty.
double sampleTable(const std::vector<double>& values, std::size_t rows, std::size_t cols,
                   int mode) {
    if (values.empty() || rows * cols != values.size()) return -1.0;
    if (mode == 0) return values.front();
    double sum = 0.0;
    if (mode == 1) {
        for (double v : values) sum += v;
        return sum / static_cast<double>(values.size());
    }
    const std::size_t r = leadingHalf(rows), c = leadingHalf(cols);
    for (std::size_t i = 0; i < r; ++i)
        for (std::size_t j = 0; j < c; ++j) sum += values[i * cols + j];
    return sum / static_cast<double>(r * c);
}

std::size_t axisLength(const std::vector<double>& axis) {
    return axis.empty() ? 1 : axis.size();
}

// Puts a thickness table into its capacitive slot, its resistive slot, or both, as its use
// flags say. Each filled slot must have been free.
template <class Model>
void fillThicknessSlots(CtfInterpreter* ci, long start, const CtfUseSelection& use,
                        const Model& model, Model*& cap, Model*& res, const char* cap_taken,
                        const char* res_taken, const char* both_taken,
                        std::int32_t& needs_res_modeling) {
    if (use.capacitive_only) {
        if (cap) fail(ci, cap_taken, start);
        cap = model.clone();
        return;
    }
    if (use.resistive_only) {
        if (res) fail(ci, res_taken, start);
        res = model.clone();
        needs_res_modeling = 1;
        return;
    }
    if (cap || res) fail(ci, both_taken ? both_taken : (cap ? cap_taken : res_taken), start);
    cap = model.clone();
    res = model.clone();
    needs_res_modeling = 1;
}

const char* const kKnownLayerTypes[] = {"GATE",      "FIELD_POLY",     "DIFFUSION",
                                        "BUMP",      "TRENCH_CONTACT", "TALL_CONTACT",
                                        "CAPACITOR", "RESISTOR",       "ROUTING_VIA"};

}  // namespace

ElementProcessor* CtfConductor::translate(CtfInterpreter* ci) {
    const long keyword_at = static_cast<long>(ci->stream.current);
    conductor.initConductor();
    sampling_ = PARG::get("TESSAL_DFM_TABLE_SAMPLING", 0);
    sampling_mode_ = PARG::get("TESSAL_DFM_TABLE_SAMPLING_MODE", 0);
    rho_given_ = false;
    resistance_tables_ = 0;
    rho_sample_ = -1.0;
    rpsq_sample_ = -1.0;
    has_density_boxes_ = false;
    polynomial_has_density_bounds_ = false;

    processHead(ci);
    if (name.empty()) fail(ci, "expecting conductor name", keyword_at);
    conductor.name = name;

    ElementProcessor* element = nullptr;
    long start = 0;
    while (readField(ci, element, start)) {
        if (auto* a = dynamic_cast<CtfNumberAttri*>(element)) {
            readNumber(ci, *a, start);
        } else if (auto* s = dynamic_cast<CtfStringAttri*>(element)) {
            if (s->keyword == "layer_type")
                readString(ci, *s);
            else
                warnUnsupportedField(ci->stream, start);
        } else if (readTable(ci, element, start)) {
            // taken
        } else if (dynamic_cast<CtfStringVector*>(element) || dynamic_cast<CtfVector*>(element) ||
                   dynamic_cast<CtfTuplemap*>(element) || dynamic_cast<CtfDummystruct*>(element) ||
                   dynamic_cast<CtfStandalone*>(element) ||
                   dynamic_cast<CtfTuplevector*>(element)) {
            warnUnsupportedField(ci->stream, start);
        } else {
            fail(ci, "unknow field in the table", start);
        }
    }
    finish(ci, keyword_at);
    return this;
}

void CtfConductor::addConstantWidthVariation(double value, bool to_cap, bool to_res) {
    auto add = [value](std::vector<EtchModel*>& list) {
        if (!list.empty() && list.back()->is_constant)
            list.back()->constant += value;
        else
            list.push_back(new EtchModel(value));
    };
    if (to_cap) add(conductor.cap_etch);
    if (to_res) {
        add(conductor.res_etch);
        conductor.needs_res_modeling = 1;
    }
}

void CtfConductor::readNumber(CtfInterpreter* ci, const CtfNumberAttri& a, long start) {
    const std::string& k = a.keyword;
    const double v = a.value;
    Conductor& c = conductor;
    auto require = [&](bool ok, const char* message) {
        if (!ok) fail(ci, message, start);
    };
    auto raised = [&c]() -> RaisedDiffModel& {
        if (!c.raised_diff) c.raised_diff = new RaisedDiffModel;
        return *c.raised_diff;
    };

    if (k == "smin" || k == "wmin" || k == "thickness") {
        require(v > 0, "invalid value");
        (k == "smin" ? c.smin : k == "wmin" ? c.wmin : c.thickness) = v;
    } else if (k == "width_var" || k == "capaci_only_width_var" ||
               k == "resistive_only_width_var") {
        // Variations too small to matter are not recorded at all.
        if (std::fabs(v) > 1e-8)
            addConstantWidthVariation(v, k != "resistive_only_width_var",
                                      k != "capaci_only_width_var");
    } else if (k == "rho") {
        require(v > 0, "invalid rho value");
        c.rho = v;
        rho_given_ = true;
    } else if (k == "side_tan") {
        c.side_tan = v;
    } else if (k == "gate2contact_smin") {
        require(v > 0, "invalid gate2contact_smin value");
        c.gate2contact_smin = v;
    } else if (k == "raiseddiffu_thickness") {
        require(v > 0, "the value of raiseddiffu_thickness must be larger than zero");
        raised().thickness = v;
    } else if (k == "raiseddiffu2gate_smin") {
        require(v > 0, "the value of raiseddiffu2gate_smin must be larger than zero");
        raised().smin = v;
    } else if (k == "raiseddiffu_etch") {
        require(v >= 0, "the value of raiseddiffu_etch can not be negative");
        RaisedDiffModel& r = raised();
        if (v > 0) {
            r.etch = v;
            r.etch_flag = 1;
        }
    } else if (k == "raiseddiffu_gateside_conformal_er") {
        require(v > 0, "the value of raiseddiffu_gateside_conformal_er must be larger than zero");
        raised().conformal_er = v;
    } else if (k == "bottom_diel_er") {
        require(v > 0, "invalid bottom_diel_er value");
        c.bottom_diel_er = v;
    } else if (k == "bottom_diel_thickness") {
        require(v > 0, "invalid bottom_diel_thickness value");
        c.bottom_diel_thickness = v;
    } else if (k != "crt1" && k != "crt2" && k != "t_zero") {
        warnUnsupportedField(ci->stream, start);
    }
}

void CtfConductor::readString(CtfInterpreter* ci, const CtfStringAttri& a) {
    conductor.layer_type = a.value;
    conductor.layer_type_code = a.value == "GATE"         ? 1
                                : a.value == "DIFFUSION"  ? 2
                                : a.value == "FIELD_POLY" ? 3
                                                          : 0;
    for (const char* known : kKnownLayerTypes)
        if (a.value == known) return;
    const CtfContext where = ci->stream.contextAt(ci->stream.current);
    PLOG::log(3) << "CTF file: unsupported conductor layer type: \"" << a.value
                 << "\", line: " << static_cast<unsigned long>(where.first + 1)
                 << ", pos: " << static_cast<unsigned long>(where.second) << "." << PLOG::endl;
}

bool CtfConductor::readTable(CtfInterpreter* ci, ElementProcessor* element, long start) {
    Conductor& c = conductor;

    if (auto* t = dynamic_cast<CtfEtch_width_spacing*>(element)) {
        const bool to_res = !t->use.capacitive_only || t->use.resistive_only;
        const bool to_cap = !t->use.resistive_only;
        if (t->is_multi_mask) {
            if (to_cap) c.cap_mask_etch.push_back(t->mask_model.clone());
            if (to_res) c.res_mask_etch.push_back(t->mask_model.clone());
        } else {
            if (to_cap) c.cap_etch.push_back(t->model.clone());
            if (to_res) c.res_etch.push_back(t->model.clone());
        }
        if (to_res) c.needs_res_modeling = 1;
        return true;
    }

    if (auto* t = dynamic_cast<CtfSideTan_width_spacing*>(element)) {
        if (c.side_tan_model)
            fail(ci, "only one side_tan_vs_si_width_and_spacing modeling is allowed in one layer",
                 start);
        c.side_tan_model = t->model.clone();
        return true;
    }

    if (auto* t = dynamic_cast<CtfGate2Diff_cap*>(element)) {
        if (!c.gate_diff_caps.empty())
            fail(ci, "multiple gate2diffusion_cap tables are specified in one layer", start);
        for (const GateDiffCapModel& m : t->models) c.gate_diff_caps.push_back(m.clone());
        c.gate_diff_names = t->names;
        return true;
    }

    if (auto* t = dynamic_cast<CtfThickness_polynomial*>(element)) {
        if (!t->valid) return true;
        if (c.thickness_polynomial)
            fail(ci, "only one thickness_var_from_polynomial modeling is allowed in one layer",
                 start);
        if (c.cap_thickness_ws || c.res_thickness_ws || c.cap_thickness_density ||
            c.res_thickness_density || c.cap_bottom_thickness || c.res_bottom_thickness ||
            c.thickness_density_width)
            fail(ci,
                 "thickness_var_from_polynomial modeling is not allowed when other thickness "
                 "modelings are already existed in the same layer",
                 start);
        c.thickness_polynomial = t->model.clone();
        polynomial_has_density_bounds_ = t->has_density_bounds != 0;
        c.needs_res_modeling = 1;
        return true;
    }

    auto* ws = dynamic_cast<CtfThickness_width_spacing*>(element);
    auto* density = dynamic_cast<CtfThickness_density*>(element);
    auto* bottom = dynamic_cast<CtfThickness_bottom_width*>(element);
    auto* density_width = dynamic_cast<CtfThickness_density_width*>(element);
    if (ws || density || bottom || density_width) {
        if (c.thickness_polynomial)
            fail(ci,
                 "additional thickness modeling is not allowed when "
                 "thickness_var_from_polynomial is already existed in the same layer",
                 start);
        if (ws) {
            fillThicknessSlots(
                ci, start, ws->use, ws->model, c.cap_thickness_ws, c.res_thickness_ws,
                "only one capacitive_only thickness_var_from_ws modeling is allowed in one layer",
                "only one resistive_only thickness_var_from_ws modeling is allowed in one layer",
                nullptr, c.needs_res_modeling);
        } else if (density) {
            fillThicknessSlots(
                ci, start, density->use, density->model, c.cap_thickness_density,
                c.res_thickness_density,
                "only one capacitive_only thickness_var_from_d modeling is allowed in one layer",
                "only one resistive_only thickness_var_from_d modeling is allowed in one layer",
                "only one thickness_var_from_d modeling is allowed in one layer",
                c.needs_res_modeling);
        } else if (bottom) {
            fillThicknessSlots(ci, start, bottom->use, bottom->model, c.cap_bottom_thickness,
                               c.res_bottom_thickness,
                               "only one capacitive_only bottom_thickness_var_from_si_width "
                               "modeling is allowed in one layer",
                               "only one resistive_only bottom_thickness_var_from_si_width "
                               "modeling is allowed in one layer",
                               "only one bottom_thickness_var_from_si_width modeling is allowed "
                               "in one layer",
                               c.needs_res_modeling);
        } else {
            if (c.thickness_density_width)
                fail(ci, "only one thickness_vs_density_and_width modeling is allowed in one layer",
                     start);
            c.thickness_density_width = density_width->model.clone();
        }
        return true;
    }

    if (auto* t = dynamic_cast<CtfILD_thickness*>(element)) {
        if (c.ild_model)
            fail(ci, "only one ild_thickness_var_from_effective_ws table is allowed in one layer",
                 start);
        c.ild_model = t->model.clone();
        return true;
    }

    if (auto* t = dynamic_cast<CtfDensity_box*>(element)) {
        if (has_density_boxes_)
            fail(ci, "only one densitybox_weight_factor table is allowed in one layer", start);
        has_density_boxes_ = true;
        c.density_box_weights = t->boxes;
        return true;
    }

    auto* rpsq_si = dynamic_cast<CtfRPSQ_SI_width*>(element);
    auto* rho_ws = dynamic_cast<CtfRHO_width_spacing*>(element);
    auto* rpsq_ws = dynamic_cast<CtfRPSQ_width_spacing*>(element);
    auto* rho_si = dynamic_cast<CtfRHO_SI_width_thickness*>(element);
    if (!rpsq_si && !rho_ws && !rpsq_ws && !rho_si) return false;
    if (resistance_tables_ > 0)
        fail(ci, "only one resistance model is allowed in one layer", start);
    ++resistance_tables_;
    const bool keep = !sampling_;
    if (rpsq_si) {
        const std::vector<double>& v = rpsq_si->model.values;
        rpsq_sample_ = sampleTable(v, v.size(), 1, sampling_mode_);
        if (keep) c.rpsq_si = rpsq_si->model.clone();
    } else if (rpsq_ws) {
        const RPSQWidthSpacingModel& m = rpsq_ws->model;
        rpsq_sample_ =
            sampleTable(m.values, axisLength(m.widths), axisLength(m.spacings), sampling_mode_);
        if (keep) c.rpsq_ws = m.clone();
    } else {
        const EtchModel& m = rho_ws ? rho_ws->model : rho_si->model;
        rho_sample_ = sampleTable(m.values, m.widths.size(), m.spacings.size(), sampling_mode_);
        if (keep) (rho_ws ? c.rho_ws : c.rho_si) = m.clone();
    }
    if (keep) c.needs_res_modeling = 1;
    return true;
}

void CtfConductor::deriveThicknessBounds(CtfInterpreter* ci, long keyword_at) {
    Conductor& c = conductor;
    ThicknessPolynomialModel& poly = *c.thickness_polynomial;

    double w_low = -1, w_high = -1, s_low = -1, s_high = -1;
    auto lower = [](double& bound, double v) {
        if (bound < 0 || v < bound) bound = v;
    };
    auto raise = [](double& bound, double v) {
        if (bound < 0 || v > bound) bound = v;
    };
    for (const EtchModel* m : c.cap_etch) {
        if (m->is_constant) continue;
        if (!m->widths.empty()) {
            lower(w_low, m->widths.front());
            raise(w_high, m->widths.back());
        }
        if (!m->spacings.empty()) {
            lower(s_low, m->spacings.front());
            raise(s_high, m->spacings.back());
        }
    }
    if (c.ild_model) {
        const ILDModel& ild = *c.ild_model;
        if (!ild.widths.empty()) {
            lower(w_low, ild.widths.front());
            raise(w_high, ild.widths.back());
        }
        if (!ild.spacings.empty()) {
            lower(s_low, ild.spacings.front());
            raise(s_high, ild.spacings.back());
        }
    }
    c.width_bounds = {w_low, w_high};
    c.spacing_bounds = {s_low, s_high};

    const bool has_bounds_table = polynomial_has_density_bounds_ && !poly.bound_widths.empty();
    if (!has_bounds_table && (w_low < 0 || w_high < 0 || s_low < 0 || s_high < 0))
        PLOG::log(3)
            << "CTF file: thickness_var_from_polynomial modeling for the conductor layer \""
            << c.name << "\" does not contain density_bounds_vs_width table." << PLOG::endl;
    if (s_low > 0 && s_high > 0) poly.setSpacingRange(s_low, s_high);

    if (!(w_low > 0) || !(w_high > 0)) {
        if (has_bounds_table) {
            w_low = poly.bound_widths.front();
            w_high = poly.bound_widths.back();
        } else {
            w_low = c.wmin;
            const std::vector<double>& ranges = poly.width_ranges;
            if (!ranges.empty() && ranges.front() > 0 && ranges.front() < c.wmin)
                w_low = ranges.front();
            w_high = !ranges.empty() && ranges.back() > 0 ? ranges.back() : w_low * 100;
        }
    }
    poly.setWidthRange(w_low, w_high);

    double lower_t = 0, upper_t = 0;
    if (poly.getThicknessBounds(lower_t, upper_t)) {
        if (lower_t > c.thickness)
            fail(ci,
                 "lower value of thickness_bounds of thickness_var_from_polynomial model must be "
                 "smaller than the original conductor thickness",
                 keyword_at);
        if (upper_t < c.thickness)
            fail(ci,
                 "upper value of thickness_bounds of thickness_var_from_polynomial model must be "
                 "larger than the original conductor thickness",
                 keyword_at);
    }
}

void CtfConductor::finish(CtfInterpreter* ci, long keyword_at) {
    Conductor& c = conductor;
    auto endError = [&](const char* message) { fail(ci, message, keyword_at); };

    if (c.thickness < 0) endError("no thickness value is specified for the layer");

    if (!c.density_box_weights.empty()) {
        if (c.cap_thickness_density) c.cap_thickness_density->boxes = c.density_box_weights;
        if (c.thickness_polynomial) c.thickness_polynomial->boxes = c.density_box_weights;
    }

    if (c.thickness_polynomial) deriveThicknessBounds(ci, keyword_at);

    if (c.raised_diff) {
        if (!(c.raised_diff->thickness > 0) || !(c.raised_diff->smin > 0))
            endError(
                "must specify both the raiseddiffu_thickness and raiseddiffu2gate_smin for the "
                "conductor layer");
        if (c.layer_type_code != 2)
            endError(
                "the raiseddiffu_thickness field can only be applied to the conductors with "
                "layer_type being set as DIFFUSION");
    }

    if (!rho_given_) {
        if (rho_sample_ > 0)
            c.rho = rho_sample_;
        else if (rpsq_sample_ > 0)
            c.rho = rpsq_sample_ * c.thickness;
        else
            endError("no resistance is specified for the layer");
    } else if (resistance_tables_ > 0) {
        PLOG::log(3) << "CTF file: rho value will override all the resistance modeling for the "
                        "conductor layer \""
                     << c.name << "\"." << PLOG::endl;
        c.clearResistanceModels();
        c.needs_res_modeling = 0;
    }

    if ((c.bottom_diel_er > 0) != (c.bottom_diel_thickness > 0))
        endError(
            "must specify both bottom_diel_er and bottom_diel_thickness to model bottom "
            "dielectric");
}

CTF_REGISTER_PROCESSOR(CtfConductor);
