// CTF element framework: each generic element form with good input and with each of its error
// texts (token, line and position worked out by hand), the table head and body, the rebinding of
// "(" inside maps, and the keyword table.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tech_test_util.h"
#include "technology/ctf_element.h"

namespace {

using namespace tech_test;
using Strings = std::vector<std::string>;

// Reads the element at the cursor as T, then steps to the next element.
template <class T>
T* next(Reader& r) {
    auto* p = dynamic_cast<T*>(r.ci.processElem());
    EXPECT_NE(p, nullptr);
    r.ci.stream.next();
    return p;
}

TEST(CtfForms, GoodInputAndTheCursorOnTheLastToken) {
    Reader r(
        "is_gate thickness 0.25 er 1e5x rho 2-3 layer_type GATE top {\n"
        "widths { 1 2.5 -3 } spacings { } device_type { nmos { pmos }\n"
        "( 1 -2 3e1 ) ()\n"
        "crt_area { (1 2) (3 4 5) } crt_siwidth { (1 2) (3 4) } er_sispacing { }\n"
        "gate_diffusion_layer_pair { (g1 d1) (g2 d2) } gate2diffusion_adjust g { a { b } { } c }");
    EXPECT_EQ(next<CtfStandalone>(r)->keyword, "is_gate");
    auto* n = next<CtfNumberAttri>(r);
    EXPECT_EQ(n->keyword, "thickness");
    EXPECT_DOUBLE_EQ(n->value, 0.25);
    EXPECT_DOUBLE_EQ(next<CtfNumberAttri>(r)->value, 1e5);  // a leading number is enough
    EXPECT_DOUBLE_EQ(next<CtfNumberAttri>(r)->value, 2.0);
    EXPECT_EQ(next<CtfStringAttri>(r)->value, "GATE");
    EXPECT_EQ(next<CtfStringAttri>(r)->value, "{");  // any token is a string value
    EXPECT_EQ(r.ci.stream.current, 11u);

    auto* v = next<CtfVector>(r);
    EXPECT_EQ(v->keyword, "widths");
    EXPECT_EQ(v->values, (std::vector<double>{1, 2.5, -3}));
    EXPECT_EQ(v->isAscent(), 0);
    v = next<CtfVector>(r);  // the same processor, cleared
    EXPECT_EQ(v->keyword, "spacings");
    EXPECT_TRUE(v->values.empty());
    EXPECT_EQ(v->isAscent(), 1);
    EXPECT_EQ(next<CtfStringVector>(r)->values, (Strings{"nmos", "{", "pmos"}));
    EXPECT_EQ(r.ci.stream.current, 26u);

    EXPECT_EQ(next<CtfTuple>(r)->values, (std::vector<double>{1, -2, 30}));
    EXPECT_TRUE(next<CtfTuple>(r)->values.empty());
    auto* t = next<CtfTuplevector>(r);
    EXPECT_EQ(t->tuples, (std::vector<std::vector<double>>{{1, 2}, {3, 4, 5}}));
    EXPECT_EQ(t->checkDim(2), 0);
    EXPECT_EQ(next<CtfTuplevector>(r)->checkDim(2), 1);
    EXPECT_EQ(next<CtfTuplevector>(r)->checkDim(7), 1);  // an empty table passes
    EXPECT_EQ(r.ci.stream.current, 59u);

    EXPECT_EQ(next<CtfStrPairVector>(r)->pairs,
              (std::vector<std::pair<std::string, std::string>>{{"g1", "d1"}, {"g2", "d2"}}));
    auto* d = dynamic_cast<CtfDummystruct*>(r.ci.processElem());
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->keyword + " " + d->name, "gate2diffusion_adjust g");
    EXPECT_EQ(r.ci.stream.current, r.ci.stream.tokens.size() - 1);

    // A named vector, whose equal neighbours still ascend; a brace must follow the name.
    Reader named("widths w1 { 1 1 2 } widths w2 widths { 3 }");
    dynamic_cast<CtfVector*>(named.ci.processorOf("CtfVector"))->has_name = 1;
    v = next<CtfVector>(named);
    EXPECT_EQ(v->name, "w1");
    EXPECT_EQ(v->isAscent(), 1);
    EXPECT_EQ(named.error(), at("widths", 1, 20, kBrace));
}

