// Rules the process database applies to whole statements: one thickness for all tsv layers, one
// pillar model, spacer coats on gates only, multi-mask tables against the layer map's mask ids,
// and the engine switches that drop models while the file is read.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "runtime/pargument.h"
#include "tech_test_util.h"
#include "technology/process_info.h"

namespace fs = std::filesystem;

namespace {

using Switches = std::vector<std::pair<std::string, std::string>>;

const std::string kBase = "dielectric D0 { thickness 1 er 4 }\n";
const std::string kMetal = "conductor M1 { rho 0.02 thickness 0.5 }\n";
const std::string kBackMetal = "conductor BM1 { rho 0.02 thickness 1 }\n";
const std::string kPlainEtch =
    " width_var_from_ws { widths { 1 } spacings { 1 } values { 0.01 } }\n";
const std::string kMaskEtch =
    " width_var_from_ws { nmask 2 mask (1 1) (1 2) (2 1) (2 2) {\n"
    "   widths { 1 } spacings { 1 } values { 0.07 } } }\n";
const std::string kSpacer =
    " spacer_er_from_gate_ws { widths { 0.1 0.2 } spacings { 1 } values { 5 6 } }\n";
const std::string kPillar =
    "samt_vpt P { waist_size 0.1 core_size 0.2 source_height 0.3 drain_height 0.4\n"
    " gate_height 0.5 gate_oxide_thickness 0.01 gate_oxide_er 3.9 channel_er 11.9\n"
    " gate_expansion_range 0.02 drain_layer D gate_layer G source_layer S }\n";
// Source, gate and drain stacked by the planar layers between them: 0-0.3, 0.3-0.8, 0.8-1.2.
const std::string kPillarStack =
    "conductor S { rho 0.02 thickness 0.3 }\ndielectric X1 { thickness 0.3 er 4 }\n"
    "conductor G { rho 0.02 thickness 0.5 }\ndielectric X2 { thickness 0.5 er 4 }\n"
    "conductor D { rho 0.02 thickness 0.4 }\n";

std::string metal(const std::string& body) {
    return "conductor M1 { rho 0.02 thickness 0.5\n" + body + "}\n";
}
std::string gate(const std::string& type) {
    return "conductor M1 { rho 0.02 thickness 0.1 layer_type " + type + " }\n";
}
std::string spacer(const std::string& bottom) {
    return "dielectric SP { er 7 side_thickness 0.01 bottom " + bottom + "\n" + kSpacer + "}\n";
}
const Conductor& first(const ProcessInfo& p) {
    return p.conductors.at(0);
}
std::string maskMap(int id) {
    return "conducting_layers\nm1_gds M1 MASK=" + std::to_string(id) + "\n";
}

class ProcessRules : public tech_test::FileTest {
protected:
    // Reads `ctf` into a fresh database under exactly `switches`, after the tech layer map
    // `map` when one is given; returns the status and keeps what was logged.
    int read(const std::string& ctf, const Switches& switches = {}, const std::string& map = "") {
        PARG::clear();
        for (const auto& [key, value] : switches) PARG::regArgument(key, value);
        info = std::make_unique<ProcessInfo>();
        testing::internal::CaptureStdout();
        if (!map.empty()) info->parseTechLayerMap(write("t.map", map));
        Task task;
        task.ctf_file = write("t.ctf", ctf);
        const int status = info->parseCtfwithInterpreter(task);
        logged = testing::internal::GetCapturedStdout();
        return status;
    }
    const Conductor& m1() const { return info->conductors.at(info->conductor_index.at("M1")); }

