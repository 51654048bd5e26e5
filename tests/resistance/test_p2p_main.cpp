// The point-to-point run and the karven-p2p tool: patterns, switches, the report checked against
// the pseudo-inverse of each net, and every failure's message and exit status.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <map>

#include "resistance/rp2p_main.h"
#include "resistance_test_util.h"
#include "runtime/pargument.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

const std::string kExamples = KARVEN_SOURCE_DIR "/examples/p2p/";

class P2PRun : public ::testing::Test {
protected:
    void SetUp() override {
        PARG::clear();
        dir = rtest::tempDir();
    }
    void TearDown() override { PARG::clear(); }

    // Runs a job on `input` (its kind by the extension) and returns its result; the log lands in
    // `log` and the report's text in `report`.
    int run(const std::string& input, const std::string& src, const std::string& dst,
            std::string report_file = "") {
        if (report_file.empty()) report_file = (dir / "report.txt").string();
        RP2Pmain job;
        const std::string kind = std::filesystem::path(input).extension();
        (kind == ".spf"       ? job.dspf_file
         : kind == ".rmatrix" ? job.rmatrix_file
                              : job.rnetwork_file) = input;
        job.src_pin = src;
        job.dst_pin = dst;
        job.report_file = report_file;
        job.nets = nets;
        testing::internal::CaptureStdout();
        const int r = job.run();
        log = testing::internal::GetCapturedStdout();
        report = rtest::readText(report_file);
        return r;
    }

    std::filesystem::path dir;
    std::vector<std::string> nets;
    std::string log, report;
};

}  // namespace

TEST(P2PPatterns, WildcardsBecomeRegularExpressionsAndOddCharactersAreRefused) {
    for (const auto& [in, out, is_pattern] : std::vector<std::tuple<std::string, std::string, int>>{
             {"a?b*", "a.b.*", 1}, {"M1:G", "M1:G", 0}, {"", "", 0}, {"*:GATE", ".*:GATE", 1}}) {
        std::string got = "junk";
        int flag = 7;
        EXPECT_EQ(RP2Pmain::convertRegex(in, got, flag), 1) << in;
        EXPECT_EQ(got, out);
        EXPECT_EQ(flag, is_pattern) << in;
    }
    std::string got;
    int flag;
    for (const std::string bad : {"a b", "a\tb", "x[1]", "a+", "(a)", "a|b", "^a$", "a\\b", "{2}"})
        EXPECT_EQ(RP2Pmain::convertRegex(bad, got, flag), 0) << bad;
}

TEST_F(P2PRun, SwitchesInRangeReachTheSolverAndOthersLeaveItsValues) {
    auto tuning = [](const RP2PSolver& s) {
        return std::tuple(s.trim_threshold, s.cg_tolerance, s.cg_iter_rate, s.cg_iter_limit,
                          s.cg_iter_threshold);
    };
    RP2PSolver s;
    RP2Pmain::readOptions(s);
    EXPECT_EQ(s.trim_threshold, 3000);  // the switch's default, not the solver's own
    for (const char* key : {"P2P_NETWORK_TRIM_THRESHOLD", "P2P_CG_TOL", "P2P_CG_ITER_RATE",
                            "P2P_CG_ITER_LIMIT", "P2P_CG_ITER_MATRIX_THRESHOLD"})
        PARG::regArgument(key, "-1");
    s = RP2PSolver();
    RP2Pmain::readOptions(s);
    EXPECT_EQ(tuning(s), tuning(RP2PSolver()));
    // In range, zero included for the matrix threshold.
    const char* in_range[][2] = {
        {"P2P_USE_CG_SOLVER", "2"},    {"P2P_USE_NETWORK_TRIM", "0"},
        {"P2P_BATCH_MODE", "0"},       {"P2P_BATCH_MODE_THRESHOLD", "10"},
        {"P2P_FORCE_BATCH_MODE", "1"}, {"P2P_CG_ITER_MATRIX_THRESHOLD", "0"}};
    for (const auto& kv : in_range) PARG::regArgument(kv[0], kv[1]);
    const RP2Pmain::BatchOptions b = RP2Pmain::readOptions(s);
    EXPECT_EQ(std::vector<long>({s.use_cg, s.use_trim, s.cg_iter_threshold, b.batch_mode,
                                 b.batch_threshold, b.force_batch}),
              std::vector<long>({1, 0, 0, 0, 10, 1}));
}

