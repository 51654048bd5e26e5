// Readers of the width-variation tables: the width-spacing template and its derived tables, the
// multi-mask etch table, the via table over width and length, and the contact-gate tables.
#include <cmath>

#include "technology/ctf_tables.h"
#include "technology/ctf_tables_util.h"

using namespace ctf_tables;

namespace {

// The three vectors of a width-spacing table, collected in any order.
struct WidthSpacingBody {
    std::vector<double> widths, spacings, values;
    bool has_widths = false, has_spacings = false, has_values = false;

    // Takes `widths`, `spacings` or `values`; returns false for any other keyword.
    bool take(CtfInterpreter* ci, const CtfVector& v, long start) {
        if (v.keyword == "widths") {
            checkAxis(ci, v, start);
            widths = v.values;
            has_widths = true;
        } else if (v.keyword == "spacings") {
            checkAxis(ci, v, start);
            spacings = v.values;
            has_spacings = true;
        } else if (v.keyword == "values") {
            if (v.values.empty()) fail(ci, kAtLeastOne, start);
            values = v.values;
            has_values = true;
        } else {
            return false;
        }
        return true;
    }

    // Checks completeness and sizes, then fills model.
    void finish(CtfInterpreter* ci, long keyword_at, EtchModel& model) const {
        if (!has_widths || !has_spacings || !has_values) fail(ci, kMissingFields, keyword_at);
        if (widths.size() * spacings.size() != values.size())
            fail(ci,
                 "dimensions of widths and spacings vectors do not match with the values vector",
                 keyword_at);
        model.widths = widths;
        model.spacings = spacings;
        model.values = values;
    }
};

}  // namespace

bool CtfUseSelection::select(const std::string& word) {
    if (word == "capacitive_only") {
        capacitive_only = 1;
    } else if (word == "resistive_only") {
        resistive_only = 1;
    } else if (word == "etch_from_top") {
        etch_from_top = 1;
    } else {
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Width-spacing template and the tables derived from it

ElementProcessor* CtfEtch_width_spacing_template::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model.reset();
    clearState();
    processHead(ci);
    WidthSpacingBody body;
    ElementProcessor* element = nullptr;
    long start = 0;
    while (nextField(ci, element, start)) {
        if (auto* v = dynamic_cast<CtfVector*>(element)) {
            if (!body.take(ci, *v, start)) fail(ci, kUnknowField, start);
        } else if (!acceptField(ci, element, start)) {
            fail(ci, kUnknowClass, start);
        }
    }
    body.finish(ci, keyword_at, model);
    finish(ci, keyword_at);
    return this;
}

bool CtfEtch_width_spacing_template::acceptField(CtfInterpreter*, ElementProcessor*, long) {
    return false;
}

void CtfEtch_width_spacing_template::finish(CtfInterpreter*, long) {}

void CtfThickness_width_spacing::clearState() {
    use = CtfUseSelection();
}

void CtfThickness_width_spacing::finish(CtfInterpreter*, long) {
    if (name == "capacitive_only" || name == "resistive_only") use.select(name);
}

void CtfRHO_width_spacing::finish(CtfInterpreter* ci, long keyword_at) {
    for (double v : model.values)
        if (!(v > 0.0)) fail(ci, "rho values must be larger than zero", keyword_at);
}

void CtfMaskEtchTable::processHead(CtfInterpreter* ci) {
    static const char* const kHead =
        "expecting mask id pair beginning with LEFT PARENTHESIS or table content beginning with "
        "LEFT BRACE";
    static const char* const kPair = "expecting tuple with two non-negative integers";
    TokenStream& ts = ci->stream;
    keyword = ts.token();
    name.clear();
    pairs.clear();
    if (!ts.next()) fail(ci, kHead, -1);
    while (ts.token() != "{") {
        if (ts.token() != "(") fail(ci, kHead, -1);
        const long start = here(ci);
        auto* tuple = dynamic_cast<CtfTuple*>(ci->processElem());
        if (!tuple || tuple->values.size() != 2) fail(ci, kPair, start);
        for (double v : tuple->values)
            if (!(v >= 0.0) || v >= 2147483648.0) fail(ci, kPair, start);
        pairs.emplace(truncateToInt(tuple->values[0]), truncateToInt(tuple->values[1]));
        if (!ts.next()) fail(ci, kHead, -1);
    }
}

// ---------------------------------------------------------------------------------------------
// width_var_from_ws

ElementProcessor* CtfEtch_width_spacing::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model.reset();
    mask_model.reset();
    is_multi_mask = 0;
    use = CtfUseSelection();
    bool has_nmask = false;
    int32_t nmask = 0;

    processHead(ci);
    use.select(name);
    WidthSpacingBody body;
    ElementProcessor* element = nullptr;
    long start = 0;
    while (nextField(ci, element, start)) {
        if (auto* mask = dynamic_cast<CtfMaskEtchTable*>(element)) {
            is_multi_mask = 1;
            if (!mask_model.regEtchModel(mask->model.clone(), mask->pairs))
                fail(ci, "same mask id pair is specified more than once", start);
        } else if (auto* v = dynamic_cast<CtfVector*>(element)) {
            if (!body.take(ci, *v, start)) fail(ci, kUnknowField, start);
        } else if (auto* n = dynamic_cast<CtfNumberAttri*>(element)) {
            if (n->keyword != "nmask") fail(ci, kUnknowField, start);
            nmask = truncateToInt(n->value);
            if (nmask < 2) fail(ci, "number of masks can not be smaller than 2", start);
            has_nmask = true;
            is_multi_mask = 1;
        } else if (auto* flag = dynamic_cast<CtfStandalone*>(element)) {
            if (!use.select(flag->keyword)) fail(ci, kUnknowField, start);
        } else {
            fail(ci, kUnknowClass, start);
        }
    }

    if (!is_multi_mask) {
        body.finish(ci, keyword_at, model);
        return this;
    }
    if (!has_nmask) fail(ci, "must specify nmask value for the multi-mask etch model", keyword_at);
    mask_model.nmask = nmask;
    const int validity = mask_model.checkMaskValidity();
    if (validity > 0)
        fail(ci, "invalid mask id in the mask table (must not be greater than the number of masks)",
             keyword_at);
    if (validity < 0)
        fail(ci, "missing mask tables (must specify all the possible combinations of the mask ids)",
             keyword_at);
    mask_model.settingDefaultModels();
    return this;
}

