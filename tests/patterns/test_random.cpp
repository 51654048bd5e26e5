// The random sample generator and structure input, with a stand-in field solver whose coupling
// falls off with the gap between two rectangles (symmetric, rows summing to zero).
#include <random>

#include "pattern_test_util.h"

namespace fs = std::filesystem;
using KARVEN::json;

namespace {

std::vector<json> readSamples(const fs::path& p) {
    std::vector<json> out;
    for (const std::string& line : ptest::lines(p)) out.push_back(json::parse(line));
    return out;
}

using RandomSamples = ptest::SampleRuns;

}  // namespace

TEST_F(RandomSamples, SingleWireSamplesFollowTheDrawOrder) {
    json params = {{"nsamples", 30},
                   {"poisson_lambda", 0},
                   {"window", 40.0},
                   {"conductor_window", 8.0},
                   {"exponent_base", 0.75}};
    run(params, "one.jsonl");
    auto samples = readSamples(dir / "one.jsonl");
    ASSERT_EQ(samples.size(), 30u);

    // Replay each sample with the standard library's laws in the stated order.
    const double Wc = 8.0, B = 40.0, right = 0.4995 * Wc;
    std::vector<double> weights;
    for (uint32_t i = 0; i < static_cast<uint32_t>(B / 0.1); ++i)
        weights.push_back(std::pow(0.75, i));
    for (int i = 0; i < 30; ++i) {
        SCOPED_TRACE(i);
        std::mt19937 engine(i + 7);
        std::vector<const MCTF::ConductorLayer*> copy = ctf.conductors;
        int drawn = std::uniform_int_distribution<int>(3, 5)(engine);
        std::shuffle(copy.begin(), copy.end(), engine);  // drawn < 6 layers
        std::poisson_distribution<int>(0.0)(engine);     // the wire count, Poisson(0) + 1 = 1
        const MCTF::ConductorLayer* layer =
            copy[std::uniform_int_distribution<int>(0, drawn - 1)(engine)];
        double hw = layer->wmin / 2, h;
        if (engine() % 10 != 0) {
            auto f = static_cast<int64_t>(right / hw);
            std::discrete_distribution<int> law(weights.begin(), weights.begin() + f);
            h = f > 1 ? hw * (law(engine) + 1) : hw;
        } else {
            h = hw + (right - hw) * std::generate_canonical<double, 53>(engine);
        }
        const json& c = samples[i]["conductors"];
        ASSERT_EQ(samples[i]["size"], 2);
        EXPECT_NEAR(c[0][0].get<double>(), 0.0, 1e-8);
        EXPECT_NEAR(c[0][1].get<double>(), (layer->z_bottom + layer->z_top) / 2, 1e-8);
        EXPECT_NEAR(c[0][2].get<double>(), 2 * h, 1e-8);
        EXPECT_EQ(c[1], json({0.0, -0.05, 40.0, 0.1}));  // the plate
    }
}

TEST_F(RandomSamples, WiresStayInTheConductorWindowAndApartOnOneHeight) {
    json params = {
        {"nsamples", 6}, {"poisson_lambda", 3}, {"window", 30.0}, {"conductor_window", 10.0}};
    run(params, "a.jsonl");
    ASSERT_EQ(count, 6);
    for (const json& s : readSamples(dir / "a.jsonl")) {
        const json& c = s["conductors"];
        size_t n = c.size();
        EXPECT_EQ(s["size"], n);
        EXPECT_EQ(s["capacitances"].size(), n * n);
        for (size_t a = 0; a + 1 < n; ++a) {
            // inside the conductor window, and apart from wires at the same height
            EXPECT_LE(std::fabs(c[a][0].get<double>()) + c[a][2].get<double>() / 2, 5.0 + 1e-6);
            for (size_t b = a + 1; b + 1 < n; ++b) {
                if (c[a][1] != c[b][1]) continue;
                double g = std::fabs(c[a][0].get<double>() - c[b][0].get<double>()) -
                           (c[a][2].get<double>() + c[b][2].get<double>()) / 2;
                EXPECT_GT(g, 0.1 - 0.001 - 1e-6);
            }
        }
    }
}