    std::unique_ptr<ProcessInfo> info;
    std::string logged;
};

TEST_F(ProcessRules, MaskIdsKeepTheMultiMaskTablesOtherwiseTheyActAsPlainTables) {
    ASSERT_EQ(read(kBase + metal(kMaskEtch), {}, maskMap(2)), 1) << logged;
    EXPECT_EQ(m1().cap_mask_etch.size(), 1u);
    EXPECT_EQ(m1().res_mask_etch.size(), 1u);
    EXPECT_TRUE(m1().cap_etch.empty() && m1().res_etch.empty());
    EXPECT_EQ(m1().cap_mask_etch[0]->rule, 1);  // the legacy rule is the default
    EXPECT_EQ(m1().needs_cap_modeling, 1);

    ASSERT_EQ(read(kBase + metal(kMaskEtch), {{"MULTIMASK_ETCH_LEGACY_RULE", "0"}}, maskMap(2)), 1);
    EXPECT_EQ(m1().res_mask_etch.at(0)->rule, 0);

    ASSERT_EQ(read(kBase + metal(kMaskEtch)), 1) << logged;
    EXPECT_TRUE(m1().cap_mask_etch.empty() && m1().res_mask_etch.empty());
    EXPECT_EQ(m1().cap_etch.size(), 1u);
    EXPECT_EQ(m1().res_etch.size(), 1u);
}

TEST_F(ProcessRules, EachDisablingSwitchDropsItsOwnModelsOnly) {
    using P = const ProcessInfo&;
    using Probe = bool (*)(P);
    struct Case {
        std::string key;
        std::string ctf;
        Probe present;
        bool counts_for_cap;  // whether the model alone makes the conductor need cap modelling
    };
    const std::string via =
        kBase + kMetal + "via V1 { bottom substrate top M1 rpv 1 via_size 0.1\n";
    const std::vector<Case> cases = {
        {"DISABLE_SIDE_TAN", kBase + metal(" side_tan 0.1\n"),
         [](P p) { return first(p).side_tan != 0; }, false},
        {"DISABLE_SIDE_TAN",
         kBase + metal(" side_tan_vs_si_width_and_spacing { widths { 1 } spacings { 1 }"
                       " values { 0.1 } }\n"),
         [](P p) { return first(p).side_tan_model != nullptr; }, true},
        {"DISABLE_CONDUCTOR_ETCH", kBase + metal(kPlainEtch),
         [](P p) { return !first(p).cap_etch.empty() || !first(p).res_etch.empty(); }, true},
        {"DISABLE_THICKNESS_VS_WS",
         kBase + metal(" thickness_var_from_ws { widths { 1 } spacings { 1 } values { 0.1 } }\n"),
         [](P p) { return first(p).cap_thickness_ws || first(p).res_thickness_ws; }, true},
        {"DISABLE_THICKNESS_POLY",
         kBase +
             metal(" thickness_var_from_polynomial { density_polynomial_orders { 0 1 }\n"
                   "   width_polynomial_orders { 0 } polynomial_coefficients { 0.01 0.02 } }\n"),
         [](P p) { return first(p).thickness_polynomial != nullptr; }, true},
        {"DISABLE_ILD_THICKNESS",
         kBase + metal(" ild_thickness_var_from_effective_ws { dielectric D0 widths { 1 }"
                       " spacings { 1 } thickness_changes { 0.1 } }\n"),
         [](P p) { return first(p).ild_model != nullptr; }, true},
        {"DISABLE_THICKNESS_VS_DENSITY",
         kBase + metal(" thickness_var_from_d capacitive_only { (0.1 0.1) }\n"),
         [](P p) { return first(p).cap_thickness_density != nullptr; }, true},
        {"DISABLE_THICKNESS_VS_DENSITY_AND_WIDTH",
         kBase + metal(" thickness_vs_density_and_width { widths { 1 } densities { 1 }"
                       " values { 0.1 } }\n"),
         [](P p) { return first(p).thickness_density_width != nullptr; }, true},
        {"DISABLE_BOTTOM_THICKNESS_VS_WIDTH",
         kBase + metal(" bottom_thickness_var_from_si_width capacitive_only { (0.1 0.1) }\n"),
         [](P p) { return first(p).cap_bottom_thickness != nullptr; }, true},
        {"DISABLE_RAISED_DIFFUSION",
         kBase + metal(" layer_type DIFFUSION raiseddiffu_thickness 0.04"
                       " raiseddiffu2gate_smin 0.02\n"),
         [](P p) { return first(p).raised_diff != nullptr; }, false},
        {"DISABLE_VIA_ETCH",
         via + " width_var_from_wl { widths { 0.1 } lengths { 0.1 } values { (0.01 0.02) } }\n}\n",
         [](P p) { return !p.vias.at(0).etch.empty(); }, false},
        {"DISABLE_VIA_ETCH",
         via + " width_var_from_contact_gate_s { num_tables 1\n   G1 { values { 0.1 }"
               " gate2contact_spacings { 1 } contact2contact_spacings { 1 } } }\n}\n",
         [](P p) { return !p.vias.at(0).gate_etch.empty(); }, false},
        {"DISABLE_SPACER_ER_VS_WS", kBase + gate("GATE") + spacer("M1"),
         [](P p) { return p.dielectrics.at(1).spacer_model != nullptr; }, false},
    };
    for (const Case& k : cases) {
        Switches others;
        for (const Case& o : cases)
            if (o.key != k.key) others.emplace_back(o.key, "1");
        for (const auto& [switches, kept] :
             {std::pair{Switches{}, true}, std::pair{Switches{{k.key, "1"}}, false},
              std::pair{others, true}}) {
            ASSERT_EQ(read(k.ctf, switches), 1) << k.key << "\n" << k.ctf << logged;
            EXPECT_EQ(k.present(*info), kept) << k.key << " set: " << switches.size();
            EXPECT_EQ(m1().needs_cap_modeling, k.counts_for_cap && kept ? 1 : 0) << k.key;
        }
    }
}

}  // namespace
