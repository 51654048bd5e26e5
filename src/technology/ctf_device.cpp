#include "technology/ctf_device.h"

#include <cstdint>

#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"

namespace {

[[noreturn]] void fail(CtfInterpreter* ci, const char* message, long index) {
    throw Ctf_Syntax_Error(ci->stream, message, index);
}

long here(const CtfInterpreter* ci) {
    return static_cast<long>(ci->stream.current);
}

// A count written as a number, truncated toward zero and kept within 32 bits.
std::int32_t truncated(double v) {
    if (!(v == v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return static_cast<std::int32_t>(v);
}

// One checked number attribute of a device model: its slot, whether 0 passes, and the text.
struct DeviceAttribute {
    const char* keyword;
    double MultiGateModel::*slot;
    bool zero_allowed;
    const char* message;
};

const DeviceAttribute kMultiGateAttributes[] = {
    {"fin_spacing", &MultiGateModel::fin_spacing, false, "fin_spacing must be greater than zero"},
    {"fin_w", &MultiGateModel::fin_w, false, "fin_w must be greater than zero"},
    {"fin_l", &MultiGateModel::fin_l, false, "fin_l must be greater than zero"},
    {"fin_thickness", &MultiGateModel::fin_thickness, false,
     "fin_thickness must be greater than zero"},
    {"raised_diffusion_growth", &MultiGateModel::raised_diffusion_growth, true,
     "raised_diffusion_growth can not be negative value"},
    {"gate_poly_extension", &MultiGateModel::gate_poly_extension, true,
     "gate_poly_extension can not be negative value"},
    {"gate_poly_top_t", &MultiGateModel::gate_poly_top_t, false,
     "gate_poly_top_t must be greater than zero"},
    {"gate_poly_side_t", &MultiGateModel::gate_poly_side_t, true,
     "gate_poly_side_t can not be negative value"},
    {"gate_oxide_top_t", &MultiGateModel::gate_oxide_top_t, false,
     "gate_oxide_top_t must be greater than zero"},
    {"gate_oxide_side_t", &MultiGateModel::gate_oxide_side_t, false,
     "gate_oxide_side_t must be greater than zero"},
    {"gate_oxide_er", &MultiGateModel::gate_oxide_er, false,
     "gate_oxide_er must be greater than zero"},
    {"channel_er", &MultiGateModel::channel_er, false, "channel_er must be greater than zero"},
};

struct PillarAttribute {
    const char* keyword;
    double SAMT_VPT_Model::*slot;
    const char* message;  // null: no check
};

// drain_height reports with the source word on purpose: the texts are the tool's own.
const PillarAttribute kPillarPositive[] = {
    {"core_size", &SAMT_VPT_Model::core_size, "core_size must be greater than zero"},
    {"waist_size", &SAMT_VPT_Model::waist_size, "waist_size must be greater than zero"},
    {"source_height", &SAMT_VPT_Model::source_height, "source_height must be greater than zero"},
    {"drain_height", &SAMT_VPT_Model::drain_height, "source_height must be greater than zero"},
    {"gate_height", &SAMT_VPT_Model::gate_height, "gate_height must be greater than zero"},
    {"gate_oxide_thickness", &SAMT_VPT_Model::gate_oxide_thickness,
     "gate_oxide_thickness must be greater than zero"},
    {"gate_oxide_er", &SAMT_VPT_Model::gate_oxide_er, "gate_oxide_er must be greater than zero"},
    {"channel_er", &SAMT_VPT_Model::channel_er, "channel_er must be greater than zero"},
    {"gate_expansion_slice", &SAMT_VPT_Model::gate_expansion_slice,
     "gate_expansion_slice must be greater than zero"},
};

const char* const kUnknownClass = "unknow field in the table";

}  // namespace

// ---------------------------------------------------------------------------------------------
// multigate

ElementProcessor* CtfMultiGate::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model = MultiGateModel();
    processHead(ci);
    if (name.empty()) fail(ci, "expecting multigate model name", keyword_at);
    model.name = name;

    ElementProcessor* element = nullptr;
    long start = 0;
    while (readField(ci, element, start)) {
        if (auto* a = dynamic_cast<CtfNumberAttri*>(element)) {
            const DeviceAttribute* known = nullptr;
            for (const DeviceAttribute& d : kMultiGateAttributes)
                if (a->keyword == d.keyword) known = &d;
            if (!known) fail(ci, kUnknownClass, start);
            const bool ok = known->zero_allowed ? a->value >= 0 : a->value > 0;
            if (!ok) fail(ci, known->message, start);
            model.*(known->slot) = a->value;
        } else if (auto* pairs = dynamic_cast<CtfStrPairVector*>(element)) {
            if (pairs->pairs.empty())
                fail(ci, "must specify one gate-diffusion layer pair at least", start);
            model.layer_pairs.insert(model.layer_pairs.end(), pairs->pairs.begin(),
                                     pairs->pairs.end());
        } else {
            fail(ci, kUnknownClass, start);
        }
    }

    const struct {
        double value;
        const char* message;
    } required[] = {
        {model.fin_spacing, "fin_spacing must be specified"},
        {model.fin_w, "fin_w must be specified"},
        {model.fin_thickness, "fin_thickness must be specified"},
        {model.gate_oxide_side_t, "gate_oxide_side_t must be specified"},
        {model.gate_oxide_top_t, "gate_oxide_top_t must be specified"},
        {model.gate_poly_top_t, "gate_poly_top_t must be specified"},
    };
    for (const auto& r : required)
        if (r.value < 0) fail(ci, r.message, keyword_at);

    if (model.gate_poly_side_t < 0) model.gate_poly_side_t = 0;
    if (model.gate_poly_extension < 0) model.gate_poly_extension = 0;
    if (model.gate_poly_side_t > 0 && model.gate_poly_extension > 0)
        fail(ci, "gate_poly_side_t and gate_poly_extension can not be specified at the same time",
             keyword_at);
    if (model.gate_poly_extension > 0 && !(model.gate_poly_extension > model.gate_oxide_side_t))
        fail(ci, "value of gate_poly_extension must be larger than gate_oxide_side_t", keyword_at);

    if (model.gate_oxide_er < 0) fail(ci, "gate_oxide_er must be specified", keyword_at);
    if (model.channel_er < 0) fail(ci, "channel_er must be specified", keyword_at);
    if (model.layer_pairs.empty())
        fail(ci, "gate_diffusion_layer_pair must be specified", keyword_at);
    return this;
}

// ---------------------------------------------------------------------------------------------
// samt_vpt

ElementProcessor* CtfSAMT_VPT::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model = SAMT_VPT_Model();
    processHead(ci);
    if (name.empty()) fail(ci, "expecting samt_vpt model name", keyword_at);
    model.name = name;