TEST_F(RandomSamples, LaterWiresSpreadNormallyByASixthOfTheConductorWindow) {
    // Every wire after the first is centred on a normal draw of standard deviation Wc / 6 (12 / 6
    // here), rounded to the layer's pitch (at most 1.2) most of the time: the spread stays near 2.
    run({{"nsamples", 300}, {"poisson_lambda", 2}, {"window", 40.0}, {"conductor_window", 12.0}},
        "spread.jsonl");
    double sum2 = 0;
    int n = 0;
    for (const json& s : readSamples(dir / "spread.jsonl")) {
        const json& c = s["conductors"];
        for (size_t k = 1; k + 1 < c.size(); ++k, ++n) sum2 += std::pow(c[k][0].get<double>(), 2);
    }
    ASSERT_GT(n, 300);
    EXPECT_NEAR(std::sqrt(sum2 / n), 2.0, 0.25);
}

TEST_F(RandomSamples, StructureFileRoundTripAndBadLines) {
    run({{"nsamples", 4}, {"poisson_lambda", 2}, {"window", 30.0}, {"conductor_window", 10.0}},
        "drawn.jsonl");
    auto drawn = readSamples(dir / "drawn.jsonl");
    // Name each wire's layer from its height, as a user adds "layers" to a sample file.
    std::ofstream structures(dir / "structures.jsonl");
    for (json s : drawn) {
        json names = json::array();
        for (const json& c : s["conductors"]) {
            std::string name = "substrate";
            for (const auto* l : ctf.conductors)
                if (std::fabs((l->z_bottom + l->z_top) / 2 - c[1].get<double>()) < 1e-9)
                    name = l->name;
            names.push_back(name);
        }
        s["layers"] = names;
        structures << s.dump() << "\n";
    }
    // A blank line is skipped without taking an id.
    structures
        << "\n"
        << R"({"conductors": [[0, 0.6, 0.1, 0.2], [5, 0.6, 0.1, 0.2]], "layers": ["M1", "M1"]})"
        << "\n";
    structures.close();

    run({{"structure_input", (dir / "structures.jsonl").string()}, {"window", 30.0}},
        "again.jsonl");
    EXPECT_EQ(count, 5);
    auto again = readSamples(dir / "again.jsonl");
    ASSERT_EQ(again.size(), 5u);
    for (size_t i = 0; i < drawn.size(); ++i)
        EXPECT_EQ(again[i]["conductors"], drawn[i]["conductors"]);
    EXPECT_EQ(again[4]["id"], 4);
    EXPECT_EQ(again[4]["size"], 3);

    // A wire on an unknown layer stops the run, naming the line.
    std::ofstream(dir / "bad.jsonl") << "\n"
                                     << R"({"conductors": [[0, 0.6, 0.1, 0.2]], "layers": ["M9"]})"
                                     << "\n";
    const std::string error = ptest::errorOf([&] {
        run({{"structure_input", (dir / "bad.jsonl").string()}}, "bad_out.jsonl");
    });
    EXPECT_NE(error.find("bad.jsonl, line 2: conductor 0"), std::string::npos) << error;
    EXPECT_FALSE(fs::exists(dir / "bad_out.jsonl"));
    EXPECT_THROW(KARVEN::parse_jsonl("/no/such/file.jsonl"), KARVEN::FatalError);
}

// By default the plate is never solved as master: each sample costs one solve per wire.
// "solve_plate_row": true solves it again; anything but a boolean is refused. How the two rows
// combine is the solving tests' business.
TEST_F(RandomSamples, PlateRowIsDerivedUnlessSolvePlateRowIsSet) {
    json params = {
        {"nsamples", 4}, {"poisson_lambda", 3}, {"window", 30.0}, {"conductor_window", 10.0}};
    // Counts solves, and those with the plate (the window-wide conductor) as master.
    std::pair<int, int> solves{0, 0};
    solver = [&solves](const std::vector<KARVEN::Rect>& w, const auto& l, const auto& d,
                       const KARVEN::Rect& win, double p, int s) {
#pragma omp critical(count_solves)
        solves.first += 1, solves.second += w[0][2] - w[0][0] >= 30.0;
        return ptest::falloffSolver(w, l, d, win, p, s);
    };
    run(params, "derived.jsonl");
    int conductors = 0;
    for (const json& s : readSamples(dir / "derived.jsonl")) conductors += s["size"].get<int>();
    EXPECT_EQ(solves, std::make_pair(conductors - 4, 0));
    solves = {0, 0};
    params["solve_plate_row"] = true;
    run(params, "solved.jsonl");  // the same samples: each depends only on its index and seed
    EXPECT_EQ(solves, std::make_pair(conductors, 4));
    EXPECT_EQ(readSamples(dir / "solved.jsonl").size(), 4u);

    params["solve_plate_row"] = 1;
    EXPECT_THROW(run(params, "bad.jsonl"), KARVEN::FatalError);
}
