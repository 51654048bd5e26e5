// The reduced stack built by hand (its plate profile, plates merged across conductors; expected
// plates worked out from the layer heights), and the process database reader: the running
// height, the derived coat offsets and via heights, the multi-mask tables against the layer map's
// mask ids, and the reduced stack read from a file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "runtime/pargument.h"
#include "tech_test_util.h"
#include "technology/minictf.h"
#include "technology/process_info.h"

using Plates = std::vector<std::pair<double, double>>;

namespace {

void expectPlates(const MCTF::MiniCTF& ctf, const Plates& want) {
    ASSERT_EQ(ctf.plates.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_NEAR(ctf.plates[i].first, want[i].first, 1e-9) << "plate " << i;
        EXPECT_NEAR(ctf.plates[i].second, want[i].second, 1e-12) << "plate " << i;
    }
}

// Reads technology files written to a folder of its own; every read starts from an empty argument
// table and the test ends with one, so that switches set by one test never reach another.
class ProcessInfoRead : public testing::Test {
protected:
    void SetUp() override {
        dir = std::filesystem::path(testing::TempDir()) / ("tech_" + std::to_string(getpid()));
        std::filesystem::create_directories(dir);
    }
    void TearDown() override {
        PARG::clear();
        std::filesystem::remove_all(dir);
    }
    // Writes `text` to `name` in the test's folder; returns its path.
    std::string write(const std::string& name, const std::string& text) {
        std::ofstream(dir / name) << text;
        return (dir / name).string();
    }
    // Reads `ctf` into a fresh database under exactly `switches`, after the tech layer map `map`
    // when one is given; returns the status and keeps what was logged.
    int read(const std::string& ctf,
             const std::vector<std::pair<std::string, std::string>>& switches = {},
             const std::string& map = "") {
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
    // Reads `text` into `stack`; returns the text of what stopped the read, or "" when nothing did.
    std::string readStack(const std::string& text, MCTF::MiniCTF& stack) {
        std::string what;
        testing::internal::CaptureStdout();
        try {
            stack.parseCtf(write("s.ctf", text));
        } catch (const std::runtime_error& e) {
            what = e.what();
        }
        logged = testing::internal::GetCapturedStdout();
        return what;
    }
    const Conductor& conductor(const std::string& name) {
        return info->conductors.at(info->conductor_index.at(name));
    }

    std::filesystem::path dir;
    std::unique_ptr<ProcessInfo> info;
    std::string logged;
};

}  // namespace

TEST_F(ProcessInfoRead, RunningHeightStacksDielectricsNotConductors) {
    ASSERT_EQ(read("dielectric D0 { thickness 1 er 4 }\n"
                   "conductor M1 { rho 0.02 thickness 0.5 }\n"
                   "conductor M2 { rho 0.02 thickness 0.25 bottom_diel_thickness 0.1 "
                   "bottom_diel_er 3.0 }\n"
                   "dielectric C1 { thickness 0.5 er 7 bottom M1 bottom M2 side_thickness 0.01 "
                   "top_thickness 0.02 }\n"
                   "dielectric C2 { thickness 0 er 5 bottom M1 side_thickness 0.03 "
                   "top_thickness 0.04 }\n"
                   "conductor M3 { rho 0.02 thickness 0.2 }\n"
                   "dielectric D1 { thickness 2 er 3 }\n"
                   "via V1 { bottom M1 top M3 rpv 1 via_size 0.1 }\n"
                   "via V0 { bottom substrate top M1 rpv 1 via_size 0.1 }\n"),
              1)
        << logged;
    // M2 stands on its bottom dielectric; the coat with thickness raised the height for M3.
    EXPECT_TRUE(
        tech_test::near({conductor("M1").base, conductor("M2").base, info->dielectrics.at(1).base,
                         conductor("M3").base, info->dielectrics.at(3).base},
                        {1.0, 1.1, 1.0, 1.5, 1.5}));
    EXPECT_EQ(info->layer_order,
              (std::vector<std::string>{"D0", "M1", "M2", "C1", "C2", "M3", "D1"}));
    // Coats of M1 inner first: C1 at offset 0, C2 outside it by C1's thicknesses.
    EXPECT_EQ(conductor("M1").conformal_ids, (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(conductor("M1").conformal_side_offsets, (std::vector<double>{0.0, 0.01}));
    EXPECT_EQ(conductor("M1").conformal_top_offsets, (std::vector<double>{0.0, 0.02}));
    // Vias run from the top of the bottom conductor to the base of the top one.
    const Via &v1 = info->vias[info->via_index.at("V1")],
              &v0 = info->vias[info->via_index.at("V0")];
    EXPECT_TRUE(tech_test::near({v1.base, v1.thickness, v0.base, v0.thickness}, {1.5, 0, 0, 1}));
}

TEST_F(ProcessInfoRead, ReducedStackFromAFileAndItsTwoStops) {
    MCTF::MiniCTF ctf, none, bad;
    ASSERT_EQ(readStack("dielectric D0 { thickness 1 er 4 }\n"
                        "conductor M1 { rho 0.02 thickness 0.5 wmin 0.05 smin 0.06 side_tan 0.1 }\n"
                        "dielectric D1 { thickness 0.5 er 3 }\n"
                        "dielectric C { thickness 0 er 7 bottom M1 side_thickness 0.01 }\n",
                        ctf),
              "");
    ASSERT_TRUE(ctf.conductors.size() == 1 && ctf.conductors[0]->conformals.size() == 1);
    const auto& m1 = *ctf.conductors[0];
    // An absent top thickness of the coat reads 0.
    EXPECT_TRUE(
        tech_test::near({m1.z_bottom, m1.z_top, m1.side_tan, m1.conformals[0]->top_thickness},
                        {1.0, 1.5, 0.1, 0.0}));
    EXPECT_EQ(ctf.plates, (std::vector<std::pair<double, double>>{{0, 4}, {1, 3}, {1.5, 1}}));

    EXPECT_NE(readStack("conductor M1 { rho 0.02 thickness 0.5 }\n", none), "");
    const std::string what = readStack(
        "dielectric D0 { thickness 1 er 4 }\nconductor M1 { rho 0.02 thickness 0.5 }\n"
        "dielectric C { thickness 0 er 7 bottom M7 side_thickness 0.01 }\n",
        bad);
    EXPECT_NE(what.find("\"M7\""), std::string::npos) << what << logged;
}

TEST_F(ProcessInfoRead, MaskIdsKeepTheMultiMaskTablesOtherwiseTheyActAsPlainTables) {
    const std::string ctf =
        "dielectric D0 { thickness 1 er 4 }\n"
        "conductor M1 { rho 0.02 thickness 0.5\n"
        " width_var_from_ws { nmask 2 mask (1 1) (1 2) (2 1) (2 2) {\n"
        "   widths { 1 } spacings { 1 } values { 0.07 } } } }\n";
    const std::string map = "conducting_layers\nm1_gds M1 MASK=2\n";
    ASSERT_EQ(read(ctf, {}, map), 1) << logged;
    const Conductor& m1 = conductor("M1");
    ASSERT_TRUE(m1.cap_mask_etch.size() == 1 && m1.res_mask_etch.size() == 1 &&
                m1.cap_etch.empty() && m1.res_etch.empty() && m1.needs_cap_modeling == 1);
    EXPECT_EQ(m1.cap_mask_etch[0]->rule, 1);  // the legacy rule is the default

    ASSERT_EQ(read(ctf, {{"MULTIMASK_ETCH_LEGACY_RULE", "0"}}, map), 1);
    EXPECT_EQ(conductor("M1").res_mask_etch.at(0)->rule, 0);

    ASSERT_EQ(read(ctf), 1) << logged;
    EXPECT_TRUE(conductor("M1").cap_mask_etch.empty() && conductor("M1").res_mask_etch.empty());
    EXPECT_EQ(conductor("M1").cap_etch.size() + conductor("M1").res_etch.size(), 2u);
}

TEST(MiniCtfStack, BuildsSubstratePointersPlatesAndCoats) {
    MCTF::MiniCTF ctf;
    ctf.appendConductor("M1", 0.3, 0.1, 0.05, 0.06, 0.1);
    ctf.appendConductor("M2", 0.6, 0.2);
    ctf.appendDielectric("IMD1", 0.0, 0.5, 4.0);
    ctf.appendDielectric("CONF", 0.4, 0.0, 7.0, 0.01, 0.02, -1.0, {"M1", "M2"});
    ctf.appendDielectric("IMD2", 0.5, 0.5, 2.5);
    ctf.finishStack();

    EXPECT_TRUE(ctf.substrate_ref == &ctf.substrate && ctf.conductors.at(1)->id == 1);
    EXPECT_EQ(ctf.substrate.name + std::to_string(ctf.substrate.id), "substrate-1");
    EXPECT_DOUBLE_EQ(ctf.substrate.z_bottom + ctf.conductors[0]->z_top, -0.1 + 0.4);
    // The zero-thickness coat stands in the lists of both its conductors but gives no plate.
    ASSERT_TRUE(ctf.dielectrics.size() == 3 && ctf.conductors[1]->conformals.size() == 1);
    EXPECT_EQ(ctf.conductors[1]->conformals[0]->name, "CONF");
    expectPlates(ctf, {{0.0, 4.0}, {0.5, 2.5}, {1.0, 1.0}});
}

TEST(MiniCtfStack, MergePlateGivesConductorsTheThicknessWeightedMean) {
    // Three plates 0-1 (er 4), 1-2 (er 2), 2-3 (er 3) under air; conductors as (base, thickness).
    const double m2 = (0.5 * 3.0 + 0.5 * 2.0 + 0.5 * 3.0) / 1.5;
    const std::pair<Plates, Plates> cases[] = {
        // 0.5-2.5: 0.5 of er 4, 1.0 of er 2, 0.5 of er 3.
        {{{0.5, 2.0}},
         {{0.0, 4.0}, {0.5, (0.5 * 4 + 1.0 * 2 + 0.5 * 3) / 2.0}, {2.5, 3.0}, {3.0, 1.0}}},
        // Later conductors see the earlier merges: 0.5-1.5 gives 3.0, then 1.0-2.5 lies over
        // 0.5 of that 3.0, 0.5 of er 2 and 0.5 of er 3.
        {{{0.5, 1.0}, {1.0, 1.5}}, {{0.0, 4.0}, {0.5, 3.0}, {1.0, m2}, {2.5, 3.0}, {3.0, 1.0}}},
        // Reaching through the top moves the marker; ending at the top keeps it there.
        {{{2.5, 1.0}}, {{0.0, 4.0}, {1.0, 2.0}, {2.0, 3.0}, {2.5, 3.0}, {3.5, 1.0}}},
        {{{2.5, 0.5}}, {{0.0, 4.0}, {1.0, 2.0}, {2.0, 3.0}, {2.5, 3.0}, {3.0, 1.0}}},
        // On a boundary the permittivity at the key is overwritten by what stood above it (2.0);
        // 4e-7 thick lies below the 1e-6 grid: a new key whose tiny segment lies in er 2.0.
        {{{1.0, 0.0}, {1.5, 0.0000004}},
         {{0.0, 4.0}, {1.0, 2.0}, {1.5, 2.0}, {2.0, 3.0}, {3.0, 1.0}}},
        // Heights are compared on the micro grid: keys 1e6 and 2e6 after rounding.
        {{{0.9999996, 1.0000008}}, {{0.0, 4.0}, {1.0, 2.0}, {2.0, 3.0}, {3.0, 1.0}}},
    };
    for (const auto& [conductors, want] : cases) {
        MCTF::MiniCTF ctf;
        ctf.appendDielectric("D0", 0.0, 1.0, 4.0);
        ctf.appendDielectric("D1", 1.0, 1.0, 2.0);
        ctf.appendDielectric("D2", 2.0, 1.0, 3.0);
        for (std::size_t i = 0; i < conductors.size(); ++i)
            ctf.appendConductor("M" + std::to_string(i + 1), conductors[i].first,
                                conductors[i].second);
        ctf.finishStack();
        ctf.mergePlate();
        SCOPED_TRACE("case with first conductor at " + std::to_string(conductors[0].first));
        expectPlates(ctf, want);
    }
}
