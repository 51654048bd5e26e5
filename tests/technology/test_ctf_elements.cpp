// CTF element framework: each generic element form with good input and with each of its error
// texts (token, line and position checked), the keyword table, the rebinding of "(" inside maps,
// and the plugging in of statement classes.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "technology/ctf_element.h"
#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"

namespace {

using Strings = std::vector<std::string>;

// An interpreter with all processors, loaded with `text`, cursor on the first token.
struct Ctf {
    CtfInterpreter ci;
    explicit Ctf(const std::string& text) {
        ci.initProcessors();
        std::istringstream in(text);
        ci.lexer(in);
    }
    template <class T>
    T* read() {
        auto* p = dynamic_cast<T*>(ci.processElem());
        EXPECT_NE(p, nullptr);
        return p;
    }
    std::uint64_t cursor() const { return ci.stream.current; }
};

// The text of the syntax error that reading one element of `text` raises.
std::string errorOf(const std::string& text) {
    Ctf c(text);
    try {
        c.ci.processElem();
    } catch (const Ctf_Syntax_Error& e) {
        return e.text;
    }
    return "no error";
}

// The expected text of a syntax error at `token` on 1-based `line`, 0-based `pos`.
std::string at(const std::string& token, int line, int pos, const std::string& message) {
    return "CTF error at \"" + token + "\", line: " + std::to_string(line) +
           ", pos: " + std::to_string(pos) + ", " + message + ".\n";
}

TEST(CtfForms, FlagStoresItsKeywordOnly) {
    Ctf c("is_gate 5");
    EXPECT_EQ(c.read<CtfStandalone>()->keyword, "is_gate");
    EXPECT_EQ(c.cursor(), 0u);
}

TEST(CtfForms, NumberAttribute) {
    Ctf c("thickness 0.25 er 1e5x rho 2-3");
    auto* a = c.read<CtfNumberAttri>();
    EXPECT_EQ(a->keyword, "thickness");
    EXPECT_DOUBLE_EQ(a->value, 0.25);
    EXPECT_EQ(c.cursor(), 1u);
    c.ci.stream.next();
    EXPECT_DOUBLE_EQ(c.read<CtfNumberAttri>()->value, 1e5);  // a leading number is enough
    c.ci.stream.next();
    EXPECT_DOUBLE_EQ(c.read<CtfNumberAttri>()->value, 2.0);

    EXPECT_EQ(errorOf("\n  thickness"), at("thickness", 2, 2, "expecting attribute value"));
    EXPECT_EQ(errorOf("thickness { 1 }"),
              at("{", 1, 10, "expecting number value for the attribute"));
    EXPECT_EQ(errorOf("er\n\t abc"), at("abc", 2, 2, "expecting number value for the attribute"));
    EXPECT_EQ(errorOf("er 1e999"), at("1e999", 1, 3, "expecting number value for the attribute"));
}

TEST(CtfForms, StringAttributeTakesAnyToken) {
    Ctf c("layer_type GATE top {");
    auto* a = c.read<CtfStringAttri>();
    EXPECT_EQ(a->keyword, "layer_type");
    EXPECT_EQ(a->value, "GATE");
    c.ci.stream.next();
    EXPECT_EQ(c.read<CtfStringAttri>()->value, "{");
    EXPECT_EQ(c.cursor(), 3u);
    EXPECT_EQ(errorOf("\n layer_type\n"), at("layer_type", 2, 1, "expecting attribute value"));
}

TEST(CtfForms, NumberVector) {
    Ctf c("widths { 1 2.5 -3 } spacings { }");
    auto* v = c.read<CtfVector>();
    EXPECT_EQ(v->keyword, "widths");
    EXPECT_EQ(v->values, (std::vector<double>{1, 2.5, -3}));
    EXPECT_EQ(v->isAscent(), 0);
    EXPECT_EQ(c.cursor(), 5u);
    c.ci.stream.next();
    v = c.read<CtfVector>();  // the same processor, cleared
    EXPECT_EQ(v->keyword, "spacings");
    EXPECT_TRUE(v->values.empty());
    EXPECT_EQ(v->isAscent(), 1);

    const char* brace = "expecting vector element list beginning with LEFT BRACE";
    EXPECT_EQ(errorOf(" widths"), at("widths", 1, 1, brace));
    EXPECT_EQ(errorOf("widths w1 { 1 }"), at("widths", 1, 0, brace));  // no name allowed
    EXPECT_EQ(errorOf("widths { 1 x }"),
              at("x", 1, 11, "invalid vector elements detected (only number value is allowed)"));
    EXPECT_EQ(errorOf("widths { 1\n 2"), at("2", 2, 1, "cannot find the end of the vector"));
}

TEST(CtfForms, NamedNumberVectorAndAscent) {
    Ctf c("widths w1 { 1 1 2 } widths w2 widths { 3 }");
    dynamic_cast<CtfVector*>(c.ci.processorOf("CtfVector"))->has_name = 1;
    auto* v = c.read<CtfVector>();
    EXPECT_EQ(v->name, "w1");
    EXPECT_EQ(v->isAscent(), 1);  // equal neighbours pass
    c.ci.stream.next();
    try {
        c.ci.processElem();  // "widths w2 widths": the token after the name is no brace
        FAIL();
    } catch (const Ctf_Syntax_Error& e) {
        EXPECT_EQ(e.text,
                  at("widths", 1, 20, "expecting vector element list beginning with LEFT BRACE"));
    }
}

TEST(CtfForms, StringVector) {
    Ctf c("device_type { nmos { pmos }");
    auto* v = c.read<CtfStringVector>();
    EXPECT_EQ(v->values, (Strings{"nmos", "{", "pmos"}));
    EXPECT_EQ(c.cursor(), 5u);
    EXPECT_EQ(errorOf("device_type nmos"),
              at("device_type", 1, 0, "expecting vector element list beginning with LEFT BRACE"));
    EXPECT_EQ(errorOf("device_type { a"), at("a", 1, 14, "cannot find the end of the vector"));
}

TEST(CtfForms, Tuple) {
    Ctf c("( 1 -2 3e1 ) ()");
    EXPECT_EQ(c.read<CtfTuple>()->values, (std::vector<double>{1, -2, 30}));
    EXPECT_EQ(c.cursor(), 4u);
    c.ci.stream.next();
    EXPECT_TRUE(c.read<CtfTuple>()->values.empty());

    EXPECT_EQ(errorOf("\n\n    ("), at("(", 3, 4, "expecting tuple elements"));
    EXPECT_EQ(errorOf("(1 a)"),
              at("a", 1, 3, "invalid tuple element detected (only number value is allowed)"));
    EXPECT_EQ(errorOf("( 1 2"), at("2", 1, 4, "cannot find the end of the tuple"));
}

TEST(CtfForms, TupleVector) {
    Ctf c("crt_area { (1 2) (3 4 5) } crt_siwidth { (1 2) (3 4) } er_sispacing { }");
    auto* t = c.read<CtfTuplevector>();
    EXPECT_EQ(t->keyword, "crt_area");
    EXPECT_EQ(t->tuples, (std::vector<std::vector<double>>{{1, 2}, {3, 4, 5}}));
    EXPECT_EQ(t->checkDim(2), 0);
    EXPECT_EQ(c.cursor(), 11u);
    c.ci.stream.next();
    t = c.read<CtfTuplevector>();
    EXPECT_EQ(t->checkDim(2), 1);
    EXPECT_EQ(t->checkDim(3), 0);
    c.ci.stream.next();
    EXPECT_EQ(c.read<CtfTuplevector>()->checkDim(7), 1);  // an empty table passes

    EXPECT_EQ(errorOf("crt_area (1 2)"),
              at("crt_area", 1, 0, "expecting vector element list beginning with LEFT BRACE"));
    EXPECT_EQ(errorOf("crt_area { (1 2)\n is_gate }"),
              at("is_gate", 2, 1, "expecting tuple beginning with LEFT PARENTHESIS"));
    EXPECT_EQ(errorOf("crt_area { 5 }"), at("5", 1, 11, "unknown keyword"));
    EXPECT_EQ(errorOf("crt_area { (1 x) }"),
              at("x", 1, 14, "invalid tuple element detected (only number value is allowed)"));
    EXPECT_EQ(errorOf("crt_area { (1 2)"), at(")", 1, 15, "cannot find the end of the vector"));
}

TEST(CtfForms, KeyValueMapRebindsParenthesisOnEveryExit) {
    Ctf c("er_table { (a 1) (b 2) (a 3) } ( 4 )");
    ElementProcessor* tuple = c.ci.processorOf("CtfTuple");
    auto* m = c.read<CtfTuplemap>();
    EXPECT_EQ(m->entries, (std::unordered_map<std::string, double>{{"a", 3}, {"b", 2}}));
    EXPECT_EQ(c.cursor(), 14u);
    EXPECT_EQ(c.ci.boundTo("("), tuple);
    c.ci.stream.next();
    EXPECT_EQ(c.read<CtfTuple>()->values, std::vector<double>{4});

    // With "(" unbound before, it is unbound after.
    Ctf unbound("er_table { (a 1) }");
    unbound.ci.keyword_table.erase("(");
    EXPECT_EQ(unbound.read<CtfTuplemap>()->entries.at("a"), 1.0);
    EXPECT_EQ(unbound.ci.keyword_table.count("("), 0u);

    // An error inside the map also gives "(" back.
    Ctf bad("er_table { (a x) }");
    EXPECT_THROW(bad.ci.processElem(), Ctf_Syntax_Error);
    EXPECT_EQ(bad.ci.boundTo("("), bad.ci.processorOf("CtfTuple"));
}

TEST(CtfForms, KeyValueMapErrors) {
    EXPECT_EQ(errorOf("er_table ( a 1 )"),
              at("er_table", 1, 0, "expecting vector element list beginning with LEFT BRACE"));
    EXPECT_EQ(errorOf("er_table {\n is_gate }"),
              at("is_gate", 2, 1, "expecting key-value pairs beginning with LEFT PARENTHESIS"));
    EXPECT_EQ(errorOf("er_table { ("), at("(", 1, 11, "expecting key name"));
    EXPECT_EQ(errorOf("er_table { ( a"), at("a", 1, 13, "expecting value"));
    EXPECT_EQ(errorOf("er_table { ( a b )"),
              at("b", 1, 15, "invalid value (only numbers are allowed)"));
    EXPECT_EQ(errorOf("er_table { ( a 1"), at("1", 1, 15, "cannot find the end of the tuple"));
    EXPECT_EQ(errorOf("er_table { ( a 1 2 ) }"),
              at("2", 1, 17, "cannot find the end of the tuple"));
    EXPECT_EQ(errorOf("er_table { (a 1)"), at(")", 1, 15, "cannot find the end of the vector"));
}

TEST(CtfForms, StringPairVector) {
    Ctf c("gate_diffusion_layer_pair { (g1 d1) (g2 d2) }");
    auto* v = c.read<CtfStrPairVector>();
    EXPECT_EQ(v->pairs,
              (std::vector<std::pair<std::string, std::string>>{{"g1", "d1"}, {"g2", "d2"}}));
    EXPECT_EQ(c.cursor(), 10u);
    EXPECT_EQ(c.ci.boundTo("("), c.ci.processorOf("CtfTuple"));

    const std::string kw = "gate_diffusion_layer_pair ";  // 26 bytes
    EXPECT_EQ(errorOf(kw + "(g d)"), at("gate_diffusion_layer_pair", 1, 0,
                                        "expecting vector element list beginning with LEFT BRACE"));
    EXPECT_EQ(errorOf(kw + "{ is_gate }"),
              at("is_gate", 1, 28, "expecting string tuple beginning with LEFT PARENTHESIS"));
    EXPECT_EQ(errorOf(kw + "{ ("), at("(", 1, 28, "expecting string"));
    EXPECT_EQ(errorOf(kw + "{ ( g1"), at("g1", 1, 30, "expecting second string"));
    EXPECT_EQ(errorOf(kw + "{ ( g1 d1"), at("d1", 1, 33, "cannot find the end of the tuple"));
    EXPECT_EQ(errorOf(kw + "{ ( g1 d1 x ) }"),
              at("x", 1, 36, "only two string elements are allowed in the tuple"));
    EXPECT_EQ(errorOf(kw + "{ (g d)"), at(")", 1, 32, "cannot find the end of the vector"));
}

// A statement table for the tests: records the classes of its body elements and warns about
// flags.
class RecordingTable : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override {
        processHead(ci);
        fields.clear();
        ElementProcessor* e = nullptr;
        long start = -1;
        while (readField(ci, e, start)) {
            if (auto* n = dynamic_cast<CtfNumberAttri*>(e))
                fields.push_back(n->keyword + "=" + std::to_string(n->value));
            else if (auto* v = dynamic_cast<CtfVector*>(e))
                fields.push_back(v->keyword + "[" + std::to_string(v->values.size()) + "]");
            else if (dynamic_cast<CtfStandalone*>(e))
                warnUnsupportedField(ci->stream, start);
            else
                throw Ctf_Syntax_Error(ci->stream, "unknow field in the table", start);
        }
        return this;
    }
    Strings fields;
};

