// The command line and the run sequence: option table, output folder, parameter file, factory
// lookup and the totals line.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

#include "driver/karven.h"
#include "patterns/derived.h"
#include "patterns/generic.h"
#include "runtime/failure.h"
#include "technology/ctf_interpreter.h"

namespace fs = std::filesystem;

namespace {

// Runs the tool with `args`; returns its exit status and standard output and error together.
std::pair<int, std::string> runTool(const std::string& args) {
    std::string cmd = std::string(KARVEN_BINARY) + " " + args + " 2>&1";
    FILE* pipe = popen(cmd.c_str(), "r");
    std::string out;
    char buf[512];
    while (size_t n = fread(buf, 1, sizeof buf, pipe)) out.append(buf, n);
    int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

// What the run handed the family registered as "Random" during a RunSequence test.
struct Recorded {
    std::string output_path;
    KARVEN::json params;
    int calls = 0;
} recorded;

struct RecordingFamily : KARVEN::GenericStructure {
    RecordingFamily() : GenericStructure("Random", AnyPair) {}
    KARVEN::ParameterSet getParameterSet(const KARVEN::Layers&) override { return {}; }
    KARVEN::Pattern actualStructure(const KARVEN::Layers&, const std::array<double, 4>&) override {
        return {};
    }
    int populate(const std::string& out, const MCTF::MiniCTF&, const KARVEN::json& params,
                 const KARVEN::ExtractionConfig&) override {
        recorded = {out, params, recorded.calls + 1};
        return 42;
    }
};

class RunSequence : public testing::Test {
protected:
    void SetUp() override {
        KARVEN::PatternFactory::regist("Random",
                                       [] { return std::make_unique<RecordingFamily>(); });
        recorded = {};
        dir = fs::path(testing::TempDir()) / ("karven_run_" + std::to_string(getpid()));
        fs::remove_all(dir);
        fs::create_directories(dir);
        stack.appendConductor("M1", 0.5, 0.2);
        stack.appendDielectric("D0", 0.0, 2.0, 3.9);
        stack.finishStack();
    }
    void TearDown() override {
        // Put the real family back for the other tests of this binary.
        KARVEN::PatternFactory::regist("Random", [] { return std::make_unique<KARVEN::Random>(); });
        fs::remove_all(dir);
    }
    // Runs the sequence quietly; returns {stdout, stderr}.
    std::pair<std::string, std::string> generate(const std::string& output,
                                                 const std::string& params = "") {
        KarvenConfig c;
        c.output_path = output;
        c.param_json_path = params;
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        KARVEN::Karven::generate(c, stack);
        std::string out = testing::internal::GetCapturedStdout();
        return {out, testing::internal::GetCapturedStderr()};
    }
    std::string writeParams(const std::string& text) {
        fs::path p = dir / "params.json";
        std::ofstream(p) << text;
        return p.string();
    }

    fs::path dir;
    MCTF::MiniCTF stack;
};

}  // namespace

TEST(CommandLine, HelpListsOptionsInOrderWithTheirTexts) {
    auto [status, out] = runTool("--help");
    EXPECT_EQ(status, 0);
    size_t at = 0;
    for (const char* line : {
             "KARVEN: Pattern Generator",
             "-i,--input TEXT             Input CTF file path",
             "-o,--output TEXT            Output file path",
             "-n,--nthreads INT           Number of threads (default: max available)",
             "-p,--precision FLOAT        Precsion (default: 0.005)",
             "--merge-diel BOOLEAN        Merge dielectrics (default: true)",
             "--tmp-folder TEXT           Temporary folder for output (default: tmp/)",
             "--param-json TEXT           Parameter JSON file path (default: none)",
             "--seed INT                  Random seed (default: 1)",
         }) {
        at = out.find(line, at);
        ASSERT_NE(at, std::string::npos) << "missing or out of order: " << line << "\n" << out;
    }
}

TEST(CommandLine, ValuedMergeDielAndBadOptions) {
    // --merge-diel takes a value; the run then finds no CTF file and stops there.
    auto [status, out] = runTool("--merge-diel false -o x/out.jsonl");
    EXPECT_EQ(status, 1);
    EXPECT_NE(out.find("[FATAL] Can not open CTF file \"\"."), std::string::npos) << out;
    EXPECT_FALSE(fs::exists("x"));

    auto [bad, badOut] = runTool("--bogus");
    EXPECT_EQ(bad, 109);  // CLI11's code for an extra argument
    EXPECT_NE(badOut.find("The following argument was not expected: --bogus"), std::string::npos);
    for (const char* args : {"--merge-diel", "--merge-diel maybe", "-p fast"})
        EXPECT_NE(runTool(args).first, 0) << args;
}

TEST(OutputFolder, CutsAtTheLastSeparatorOfEitherKind) {
    EXPECT_EQ(KARVEN::outputFolder("a/b/c.jsonl"), "a/b");
    EXPECT_EQ(KARVEN::outputFolder("a/b\\c.jsonl"), "a/b");
    EXPECT_EQ(KARVEN::outputFolder("c.jsonl"), "");
    EXPECT_EQ(KARVEN::outputFolder("/x.jsonl"), "");
}

TEST_F(RunSequence, OutputFolderCasesAndTotalsLine) {
    std::string nested = (dir / "a/b/c.jsonl").string();
    auto [out, err] = generate(nested);
    EXPECT_TRUE(fs::is_directory(dir / "a/b"));
    EXPECT_FALSE(fs::exists(nested));
    EXPECT_EQ(recorded.output_path, nested);
    EXPECT_TRUE(
        std::regex_match(out, std::regex(R"(Total solve count: 42, elapsed time: \S+ s\n)")))
        << out;

    // A bare file name is a file in the current folder: no folder is made.
    fs::path cwd = fs::current_path();
    fs::current_path(dir);
    generate("c.jsonl");
    fs::current_path(cwd);
    EXPECT_FALSE(fs::exists(dir / "c.jsonl"));
    EXPECT_EQ(recorded.output_path, "c.jsonl");
    EXPECT_EQ(recorded.calls, 2);

    // A folder that cannot be made ends the run before the family runs.
    std::ofstream(dir / "file") << "x";
    KarvenConfig c;
    c.output_path = (dir / "file/sub/out.jsonl").string();
    try {
        KARVEN::Karven::generate(c, stack);
        FAIL() << "a folder under a file cannot be made";
    } catch (const KARVEN::FatalError& e) {
        EXPECT_EQ(std::string(e.what()),
                  "Error: Unable to create folder " + (dir / "file/sub").string());
    }
    EXPECT_EQ(recorded.calls, 2);
}

TEST_F(RunSequence, ParameterFileCases) {
    std::string out = (dir / "o.jsonl").string();
    KarvenConfig c;
    c.output_path = out;
    c.param_json_path = (dir / "missing.json").string();
    EXPECT_THROW(KARVEN::Karven::generate(c, stack), KARVEN::FatalError);
    EXPECT_EQ(recorded.calls, 0);
    generate(out, writeParams("{}"));
    EXPECT_EQ(recorded.params, KARVEN::json::object());
    generate(out, writeParams(R"({"Random": {"nsamples": 3}, "AAG": {"0": 1}})"));
    EXPECT_EQ(recorded.params, KARVEN::json::parse(R"({"nsamples": 3})"));

    c.param_json_path = writeParams("[1, 2]");
    EXPECT_THROW(KARVEN::Karven::generate(c, stack), KARVEN::FatalError);
    c.param_json_path = writeParams("{\"Random\": ");
    EXPECT_THROW(KARVEN::Karven::generate(c, stack), KARVEN::FatalError);
    EXPECT_EQ(recorded.calls, 2);
}

// The tool links the technology library as this test does; every statement and table class
// must reach the reader, or its keyword would fall back to the generic element reader.
TEST(ToolLinking, EveryCtfStatementAndTableClassIsRegistered) {
    for (const char* name : {"CtfConductor",
                             "CtfContact_gate_table",
                             "CtfDensity_box",
                             "CtfDielectric",
                             "CtfDiff_gate_table",
                             "CtfEtch_contact_gate_spacing",
                             "CtfEtch_width_length",
                             "CtfEtch_width_spacing",
                             "CtfGate2Diff_cap",
                             "CtfILD_thickness",
                             "CtfMaskEtchTable",
                             "CtfMultiGate",
                             "CtfRHO_SI_width_thickness",
                             "CtfRHO_width_spacing",
                             "CtfRPSQ_SI_width",
                             "CtfRPSQ_width_spacing",
                             "CtfRPV_Area",
                             "CtfRPV_width_length",
                             "CtfSAMT_VPT",
                             "CtfSideTan_width_spacing",
                             "CtfSpacer_er_vs_width_spacing",
                             "CtfTSV",
                             "CtfTSVCeffTable",
                             "CtfThickness_bottom_width",
                             "CtfThickness_density",
                             "CtfThickness_density_width",
                             "CtfThickness_polynomial",
                             "CtfThickness_width_spacing",
                             "CtfVia"}) {
        EXPECT_NE(registeredCtfProcessor(name), nullptr) << name;
    }
}