TEST(CtfForms, ErrorTextsWithTokenLineAndPosition) {
    const char* number = "expecting number value for the attribute";
    const char* vector_end = "cannot find the end of the vector";
    const char* tuple_end = "cannot find the end of the tuple";
    const char* tuple_number = "invalid tuple element detected (only number value is allowed)";
    const std::string pair = "gate_diffusion_layer_pair ";  // 26 bytes
    struct Case {
        std::string text, token;
        int line, pos;
        const char* message;
    };
    const Case cases[] = {
        {"\n  thickness", "thickness", 2, 2, "expecting attribute value"},
        {"thickness { 1 }", "{", 1, 10, number},
        {"er\n\t abc", "abc", 2, 2, number},
        {"er 1e999", "1e999", 1, 3, number},
        {"\n layer_type\n", "layer_type", 2, 1, "expecting attribute value"},
        {" widths", "widths", 1, 1, kBrace},
        {"widths w1 { 1 }", "widths", 1, 0, kBrace},  // no name allowed
        {"widths { 1 x }", "x", 1, 11,
         "invalid vector elements detected (only number value is allowed)"},
        {"widths { 1\n 2", "2", 2, 1, vector_end},
        {"device_type nmos", "device_type", 1, 0, kBrace},
        {"device_type { a", "a", 1, 14, vector_end},
        {"\n\n    (", "(", 3, 4, "expecting tuple elements"},
        {"(1 a)", "a", 1, 3, tuple_number},
        {"( 1 2", "2", 1, 4, tuple_end},
        {"crt_area (1 2)", "crt_area", 1, 0, kBrace},
        {"crt_area { (1 2)\n is_gate }", "is_gate", 2, 1,
         "expecting tuple beginning with LEFT PARENTHESIS"},
        {"crt_area { 5 }", "5", 1, 11, "unknown keyword"},
        {"crt_area { (1 x) }", "x", 1, 14, tuple_number},
        {"crt_area { (1 2)", ")", 1, 15, vector_end},
        {"er_table ( a 1 )", "er_table", 1, 0, kBrace},
        {"er_table {\n is_gate }", "is_gate", 2, 1,
         "expecting key-value pairs beginning with LEFT PARENTHESIS"},
        {"er_table { (", "(", 1, 11, "expecting key name"},
        {"er_table { ( a", "a", 1, 13, "expecting value"},
        {"er_table { ( a b )", "b", 1, 15, "invalid value (only numbers are allowed)"},
        {"er_table { ( a 1", "1", 1, 15, tuple_end},
        {"er_table { ( a 1 2 ) }", "2", 1, 17, tuple_end},
        {"er_table { (a 1)", ")", 1, 15, vector_end},
        {pair + "(g d)", "gate_diffusion_layer_pair", 1, 0, kBrace},
        {pair + "{ is_gate }", "is_gate", 1, 28,
         "expecting string tuple beginning with LEFT PARENTHESIS"},
        {pair + "{ (", "(", 1, 28, "expecting string"},
        {pair + "{ ( g1", "g1", 1, 30, "expecting second string"},
        {pair + "{ ( g1 d1", "d1", 1, 33, tuple_end},
        {pair + "{ ( g1 d1 x ) }", "x", 1, 36, "only two string elements are allowed in the tuple"},
        {pair + "{ (g d)", ")", 1, 32, vector_end},
        {"tall_via_config { a { b }", "}", 1, 24, "cannot find the end of the table"},
        {"tall_via_config x y", "y", 1, 18, "expecting table content beginning with LEFT BRACE"},
        {"\n  foo { }", "foo", 2, 2, "unknown keyword"},
        {"etch 1", "etch", 1, 0, "unknown keyword"},  // not in the table
    };
    for (const Case& c : cases)
        EXPECT_EQ(errorOf(c.text), at(c.token, c.line, c.pos, c.message)) << c.text;
}

TEST(CtfForms, KeyValueMapRebindsParenthesisOnEveryExit) {
    Reader r("er_table { (a 1) (b 2) (a 3) } ( 4 )");
    ElementProcessor* tuple = r.ci.processorOf("CtfTuple");
    EXPECT_EQ(next<CtfTuplemap>(r)->entries,
              (std::unordered_map<std::string, double>{{"a", 3}, {"b", 2}}));
    EXPECT_EQ(r.ci.stream.current, 15u);
    EXPECT_EQ(r.ci.boundTo("("), tuple);
    EXPECT_EQ(r.read<CtfTuple>()->values, std::vector<double>{4});

    // With "(" unbound before, it is unbound after.
    Reader unbound("er_table { (a 1) }");
    unbound.ci.keyword_table.erase("(");
    EXPECT_EQ(unbound.read<CtfTuplemap>()->entries.at("a"), 1.0);
    EXPECT_EQ(unbound.ci.keyword_table.count("("), 0u);

    // An error inside the map also gives "(" back.
    Reader bad("er_table { (a x) }");
    EXPECT_NE(bad.error(), "no error");
    EXPECT_EQ(bad.ci.boundTo("("), bad.ci.processorOf("CtfTuple"));
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
    Reader r("tbl T1 { thickness 2 widths { 1 2 } } tbl { }");
    r.ci.regKeyword("tbl", &table);
    EXPECT_EQ(next<RecordingTable>(r), &table);
    EXPECT_EQ(table.keyword + " " + table.name, "tbl T1");
    EXPECT_EQ(table.fields, (Strings{"thickness=2.000000", "widths[2]"}));
    EXPECT_EQ(r.ci.stream.current, 11u);
    r.ci.processElem();
    EXPECT_EQ(table.name, "");  // the name of the last use is gone

    auto tableError = [&](const std::string& text, int named) {
        Reader e(text);
        table.has_name = named;
        e.ci.regKeyword("tbl", &table);
        return e.error();
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

    Reader w("tbl {\n   is_gate }");
    w.ci.regKeyword("tbl", &table);
    testing::internal::CaptureStdout();
    w.ci.processElem();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), unsupported("is_gate", 2, 3));
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
        {"CtfRPV_Area", "rpv_vs_area"}};
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

    // regKeyword inserts or overwrites, without taking ownership.
    CtfStandalone extra;
    ci.regKeyword("thickness", &extra);
    ci.regKeyword("brand_new", &extra);
    EXPECT_EQ(ci.boundTo("thickness"), &extra);
    EXPECT_EQ(ci.boundTo("brand_new"), &extra);
    EXPECT_EQ(ci.keyword_table.size(), 170u);
}

TEST(CtfInterpreterTest, DeepNestingIsAnErrorNotACrash) {
    std::string text;
    for (int i = 0; i < 100000; ++i) text += "crt_area { ";
    EXPECT_NE(errorOf(text), "no error");
}

}  // namespace
