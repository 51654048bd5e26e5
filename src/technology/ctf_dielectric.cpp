#include "technology/ctf_dielectric.h"

#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"
#include "technology/ctf_tables.h"

namespace {

[[noreturn]] void fail(CtfInterpreter* ci, const char* message, long index) {
    throw Ctf_Syntax_Error(ci->stream, message, index);
}

}  // namespace

ElementProcessor* CtfDielectric::translate(CtfInterpreter* ci) {
    static const char* const kInvalid = "invalid value";
    const long keyword_at = static_cast<long>(ci->stream.current);
    layer.init();
    processHead(ci);
    if (name.empty()) fail(ci, "expecting dielectric name", keyword_at);
    layer.name = name;

    ElementProcessor* element = nullptr;
    long start = 0;
    while (readField(ci, element, start)) {
        if (auto* a = dynamic_cast<CtfNumberAttri*>(element)) {
            const std::string& k = a->keyword;
            const double v = a->value;
            if (k == "er") {
                if (!(v > 0)) fail(ci, "invalid permittivity value", start);
                layer.er = v;
            } else if (k == "thickness" || k == "side_thickness" || k == "top_thickness") {
                if (!(v >= 0)) fail(ci, kInvalid, start);
                (k == "thickness"        ? layer.thickness
                 : k == "side_thickness" ? layer.side_thickness
                                         : layer.top_thickness) = v;
            } else if (k == "damage_size") {
                if (!(v > 0.001)) fail(ci, "invalid damage_size value", start);
                layer.damage_size = v;
            } else if (k == "damage_er") {
                if (!(v > 0)) fail(ci, kInvalid, start);
                layer.damage_er = v;
            } else if (k == "bw_t") {
                if (!(v >= 0)) fail(ci, kInvalid, start);
                if (v > 0) layer.bw_t = v;
            } else {
                warnUnsupportedField(ci->stream, start);
            }
        } else if (auto* s = dynamic_cast<CtfStringAttri*>(element)) {
            if (s->keyword == "bottom")
                layer.bottoms.push_back(s->value);
            else
                warnUnsupportedField(ci->stream, start);
        } else if (auto* f = dynamic_cast<CtfStandalone*>(element)) {
            if (f->keyword != "is_conformal") warnUnsupportedField(ci->stream, start);
        } else if (auto* spacer = dynamic_cast<CtfSpacer_er_vs_width_spacing*>(element)) {
            delete layer.spacer_model;
            layer.spacer_model = spacer->model.clone();
        } else if (dynamic_cast<CtfTuplemap*>(element) || dynamic_cast<CtfTuplevector*>(element) ||
                   dynamic_cast<CtfDummystruct*>(element)) {
            warnUnsupportedField(ci->stream, start);
        } else {
            fail(ci, "unknow field in the table", start);
        }
    }

    auto endError = [&](const char* message) { fail(ci, message, keyword_at); };
    if (!(layer.er > 0)) endError("no permittivity is specified for the layer");
    if (layer.bottoms.empty()) {
        if (layer.thickness == 0) endError("no thickness is specified for the dielectric layer");
        if (layer.damage_size * layer.damage_er < 0)
            endError("must specify both damage_size and damage_er to enable the damage modeling");
        if (layer.bw_t > 0) endError("only conformal dielectric layer can have bw_t attribute");
        if (layer.spacer_model)
            endError("only conformal dielectric layer can have spacer_er_from_gate_ws model");
        return this;
    }
    if (layer.bw_t > 0) {
        if (layer.side_thickness > 0 || layer.top_thickness > 0 || layer.thickness > 0)
            endError(
                "the conformal layers which have bw_t attribte must not have non-zero value of "
                "thickness, side_thickness, or top_thickness");
        if (layer.spacer_model)
            endError(
                "spacer_er_from_gate_ws model can not be applied to the bottom wall conformal "
                "layers which have bw_t attribute");
        return this;
    }
    if (!(layer.side_thickness > 0) && !(layer.top_thickness > 0) && layer.thickness == 0)
        endError("no valid thickness is specified for the conformal layer");
    if (layer.damage_size > 0 || layer.damage_er > 0)
        endError("damage modeling cannot be applied to the conformal layer");
    if (layer.side_thickness < 0) layer.side_thickness = 0;
    if (layer.top_thickness < 0) layer.top_thickness = 0;
    if (layer.spacer_model) {
        if (layer.bottoms.size() > 1)
            endError(
                "conformal layers with spacer_er_from_gate_ws model can not be specified to more "
                "than 1 bottom conductor");
        if (layer.thickness > 0)
            endError(
                "conformal layers with spacer_er_from_gate_ws model must not have non-zero value "
                "of thickness");
    }
    return this;
}

CTF_REGISTER_PROCESSOR(CtfDielectric);
