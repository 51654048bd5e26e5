// Keys, lookups, the shared store and the table files.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <tuple>
#include <vector>

#include "solver/online_table.h"

namespace {

using namespace RW2D;

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

TEST(OnlineTableKey, RandomShiftsHoldInterfacesAndPermittivityRatiosInTheMean) {
    // {heights, eps, eps step, the key byte that moves with the shift, its mean, the key unshifted}
    using Case =
        std::tuple<std::vector<double>, std::vector<double>, double, int, double, std::string>;
    const Case cases[] = {
        // One cell per unit: 7.3 rounds to node 7, or to 8 for three shifts in ten.
        {{0, 7.3}, {1, 2}, 0.01, 2, 7.3, bytes({0, 50, 7, 100})},
        // 2.7 against 7 in steps of 1/250: 96.43 steps, which the nearest step leaves 0.44% low.
        {{0, 7.3}, {2.7, 7}, 1.0 / 250, 1, 2.7 / 7 * 250, bytes({0, 96, 7, 250})},
        // The film of 7 above 30 falls outside the box: shifted, the steps count from the largest
        // permittivity the key keeps (4.2 becomes the full byte); unshifted, from the stack's 7.
        {{0, 10, 30}, {2.7, 4.2, 7}, 1.0 / 250, 1, 2.7 / 4.2 * 250, bytes({0, 96, 10, 150})},
    };
    std::string key;
    for (const auto& [heights, eps, step, byte, mean, unshifted] : cases) {
        SCOPED_TRACE(mean);
        double sum = 0;
        for (int j = 0; j < 100; ++j) {
            online_table_manager::pack(heights, eps, 24, step, key, (j + 0.5) / 100);
            ASSERT_EQ(key.size(), 4u);
            EXPECT_EQ(static_cast<unsigned char>(key[3]), std::lround(1 / step));
            sum += static_cast<unsigned char>(key[byte]);
        }
        EXPECT_NEAR(sum / 100, mean, 0.011);
        online_table_manager::pack(heights, eps, 24, step, key);
        EXPECT_EQ(key, unshifted);
    }
}

// Tables whose first CDF entry tells which key they were stored under.
PDFGFT tagged(double tag) {
    PDFGFT t;
    t.face_cdf[0] = tag;
    return t;
}

TEST(TableStore, ConcurrentInsertsAndReadsSeeEveryTableUnderItsOwnKey) {
    // Four threads insert overlapping key ranges (each key by two threads) while reading back keys
    // the others insert; the store grows from 1024 slots several times meanwhile.
    table_store<PDFGFT> store;
    constexpr int kKeys = 6000;
    auto key = [](int k) { return "k" + std::to_string(k); };
    std::atomic<int> wrong{0};
    std::vector<std::thread> team;
    for (int t = 0; t < 4; ++t)
        team.emplace_back([&, t] {
            for (int i = 0; i < kKeys / 2; ++i) {
                const int k = (t * kKeys / 4 + i) % kKeys;
                const PDFGFT* stored = store.insert(key(k), tagged(k));
                if (stored->face_cdf[0] != k) ++wrong;
                const int other = (k + kKeys / 2) % kKeys;
                if (const PDFGFT* seen = store.find(key(other)))
                    if (seen->face_cdf[0] != other) ++wrong;
            }
        });
    for (std::thread& th : team) th.join();
    EXPECT_EQ(wrong.load(), 0);
    ASSERT_EQ(store.size(), static_cast<size_t>(kKeys));
    for (int k = 0; k < kKeys; ++k) {
        const PDFGFT* t = store.find(key(k));
        ASSERT_NE(t, nullptr) << k;
        EXPECT_EQ(t->face_cdf[0], k);
        EXPECT_EQ(store.insert(key(k), tagged(-1)), t);  // the first insert stays, in place
    }
    EXPECT_EQ(store.find("absent"), nullptr);
}

// Four tables solved through one manager into stores of the test's own, and a folder for files.
class OnlineTables : public testing::Test {
protected:
    void SetUp() override {
        std::string tmpl = testing::TempDir() + "karven_tables_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        root = tmpl;
        gft = m.get_GFT({0, 12}, {1, 2}, 24);
        m.get_GFT({0, 3, 20}, {5, 1, 2}, 24);
        wvtz = m.get_WVTz({0, 5.5}, {1, 4}, 24, e);
        m.get_WVTx({0, 12}, {1, 2}, 24, e);
    }
    void TearDown() override { std::filesystem::remove_all(root); }
    static std::string slurp(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    // True when every table of `a` is in `b`, byte for byte.
    template <class T>
    static bool within(const table_store<T>& a, const table_store<T>& b) {
        bool all = true;
        a.for_each([&](const std::string& key, const T& t) {
            all = all && b.find(key) && std::memcmp(&t, b.find(key), sizeof t) == 0;
        });
        return all;
    }
    std::string root;
    table_stores made;
    online_table_manager m{made};
    double e = 0;
    const PDFGFT* gft = nullptr;
    const PDFWVTz* wvtz = nullptr;
};

TEST_F(OnlineTables, ManagersShareSolvedTablesAndCountWhatTheySolve) {
    EXPECT_EQ(m.counts.solved, 4);
    // Another walker, and a box of twice the size with the same stack, meet the same tables.
    online_table_manager b(made);
    EXPECT_EQ(b.get_GFT({0, 24}, {2, 4}, 48), gft);
    EXPECT_EQ(b.get_WVTz({0, 5.5}, {1, 4}, 24, e), wvtz);
    EXPECT_EQ(b.counts.solved, 0);
    EXPECT_EQ(b.counts.queries(), 2);
    EXPECT_EQ(made.size(), 4u);
    // The homogeneous box is solved once for all managers.
    EXPECT_EQ(m.get_single_gft(), b.get_single_gft());
    EXPECT_EQ(m.get_GFT({0}, {3}, 24), b.get_single_gft());
}

TEST_F(OnlineTables, DumpWritesPackedRecordsAndLoadRestoresThem) {
    const std::string dir = root + "/a/b";
    m.dump(77, dir);
    // Layout, read independently: count, then per record the key length, the key and the tail.
    const std::string x = slurp(dir + "/77X24");
    uint64_t count = 0;
    ASSERT_GE(x.size(), 8u);
    std::memcpy(&count, x.data(), 8);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(x.size(), 8 + (8 + 4 + 408) + (8 + 6 + 408));
    EXPECT_EQ(slurp(dir + "/77Y24").size(), 8 + (8 + 6 + 440));  // key {0,25,5,40,6,100}
    EXPECT_EQ(slurp(dir + "/77Z24").size(), 8 + (8 + 4 + 416));

    table_stores read;
    const int full = static_cast<int>(std::lround(1 / online_table_manager::eps_step()));
    const std::string dumped = bytes({0, full / 2, 12, full});  // the fixture's first table
    read.gft.insert(dumped, tagged(0.125));
    online_table_manager n(read);
    n.load(77, dir);
    ASSERT_EQ(read.size(), 4u);
    EXPECT_EQ(read.gft.find(dumped)->face_cdf[0], 0.125);  // first wins
    EXPECT_TRUE(within(made.wvtz, read.wvtz) && within(made.wvtx, read.wvtx));
    // A loaded key is a hit, with the table as written.
    EXPECT_EQ(std::memcmp(n.get_GFT({0, 3, 20}, {5, 1, 2}, 24),
                          m.get_GFT({0, 3, 20}, {5, 1, 2}, 24), sizeof(PDFGFT)),
              0);
    EXPECT_EQ(n.counts.solved, 0);
}

TEST_F(OnlineTables, CacheRoundTripsAndRefusesDamagedOrForeignFiles) {
    const std::string path = root + "/cache/stack.tables";
    ASSERT_TRUE(made.save_cache(path));
    EXPECT_FALSE(std::filesystem::exists(path + ".tmp." + std::to_string(getpid())));
    table_stores back;
    EXPECT_EQ(back.load_cache(path), 4u);
    EXPECT_TRUE(within(made.gft, back.gft) && within(made.wvtz, back.wvtz) &&
                within(made.wvtx, back.wvtx));
    EXPECT_EQ(table_stores().load_cache(root + "/missing"), 0u);

    // Each damage is refused whole, leaving the stores empty.
    const std::string good = slurp(path);
    auto damaged = [&](std::string bytes) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
        table_stores s;
        testing::internal::CaptureStderr();
        const size_t n = s.load_cache(path);
        const std::string warning = testing::internal::GetCapturedStderr();
        EXPECT_EQ(n, 0u);
        EXPECT_EQ(s.size(), 0u);
        EXPECT_NE(warning.find("Warning: table cache " + path + " ignored"), std::string::npos);
    };
    damaged(good.substr(0, good.size() / 2));
    std::string flipped = good;
    flipped[good.size() / 2] ^= 0x10;
    damaged(flipped);
    damaged("KRVTAB");
    damaged(std::string(good.size(), 'x'));
}

}  // namespace