TEST_F(P2PRun, ReportMatchesThePseudoInverseOnEveryPathAndInput) {
    std::vector<RNetwork> design;
    std::vector<RLayer> layers;
    std::vector<double> values;
    ASSERT_EQ(RNLoader().load(kExamples + "design.rn", design, layers, values), 1);
    // Pair by pair with and without the trim, by conjugate gradients, and the batch path: the
    // same report each time.
    nets = {"OUT", "nosuch", "VDD"};
    std::string first;
    for (const auto& switches : std::vector<std::vector<std::pair<std::string, std::string>>>{
             {{"P2P_BATCH_MODE", "0"}, {"P2P_NETWORK_TRIM_THRESHOLD", "0"}},
             {{"P2P_BATCH_MODE", "0"}, {"P2P_USE_NETWORK_TRIM", "0"}},
             {{"P2P_FORCE_BATCH_MODE", "1"}},
             {{"P2P_USE_CG_SOLVER", "1"}, {"P2P_BATCH_MODE", "0"}}}) {
        PARG::clear();
        for (const auto& [k, v] : switches) PARG::regArgument(k, v);
        ASSERT_EQ(run(kExamples + "design.rn", "*", "*"), 1) << log;
        EXPECT_THAT(log, HasSubstr("[WARNING] Net nosuch is not in the input."));
        EXPECT_THAT(log, Not(HasSubstr("Failed to solve")));  // no pair of a pin with itself
        if (first.empty()) first = report;
        EXPECT_EQ(report, first);
    }
    // The nets in the order asked for; in each, every unordered pair of named nodes by ascending
    // ids with its resistance by the pseudo-inverse.
    std::string want;
    for (int id : {2, 1}) {
        const RNetwork& net = design[id];
        const std::map<long, std::string> named(net.node_names.begin(), net.node_names.end());
        want += "NET [" + net.name + "]\n";
        for (auto a = named.begin(); a != named.end(); ++a)
            for (auto b = std::next(a); b != named.end(); ++b)
                want += "\t" + a->second + "\t" + b->second + "\t" +
                        std::to_string(rtest::pseudoInverseResistance(net, a->first, b->first)) +
                        "\n";
    }
    EXPECT_EQ(first, want);
    // By hand: (0.5 + 0.25) || 1.5, and then 0.75 in series.
    EXPECT_THAT(first, HasSubstr("NET [OUT]\n\tuOUT\tM1:D\t0.500000\n\tuOUT\tM2:D\t1.250000\n"));

    nets.clear();
    ASSERT_EQ(run(kExamples + "inverter.spf", "uOUT", "M*"), 1) << log;
    EXPECT_EQ(report, "NET [IN]\nNET [OUT]\n\tuOUT\tMN1:D\t4.772727\n\tuOUT\tMP1:D\t4.772727\n");
    ASSERT_EQ(run(kExamples + "ladder.rmatrix", "A", "?"), 1) << log;
    EXPECT_EQ(report,
              "NET [ladder.rmatrix]\n\tA\tB\t1.600000\n\tA\tC\t2.500000\n");  // 2 || 8, 5 || 5
}

TEST_F(P2PRun, FailuresAreLoggedWithTheirMessages) {
    rtest::writeText(dir / "bad.rn", "<UNIT ACTUALITY>\n<TOTAL NETS x>\n");
    const std::string d = dir.string() + "/", design = kExamples + "design.rn";
    for (const auto& [input, src, dst, report_file, message] :
         std::vector<std::array<std::string, 5>>{
             {d + "none.rn", "*", "*", "", "[ERROR] Failed to load Tessal Rnetwork FILE: "},
             {d + "none.spf", "*", "*", "", "[ERROR] Failed to load SPF file: "},
             {d + "none.rmatrix", "*", "*", "", "[ERROR] Failed to load rMatrix file: "},
             {d + "bad.rn", "*", "*", "", "line 2: the header is not as required"},
             {design, "u(1)", "*", "",
              "[ERROR] P2P_SRC_PIN :\"u(1)\" contains invalid characters."},
             {design, "*", "M 1", "", "[ERROR] P2P_DST_PIN :\"M 1\" contains invalid characters."},
             {design, "*", "*", d + "no/r",
              "[ERROR] Failed to write p2p report file: " + d + "no/r."}}) {
        EXPECT_EQ(run(input, src, dst, report_file), 0) << message;
        EXPECT_THAT(log, HasSubstr(message));
        EXPECT_FALSE(std::filesystem::exists(dir / "report.txt"));
    }
    // Pins in two pieces: a warning, and the run goes on, pair by pair and in a batch.
    rtest::writeText(dir / "split.rmatrix", "uP M1:S 1\nN M2:S 1\n");
    for (const char* batch : {"0", "1"}) {
        PARG::regArgument("P2P_BATCH_MODE", batch);
        EXPECT_EQ(run(d + "split.rmatrix", "uP", "M*"), 1) << batch;
        EXPECT_THAT(log, HasSubstr("[WARNING] Failed to solve p2p resistance (uP - M2:S).\n"));
        EXPECT_EQ(report, "NET [split.rmatrix]\n\tuP\tM1:S\t1.000000\n");
    }
}

TEST_F(P2PRun, ToolRunsEndToEndAndItsStatusTellsSuccessFromFailure) {
    const std::string tool = KARVEN_P2P_BINARY, out = (dir / "out.txt").string();
    const std::string to_report = " -o " + (dir / "tool.txt").string();
    auto status = [&](const std::string& args) {
        const int s = std::system((tool + " " + args + to_report + " > " + out + " 2>&1").c_str());
        return WIFEXITED(s) ? WEXITSTATUS(s) : -1;
    };
    const std::string design = kExamples + "design.rn";
    ASSERT_EQ(
        status("--rnetwork " + design + " --src 'u*' --dst 'M?:*' --cmd " + kExamples + "p2p.cmd"),
        0)
        << rtest::readText(out);
    ASSERT_EQ(run(design, "u*", "M?:*"), 1);  // the same run in process, without the job file
    EXPECT_EQ(rtest::readText(dir / "tool.txt"), report);

    for (const auto& [args, message] : std::vector<std::pair<std::string, std::string>>{
             {"--rnetwork none.rn --src a --dst b", "Failed to load Tessal Rnetwork FILE: "},
             {"--rnetwork " + design + " --src 'a(' --dst b", "contains invalid characters."},
             {"--rnetwork " + design + " --src a --dst b --cmd none.cmd",
              "Can not open Dravix cmd file"}}) {
        EXPECT_EQ(status(args), 1) << args;
        EXPECT_THAT(rtest::readText(out), HasSubstr(message));
    }
    EXPECT_NE(status("--rnetwork " + design + " --dspf x --src a --dst b"), 0);
    EXPECT_NE(status("--rnetwork " + design + " --dst b"), 0);
}