    ElementProcessor* element = nullptr;
    long start = 0;
    while (readField(ci, element, start)) {
        if (auto* s = dynamic_cast<CtfStringAttri*>(element)) {
            if (s->keyword == "drain_layer")
                model.drain_layer = s->value;
            else if (s->keyword == "gate_layer")
                model.gate_layer = s->value;
            else if (s->keyword == "source_layer")
                model.source_layer = s->value;
            else
                fail(ci, kUnknownClass, start);
            continue;
        }
        auto* a = dynamic_cast<CtfNumberAttri*>(element);
        if (!a) fail(ci, kUnknownClass, start);
        const PillarAttribute* known = nullptr;
        for (const PillarAttribute& p : kPillarPositive)
            if (a->keyword == p.keyword) known = &p;
        if (known) {
            if (!(a->value > 0)) fail(ci, known->message, start);
            model.*(known->slot) = a->value;
        } else if (a->keyword == "gate_expansion_range") {
            if (a->value < 0) fail(ci, "gate_expansion_range can not be negative value", start);
            model.gate_expansion_range = a->value;
        } else if (a->keyword == "corner_rounding_points") {
            if (a->value < 0) fail(ci, "corner_rounding_points can not be negative value", start);
            model.corner_rounding_points = truncated(a->value);
        } else if (a->keyword == "waist_corner_radius") {
            model.waist_corner_radius = a->value;
        } else {
            fail(ci, kUnknownClass, start);
        }
    }

    const struct {
        double value;
        const char* message;
    } required[] = {
        {model.waist_size, "waist_size must be specified"},
        {model.core_size, "core_size must be specified"},
        {model.source_height, "source_height must be specified"},
        {model.drain_height, "drain_height must be specified"},
        {model.gate_height, "gate_height must be specified"},
        {model.gate_oxide_thickness, "gate_oxide_thickness must be specified"},
        {model.gate_oxide_er, "gate_oxide_er must be specified"},
        {model.channel_er, "channel_er must be specified"},
    };
    for (const auto& r : required)
        if (r.value < 0) fail(ci, r.message, keyword_at);

    if (!(model.waist_corner_radius > 0))
        model.waist_corner_radius = -1;
    else if (!(2 * model.waist_corner_radius < model.waist_size))
        fail(ci, "waist_corner_radius must be smaller than half of the waist_size", keyword_at);
    if (model.waist_size > model.core_size)
        fail(ci, "core_size must be greater than waist_size", keyword_at);
    if (model.gate_expansion_range == 0 && model.core_size - model.waist_size >= 1e-5)
        fail(ci, "gate_expansion_range can not be zero when waist_size and core_size are different",
             keyword_at);
    if (model.corner_rounding_points < 0) model.corner_rounding_points = 0;
    if (model.drain_layer.empty()) fail(ci, "drain_layer must be specified", keyword_at);
    if (model.source_layer.empty()) fail(ci, "source_layer must be specified", keyword_at);
    if (model.gate_layer.empty()) fail(ci, "gate_layer must be specified", keyword_at);
    return this;
}