TEST(CtfForms, TableHeadBodyAndFieldWarning) {
    RecordingTable table;
    Ctf c("tbl T1 { thickness 2 widths { 1 2 } } tbl { }");
    c.ci.regKeyword("tbl", &table);
    EXPECT_EQ(c.read<RecordingTable>(), &table);
    EXPECT_EQ(table.keyword, "tbl");
    EXPECT_EQ(table.name, "T1");
    EXPECT_EQ(table.fields, (Strings{"thickness=2.000000", "widths[2]"}));
    EXPECT_EQ(c.cursor(), 10u);
    c.ci.stream.next();
    c.ci.processElem();
    EXPECT_EQ(table.name, "");  // the name of the last use is gone

    auto tableError = [&](const std::string& text, int named) {
        Ctf e(text);
        table.has_name = named;
        e.ci.regKeyword("tbl", &table);
        try {
            e.ci.processElem();
        } catch (const Ctf_Syntax_Error& err) {
            return err.text;
        }
        return std::string("no error");
    };
    const char* brace = "expecting table content beginning with LEFT BRACE";
    EXPECT_EQ(tableError("tbl T1 {", 0), at("T1", 1, 4, brace));
    EXPECT_EQ(tableError(" tbl", 1), at("tbl", 1, 1, brace));
    EXPECT_EQ(tableError("tbl T1", 1), at("T1", 1, 4, brace));
    EXPECT_EQ(tableError("tbl T1 T2 {", 1), at("T2", 1, 7, brace));
    EXPECT_EQ(tableError("tbl T1 {\n thickness 2", 1),
              at("2", 2, 11, "cannot find the end of the table"));
    EXPECT_EQ(tableError("tbl T1 { device_type { a } }", 1),
              at("device_type", 1, 9, "unknow field in the table"));
    EXPECT_EQ(tableError("tbl T1 { foo }", 1), at("foo", 1, 9, "unknown keyword"));

    Ctf w("tbl {\n   is_gate }");
    w.ci.regKeyword("tbl", &table);
    testing::internal::CaptureStdout();
    w.ci.processElem();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[WARNING] CTF file: unsupported field \"is_gate\" in the table, line: 2, pos: 3.\n");
}

