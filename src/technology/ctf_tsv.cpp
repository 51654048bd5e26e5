#include "technology/ctf_tsv.h"

#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"

namespace {

[[noreturn]] void fail(CtfInterpreter* ci, const char* message, long index) {
    throw Ctf_Syntax_Error(ci->stream, message, index);
}

}  // namespace

ElementProcessor* CtfTSV::translate(CtfInterpreter* ci) {
    static const char* const kUnknownField = "unknow field";
    const long keyword_at = static_cast<long>(ci->stream.current);
    tsv = TSV();
    processHead(ci);
    if (name.empty()) fail(ci, "expecting TSV name", keyword_at);
    tsv.name = name;

    ElementProcessor* element = nullptr;
    long start = 0;
    while (readField(ci, element, start)) {
        if (auto* a = dynamic_cast<CtfNumberAttri*>(element)) {
            const std::string& k = a->keyword;
            double* slot = nullptr;
            if (k == "via_size")
                slot = &tsv.via_size;
            else if (k == "rho")
                slot = &tsv.rho;
            else if (k == "thickness")
                slot = &tsv.thickness;
            else if (k == "insulation_thickness")
                slot = &tsv.insulation_thickness;
            else if (k == "insulation_er")
                slot = &tsv.insulation_er;
            else if (k == "crt1" || k == "crt2" || k == "t_zero")
                continue;
            else
                fail(ci, kUnknownField, start);
            if (!(a->value > 0)) fail(ci, "invalid value", start);
            *slot = a->value;
        } else if (auto* s = dynamic_cast<CtfStringAttri*>(element)) {
            if (s->keyword == "bottom")
                tsv.bottom = s->value;
            else if (s->keyword == "top")
                tsv.top = s->value;
            else
                fail(ci, kUnknownField, start);
        } else if (auto* t = dynamic_cast<CtfTuplevector*>(element)) {
            // Substrate tables are read for their form only.
            if (t->keyword != "csub_vs_spacing" && t->keyword != "rsub_vs_spacing")
                fail(ci, kUnknownField, start);
        } else if (auto* table = dynamic_cast<Ctfstruct*>(element);
                   table && table->keyword == "ceff_vs_frq_and_spacing") {
            // Checked by its own reader and not kept.
        } else {
            fail(ci, "unknow field in the table", start);
        }
    }

    if (tsv.bottom.empty() || tsv.top.empty())
        fail(ci, "must specify both the tsv top and tsv bottom layer name", keyword_at);
    if (!(tsv.thickness > 0)) fail(ci, "must specify thickness value", keyword_at);
    if (!(tsv.insulation_thickness > 0) || !(tsv.insulation_er > 0))
        fail(ci, "must specify both the insulation_thickness and insulation_er value", keyword_at);
    return this;
}

CTF_REGISTER_PROCESSOR(CtfTSV);
