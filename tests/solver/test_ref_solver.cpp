// The external route: ref text, the run of an outside program through temporary files, the scan
// of its charges, and the dispatch of a non-positive precision, against a stand-in script.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "ref_solver_stub.h"
#include "solver/api_wrapper.h"
#include "solver/file_utils.h"
#include "solver/net_manager.h"
#include "solver/parser.h"

namespace {

using RW2D::Rectangle;

std::string slurp(const std::string& path) {
    std::ifstream f(path);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

// A stand-in solver: copies its input beside the tests and writes a fixed charge report to the
// file after "-o". Its arguments are checked by the shell: anything but the reference solver's
// six flags first makes it fail.
struct StandIn {
    // Per process: the test runner may run these tests side by side.
    std::string script = "/tmp/karven_ref_standin" + std::to_string(getpid()) + ".sh";
    std::string seen = "/tmp/karven_ref_standin" + std::to_string(getpid()) + ".in";
    explicit StandIn(const std::string& report, int status = 0) {
        std::ofstream f(script);
        f << "#!/bin/sh\n"
          << "[ \"$1 $2 $3 $4 $5 $6\" = \"-n -N -x -y -z -t\" ] || exit 3\n"
          << "cp \"$7\" " << seen << "\n"
          << "[ \"$8\" = \"-o\" ] || exit 4\n"
          << "cat > \"$9\" <<'END'\n"
          << report << "END\n"
          << "exit " << status << "\n";
        f.close();
        chmod(script.c_str(), 0755);
        RW2D::FileUtils::set_ref_solver_binary_for_tests(script);
    }
    ~StandIn() {
        RW2D::FileUtils::set_ref_solver_binary_for_tests("");
        std::remove(script.c_str());
        std::remove(seen.c_str());
    }
};

const std::vector<std::array<double, 4>> kWires = {{0, 1, 1, 1.5}, {2, 1, 3, 1.5}, {4, 1, 5, 1.5}};
const std::array<double, 4> kWindow = {-5, 0, 10, 4};

}  // namespace

TEST(RefText, BoxesAreClippedAndDegenerateOnesLeaveOnlyTheLineEnd) {
    const Rectangle win(0, 10, 5, 0);
    // Centre and size by hand: x 2..10 (clipped from 12), y 1..5 (clipped from 7).
    EXPECT_EQ(RW2D::NetManager::format_ref(Rectangle(2, 12, 7, 1), "a", " X;", win),
              "BOX NAME=a; CX=6; CY=3; W=8; H=4; X;");
    // Touching the window's right side only: zero width, nothing written.
    EXPECT_EQ(RW2D::NetManager::format_ref(Rectangle(10, 12, 3, 1), "b", ";", win), "");
    // Wholly outside: written as it is, with a negative width.
    EXPECT_EQ(RW2D::NetManager::format_ref(Rectangle(12, 14, 3, 1), "c", "", win),
              "BOX NAME=c; CX=11; CY=2; W=-2; H=2;");
}

TEST(RefText, StructureInOrder) {
    const std::vector<Rectangle> wires = {Rectangle(0, 1, 2, 1), Rectangle(2, 3, 2, 1)};
    const std::vector<std::array<double, 2>> layers = {{0, 3.9}, {3, 2.5}};
    const std::vector<std::pair<double, Rectangle>> diel = {{7.0, Rectangle(0, 1, 1, 0.5)}};
    const std::string text = RW2D::ref_text(wires, layers, diel, Rectangle(-1, 4, 4, 0), -0.02);
    EXPECT_EQ(text,
              "WINDOW X1=-1; Y1=0; X2=4; Y2=4;\n"
              "BOX NAME=dielno0; CX=1.5; CY=1.5; W=5; H=3; DIEL=3.900000;\n"
              "BOX NAME=dielno1; CX=1.5; CY=3.5; W=5; H=1; DIEL=2.500000;\n"
              "BOX NAME=dielno2; CX=0.5; CY=0.75; W=1; H=0.5; DIEL=7.000000;\n"
              "BOX NAME=cond0; CX=0.5; CY=1.5; W=1; H=1; VOLT=1;\n"
              "BOX NAME=cond1; CX=2.5; CY=1.5; W=1; H=1; VOLT=0;\n"
              "OPTIONS SET_GRID=80000;\nOPTIONS MAX_REGRID=4;\nOPTIONS FAC_REGRID=4;\n"
              "OPTIONS REGRID_TOL=2;\nPOTENTIAL\n");
}

TEST(RefOutput, ChargeScan) {
    const std::string out =
        "header\nCharge on cond1 (C/m) =  -2.5e-17\nnoise = 7\nCharge on cond0 =1e-16 end\n";
    const std::vector<double> q = RW2D::scan_ref_charges(out, 3);
    ASSERT_EQ(q.size(), 3u);
    EXPECT_DOUBLE_EQ(q[0], 0.1);
    EXPECT_DOUBLE_EQ(q[1], -0.025);
    EXPECT_EQ(q[2], 0.0);
    // No charge lines at all is not an error: all zeros.
    EXPECT_EQ(RW2D::scan_ref_charges("nothing here\n", 2), std::vector<double>(2, 0.0));
    // A negative index stops the scan before anything behind it is read.
    EXPECT_EQ(RW2D::scan_ref_charges("Charge on cond-1 = 1\nCharge on cond0 = 1\n", 1)[0], 0.0);
    EXPECT_THROW(RW2D::scan_ref_charges("Charge on cond5 = 1e-15\n", 2), std::out_of_range);
}

TEST(RunBinary, ReturnsOutputAndLeavesNoTemporaryFiles) {
    // A program that copies its input file to its output file: a round trip of the text.
    const std::string text = "line one\nline two\n";
    EXPECT_EQ(RW2D::FileUtils::run_binary_with_string_io("sh -c 'cp \"$0\" \"$2\"'", text, ""),
              text);
    try {
        RW2D::FileUtils::run_binary_with_string_io("false", text, " --x");
        FAIL() << "a failing command must throw";
    } catch (const std::runtime_error& e) {
        const std::string msg = e.what();
        EXPECT_EQ(msg.rfind("Command failed: false /tmp/tmprw2dfdmin", 0), 0u) << msg;
        EXPECT_NE(msg.find(" -o /tmp/tmprw2dfdmout"), std::string::npos);
        EXPECT_NE(msg.find(" --x >/dev/null 2>&1"), std::string::npos);
        // The named temporary files are gone again.
        const std::string in = msg.substr(msg.find("/tmp/"), 25);
        struct stat st;
        EXPECT_NE(stat(in.c_str(), &st), 0) << in;
    }
    EXPECT_EQ(RW2D::FileUtils::join_path("a/b", "c.txt"), "a/b/c.txt");
}

TEST(ExternalRoute, NonPositivePrecisionRunsTheReferenceSolver) {
    StandIn stand_in("Charge on cond0 = 1.25e-16 C\nCharge on cond2 = -4e-17 C\n");
    const std::vector<double> r =
        RW2D_API::extract_capacitance(kWires, {{0, 3.9}}, {}, kWindow, 0.0, 1);
    // N values, no variances; cond1 is not in the report and stays 0.
    ASSERT_EQ(r.size(), 3u);
    EXPECT_DOUBLE_EQ(r[0], 0.125);
    EXPECT_EQ(r[1], 0.0);
    EXPECT_DOUBLE_EQ(r[2], -0.04);
    // The solver saw the structure's ref text with the tolerance of the precision.
    const std::string seen = slurp(stand_in.seen);
    EXPECT_EQ(seen.rfind("WINDOW X1=-5; Y1=0; X2=10; Y2=4;\n", 0), 0u) << seen;
    EXPECT_NE(seen.find("BOX NAME=cond2; CX=4.5; CY=1.25; W=1; H=0.5; VOLT=0;"), std::string::npos);
    EXPECT_NE(seen.find("OPTIONS REGRID_TOL=0;"), std::string::npos);

    // A negative precision takes the same road, with |precision*100| as the tolerance.
    EXPECT_EQ(RW2D_API::extract_capacitance(kWires, {{0, 3.9}}, {}, kWindow, -0.01, 1).size(), 3u);
    EXPECT_NE(slurp(stand_in.seen).find("OPTIONS REGRID_TOL=1;"), std::string::npos);
}

TEST(ExternalRoute, FailingSolverGivesEmptyResult) {
    StandIn stand_in("Charge on cond0 = 1e-16\n", 2);
    EXPECT_TRUE(RW2D_API::extract_capacitance(kWires, {{0, 3.9}}, {}, kWindow, 0.0, 1).empty());
    RW2D::FileUtils::set_ref_solver_binary_for_tests("/nonexistent/refsolver2d");
    EXPECT_TRUE(RW2D_API::extract_capacitance(kWires, {{0, 3.9}}, {}, kWindow, 0.0, 1).empty());
}
