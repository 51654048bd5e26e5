// Layer stack search, hash, mirroring and merging of the dielectric media.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <tuple>
#include <vector>

#include "solver/config.h"
#include "solver/medium_manager.h"

using namespace RW2D;

namespace {

constexpr double INF = 1e10;

MediumLayer three_layers() {
    MediumLayer l;
    l.set_layers({{0.0, 3.9}, {1.0, 2.5}, {2.0, 1.0}});
    return l;
}

using Box = std::tuple<double, double, double, double, double>;  // left, right, bottom, top, eps

std::vector<Box> boxes_of(const std::vector<Medium*>& media) {
    std::vector<Box> out;
    for (const Medium* m : media)
        out.emplace_back(m->shape->left, m->shape->right, m->shape->bottom, m->shape->top, m->eps);
    std::sort(out.begin(), out.end());
    return out;
}

std::vector<Medium*> make_media(const std::vector<Box>& boxes) {
    std::vector<Medium*> media;
    for (const auto& [l, r, b, t, e] : boxes) media.push_back(new Medium(e, Rectangle(l, r, t, b)));
    return media;
}

void free_media(std::vector<Medium*>& media) {
    for (Medium* m : media) delete m;
    media.clear();
}

std::vector<std::string> g_log;
void capture(std::string_view line) {
    g_log.emplace_back(line);
}

}  // namespace

TEST(SolverMedium, SearchLayerOverARange) {
    const MediumLayer l = three_layers();
    MultilayerResult out;
    l.search_layer(0.5, 2.5, out);
    EXPECT_EQ(out.heights, (std::vector<double>{0.0, 0.5, 1.5}));
    EXPECT_EQ(out.eps, (std::vector<double>{3.9, 2.5, 1.0}));

    // Starting on a boundary: the permittivity above it comes first.
    l.search_layer(1.0, 2.5, out);
    EXPECT_EQ(out.heights, (std::vector<double>{0.0, 1.0}));
    EXPECT_EQ(out.eps, (std::vector<double>{2.5, 1.0}));
    l.search_layer(1.0 - 5e-9, 1.8, out);
    EXPECT_EQ(out.eps, (std::vector<double>{2.5}));

    // A boundary at hi (within 1e-8) is not part of the range.
    l.search_layer(0.2, 2.0 + 5e-9, out);
    ASSERT_EQ(out.heights.size(), 2u);
    EXPECT_DOUBLE_EQ(out.heights[1], 0.8);
    EXPECT_EQ(out.eps, (std::vector<double>{3.9, 2.5}));

    // Earlier content is replaced, not appended to.
    l.search_layer(5.0, 6.0, out);
    EXPECT_EQ(out.heights, (std::vector<double>{0.0}));
    EXPECT_EQ(out.eps, (std::vector<double>{1.0}));
}

TEST(SolverMedium, MirrorContinuesStackAndMakesEightImages) {
    MediumManager mm;
    Rectangle window(0, 10, 8, 0);
    Rectangle piece(1, 2, 5, 3);
    mm.init({{0.0, 3.9}, {1.0, 2.5}, {2.0, 1.0}}, {{4.0, &piece}}, &window);
    ASSERT_EQ(mm.layer.media.size(), 1u);
    EXPECT_EQ(mm.layer.top, 8.0);
    mm.mirror_medium();

    // The stack below the bottom is the reflection of the stack above it, and likewise at the top:
    // [-1,1] is the image of [0,1] (3.9), [-2,-1] of [1,2] (2.5), below -2 of the space above 2
    // (1.0).
    EXPECT_EQ(mm.mirror_layer.raw_z, (std::vector<double>{-8, -2, -1, 1, 2, 14, 15}));
    EXPECT_EQ(mm.mirror_layer.raw_eps, (std::vector<double>{1.0, 2.5, 3.9, 2.5, 1.0, 2.5, 3.9}));
    EXPECT_EQ(mm.mirror_layer.top, 16.0);
    EXPECT_EQ(mm.mirror_layer.search_layer(-1.5).first,
              mm.mirror_layer.search_layer(1.5).first - 2);
    EXPECT_EQ(mm.mirror_layer.eps[mm.mirror_layer.search_layer(-0.5).first], 3.9);
    EXPECT_EQ(mm.mirror_layer.eps[mm.mirror_layer.search_layer(14.5).first], 2.5);

    // Images: x in {[1,2], reflected at 0 -> [-2,-1], at 10 -> [18,19]},
    //         y in {[3,5], reflected at 0 -> [-5,-3], at 8 -> [11,13]}.
    std::vector<Box> expected;
    for (auto [l, r] : {std::pair{1.0, 2.0}, {-2.0, -1.0}, {18.0, 19.0}})
        for (auto [b, t] : {std::pair{3.0, 5.0}, {-5.0, -3.0}, {11.0, 13.0}})
            expected.emplace_back(l, r, b, t, 4.0);
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(boxes_of(mm.mirror_layer.media), expected);
    EXPECT_EQ(mm.layer.media.size(), 1u);
    EXPECT_EQ(mm.layer.raw_z.size(), 3u);

    // One layer only: the mirrored stack is its first entry, plus guards.
    MediumManager single;
    single.init({{0.0, 2.0}}, {}, &window);
    single.mirror_medium();
    EXPECT_EQ(single.mirror_layer.raw_z, std::vector<double>{-8.0});
    EXPECT_EQ(single.mirror_layer.z.size(), 10u);
    EXPECT_TRUE(single.mirror_layer.media.empty());
}