TEST(CtfForms, IgnoredTableSkipsToTheMatchingBrace) {
    Ctf c("gate2diffusion_adjust g { a { b } { } c } thickness 1");
    auto* d = c.read<CtfDummystruct>();
    EXPECT_EQ(d->keyword, "gate2diffusion_adjust");
    EXPECT_EQ(d->name, "g");
    EXPECT_EQ(c.cursor(), 10u);

    EXPECT_EQ(errorOf("tall_via_config { a { b }"),
              at("}", 1, 24, "cannot find the end of the table"));
    EXPECT_EQ(errorOf("tall_via_config x y"),
              at("y", 1, 18, "expecting table content beginning with LEFT BRACE"));
}

// Brings back the generic stand-ins of the named classes for one test, whatever real classes
// the build has registered, and restores the registrations afterwards.
class StandIns {
public:
    StandIns(std::initializer_list<const char*> classes) {
        for (const char* c : classes) saved.emplace_back(c, registerCtfProcessor(c, nullptr));
    }
    ~StandIns() {
        for (auto& [c, f] : saved) registerCtfProcessor(c, f);
    }

private:
    std::vector<std::pair<const char*, CtfProcessorFactory>> saved;
};

TEST(CtfInterpreterTest, UnknownKeywordAndDefaultProcessor) {
    EXPECT_EQ(errorOf("\n  foo { }"), at("foo", 2, 2, "unknown keyword"));
    EXPECT_EQ(errorOf("etch 1"), at("etch", 1, 0, "unknown keyword"));  // not in the table

    // Unbound tokens go to the default processor when there is one: a sub table stand-in.
    StandIns generic{"CtfContact_gate_table"};
    Ctf c("sub1 { values { 1 2 } }");
    c.ci.default_processor = c.ci.processorOf("CtfContact_gate_table");
    auto* sub = c.read<Ctfstruct>();
    EXPECT_EQ(sub->keyword, "sub1");
    EXPECT_EQ(c.cursor(), 7u);
}

