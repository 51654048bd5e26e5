#include "technology/ctf_via.h"

#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"
#include "technology/ctf_tables.h"

namespace {

[[noreturn]] void fail(CtfInterpreter* ci, const char* message, long index) {
    throw Ctf_Syntax_Error(ci->stream, message, index);
}

}  // namespace

ElementProcessor* CtfVia::translate(CtfInterpreter* ci) {
    static const char* const kOneEtch = "only one etch modeling is allowed for one via layer";
    const long keyword_at = static_cast<long>(ci->stream.current);
    via.init();
    processHead(ci);
    if (name.empty()) fail(ci, "expecting via name", keyword_at);
    via.name = name;

    ElementProcessor* element = nullptr;
    long start = 0;
    while (readField(ci, element, start)) {
        if (auto* a = dynamic_cast<CtfNumberAttri*>(element)) {
            const std::string& k = a->keyword;
            if (k == "via_size" || k == "rpv" || k == "rho") {
                if (!(a->value > 0)) fail(ci, "invalid value", start);
                (k == "via_size" ? via.via_size : k == "rpv" ? via.rpv : via.rho) = a->value;
            } else if (k != "crt1" && k != "crt2" && k != "t_zero") {
                warnUnsupportedField(ci->stream, start);
            }
        } else if (auto* s = dynamic_cast<CtfStringAttri*>(element)) {
            if (s->keyword == "bottom")
                via.bottom = s->value;
            else if (s->keyword == "top")
                via.top = s->value;
            else
                fail(ci, "unknow field in the table", start);
        } else if (auto* area = dynamic_cast<CtfRPV_Area*>(element)) {
            delete via.rpv_area;
            via.rpv_area = area->model.clone();
        } else if (auto* wl = dynamic_cast<CtfRPV_width_length*>(element)) {
            delete via.rpv_wl;
            via.rpv_wl = wl->model.clone();
        } else if (auto* etch = dynamic_cast<CtfEtch_width_length*>(element)) {
            if (!via.etch.empty() || !via.gate_etch.empty()) fail(ci, kOneEtch, start);
            via.etch.push_back(etch->length_model.clone());
            via.etch.push_back(etch->width_model.clone());
        } else if (auto* gate = dynamic_cast<CtfEtch_contact_gate_spacing*>(element)) {
            if (!via.etch.empty() || !via.gate_etch.empty()) fail(ci, kOneEtch, start);
            for (const EtchModel& m : gate->models) via.gate_etch.push_back(m.clone());
            via.gate_etch_names = gate->names;
        } else if (dynamic_cast<CtfStringVector*>(element) ||
                   dynamic_cast<CtfDummystruct*>(element) ||
                   dynamic_cast<CtfTuplevector*>(element)) {
            warnUnsupportedField(ci->stream, start);
        } else {
            fail(ci, "unknow field in the table", start);
        }
    }

    auto endError = [&](const char* message) { fail(ci, message, keyword_at); };
    if (via.bottom.empty() || via.top.empty())
        endError("must specify both the via top and via bottom layer name");
    if (via.rho > 0 && via.rpv > 0)
        endError("cannot specify both the rho and rpv values for the same via layer");
    if (via.bottom == "substrate" || via.bottom == "SUBSTRATE") return this;
    if (via.rho > 0) return this;
    if (via.rpv > 0) {
        if (!(via.via_size > 0)) endError("must specify the via_size value when using rpv field");
        return this;
    }
    if (!via.rpv_area && !via.rpv_wl)
        endError(
            "must specfiy via resistance by using rho, rpv, rpv_vs_area, or "
            "rpv_vs_width_and_length field");
    return this;
}

CTF_REGISTER_PROCESSOR(CtfVia);
