// The record beside a sample file, OUT.meta.json: what it says must be what the run did (checked
// against sha256sum, the stack as read, the sample file and the solver's batch size), a failed
// run leaves no record and an older one as it was, and the sample lines keep their format.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "driver/provenance.h"
#include "runtime/failure.h"
#include "technology/minictf.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const std::string kStack = KARVEN_SOURCE_DIR "/examples/stack.ctf";
// The solver looks at its stopping rule after every batch of this many walks.
constexpr uint64_t kWalkBatch = 1000;

std::string readFile(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), {});
}

// Runs `command` through the shell; returns its exit status and standard output and error.
std::pair<int, std::string> shell(const std::string& command) {
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    std::string out;
    char buf[512];
    while (size_t n = fread(buf, 1, sizeof buf, pipe)) out.append(buf, n);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

// The digest as the system's own tool computes it, not through the tool's code.
std::string sha256sum(const std::string& path) {
    auto [status, out] = shell("sha256sum '" + path + "'");
    EXPECT_EQ(status, 0) << out;
    return out.substr(0, out.find(' '));
}

std::vector<std::string> lines(const fs::path& p) {
    std::ifstream in(p);
    std::vector<std::string> out;
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

class Metadata : public testing::Test {
protected:
    void SetUp() override {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        dir = fs::path(testing::TempDir()) /
              ("karven_meta_" + std::to_string(getpid()) + "_" + info->name());
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    std::string write(const std::string& name, const std::string& text) {
        std::ofstream(dir / name) << text;
        return (dir / name).string();
    }

    // The arguments of a coarse one-thread run writing `out` with the parameters `params`.
    std::vector<std::string> args(const std::string& out, const std::string& params,
                                  std::vector<std::string> extra = {}) {
        std::vector<std::string> a = {KARVEN_BINARY,
                                      "-i",
                                      kStack,
                                      "-o",
                                      (dir / out).string(),
                                      "--param-json",
                                      params,
                                      "-p",
                                      "0.05",
                                      "-n",
                                      "1",
                                      "--seed",
                                      "3"};
        a.insert(a.end(), extra.begin(), extra.end());
        return a;
    }

    int run(const std::vector<std::string>& argv) {
        std::string command;
        for (const std::string& a : argv) command += "'" + a + "' ";
        auto [status, out] = shell(command);
        log = out;
        return status;
    }

    fs::path dir;
    std::string log;
};

}  // namespace

TEST(MetadataText, TimesAreIsoUtcAndThePathSitsBesideTheOutput) {
    using std::chrono::seconds;
    using std::chrono::system_clock;
    EXPECT_EQ(KARVEN::isoUtc(system_clock::time_point{}), "1970-01-01T00:00:00Z");
    // 10^9 seconds after the epoch, a known date.
    EXPECT_EQ(KARVEN::isoUtc(system_clock::time_point{seconds(1000000000)}),
              "2001-09-09T01:46:40Z");
    EXPECT_EQ(KARVEN::metaPath("a/b.jsonl"), "a/b.jsonl.meta.json");
    EXPECT_TRUE(std::regex_match(KARVEN::toolVersion(), std::regex(R"(\d+\.\d+\.\d+)")))
        << KARVEN::toolVersion();
    EXPECT_FALSE(KARVEN::toolBuild().empty());
}

TEST(MetadataText, AFailedWriteLeavesNoFileBehind) {
    const fs::path folder =
        fs::path(testing::TempDir()) / ("karven_meta_missing_" + std::to_string(getpid()));
    fs::remove_all(folder);
    const std::string out = (folder / "s.jsonl").string();
    EXPECT_THROW(KARVEN::writeMetadata(out, json::object()), KARVEN::FatalError);
    EXPECT_FALSE(fs::exists(folder));
}

// Each run: its parameters, extra options, and what the record must then hold.
struct RunCase {
    const char* name;
    const char* params;
    std::vector<std::string> extra;
    int64_t samples;         // lines of the sample file
    std::vector<int> shard;  // k, n
    bool structure = false;  // "structure_input" names structure.jsonl of the test's folder
};

TEST_F(Metadata, RecordMatchesTheRunItDescribes) {
    const std::string structure =
        write("structure.jsonl", R"({"conductors": [[0.0, 0.365, 0.065, 0.13]], "layers": ["M1"]})"
                                 "\n");
    const std::vector<RunCase> cases = {
        {"drawn",
         R"({"Random": {"nsamples": 3, "poisson_lambda": 0, "window": 10.0,
                     "conductor_window": 4.0}})",
         {},
         3,
         {0, 1}},
        {"shard",
         R"({"Random": {"nsamples": 4, "poisson_lambda": 0, "window": -1,
                     "conductor_window": 3.0, "exponent_base": 0.5}})",
         {"--shard", "1/2"},
         2,
         {1, 2}},
        {"structure",
         R"({"Random": {"window": 8.0, "structure_input": "STRUCTURE"}})",
         {},
         1,
         {0, 1},
         true},
    };
    MCTF::MiniCTF stack;
    stack.parseCtf(kStack);
    const std::string stack_digest = sha256sum(kStack);

    for (const RunCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::string params = c.params;
        if (c.structure) params.replace(params.find("STRUCTURE"), 9, structure);
        const std::string param_path = write(std::string(c.name) + ".json", params);
        const std::string out = std::string(c.name) + ".jsonl";
        const std::vector<std::string> argv = args(out, param_path, c.extra);
        ASSERT_EQ(run(argv), 0) << log;

        const json meta = json::parse(readFile(dir / (out + ".meta.json")));
        EXPECT_EQ(meta["karven_meta"], 1);
        EXPECT_EQ(meta["command_line"], json(argv));
        EXPECT_EQ(meta["output"], (dir / out).string());
        EXPECT_EQ(meta["technology"]["path"], kStack);
        EXPECT_EQ(meta["technology"]["sha256"], stack_digest);
        EXPECT_EQ(meta["parameter_file"], param_path);
        EXPECT_EQ(meta["precision"], 0.05);
        EXPECT_EQ(meta["seed"], 3);
        EXPECT_EQ(meta["nthreads"], 1);
        EXPECT_EQ(meta["merge_diel"], true);
        EXPECT_EQ(meta["shard"], json(c.shard));
        EXPECT_EQ(meta["resume"], false);

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
        // 0.13 thick, M7 is 0.4 wide at least.
        EXPECT_NEAR(meta["layers"][0]["z_bottom"].get<double>(), 0.30, 1e-12);
        EXPECT_NEAR(meta["layers"][0]["z_top"].get<double>(), 0.43, 1e-12);
        EXPECT_EQ(meta["layers"][6]["name"], "M7");
        EXPECT_EQ(meta["layers"][6]["wmin"], 0.4);

        const std::vector<std::string> samples = lines(dir / out);
        EXPECT_EQ(meta["samples_written"], static_cast<int64_t>(samples.size()));
        EXPECT_EQ(meta["samples_written"], c.samples);
        // One wire and the plate per sample, the plate's row derived from the wire's: one solve
        // each, and again for a redrawn sample.
        const uint64_t solves = meta["solves"], walks = meta["walks"], hops = meta["hops"];
        EXPECT_GE(solves, samples.size());
        // One walker per solve, which stops only after whole batches; every walk hops once
        // at least.
        EXPECT_EQ(walks % kWalkBatch, 0u);
        EXPECT_GE(walks, kWalkBatch * solves);
        EXPECT_GE(hops, walks);

        const json& p = meta["parameters"];
        if (c.structure) {
            EXPECT_EQ(p, json({{"structure_input", structure}, {"window", 8.0}}));
            EXPECT_EQ(meta["structure"]["path"], structure);
            EXPECT_EQ(meta["structure"]["sha256"], sha256sum(structure));
            continue;
        }
        EXPECT_FALSE(meta.contains("structure"));
        const json given = json::parse(params)["Random"];
        // Given keys keep their values, the others show their defaults.
        EXPECT_EQ(p["nsamples"], given["nsamples"]);
        EXPECT_EQ(p["poisson_lambda"], 0);
        EXPECT_EQ(p["exponent_base"], given.value("exponent_base", 0.75));
        EXPECT_EQ(p["nlayers"], 5);
        EXPECT_EQ(p["fixed_layers"], json::array());
        EXPECT_EQ(p["window_layer"], "");
        EXPECT_EQ(p["structure_input"], "");
        EXPECT_EQ(p["conductor_window"], given["conductor_window"]);
        // A negative window becomes twice the conductor window.
        const double window = given["window"];
        EXPECT_EQ(p["window"], window < 0 ? 2 * given["conductor_window"].get<double>() : window);
    }
}

