// The density file: its exact text, an exact round trip, and a loader that answers 0 and leaves the
// map alone for every truncation and for damaged files.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "pe_test_util.h"
#include "process_effects/density_map.h"

namespace {

// A fresh folder per test under the GoogleTest temporary directory.
std::filesystem::path testDir() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    const auto dir = std::filesystem::path(::testing::TempDir()) /
                     ("karven_pe_" + std::string(info->test_suite_name()) + "_" + info->name());
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir;
}

std::string readText(const std::filesystem::path& p) {
    std::ostringstream s;
    s << std::ifstream(p, std::ios::binary).rdbuf();
    return s.str();
}

// A 4 x 3 map whose cells hold awkward values: thirds, a tiny and a huge number.
DensityMap sampleMap() {
    DensityMap m(3, 5, -2, 1, 9, 9);
    m.addOverlappedPoly({{-2, 1}, {7, 1}, {-2, 8}});
    m.calculateDensity();
    m.densities[1] = 1.0 / 3.0;
    m.densities[5] = 1e-300;
    m.densities[6] = 12345678.9;
    return m;
}

TEST(DensityFile, TextOfASmallMap) {
    const auto file = testDir() / "d.txt";
    DensityMap m(3, 0, 0, 0, 5, 2);  // 2 x 1 cells
    m.addOverlappedPoly(pe_test::rect(0, 0, 3, 3));
    m.calculateDensity();
    m.densities[1] = 0.25;
    ASSERT_EQ(m.saveToFile(file.string()), 1);
    EXPECT_EQ(readText(file),
              "FRAME_LEFT 0\nFRAME_BOTTOM 0\nFRAME_RIGNT 5\nFRAME_TOP 2\nGRID_SIZE 3\n"
              "WIN_SIZE 3\nGRID_RANGE_X 2(0 - 5)\nGRID_RANGE_Y 1(0 - 2)\nDENSITIES\n"
              "\t[grid(0, 0) - grid(0, 2)]:\n\t1  0.25  \n");
}

TEST(DensityFile, RoundTripIsExact) {
    const auto dir = testDir();
    const DensityMap m = sampleMap();
    ASSERT_EQ(m.saveToFile((dir / "a.txt").string()), 1);
    DensityMap back;
    ASSERT_EQ(back.loadFromFile((dir / "a.txt").string()), 1);
    EXPECT_EQ(back.densities, m.densities);  // bit for bit
    EXPECT_EQ((std::vector<int32_t>{back.frame_left, back.frame_bottom, back.frame_right,
                                    back.frame_top, back.grid_size, back.win_size}),
              (std::vector<int32_t>{-2, 1, 9, 9, m.grid_size, m.win_size}));
    // Queries inside the frame see the same windows (the map was built without extension).
    for (int32_t x = -2; x <= 9; ++x)
        EXPECT_EQ(back.getDensity(x, 5, 4), m.getDensity(x, 5, 4)) << x;
    ASSERT_EQ(back.saveToFile((dir / "b.txt").string()), 1);
    EXPECT_EQ(readText(dir / "b.txt"), readText(dir / "a.txt"));

    ASSERT_EQ(DensityMap().saveToFile((dir / "c.txt").string()), 1);  // a map without cells
    DensityMap empty = sampleMap();
    ASSERT_EQ(empty.loadFromFile((dir / "c.txt").string()), 1);
    EXPECT_TRUE(empty.densities.empty());
}

// Each damaged or truncated text is rejected, and the map keeps what it held.
TEST(DensityFile, MalformedAndTruncatedFilesAreRejected) {
    const auto dir = testDir();
    ASSERT_EQ(sampleMap().saveToFile((dir / "good.txt").string()), 1);
    const std::string good = readText(dir / "good.txt");
    auto replaced = [&](const std::string& from, const std::string& to) {
        std::string t = good;
        const size_t at = t.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return t.replace(at, from.size(), to);
    };
    const std::string third = "0.3333333333333333  ";
    std::vector<std::pair<std::string, std::string>> cases = {
        {replaced("FRAME_RIGNT", "FRAME_RIGHT"), "header word spelled otherwise"},
        {replaced("GRID_SIZE 3", "GRID_SIZE 99999999999"), "value beyond 32 bits"},
        {replaced("GRID_SIZE 3", "GRID_SIZE 0"), "no grid but cells"},
        {replaced("WIN_SIZE 5", "WIN_SIZE 2"), "window below the grid"},
        {replaced("GRID_RANGE_X 4", "GRID_RANGE_X 5"), "range does not fit the frame"},
        {replaced("FRAME_TOP 9", "FRAME_TOP 2147483647"), "frame larger than the file"},
        {replaced("grid(1, 0)", "grid(2, 0)"), "row label out of order"},
        {replaced(third, "nan  "), "value not finite"},
        {replaced(third, third + "7  "), "value too many"},
        {good + "\t[grid(3, 0) - grid(3, 4)]:\n", "text after the last row"},
    };
    // Every cut, the empty file and the last line without its line feed included.
    for (size_t n = 0; n < good.size(); ++n)
        cases.emplace_back(good.substr(0, n), "truncated to " + std::to_string(n));
    for (const auto& [text, what] : cases) {
        std::ofstream(dir / "bad.txt", std::ios::binary) << text;
        DensityMap m = sampleMap();
        EXPECT_EQ(m.loadFromFile((dir / "bad.txt").string()), 0) << what;
        EXPECT_EQ(m.densities, sampleMap().densities) << what;
    }
    EXPECT_EQ(DensityMap().loadFromFile((dir / "missing.txt").string()), 0);
    EXPECT_EQ(DensityMap().loadFromFile(dir.string()), 0);  // a folder
    EXPECT_EQ(sampleMap().saveToFile((dir / "no_such_dir" / "x.txt").string()), 0);
}

}  // namespace
