// The record beside a sample file, OUT.meta.json: what it says must be what the run did (checked
// against sha256sum, the stack as read, the sample file and the solver's batch size), and a failed
// run leaves no record and an older one as it was.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "driver/provenance.h"
#include "driver_test_util.h"
#include "runtime/failure.h"
#include "technology/minictf.h"

using namespace driver_test;
using nlohmann::json;

namespace {

// The solver looks at its stopping rule after every batch of this many walks.
constexpr uint64_t kWalkBatch = 1000;

class Metadata : public ToolTest {
protected:
    // A coarse one-thread run writing `out` with the parameters `params`.
    std::vector<std::string> coarse(const std::string& out, const std::string& params,
                                    std::vector<std::string> extra = {}) {
        extra.insert(extra.end(), {"-p", "0.05", "-n", "1", "--seed", "3"});
        return args(out, params, extra);
    }
    // The digest as the system's own tool computes it, not through the tool's code.
    std::string sha256sum(const std::string& path) {
        EXPECT_EQ(sh("sha256sum \"" + path + "\""), 0) << log;
        return log.substr(0, log.find(' '));
    }
};

}  // namespace

TEST(MetadataText, TimesAreIsoUtcAndThePathSitsBesideTheOutput) {
    using std::chrono::seconds;
    using std::chrono::system_clock;
    EXPECT_EQ(KARVEN::isoUtc(system_clock::time_point{}), "1970-01-01T00:00:00Z");
    // 10^9 seconds after the epoch, a known date.
    EXPECT_EQ(KARVEN::isoUtc(system_clock::time_point{seconds(1000000000)}),
              "2001-09-09T01:46:40Z");
    EXPECT_TRUE(std::regex_match(KARVEN::toolVersion(), std::regex(R"(\d+\.\d+\.\d+)")))
        << KARVEN::toolVersion();
}

TEST_F(Metadata, AFailedWriteLeavesNoFileBehind) {
    EXPECT_THROW(KARVEN::writeMetadata((dir / "missing/s.jsonl").string(), json::object()),
                 KARVEN::FatalError);
    EXPECT_FALSE(fs::exists(dir / "missing"));
}

// Each run: its parameters, its shard k of n, and the lines of its sample file.
struct RunCase {
    const char* name;
    std::string params;
    int k, n;
    size_t samples;
};