// ---------------------------------------------------------------------------------------------
// width_var_from_wl

ElementProcessor* CtfEtch_width_length::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    length_model.reset();
    width_model.reset();
    processHead(ci);

    // Inside this table `values` is a list of tuples.
    CtfKeywordBinding tuple_values(ci, "values", ci->processorOf("CtfTuplevector"));
    std::vector<double> widths, lengths;
    std::vector<std::vector<double>> tuples;
    bool has_widths = false, has_lengths = false, has_values = false;
    ElementProcessor* element = nullptr;
    long start = 0;
    while (nextField(ci, element, start)) {
        if (auto* v = dynamic_cast<CtfVector*>(element)) {
            if (v->keyword == "widths") {
                checkAxis(ci, *v, start);
                widths = v->values;
                has_widths = true;
            } else if (v->keyword == "lengths") {
                checkAxis(ci, *v, start);
                lengths = v->values;
                has_lengths = true;
            } else {
                fail(ci, kUnknowField, start);
            }
        } else if (auto* tv = dynamic_cast<CtfTuplevector*>(element);
                   tv && tv->keyword == "values") {
            if (tv->tuples.empty()) fail(ci, "expecting at least one etch value tuple", start);
            const std::vector<long> at = tuplePositions(ci->stream, start, here(ci));
            for (size_t k = 0; k < tv->tuples.size(); ++k)
                if (tv->tuples[k].size() != 2)
                    fail(ci, "expecting 2 elements (length etch and width etch) in each tuple",
                         k < at.size() ? at[k] : start);
            tuples = tv->tuples;
            has_values = true;
        } else if (tv) {
            fail(ci, kUnknowField, start);
        } else {
            fail(ci, kUnknowClass, start);
        }
    }

    if (!has_widths || !has_lengths || !has_values) fail(ci, kMissingFields, keyword_at);
    if (widths.size() * lengths.size() != tuples.size())
        fail(ci, "dimensions of widths and lengths vectors do not match with the values vector",
             keyword_at);

    // A via longer than wide has no separate etch; a square one etches alike in both directions.
    const size_t nl = lengths.size();
    std::vector<double> length_etch(tuples.size()), width_etch(tuples.size());
    for (size_t i = 0; i < widths.size(); ++i) {
        for (size_t j = 0; j < nl; ++j) {
            const size_t k = i * nl + j;
            double le = tuples[k][0];
            double we = tuples[k][1];
            if (lengths[j] > widths[i]) {
                le = we = 0.0;
            } else if (std::fabs(lengths[j] - widths[i]) < 1e-10) {
                le = we;
            }
            length_etch[k] = le;
            width_etch[k] = we;
        }
    }
    for (EtchModel* m : {&length_model, &width_model}) {
        m->widths = widths;
        m->spacings = lengths;
    }
    length_model.values = std::move(length_etch);
    width_model.values = std::move(width_etch);
    return this;
}

// ---------------------------------------------------------------------------------------------
// width_var_from_contact_gate_s and its sub tables

namespace {

// The three vectors of a contact-gate table.
struct ContactGateBody {
    std::vector<double> c2c, g2c, values;
    bool has_c2c = false, has_g2c = false, has_values = false;