TEST(CtfInterpreterTest, KeywordTableMatchesTheLanguage) {
    const std::map<std::string, std::string> groups = {
        {"CtfNumberAttri",
         "half_node_scale_factor density_grid gtemp background_er thickness er rho rpv "
         "side_thickness top_thickness via_size side_tan damage_size damage_er width_var "
         "capaci_only_width_var resistive_only_width_var num_tables wmin smin gate2contact_smin "
         "insulation_thickness insulation_er bottom_diel_er bottom_diel_thickness bw_t "
         "drop_factor drop_factor_lateral_spacing extensionmin fill_ratio fill_spacing fill_width "
         "fin_spacing fin_w fin_l fin_thickness raised_diffusion_growth gate_oxide_top_t "
         "gate_oxide_side_t gate_poly_top_t gate_poly_side_t gate_poly_extension gate_oxide_er "
         "channel_er raiseddiffu_etch raiseddiffu_gateside_conformal_er raiseddiffu_thickness "
         "raiseddiffu2gate_smin crt1 crt2 t_zero nmask core_size waist_size waist_corner_radius "
         "source_height drain_height gate_height gate_expansion_range gate_oxide_thickness "
         "corner_rounding_points gate_expansion_slice"},
        {"CtfStringAttri",
         "use_si_density technology bottom top dielectric_layer layer_type linked_to "
         "associated_conductor dual_poly fill_type ref_direction etch_associated_layer "
         "process_corner process_foundry process_node process_type process_version drain_layer "
         "gate_layer source_layer"},
        {"CtfStandalone",
         "resistive_only capacitive_only etch_from_top parallel2ref perpendicular2ref "
         "parallel2gate is_planar is_gate is_conformal is_diff"},
        {"CtfVector",
         "spacings siwidths densities sidensities widths width values lengths "
         "contact2contact_spacings gate2contact_spacings gate_w caps_per_micron "
         "density_polynomial_orders si_density_polynomial_orders width_polynomial_orders "
         "si_width_polynomial_orders width_ranges polynomial_coefficients thickness_bounds "
         "thickness_changes frq gate_pitch gate2contact_spacing"},
        {"CtfStringVector", "device_type"},
        {"CtfTuple", "("},
        {"CtfTuplevector",
         "density_bounds_vs_width csub_vs_spacing rsub_vs_spacing er_sispacing "
         "thickness_var_vs_mask crt_area crt_siwidth"},
        {"CtfTuplemap", "er_table raiseddiffu_etch_table raiseddiffu2gate_smin_table"},
        {"CtfStrPairVector", "gate_diffusion_layer_pair"},
        {"CtfDummystruct",
         "gate2diffusion_adjust gate2diffusion_channel_cap rpsq_vs_si_w_and_l rpv_vs_coverage "
         "rpv_vs_si_coverage rpv_vs_si_w_and_l side_tan_vs_si_width_and_cco_spacing "
         "spacer_er_vs_width_and_spacing tall_via_config user_defined_diffusion_resistance "
         "vertical_resistance_vs_si_w_and_l airgap_vs_spacing diel_fill_emu_vs_sispacing "
         "diel_fill_vs_sispacing"},
        {"CtfConductor", "conductor"},
        {"CtfDielectric", "dielectric"},
        {"CtfVia", "via"},
        {"CtfTSV", "tsv"},
        {"CtfTSVCeffTable", "ceff_vs_frq_and_spacing"},
        {"CtfMultiGate", "multigate"},
        {"CtfSAMT_VPT", "samt_vpt"},
        {"CtfGate2Diff_cap", "gate2diffusion_cap"},
        {"CtfEtch_width_spacing", "width_var_from_ws"},
        {"CtfEtch_width_length", "width_var_from_wl"},
        {"CtfEtch_contact_gate_spacing", "width_var_from_contact_gate_s"},
        {"CtfMaskEtchTable", "mask"},
        {"CtfThickness_width_spacing", "thickness_var_from_ws"},
        {"CtfThickness_density", "thickness_var_from_d"},
        {"CtfThickness_bottom_width", "bottom_thickness_var_from_si_width"},
        {"CtfThickness_polynomial", "thickness_var_from_polynomial"},
        {"CtfThickness_density_width", "thickness_vs_density_and_width"},
        {"CtfILD_thickness", "ild_thickness_var_from_effective_ws"},
        {"CtfDensity_box", "densitybox_weight_factor"},
        {"CtfSideTan_width_spacing", "side_tan_vs_si_width_and_spacing"},
        {"CtfSpacer_er_vs_width_spacing", "spacer_er_from_gate_ws"},
        {"CtfRHO_width_spacing", "rho_vs_width_and_spacing"},
        {"CtfRHO_SI_width_thickness", "rho_vs_si_width_and_thickness"},
        {"CtfRPSQ_width_spacing", "rpsq_vs_width_and_spacing"},
        {"CtfRPSQ_SI_width", "rpsq_vs_si_width"},
        {"CtfRPV_width_length", "rpv_vs_width_and_length"},
        {"CtfRPV_Area", "rpv_vs_area"},
    };
    CtfInterpreter ci;
    ci.initProcessors();
    EXPECT_EQ(ci.processors.size(), 41u);
    EXPECT_EQ(ci.keyword_table.size(), 169u);
    std::size_t listed = 0;
    for (const auto& [cls, words] : groups) {
        ElementProcessor* p = ci.processorOf(cls);
        ASSERT_NE(p, nullptr) << cls;
        std::istringstream in(words);
        for (std::string kw; in >> kw; ++listed) EXPECT_EQ(ci.boundTo(kw), p) << kw;
    }
    EXPECT_EQ(listed, 169u);
    // The processors that no keyword selects.
    for (const char* cls :
         {"CtfKeyvalueTuple", "CtfStrPairTuple", "CtfContact_gate_table", "CtfDiff_gate_table"})
        EXPECT_NE(ci.processorOf(cls), nullptr) << cls;
    EXPECT_NE(dynamic_cast<CtfKeyvalueTuple*>(ci.processorOf("CtfKeyvalueTuple")), nullptr);
    EXPECT_NE(dynamic_cast<CtfDummystruct*>(ci.processorOf("CtfDummystruct")), nullptr);
    EXPECT_NE(dynamic_cast<CtfTuplemap*>(ci.processorOf("CtfTuplemap")), nullptr);

    // regKeyword inserts or overwrites, without taking ownership.
    CtfStandalone extra;
    ci.regKeyword("thickness", &extra);
    ci.regKeyword("brand_new", &extra);
    EXPECT_EQ(ci.boundTo("thickness"), &extra);
    EXPECT_EQ(ci.boundTo("brand_new"), &extra);
    EXPECT_EQ(ci.keyword_table.size(), 170u);
}