TEST(SolverMedium, MergeAlternatesAxesAndStopsAtFirstIdlePass) {
    Debugger::set_sink(&capture);
    g_log.clear();
    // A 2x2 block of equal squares: rows join along x, then the two rows along y, then nothing.
    std::vector<Medium*> block =
        make_media({{0, 1, 0, 1, 3}, {1, 2, 0, 1, 3}, {0, 1, 1, 2, 3}, {1, 2, 1, 2, 3}});
    MediumManager::merge_until_stable(block);
    EXPECT_EQ(boxes_of(block), (std::vector<Box>{{0, 2, 0, 2, 3}}));
    EXPECT_EQ(g_log,
              (std::vector<std::string>{"Merge dielectrics X 4->2", "Merge dielectrics Y 2->1",
                                        "Merge dielectrics X 1->1"}));

    // Two equal squares stacked: the first pass (along x) changes nothing, so the y pass that would
    // join them never runs.
    g_log.clear();
    std::vector<Medium*> stacked = make_media({{0, 1, 0, 1, 3}, {0, 1, 1, 2, 3}});
    MediumManager::merge_until_stable(stacked);
    EXPECT_EQ(stacked.size(), 2u);
    EXPECT_EQ(g_log, std::vector<std::string>{"Merge dielectrics X 2->2"});
    // A single y pass on its own does join them.
    EXPECT_TRUE(MediumManager::merge_medium(false, stacked));
    EXPECT_EQ(boxes_of(stacked), (std::vector<Box>{{0, 1, 0, 2, 3}}));
    Debugger::set_sink(nullptr);
    free_media(block);
    free_media(stacked);
}

TEST(SolverMedium, MergeJoinsOnlyTouchingCompatibleNeighbours) {
    // Row at y [0,1]: background | eps 3 | eps 5, then a gap, then eps 5; row at [1,2]: 3 | 4.
    std::vector<Medium*> m = make_media({{4, 5, 0, 1, 5},
                                         {1, 2, 0, 1, 3},
                                         {0, 1, 0, 1, -1},
                                         {2, 3, 0, 1, 5},
                                         {0, 1, 1, 2, 3},
                                         {1, 2, 1, 2, 4}});
    EXPECT_TRUE(MediumManager::merge_medium(true, m));
    // The background takes the 3 it joins, then 5 differs from 3: stays apart; the gap keeps the
    // last 5 apart; different permittivities in the upper row stay apart.
    EXPECT_EQ(
        boxes_of(m),
        (std::vector<Box>{
            {0, 1, 1, 2, 3}, {0, 2, 0, 1, 3}, {1, 2, 1, 2, 4}, {2, 3, 0, 1, 5}, {4, 5, 0, 1, 5}}));
    EXPECT_FALSE(MediumManager::merge_medium(true, m));
    free_media(m);

    // Along y, media touching within 1e-8 join; a different left/right keeps them apart.
    std::vector<Medium*> col =
        make_media({{0, 1, 1 + 5e-9, 2, 2}, {0, 1, 0, 1, 2}, {0, 1.5, 2, 3, 2}});
    EXPECT_TRUE(MediumManager::merge_medium(false, col));
    EXPECT_EQ(col.size(), 2u);
    free_media(col);
}
