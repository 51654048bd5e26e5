// Random damage to the parameter object and to structure lines: every variant must either run or
// stop with a FatalError, never with another exception, a crash or a hang. Runs with a stand-in
// solver, so each variant costs microseconds.
#include <random>

#include "pattern_test_util.h"
#include "patterns/parameters.h"

namespace fs = std::filesystem;
using KARVEN::json;

namespace {

// Values that stress a reader: wrong types, edges, non-finite numbers as JSON can carry them.
json oddValue(std::mt19937& rng) {
    static const json values = json::parse(
        R"([null, true, 0, -1, 1, 2.5, -0.0, 1e308, -1e308, 4294967296.0, "", "M1", "ten", [],
            [0, 1], [0, 99], {}, 1e-300, 3, 0.3, 5, 100, -5, ["x"], 1e9])");
    return values[std::uniform_int_distribution<size_t>(0, values.size() - 1)(rng)];
}

class InputFuzz : public testing::Test {
protected:
    void SetUp() override {
        ptest::fillStack(ctf, {{"A", 0.5, 0.2, 0.1, 0.1}, {"B", 1.0, 0.2, 0.2, 0.2}}, 2.0, 3.9);
        dir = fs::path(testing::TempDir()) / ("fuzz_" + std::to_string(getpid()));
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    // Runs the family on `params`; returns true when it ran, false on a FatalError. Any other
    // exception fails the test.
    bool runs(const json& params) {
        KARVEN::Random family;
        bool ok = false;
        testing::internal::CaptureStderr();
        try {
            ptest::quiet([&] {
                family.populate((dir / "out.jsonl").string(), ctf, params, {1, 0.01, true, 1},
                                ptest::falloffSolver);
            });
            ok = true;
        } catch (const KARVEN::FatalError& e) {
            EXPECT_EQ(std::string(e.what()).rfind("Error", 0), 0u) << e.what();
        } catch (const std::exception& e) {
            ADD_FAILURE() << params.dump() << ": " << e.what();
        }
        testing::internal::GetCapturedStderr();
        EXPECT_FALSE(fs::exists(dir / "out.jsonl.part"));
        fs::remove(dir / "out.jsonl.journal");  // a failed run keeps it for a resume
        return ok;
    }

    MCTF::MiniCTF ctf;
    fs::path dir;
};

}  // namespace

TEST_F(InputFuzz, DamagedParameterObjectsAndStructureLines) {
    const json base = {{"nsamples", 2},           {"poisson_lambda", 1},  {"window", 6.0},
                       {"conductor_window", 3.0}, {"exponent_base", 0.5}, {"nlayers", 2}};
    ASSERT_TRUE(runs(base));
    const std::vector<std::string> keys = {"nsamples",         "poisson_lambda", "window",
                                           "conductor_window", "exponent_base",  "nlayers",
                                           "fixed_layers",     "window_layer",   "nsampels"};
    const json good = json::parse(R"({"conductors": [[0, 0.6, 0.1, 0.2], [1, 1.1, 0.2, 0.2]],
                                      "layers": ["A", "B"]})");
    std::mt19937 rng(2024);
    int ran[2] = {0, 0};
    for (int round = 0; round < 300; ++round) {
        json params = base;
        for (int c = std::uniform_int_distribution<int>(1, 3)(rng); c > 0; --c)
            params[keys[rng() % keys.size()]] = oddValue(rng);
        // The automatic window solves a growing spacing up to the domain's edge; keep it short.
        if (!params["conductor_window"].is_number() || params["conductor_window"] < 0)
            params["conductor_window"] = 3.0;
        ran[0] += runs(params);

        // Damage one number, one wire, one layer name, a whole member, or the whole line.
        json line = good;
        const size_t j = rng() % 2, k = rng() % 4, what = rng() % 6;
        json* target[] = {&line["conductors"][j][k], &line["conductors"][j], &line["layers"][j],
                          &line[round % 2 ? "conductors" : "layers"], &line};
        if (what < 5)
            *target[what] = oddValue(rng);
        else
            line["conductors"].push_back(oddValue(rng));
        std::string text = line.dump();
        // Now and then cut the line short, or surround it with blank lines.
        if (round % 7 == 0) text = text.substr(0, text.size() / 2);
        if (round % 5 == 0) text = "\n  \n" + text + "\n\n";
        std::ofstream(dir / "s.jsonl") << text << "\n";
        ran[1] += runs({{"structure_input", (dir / "s.jsonl").string()}, {"window", 6.0}});
    }
    // Both outcomes occur, so the loops exercise the checks and the runs behind them.
    for (int r : ran) {
        EXPECT_GT(r, 5);
        EXPECT_LT(r, 290);
    }
}

TEST(ClosestName, PicksTheSmallestEditDistance) {
    const std::vector<std::string> keys = {"nsamples", "nlayers", "window", "conductor_window"};
    EXPECT_EQ(KARVEN::closestName("nsampels", keys), "nsamples");  // a swap costs two edits
    EXPECT_EQ(KARVEN::closestName("conductorwindow", keys), "conductor_window");
    EXPECT_EQ(KARVEN::closestName("Window", keys), "window");
    EXPECT_EQ(KARVEN::closestName("x", {}), "");
}

TEST(MessageJson, NestingLimitAndShortText) {
    EXPECT_TRUE(KARVEN::nestingWithin(json(5), 0));
    EXPECT_TRUE(KARVEN::nestingWithin(json::parse(R"({"a": [1, [2]]})"), 3));
    EXPECT_FALSE(KARVEN::nestingWithin(json::parse(R"({"a": [1, [2]]})"), 2));
    EXPECT_EQ(KARVEN::shortJson(json::parse("[1, 2.5]")), "[1,2.5]");
    EXPECT_EQ(KARVEN::shortJson(json::parse("[1, [2]]")), "a nested array");
    EXPECT_EQ(KARVEN::shortJson(json(std::string(100, 'x'))), "\"" + std::string(76, 'x') + "...");
}