TEST(CtfInterpreterTest, StandInsReadTheirStatementsGenerically) {
    StandIns generic{"CtfConductor", "CtfMaskEtchTable", "CtfThickness_density", "CtfDielectric"};
    Ctf c(
        "conductor M1 { thickness 1 widths { 1 2 } }\n"
        "mask (1 2) (2 1) { widths { 1 } }\n"
        "thickness_var_from_d capacitive_only { (0.1 0.2) (0.3 0.4) }\n"
        "dielectric { }");
    auto* conductor = c.read<Ctfstruct>();
    EXPECT_EQ(conductor->keyword, "conductor");
    EXPECT_EQ(conductor->name, "M1");
    EXPECT_EQ(c.cursor(), 10u);
    c.ci.stream.next();
    EXPECT_EQ(c.read<Ctfstruct>()->keyword, "mask");
    EXPECT_EQ(c.ci.stream.token(), "}");
    c.ci.stream.next();
    auto* density = c.read<CtfTuplevector>();
    EXPECT_EQ(density->name, "capacitive_only");
    EXPECT_EQ(density->tuples.size(), 2u);
    c.ci.stream.next();
    EXPECT_EQ(c.read<Ctfstruct>()->name, "");
    EXPECT_EQ(c.cursor(), c.ci.stream.tokens.size() - 1);
}

