// The density file: its exact text, an exact round trip, and a loader that answers 0 and leaves
// the map alone for every truncation and for damaged files, never crashing.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "pe_test_util.h"
#include "process_effects/density_map.h"

namespace {

using pe_test::rect;

std::string readText(const std::filesystem::path& p) {
    std::ifstream f(p, std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

void writeText(const std::filesystem::path& p, const std::string& text) {
    std::ofstream(p, std::ios::binary | std::ios::trunc) << text;
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
    const auto dir = pe_test::testDir();
    DensityMap m(3, 0, 0, 0, 5, 2);  // 2 x 1 cells
    m.addOverlappedPoly(rect(0, 0, 3, 3));
    m.calculateDensity();
    m.densities[1] = 0.25;
    ASSERT_EQ(m.saveToFile((dir / "d.txt").string()), 1);
    EXPECT_EQ(readText(dir / "d.txt"),
              "FRAME_LEFT 0\nFRAME_BOTTOM 0\nFRAME_RIGNT 5\nFRAME_TOP 2\nGRID_SIZE 3\n"
              "WIN_SIZE 3\nGRID_RANGE_X 2(0 - 5)\nGRID_RANGE_Y 1(0 - 2)\nDENSITIES\n"
              "\t[grid(0, 0) - grid(0, 2)]:\n\t1  0.25  \n");
}

TEST(DensityFile, RoundTripIsExact) {
    const auto dir = pe_test::testDir();
    const DensityMap m = sampleMap();
    ASSERT_EQ(m.saveToFile((dir / "a.txt").string()), 1);
    DensityMap back;
    ASSERT_EQ(back.loadFromFile((dir / "a.txt").string()), 1);
    EXPECT_EQ(back.densities, m.densities);  // bit for bit
    EXPECT_EQ(back.frame_left, -2);
    EXPECT_EQ(back.frame_bottom, 1);
    EXPECT_EQ(back.frame_right, 9);
    EXPECT_EQ(back.frame_top, 9);
    EXPECT_EQ(back.grid_size, m.grid_size);
    EXPECT_EQ(back.win_size, m.win_size);
    EXPECT_EQ(back.range_x, m.range_x);
    EXPECT_EQ(back.range_y, m.range_y);
    EXPECT_EQ(back.grid_area, m.grid_area);
    // Queries inside the frame see the same windows (the map was built without extension).
    for (int32_t x = -2; x <= 9; ++x)
        EXPECT_EQ(back.getDensity(x, 5, 4), m.getDensity(x, 5, 4)) << x;
    ASSERT_EQ(back.saveToFile((dir / "b.txt").string()), 1);
    EXPECT_EQ(readText(dir / "b.txt"), readText(dir / "a.txt"));

    DensityMap unused;  // a map without cells round-trips too
    ASSERT_EQ(unused.saveToFile((dir / "c.txt").string()), 1);
    DensityMap unused_back = sampleMap();
    ASSERT_EQ(unused_back.loadFromFile((dir / "c.txt").string()), 1);
    EXPECT_EQ(unused_back.grid_size, 0);
    EXPECT_TRUE(unused_back.densities.empty());
}

TEST(DensityFile, UnopenableFiles) {
    const auto dir = pe_test::testDir();
    DensityMap m = sampleMap();
    EXPECT_EQ(m.loadFromFile((dir / "missing.txt").string()), 0);
    EXPECT_EQ(m.saveToFile((dir / "no_such_dir" / "x.txt").string()), 0);
    EXPECT_EQ(m.loadFromFile(dir.string()), 0);  // a folder
}

// Each damaged text is rejected, and the map keeps what it held.
void expectRejected(const std::filesystem::path& file, const std::string& text,
                    const std::string& what) {
    writeText(file, text);
    DensityMap m = sampleMap();
    const std::vector<double> before = m.densities;
    EXPECT_EQ(m.loadFromFile(file.string()), 0) << what;
    EXPECT_EQ(m.densities, before) << what;
    EXPECT_EQ(m.range_x, 4) << what;
}

TEST(DensityFile, MalformedFilesAreRejected) {
    const auto dir = pe_test::testDir();
    ASSERT_EQ(sampleMap().saveToFile((dir / "good.txt").string()), 1);
    const std::string good = readText(dir / "good.txt");
    auto replaced = [&](const std::string& from, const std::string& to) {
        std::string t = good;
        const size_t at = t.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return t.replace(at, from.size(), to);
    };
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "empty file"},
        {replaced("FRAME_RIGNT", "FRAME_RIGHT"), "header word spelled otherwise"},
        {replaced("GRID_SIZE 3", "GRID_SIZE x"), "value not a number"},
        {replaced("GRID_SIZE 3", "GRID_SIZE 3.5"), "value not an integer"},
        {replaced("GRID_SIZE 3", "GRID_SIZE 99999999999"), "value beyond 32 bits"},
        {replaced("GRID_SIZE 3", "GRID_SIZE 0"), "no grid but cells"},
        {replaced("GRID_SIZE 3", "GRID_SIZE -3"), "negative grid"},
        {replaced("WIN_SIZE 5", "WIN_SIZE 2"), "window below the grid"},
        {replaced("GRID_RANGE_X 4", "GRID_RANGE_X 5"), "range does not fit the frame"},
        {replaced("GRID_RANGE_Y 3", "GRID_RANGE_Y 2000000000"), "huge range"},
        {replaced("FRAME_TOP 9", "FRAME_TOP 2147483647"), "frame larger than the file"},
        {replaced("DENSITIES\n", "DENSITY\n"), "no DENSITIES line"},
        {replaced("grid(1, 0)", "grid(2, 0)"), "row label out of order"},
        {replaced("0.3333333333333333  ", "0.3333333333333333 "), "one blank after a value"},
        {replaced("0.3333333333333333  ", "abc  "), "word for a value"},
        {replaced("0.3333333333333333  ", "nan  "), "value not finite"},
        {replaced("0.3333333333333333  ", "0.3333333333333333  7  "), "value too many"},
        {good + "\t[grid(3, 0) - grid(3, 4)]:\n", "text after the last row"},
        {good.substr(0, good.size() - 1), "last line without its line feed"},
    };
    for (const auto& [text, what] : cases) expectRejected(dir / "bad.txt", text, what);
}

// Fuzz: every truncation of a valid file is rejected; random damage (byte flips, digits, deleted
// and doubled bytes, line feeds) never crashes, and what loads is a consistent map.
TEST(DensityFile, FuzzTruncationsAndDamage) {
    const auto dir = pe_test::testDir();
    const auto file = dir / "fuzz.txt";
    ASSERT_EQ(sampleMap().saveToFile(file.string()), 1);
    const std::string good = readText(file);
    for (size_t n = 0; n < good.size(); ++n) {
        writeText(file, good.substr(0, n));
        DensityMap m;
        ASSERT_EQ(m.loadFromFile(file.string()), 0) << "truncated to " << n;
    }
    std::mt19937 rng(29);
    const std::string alphabet = "0123456789-+.eE \t\n(),:[]xGRID_SIZEnaninf";
    int loaded = 0;
    for (int trial = 0; trial < 800; ++trial) {
        std::string t = good;
        for (int k = 1 + rng() % 3; k > 0; --k) {
            const size_t at = rng() % t.size();
            switch (rng() % 4) {
                case 0:
                    t[at] = static_cast<char>(rng() % 256);
                    break;
                case 1:
                    t[at] = alphabet[rng() % alphabet.size()];
                    break;
                case 2:
                    t.erase(at, 1 + rng() % 4);
                    break;
                default:
                    t.insert(at, t.substr(at, 1 + rng() % 8));
                    break;
            }
            if (t.empty()) t = "x";
        }
        writeText(file, t);
        DensityMap m;
        const int r = m.loadFromFile(file.string());
        ASSERT_TRUE(r == 0 || r == 1);
        if (r == 0) continue;
        ++loaded;
        ASSERT_EQ(m.densities.size(), size_t(m.range_x) * size_t(m.range_y));
        for (double d : m.densities) ASSERT_TRUE(std::isfinite(d));
        const auto again = dir / "again.txt";
        ASSERT_EQ(m.saveToFile(again.string()), 1);
        DensityMap back;
        ASSERT_EQ(back.loadFromFile(again.string()), 1);
        ASSERT_EQ(back.densities, m.densities);
        (void)back.getDensity(m.frame_left, m.frame_bottom, 7);
    }
    EXPECT_GT(loaded, 0);  // some damage leaves a valid file (a changed digit): that path ran
}

}  // namespace
