// Keys, lookups, the shared store and the table files.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "solver/online_table.h"

namespace {

using RW2D::online_table_database;
using RW2D::online_table_lock;
using RW2D::online_table_manager;
using RW2D::PDFGFT;
using RW2D::PDFWVTx;
using RW2D::PDFWVTz;

std::string bytes(std::initializer_list<int> b) {
    std::string s;
    for (int v : b) s.push_back(static_cast<char>(v));
    return s;
}

TEST(OnlineTableKey, PackRoundsToNodesAndMergesEqualNeighbours) {
    // Box of side 24: one grid cell per unit. 3.90/3.904 and 3.904/3.904 both round to 100.
    EXPECT_EQ(online_table_manager::pack({0, 6}, {3.90, 3.904}, 24, 0.01), bytes({0, 100}));
    // 5.2 and 5.4 share node 5; the upper one (eps 4) stands for both.
    EXPECT_EQ(online_table_manager::pack({0, 5.2, 5.4}, {1, 2, 4}, 24, 0.01),
              bytes({0, 25, 5, 100}));
    // 23.6 rounds to node 24, beyond the box: the key ends. emax comes from all layers.
    EXPECT_EQ(online_table_manager::pack({0, 10, 23.6}, {1, 2, 4}, 24, 0.01),
              bytes({0, 25, 10, 50}));
    // Box of side 48: 11 cells of 2 -> 5.5 rounds to 6.
    EXPECT_EQ(online_table_manager::pack({0, 11}, {2, 1}, 48, 0.01), bytes({0, 100, 6, 50}));
    // Interfaces only at node 0 or above the box: one pair.
    EXPECT_EQ(online_table_manager::pack({0, 0.3, 30}, {1, 2, 3}, 24, 0.01), bytes({0, 67}));
}

class OnlineTableFiles : public testing::Test {
protected:
    void SetUp() override {
        std::string tmpl = testing::TempDir() + "karven_tables_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        root = tmpl;
    }
    void TearDown() override { std::filesystem::remove_all(root); }
    static std::string slurp(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    std::string root;
};

TEST_F(OnlineTableFiles, DumpWritesPackedRecordsAndLoadRestoresThem) {
    online_table_manager m;
    double e = 0;
    m.get_GFT({0, 12}, {1, 2}, 24);
    m.get_GFT({0, 3, 20}, {5, 1, 2}, 24);
    m.get_WVTz({0, 5.5}, {1, 4}, 24, e);
    m.get_WVTx({0, 12}, {1, 2}, 24, e);
    const std::string dir = root + "/a/b";
    m.dump(77, dir);

    // Layout, read independently: count, then per record the key length, the key and the tail.
    const std::string x = slurp(dir + "/77X24");
    const std::string y = slurp(dir + "/77Y24");
    const std::string z = slurp(dir + "/77Z24");
    uint64_t count = 0;
    ASSERT_GE(x.size(), 8u);
    std::memcpy(&count, x.data(), 8);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(x.size(), 8 + (8 + 4 + 408) + (8 + 6 + 408));
    EXPECT_EQ(y.size(), 8 + (8 + 6 + 440));  // key {0,25,5,40,6,100}
    EXPECT_EQ(z.size(), 8 + (8 + 4 + 416));

    online_table_manager n;
    PDFGFT mine;
    mine.face_cdf[0] = 0.125;
    n.gft_tables.map.emplace(bytes({0, 50, 12, 100}), mine);
    n.load(77, dir);
    ASSERT_EQ(n.gft_tables.map.size(), 2u);
    ASSERT_EQ(n.wvtz_tables.map.size(), 1u);
    ASSERT_EQ(n.wvtx_tables.map.size(), 1u);
    EXPECT_EQ(n.gft_tables.map.at(bytes({0, 50, 12, 100})).face_cdf[0], 0.125);  // first wins
    for (const auto& [key, t] : m.gft_tables.map) {
        if (key == bytes({0, 50, 12, 100})) continue;
        const PDFGFT& u = n.gft_tables.map.at(key);
        EXPECT_EQ(std::memcmp(t.face_cdf, u.face_cdf, sizeof t.face_cdf), 0);
        EXPECT_EQ(std::memcmp(t.lower_cdf, u.lower_cdf, sizeof(double) * 48), 0);
    }
    for (const auto& [key, t] : m.wvtz_tables.map)
        EXPECT_EQ(std::memcmp(&t, &n.wvtz_tables.map.at(key), sizeof(PDFWVTz)), 0);
    for (const auto& [key, t] : m.wvtx_tables.map)
        EXPECT_EQ(std::memcmp(&t, &n.wvtx_tables.map.at(key), sizeof(PDFWVTx)), 0);
    // A loaded key is a hit.
    EXPECT_EQ(n.get_WVTx({0, 12}, {1, 2}, 24, e), &n.wvtx_tables.map.begin()->second);
}

}  // namespace