// ---------------------------------------------------------------------------------------------
// gate2diffusion_cap and its sub tables

void CtfDiff_gate_table::processHead(CtfInterpreter* ci) {
    TokenStream& ts = ci->stream;
    keyword = ts.token();
    name = ts.token();
    if (!ts.next() || ts.token() != "{")
        fail(ci, "expecting sub table content beginning with LEFT BRACE", -1);
}

ElementProcessor* CtfDiff_gate_table::translate(CtfInterpreter* ci) {
    static const char* const kUnknownSubField = "unknown field in the sub table";
    const long name_at = here(ci);
    model.reset();
    processHead(ci);

    std::vector<double> caps, gate2contact, contact2contact, first_axis;
    bool has_caps = false, has_g2c = false, has_c2c = false, has_gate_w = false, has_pitch = false;
    ElementProcessor* element = nullptr;
    long start = 0;
    while (readField(ci, element, start)) {
        auto* v = dynamic_cast<CtfVector*>(element);
        if (!v) fail(ci, kUnknownSubField, start);
        const bool is_axis = v->keyword == "gate2contact_spacings" ||
                             v->keyword == "contact2contact_spacings" || v->keyword == "gate_w" ||
                             v->keyword == "gate_pitch";
        if (v->keyword != "caps_per_micron" && !is_axis) fail(ci, kUnknownSubField, start);
        if (v->values.empty()) fail(ci, "expecting at least one number value in the vector", start);
        if (is_axis && !v->isAscent()) fail(ci, "elements must be in ascending order", start);
        if (v->keyword == "caps_per_micron") {
            caps = v->values;
            has_caps = true;
        } else if (v->keyword == "gate2contact_spacings") {
            gate2contact = v->values;
            has_g2c = true;
        } else if (v->keyword == "contact2contact_spacings") {
            contact2contact = v->values;
            has_c2c = true;
        } else {
            // gate_w and gate_pitch name the same axis in two forms; only one may stand.
            const bool pitch = v->keyword == "gate_pitch";
            if (pitch ? has_gate_w : has_pitch) fail(ci, kUnknownSubField, start);
            (pitch ? has_pitch : has_gate_w) = true;
            first_axis = v->values;
        }
    }

    const bool by_gate_width = has_gate_w;
    const bool has_second = by_gate_width ? has_g2c : has_c2c;
    if (!has_caps || !(has_gate_w || has_pitch) || !has_second)
        fail(ci, "missing necessary fields for the table", name_at);
    const std::vector<double>& second_axis = by_gate_width ? gate2contact : contact2contact;
    if (first_axis.size() * second_axis.size() != caps.size())
        fail(ci,
             "dimensions of contact2contact_spacings and gate2contact_spacings vectors do not "
             "match with the values vector",
             name_at);
    model.widths = first_axis;
    model.spacings = second_axis;
    model.values = caps;
    model.by_gate_width = by_gate_width ? 1 : 0;
    return this;
}

ElementProcessor* CtfGate2Diff_cap::translate(CtfInterpreter* ci) {
    static const char* const kNoCount =
        "num_tables field must be specified at the beginning ot the "
        "width_var_from_contact_gate_s table";
    const long keyword_at = here(ci);
    models.clear();
    names.clear();
    processHead(ci);

    // Unbound tokens open sub tables for the time of the body.
    struct DefaultScope {
        CtfInterpreter* ci;
        ElementProcessor* previous;
        ~DefaultScope() { ci->default_processor = previous; }
    } scope{ci, ci->default_processor};
    ci->default_processor = ci->processorOf("CtfDiff_gate_table");

    ElementProcessor* element = nullptr;
    long start = 0;
    if (!readField(ci, element, start)) fail(ci, kNoCount, keyword_at);
    auto* count = dynamic_cast<CtfNumberAttri*>(element);
    if (!count || count->keyword != "num_tables") fail(ci, kNoCount, start);
    const std::int32_t n = truncated(count->value);
    if (n < 1)
        fail(ci, "invalid sub table number of the width_var_from_contact_gate_s table", start);

    while (readField(ci, element, start)) {
        auto* sub = dynamic_cast<CtfDiff_gate_table*>(element);
        if (!sub) fail(ci, "unknown field in the table", start);
        models.push_back(sub->model);
        names.push_back(sub->name);
    }
    if (static_cast<std::int64_t>(models.size()) != n)
        fail(ci, "number of sub tables do not match with num_tables field", keyword_at);
    return this;
}

CTF_REGISTER_PROCESSOR(CtfMultiGate);
CTF_REGISTER_PROCESSOR(CtfSAMT_VPT);
CTF_REGISTER_PROCESSOR(CtfDiff_gate_table);
CTF_REGISTER_PROCESSOR(CtfGate2Diff_cap);
