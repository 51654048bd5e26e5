// Layer stack search, hash, mirroring and merging of the dielectric media.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "solver/config.h"
#include "solver/medium_manager.h"

using namespace RW2D;

namespace {

constexpr double INF = 1e10;

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