TEST_F(Metadata, SampleLinesKeepTheirFormat) {
    const std::string params = write(
        "p.json",
        R"({"Random": {"nsamples": 2, "poisson_lambda": 1, "window": 10, "conductor_window": 4}})");
    ASSERT_EQ(run(args("s.jsonl", params)), 0) << log;
    const std::vector<std::string> samples = lines(dir / "s.jsonl");
    ASSERT_EQ(samples.size(), 2u);
    for (size_t i = 0; i < samples.size(); ++i) {
        const json sample = json::parse(samples[i]);
        // Compact, keys in this order, nothing added: the line as the sample writer makes it.
        EXPECT_EQ(samples[i], sample.dump());
        std::vector<std::string> keys;
        for (const auto& [key, value] : sample.items()) keys.push_back(key);
        EXPECT_EQ(keys, (std::vector<std::string>{"capacitances", "conductors", "id", "size"}));
        EXPECT_EQ(sample["id"], i);
        const size_t n = sample["size"];
        EXPECT_EQ(sample["conductors"].size(), n);
        EXPECT_EQ(sample["capacitances"].size(), n * n);
    }
    // The record names the sample file's lines but leaves them to the file.
    const std::string meta = readFile(dir / "s.jsonl.meta.json");
    EXPECT_EQ(meta.find("capacitances"), std::string::npos);
}

TEST_F(Metadata, AFailedRunWritesNoRecordAndKeepsAnOlderOne) {
    const std::string good = write(
        "good.json",
        R"({"Random": {"nsamples": 1, "poisson_lambda": 0, "window": 10, "conductor_window": 4}})");
    ASSERT_EQ(run(args("s.jsonl", good)), 0) << log;
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
            EXPECT_EQ(run(args(out, params)), 1) << log;
            EXPECT_NE(log.find(f.message), std::string::npos) << log;
        }
        EXPECT_EQ(readFile(dir / "s.jsonl.meta.json"), older);
        EXPECT_FALSE(fs::exists(dir / (fresh + ".meta.json")));
        EXPECT_FALSE(fs::exists(dir / (fresh + ".meta.json.part")));
        EXPECT_FALSE(fs::exists(dir / "s.jsonl.meta.json.part"));
    }
}