    // Takes one of the three vectors; returns false for any other keyword.
    bool take(CtfInterpreter* ci, const CtfVector& v, long start) {
        if (v.keyword == "contact2contact_spacings") {
            if (!v.isAscent()) fail(ci, kAscending, start);
            c2c = v.values;
            has_c2c = true;
        } else if (v.keyword == "gate2contact_spacings") {
            if (!v.isAscent()) fail(ci, kAscending, start);
            g2c = v.values;
            has_g2c = true;
        } else if (v.keyword == "values") {
            values = v.values;
            has_values = true;
        } else {
            return false;
        }
        return true;
    }

    void finish(CtfInterpreter* ci, long keyword_at, const char* size_message,
                EtchModel& model) const {
        if (!has_c2c || !has_g2c || !has_values) fail(ci, kMissingFields, keyword_at);
        if (c2c.size() * g2c.size() != values.size()) fail(ci, size_message, keyword_at);
        model.widths = c2c;
        model.spacings = g2c;
        model.values = values;
    }
};

}  // namespace

void CtfContact_gate_table::processHead(CtfInterpreter* ci) {
    TokenStream& ts = ci->stream;
    keyword = ts.token();
    name = ts.token();
    if (!ts.next() || ts.token() != "{")
        fail(ci, "expecting sub table content beginning with LEFT BRACE", -1);
}

ElementProcessor* CtfContact_gate_table::translate(CtfInterpreter* ci) {
    const long keyword_at = here(ci);
    model.reset();
    processHead(ci);
    ContactGateBody body;
    ElementProcessor* element = nullptr;
    long start = 0;
    while (nextField(ci, element, start)) {
        auto* v = dynamic_cast<CtfVector*>(element);
        if (!v || !body.take(ci, *v, start)) fail(ci, "unknown field in the sub table", start);
    }
    body.finish(ci, keyword_at,
                "dimensions of contact2contact_spacings and gate2contact_spacings vectors do not "
                "match with the values vector",
                model);
    return this;
}

ElementProcessor* CtfEtch_contact_gate_spacing::translate(CtfInterpreter* ci) {
    static const char* const kDirectEnd = "cannot find the end of the width_var_from_ws table";
    static const char* const kSubEnd =
        "cannot find the end of the width_var_from_contact_gate_s table";
    const long keyword_at = here(ci);
    models.clear();
    names.clear();
    processHead(ci);

    ElementProcessor* element = nullptr;
    long start = 0;
    bool more = nextField(ci, element, start, kDirectEnd);
    auto* count = more ? dynamic_cast<CtfNumberAttri*>(element) : nullptr;

    if (count && count->keyword == "num_tables") {
        const int32_t n = truncateToInt(count->value);
        if (n < 1)
            fail(ci, "invalid sub table number of the width_var_from_contact_gate_s table", start);
        DefaultProcessorScope sub_tables(ci, ci->processorOf("CtfContact_gate_table"));
        while (nextField(ci, element, start, kSubEnd)) {
            auto* sub = dynamic_cast<CtfContact_gate_table*>(element);
            if (!sub) fail(ci, "unknown field in the table", start);
            models.push_back(sub->model);
            names.push_back(sub->name);
        }
        if (static_cast<int64_t>(models.size()) != n)
            fail(ci, "number of sub tables do not match with num_tables field", keyword_at);
        return this;
    }

    ContactGateBody body;
    for (; more; more = nextField(ci, element, start, kDirectEnd)) {
        if (auto* v = dynamic_cast<CtfVector*>(element)) {
            if (!body.take(ci, *v, start)) fail(ci, kUnknowField, start);
        } else if (dynamic_cast<CtfNumberAttri*>(element)) {
            fail(ci,
                 "num_tables field must be specified at the beginning ot the "
                 "width_var_from_contact_gate_s table",
                 start);
        } else {
            fail(ci, kUnknowClass, start);
        }
    }
    models.emplace_back();
    names.emplace_back();
    body.finish(ci, keyword_at,
                "dimensions of contact2contact_spacings and gate2contact_spacings vectors do not "
                "match with the etch values vector",
                models.back());
    return this;
}

CTF_REGISTER_PROCESSOR(CtfThickness_width_spacing);
CTF_REGISTER_PROCESSOR(CtfRHO_width_spacing);
CTF_REGISTER_PROCESSOR(CtfSideTan_width_spacing);
CTF_REGISTER_PROCESSOR(CtfSpacer_er_vs_width_spacing);
CTF_REGISTER_PROCESSOR(CtfMaskEtchTable);
CTF_REGISTER_PROCESSOR(CtfEtch_width_spacing);
CTF_REGISTER_PROCESSOR(CtfEtch_width_length);
CTF_REGISTER_PROCESSOR(CtfContact_gate_table);
CTF_REGISTER_PROCESSOR(CtfEtch_contact_gate_spacing);
