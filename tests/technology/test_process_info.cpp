// The process database reader: the running height, the top-level rules, wafer-side selection,
// the derived coat offsets and via heights, the two layer map files, and the reduced stack.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "runtime/pargument.h"
#include "tech_test_util.h"
#include "technology/ctf_error.h"
#include "technology/minictf.h"
#include "technology/process_info.h"

namespace fs = std::filesystem;

namespace {

const char* const kTsv =
    "tsv T1 { bottom M1 top BM1 via_size 5 rho 0.02 thickness 50 insulation_thickness 0.2 "
    "insulation_er 3.9 }\n";

class ProcessInfoRead : public tech_test::FileTest {
protected:
    // Reads `ctf` into `into`; returns the status and keeps what was logged.
    int read(const std::string& ctf, ProcessInfo& into) {
        Task task;
        task.ctf_file = write("t.ctf", ctf);
        testing::internal::CaptureStdout();
        int status = into.parseCtfwithInterpreter(task);
        logged = testing::internal::GetCapturedStdout();
        return status;
    }
    int read(const std::string& ctf) { return read(ctf, info); }
    const Conductor& conductor(const std::string& name) {
        return info.conductors.at(info.conductor_index.at(name));
    }

    ProcessInfo info;
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
    EXPECT_DOUBLE_EQ(conductor("M1").base, 1.0);
    EXPECT_DOUBLE_EQ(conductor("M2").base, 1.1);  // same height plus its bottom dielectric
    EXPECT_DOUBLE_EQ(info.dielectrics[1].base, 1.0);
    EXPECT_DOUBLE_EQ(conductor("M3").base, 1.5);  // the coat with thickness raised the height
    EXPECT_DOUBLE_EQ(info.dielectrics.at(3).base, 1.5);
    EXPECT_EQ(info.layer_order,
              (std::vector<std::string>{"D0", "M1", "M2", "C1", "C2", "M3", "D1"}));
    // Coats of M1 inner first: C1 at offset 0, C2 outside it by C1's thicknesses.
    EXPECT_EQ(conductor("M1").conformal_ids, (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(conductor("M1").conformal_side_offsets, (std::vector<double>{0.0, 0.01}));
    EXPECT_EQ(conductor("M1").conformal_top_offsets, (std::vector<double>{0.0, 0.02}));
    // Vias run from the top of the bottom conductor to the base of the top one.
    const Via& v1 = info.vias[info.via_index.at("V1")];
    EXPECT_DOUBLE_EQ(v1.base, 1.5);
    EXPECT_DOUBLE_EQ(v1.thickness, 0.0);
    const Via& v0 = info.vias[info.via_index.at("V0")];
    EXPECT_DOUBLE_EQ(v0.base, 0.0);
    EXPECT_DOUBLE_EQ(v0.thickness, 1.0);
}

TEST_F(ProcessInfoRead, ReducedStackFromAFileAndItsTwoStops) {
    MCTF::MiniCTF ctf;
    std::string path =
        write("s.ctf",
              "dielectric D0 { thickness 1 er 4 }\n"
              "conductor M1 { rho 0.02 thickness 0.5 wmin 0.05 smin 0.06 side_tan 0.1 }\n"
              "dielectric D1 { thickness 0.5 er 3 }\n"
              "dielectric C { thickness 0 er 7 bottom M1 side_thickness 0.01 }\n");
    testing::internal::CaptureStdout();
    ctf.parseCtf(path);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(ctf.conductors.size(), 1u);
    EXPECT_DOUBLE_EQ(ctf.conductors[0]->z_bottom, 1.0);
    EXPECT_DOUBLE_EQ(ctf.conductors[0]->z_top, 1.5);
    EXPECT_DOUBLE_EQ(ctf.conductors[0]->side_tan, 0.1);
    ASSERT_EQ(ctf.conductors[0]->conformals.size(), 1u);
    EXPECT_DOUBLE_EQ(ctf.conductors[0]->conformals[0]->top_thickness, 0.0);  // absent: 0
    EXPECT_EQ(ctf.plates, (std::vector<std::pair<double, double>>{{0, 4}, {1, 3}, {1.5, 1}}));

    // Returns the text of what stopped the read, or "" when nothing did.
    auto stopOf = [&](const std::string& file, const std::string& text) {
        MCTF::MiniCTF stack;
        std::string what;
        testing::internal::CaptureStdout();
        try {
            stack.parseCtf(write(file, text));
        } catch (const std::runtime_error& e) {
            what = e.what();
        }
        logged = testing::internal::GetCapturedStdout();
        return what;
    };
    EXPECT_NE(stopOf("n.ctf", "conductor M1 { rho 0.02 thickness 0.5 }\n"), "");
    std::string bad = stopOf("b.ctf",
                             "dielectric D0 { thickness 1 er 4 }\n"
                             "conductor M1 { rho 0.02 thickness 0.5 }\n"
                             "dielectric C { thickness 0 er 7 bottom M7 side_thickness 0.01 }\n");
    EXPECT_NE(bad.find("\"M7\""), std::string::npos) << bad << logged;
}