TEST_F(Metadata, RecordMatchesTheRunItDescribes) {
    const std::string structure =
        write("structure.jsonl", R"({"conductors": [[0.0, 0.365, 0.065, 0.13]], "layers": ["M1"]})"
                                 "\n");
    const std::vector<RunCase> cases = {
        {"drawn", R"("nsamples": 3, "poisson_lambda": 0, "window": 10.0, "conductor_window": 4.0)",
         0, 1, 3},
        {"shard",
         R"("nsamples": 4, "poisson_lambda": 0, "window": -1, "conductor_window": 3.0, )"
         R"("exponent_base": 0.5)",
         1, 2, 2},
        {"structure", R"("window": 8.0, "structure_input": "structure.jsonl")", 0, 1, 1},
    };
    MCTF::MiniCTF stack;
    stack.parseCtf(kStack);
    const std::string stack_digest = sha256sum(kStack);

    for (const RunCase& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string params = "{\"Random\": {" + c.params + "}}";
        const std::string param_path = write(std::string(c.name) + ".json", params);
        const std::string out = std::string(c.name) + ".jsonl";
        std::vector<std::string> extra;
        if (c.n > 1) extra = {"--shard", std::to_string(c.k) + "/" + std::to_string(c.n)};
        const std::vector<std::string> argv = coarse(out, param_path, extra);
        ASSERT_EQ(run(argv), 0) << log;

        const json meta = json::parse(readFile(dir / (out + ".meta.json")));
        const json expected = {{"karven_meta", 1},
                               {"command_line", argv},
                               {"output", (dir / out).string()},
                               {"technology", {{"path", kStack}, {"sha256", stack_digest}}},
                               {"parameter_file", param_path},
                               {"precision", 0.05},
                               {"seed", 3},
                               {"nthreads", 1},
                               {"merge_diel", true},
                               {"shard", {c.k, c.n}},
                               {"resume", false},
                               {"samples_written", c.samples}};
        for (const auto& [key, value] : expected.items()) EXPECT_EQ(meta[key], value) << key;

        const std::regex iso(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)");
        const std::string start = meta["start_time"], end = meta["end_time"];
        EXPECT_TRUE(std::regex_match(start, iso)) << start;
        EXPECT_TRUE(std::regex_match(end, iso)) << end;
        EXPECT_LE(start, end);  // the fixed-width form sorts as time does

        // Every layer of the example stack is usable: none shares height with another.
        ASSERT_EQ(meta["layers"].size(), stack.conductors.size());
        for (size_t k = 0; k < stack.conductors.size(); ++k) {
            const MCTF::ConductorLayer* l = stack.conductors[k];
            EXPECT_EQ(meta["layers"][k], json({{"name", l->name},
                                               {"z_bottom", l->z_bottom},
                                               {"z_top", l->z_top},
                                               {"wmin", l->wmin},
                                               {"smin", l->smin}}));
        }
        // Against the technology file itself: M1 sits on the 0.30 pre-metal dielectric and is
        // 0.13 thick.
        EXPECT_NEAR(meta["layers"][0]["z_bottom"].get<double>(), 0.30, 1e-12);
        EXPECT_NEAR(meta["layers"][0]["z_top"].get<double>(), 0.43, 1e-12);

        EXPECT_EQ(countLines(dir / out), c.samples);
        // One wire and the plate per sample, the plate's row derived from the wire's: one solve
        // each, and again for a redrawn sample. One walker per solve, which stops only after whole
        // batches; every walk hops once at least.
        const uint64_t solves = meta["solves"], walks = meta["walks"], hops = meta["hops"];
        EXPECT_GE(solves, c.samples);
        EXPECT_EQ(walks % kWalkBatch, 0u);
        EXPECT_GE(walks, kWalkBatch * solves);
        EXPECT_GE(hops, walks);

        const json& p = meta["parameters"];
        if (c.params.find("structure_input") != std::string::npos) {
            EXPECT_EQ(p, json({{"structure_input", "structure.jsonl"}, {"window", 8.0}}));
            EXPECT_EQ(meta["structure"],
                      json({{"path", "structure.jsonl"}, {"sha256", sha256sum(structure)}}));
            continue;
        }
        EXPECT_FALSE(meta.contains("structure"));
        const json given = json::parse(params)["Random"];
        const double cw = given["conductor_window"], window = given["window"];
        // Given keys keep their values, the others show their defaults; a negative window becomes
        // twice the conductor window.
        EXPECT_EQ(p, json({{"nsamples", given["nsamples"]},
                           {"poisson_lambda", 0},
                           {"exponent_base", given.value("exponent_base", 0.75)},
                           {"nlayers", 5},
                           {"fixed_layers", json::array()},
                           {"window_layer", ""},
                           {"structure_input", ""},
                           {"conductor_window", cw},
                           {"window", window < 0 ? 2 * cw : window}}));
    }
}

TEST_F(Metadata, AFailedRunWritesNoRecordAndKeepsAnOlderOne) {
    const std::string good = write(
        "good.json",
        R"({"Random": {"nsamples": 1, "poisson_lambda": 0, "window": 10, "conductor_window": 4}})");
    ASSERT_EQ(run(coarse("s.jsonl", good)), 0) << log;
    const std::string older = readFile(dir / "s.jsonl.meta.json");
    ASSERT_FALSE(older.empty());

    struct Failure {
        const char* params;
        const char* message;
    };
    const std::vector<Failure> failures = {
        // Refused before anything is opened.
        {R"({"Random": {"nsamples": 1, "fixed_layers": [99]}})", "is not a usable layer index"},
        // Refused after the sample file and the journal are open.
        {R"({"Random": {"nsamples": 1, "window": 10, "conductor_window": 0.1}})", "is too narrow"},
    };
    int k = 0;
    for (const Failure& f : failures) {
        SCOPED_TRACE(f.params);
        const std::string params = write("bad" + std::to_string(k) + ".json", f.params);
        // Over the finished run, and on an output never written.
        const std::string fresh = "fresh" + std::to_string(k++) + ".jsonl";
        for (const std::string& out : {std::string("s.jsonl"), fresh}) {
            EXPECT_EQ(run(coarse(out, params)), 1) << log;
            EXPECT_NE(log.find(f.message), std::string::npos) << log;
        }
        EXPECT_EQ(readFile(dir / "s.jsonl.meta.json"), older);
        EXPECT_FALSE(fs::exists(dir / (fresh + ".meta.json")));
        EXPECT_FALSE(fs::exists(dir / (fresh + ".meta.json.part")));
        EXPECT_FALSE(fs::exists(dir / "s.jsonl.meta.json.part"));
    }
}