// A statement class plugged in by name.
class FakeConductor : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override {
        processHead(ci);
        ElementProcessor* e = nullptr;
        long start = 0;
        while (readField(ci, e, start))
            if (auto* a = dynamic_cast<CtfNumberAttri*>(e)) total += a->value;
        return this;
    }
    double total = 0;
};

class MacroRegistered : public CtfStandalone {};
CTF_REGISTER_PROCESSOR(MacroRegistered);

TEST(CtfInterpreterTest, RegisteredClassReplacesTheStandIn) {
    CtfProcessorFactory macro = registeredCtfProcessor("MacroRegistered");
    ASSERT_NE(macro, nullptr);
    ElementProcessor* made = macro();
    EXPECT_NE(dynamic_cast<MacroRegistered*>(made), nullptr);
    delete made;

    CtfProcessorFactory before = registeredCtfProcessor("CtfConductor");
    CtfProcessorFactory replaced = registerCtfProcessor(
        "CtfConductor", []() -> ElementProcessor* { return new FakeConductor; });
    EXPECT_EQ(replaced, before);
    {
        Ctf c("conductor M1 { thickness 1.5 er 2 }");
        auto* fake = dynamic_cast<FakeConductor*>(c.ci.processorOf("CtfConductor"));
        ASSERT_NE(fake, nullptr);
        EXPECT_EQ(c.ci.boundTo("conductor"), fake);
        EXPECT_EQ(c.ci.processElem(), fake);
        EXPECT_DOUBLE_EQ(fake->total, 3.5);
        EXPECT_EQ(c.ci.processors.size(), 41u);
    }
    registerCtfProcessor("CtfConductor", before);
    CtfInterpreter plain;
    plain.initProcessors();
    // The restored factory no longer builds the fake.
    EXPECT_EQ(dynamic_cast<FakeConductor*>(plain.processorOf("CtfConductor")), nullptr);
}

TEST(CtfInterpreterTest, DeepNestingIsAnErrorNotACrash) {
    std::string text;
    for (int i = 0; i < 100000; ++i) text += "crt_area { ";
    Ctf c(text);
    EXPECT_THROW(c.ci.processElem(), Ctf_Syntax_Error);
    // Moderate nesting of tables inside tables is still read (by the generic reader).
    StandIns generic{"CtfConductor"};
    std::string ok;
    for (int i = 0; i < 50; ++i) ok += "conductor { ";
    for (int i = 0; i < 50; ++i) ok += "} ";
    Ctf d(ok);
    EXPECT_NO_THROW(d.ci.processElem());
}

}  // namespace
