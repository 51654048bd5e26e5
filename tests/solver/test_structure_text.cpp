// Structure files: the file route of the solver against the in-memory route.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "solver/config.h"
#include "solver/mc_manager.h"
#include "solver/net_manager.h"

namespace {

using RW2D::Rectangle;

// Two wires over one full-width layer of 3.9; the second conductor is listed first by name.
const char* kTwoWires =
    "m 4 0 1 1 1 1 1.5 0 1.5\n"
    "1 a 4 2 1 3 1 3 1.5 2 1.5\n"
    "1 ox 4 -5 0 10 0 10 4 -5 4 3.9\n"
    "4 -5 0 10 0 10 4 -5 4\n";

}  // namespace

TEST(StructureText, FileAndMemoryRoutesAgreeWithinErrorBars) {
    const std::string path = testing::TempDir() + "karven_st_" + std::to_string(getpid()) + ".txt";
    std::ofstream(path) << kTwoWires;
    RW2D::Config c;
    c.mc.precision = 0.02;
    c.report_named = true;
    std::vector<RW2D::online_table_manager> tables(1);
    RW2D::MCManager a;
    std::istringstream report(a.estimate(path, tables, c));
    std::remove(path.c_str());
    std::map<std::string, double> file;
    std::string name, colon;
    double v;
    while (report >> name >> colon >> v) file[name] = v;
    ASSERT_EQ(file.size(), 2u);

    c.mc.seed = 1234;
    RW2D::MCManager b;
    const std::vector<double> mem = b.estimate({Rectangle(0, 1, 1.5, 1), Rectangle(2, 3, 1.5, 1)},
                                               {{0, 3.9}}, {}, Rectangle(-5, 10, 4, 0), c);
    ASSERT_EQ(mem.size(), 4u);
    // Both estimates carry about the same error: compare against 4 combined sigmas.
    EXPECT_NEAR(file["m"], mem[0], 4 * std::sqrt(2 * mem[2]));
    EXPECT_NEAR(file["a"], mem[1], 4 * std::sqrt(2 * mem[3]));
    EXPECT_GT(file["m"], 0.0);
    EXPECT_LT(file["a"], 0.0);
}
