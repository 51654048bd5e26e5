// The point-to-point run and the karven-p2p tool: patterns, switches, the report checked against
// the pseudo-inverse of each net, and every failure's message and exit status.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "resistance/rp2p_main.h"
#include "resistance_test_util.h"
#include "runtime/pargument.h"

using ::testing::HasSubstr;

namespace {

const std::filesystem::path kExamples =
    std::filesystem::path(KARVEN_SOURCE_DIR) / "examples" / "p2p";

class P2PRun : public ::testing::Test {
protected:
    void SetUp() override {
        PARG::clear();
        dir = rtest::tempDir();
    }
    void TearDown() override { PARG::clear(); }

    // Runs the job and returns its result; the log lines land in `log`.
    int run(RP2Pmain& job) {
        if (job.report_file.empty()) job.report_file = (dir / "report.txt").string();
        testing::internal::CaptureStdout();
        const int r = job.run();
        log = testing::internal::GetCapturedStdout();
        return r;
    }

    std::filesystem::path dir;
    std::string log;
};

// Report lines as (net, a, b, value).
struct Line {
    std::string net, a, b;
    double value;
};

std::vector<Line> parseReport(const std::string& text) {
    std::vector<Line> out;
    std::istringstream in(text);
    std::string net;
    for (std::string l; std::getline(in, l);) {
        if (l.rfind("NET [", 0) == 0) {
            net = l.substr(5, l.size() - 6);
            continue;
        }
        std::istringstream w(l);
        Line line{net, "", "", 0};
        w >> line.a >> line.b >> line.value;
        out.push_back(line);
    }
    return out;
}

long nodeNamed(const RNetwork& net, const std::string& name) {
    for (const auto& [id, n] : net.node_names)
        if (n == name) return id;
    return -1;
}

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
    for (const std::string bad :
         {"a b", "a\tb", "x[1]", "a+", "(a)", "a|b", "^a$", "a\\b", "{2}"}) {
        std::string got;
        int flag;
        EXPECT_EQ(RP2Pmain::convertRegex(bad, got, flag), 0) << bad;
    }
}

TEST(P2POptions, SwitchesFillTheSolverWithinTheirRanges) {
    PARG::clear();
    RP2PSolver s;
    RP2Pmain::readOptions(s);
    EXPECT_EQ(s.trim_threshold, 3000);  // the read default, not the initial 1000
    for (const auto& [k, v] :
         std::vector<std::pair<std::string, std::string>>{{"P2P_NETWORK_TRIM_THRESHOLD", "-5"},
                                                          {"P2P_CG_TOL", "-1"},
                                                          {"P2P_CG_ITER_MATRIX_THRESHOLD", "0"},
                                                          {"P2P_CG_ITER_RATE", "0"},
                                                          {"P2P_CG_ITER_LIMIT", "-2"},
                                                          {"P2P_USE_CG_SOLVER", "2"},
                                                          {"P2P_USE_NETWORK_TRIM", "0"},
                                                          {"P2P_BATCH_MODE", "0"},
                                                          {"P2P_BATCH_MODE_THRESHOLD", "10"},
                                                          {"P2P_FORCE_BATCH_MODE", "1"}})
        PARG::regArgument(k, v);
    RP2PSolver t;
    const RP2Pmain::BatchOptions b = RP2Pmain::readOptions(t);
    EXPECT_EQ(t.trim_threshold, 1000);  // out of range: the initial values stay
    EXPECT_EQ(t.cg_tolerance, 1e-12);
    EXPECT_EQ(t.cg_iter_rate, 3);
    EXPECT_EQ(t.cg_iter_limit, 30000);
    EXPECT_EQ(t.cg_iter_threshold, 0);  // zero is in range here
    EXPECT_EQ(t.use_cg, 1);
    EXPECT_EQ(t.use_trim, 0);
    EXPECT_EQ(b.batch_mode, 0);
    EXPECT_EQ(b.batch_threshold, 10);
    EXPECT_EQ(b.force_batch, 1);
    PARG::clear();
}

TEST_F(P2PRun, ReportMatchesThePseudoInverseOnEveryPathAndInput) {
    std::vector<RNetwork> design;
    std::vector<RLayer> layers;
    std::vector<double> values;
    RNLoader loader;
    ASSERT_EQ(loader.load((kExamples / "design.rn").string(), design, layers, values), 1);
    // Pair by pair with and without the trim, then the batch path: the same report each time.
    std::string first;
    for (auto switches : std::vector<std::vector<std::pair<std::string, std::string>>>{
             {{"P2P_BATCH_MODE", "0"}, {"P2P_NETWORK_TRIM_THRESHOLD", "0"}},
             {{"P2P_BATCH_MODE", "0"}, {"P2P_USE_NETWORK_TRIM", "0"}},
             {{"P2P_FORCE_BATCH_MODE", "1"}},
             {{"P2P_USE_CG_SOLVER", "1"}, {"P2P_BATCH_MODE", "0"}}}) {
        PARG::clear();
        for (const auto& [k, v] : switches) PARG::regArgument(k, v);
        RP2Pmain job;
        job.rnetwork_file = (kExamples / "design.rn").string();
        job.src_pin = "u*";
        job.dst_pin = "M?:*";
        ASSERT_EQ(run(job), 1) << log;
        const std::string report = rtest::readText(dir / "report.txt");
        if (first.empty()) first = report;
        EXPECT_EQ(report, first);
    }
    const auto lines = parseReport(first);
    ASSERT_EQ(lines.size(), 5u) << first;
    for (const Line& l : lines) {
        SCOPED_TRACE(l.net + " " + l.a + " " + l.b);
        const RNetwork& net = l.net == "VDD" ? design[1] : design[2];
        EXPECT_EQ(l.a[0], 'u');
        EXPECT_NEAR(l.value,
                    rtest::pseudoInverseResistance(net, nodeNamed(net, l.a), nodeNamed(net, l.b)),
                    1e-6);
    }
    EXPECT_THAT(first, HasSubstr("NET [VDD]\n\tuVDD\tM2:S\t"));
    EXPECT_THAT(first, HasSubstr("\tuVDD\tM1:S\t1.500000\n"));  // opposite corners of a 3 x 3 mesh
    EXPECT_THAT(first, HasSubstr("NET [OUT]\n\tuOUT\tM1:D\t0.500000\n\tuOUT\tM2:D\t1.250000\n"));

    RP2Pmain spf;
    spf.dspf_file = (kExamples / "inverter.spf").string();
    spf.src_pin = "uOUT";
    spf.dst_pin = "M*";
    ASSERT_EQ(run(spf), 1) << log;
    EXPECT_EQ(rtest::readText(dir / "report.txt"),
              "NET [IN]\nNET [OUT]\n\tuOUT\tMN1:D\t4.772727\n\tuOUT\tMP1:D\t4.772727\n");

    RP2Pmain matrix;
    matrix.rmatrix_file = (kExamples / "ladder.rmatrix").string();
    matrix.src_pin = "A";
    matrix.dst_pin = "?";
    ASSERT_EQ(run(matrix), 1) << log;
    EXPECT_EQ(rtest::readText(dir / "report.txt"),
              "NET [ladder.rmatrix]\n\tA\tB\t1.600000\n\tA\tC\t2.500000\n");  // 2 || 8, 5 || 5
}

TEST_F(P2PRun, PairsAreSolvedOnceAndNetsFollowTheSelection) {
    RP2Pmain job;
    job.rnetwork_file = (kExamples / "design.rn").string();
    job.src_pin = "*";
    job.dst_pin = "*";
    job.nets = {"OUT", "nosuch", "VDD"};
    ASSERT_EQ(run(job), 1) << log;
    EXPECT_THAT(log, HasSubstr("[WARNING] Net nosuch is not in the input."));
    const std::string report = rtest::readText(dir / "report.txt");
    EXPECT_EQ(report.substr(0, 10), "NET [OUT]\n");
    const auto lines = parseReport(report);
    // Three named nodes in OUT and four in VDD: 3 + 6 unordered pairs, none with itself.
    ASSERT_EQ(lines.size(), 9u) << report;
    std::set<std::pair<std::string, std::string>> seen;
    for (const Line& l : lines) {
        EXPECT_NE(l.a, l.b);
        EXPECT_TRUE(seen.insert({std::min(l.a, l.b), std::max(l.a, l.b)}).second) << l.a << l.b;
    }
}

TEST_F(P2PRun, FailuresAreLoggedWithTheirMessages) {
    for (const auto& [file, message] : std::vector<std::pair<std::string, std::string>>{
             {"none.rn", "Failed to load Tessal Rnetwork FILE: "},
             {"none.spf", "Failed to load SPF file: "},
             {"none.rmatrix", "Failed to load rMatrix file: "}}) {
        RP2Pmain a;
        const std::string path = (dir / file).string();
        (file == "none.rn"    ? a.rnetwork_file
         : file == "none.spf" ? a.dspf_file
                              : a.rmatrix_file) = path;
        a.src_pin = a.dst_pin = "*";
        EXPECT_EQ(run(a), 0);
        EXPECT_THAT(log, HasSubstr("[ERROR] " + message + path + ".\n"));
        EXPECT_FALSE(std::filesystem::exists(dir / "report.txt"));
    }
    {
        SCOPED_TRACE("a malformed network file: the reader's text, then the run's");
        rtest::writeText(dir / "bad.rn", "<UNIT ACTUALITY>\n<TOTAL NETS x>\n");
        RP2Pmain a;
        a.rnetwork_file = (dir / "bad.rn").string();
        a.src_pin = a.dst_pin = "*";
        EXPECT_EQ(run(a), 0);
        EXPECT_THAT(log, HasSubstr("line 2: the header is not as required"));
        EXPECT_THAT(log, HasSubstr("Failed to load Tessal Rnetwork FILE: "));
    }
    {
        SCOPED_TRACE("invalid patterns");
        RP2Pmain a;
        a.rnetwork_file = (kExamples / "design.rn").string();
        a.src_pin = "u(1)";
        a.dst_pin = "*";
        EXPECT_EQ(run(a), 0);
        EXPECT_THAT(log, HasSubstr("[ERROR] P2P_SRC_PIN :\"u(1)\" contains invalid characters.\n"));
        a.src_pin = "*";
        a.dst_pin = "M 1";
        EXPECT_EQ(run(a), 0);
        EXPECT_THAT(log, HasSubstr("[ERROR] P2P_DST_PIN :\"M 1\" contains invalid characters.\n"));
        EXPECT_FALSE(std::filesystem::exists(dir / "report.txt"));
    }
    {
        SCOPED_TRACE("an unwritable report");
        RP2Pmain a;
        a.rnetwork_file = (kExamples / "design.rn").string();
        a.src_pin = a.dst_pin = "*";
        a.report_file = (dir / "no" / "report.txt").string();
        EXPECT_EQ(run(a), 0);
        EXPECT_THAT(log, HasSubstr("[ERROR] Failed to write p2p report file: " + a.report_file));
    }
    for (const char* batch : {"0", "1"}) {
        SCOPED_TRACE(std::string("pins in two pieces, and a net without a match; batch ") + batch);
        PARG::regArgument("P2P_BATCH_MODE", batch);
        std::vector<RNetwork> nets(3);
        nets[1].name = "split";
        for (int i = 0; i < 4; ++i) nets[1].addNode(i, 0, 1);
        nets[1].addResistor(0, 1, 1);
        nets[1].addResistor(2, 3, 1);
        nets[1].node_names = {{0, "uP"}, {1, "M1:S"}, {3, "M2:S"}};
        nets[2].name = "other";
        nets[2].addNode(0, 0, 1);
        nets[2].addNode(1, 0, 1);
        nets[2].addResistor(0, 1, 1);
        nets[2].node_names = {{0, "x"}};
        RNWriter w;
        ASSERT_EQ(w.write((dir / "split.rn").string(), nets, {}, {}), 1);
        RP2Pmain a;
        a.rnetwork_file = (dir / "split.rn").string();
        a.src_pin = "uP";
        a.dst_pin = "M*";
        EXPECT_EQ(run(a), 1);
        EXPECT_THAT(log, HasSubstr("[WARNING] Failed to solve p2p resistance (uP - M2:S).\n"));
        EXPECT_EQ(rtest::readText(dir / "report.txt"),
                  "NET [split]\n\tuP\tM1:S\t1.000000\nNET [other]\n");
    }
}

TEST_F(P2PRun, ToolRunsEndToEndAndItsStatusTellsSuccessFromFailure) {
    const std::string tool = KARVEN_P2P_BINARY;
    const std::string report = (dir / "tool.txt").string();
    const std::string out = (dir / "out.txt").string();
    auto status = [&](const std::string& args) {
        const int s = std::system((tool + " " + args + " > " + out + " 2>&1").c_str());
        return WIFEXITED(s) ? WEXITSTATUS(s) : -1;
    };
    const std::string design = (kExamples / "design.rn").string();
    ASSERT_EQ(status("--rnetwork " + design + " --src 'u*' --dst 'M?:*' --cmd " +
                     (kExamples / "p2p.cmd").string() + " -o " + report),
              0)
        << rtest::readText(out);
    RP2Pmain job;  // the same run in process, without the job file
    job.rnetwork_file = design;
    job.src_pin = "u*";
    job.dst_pin = "M?:*";
    ASSERT_EQ(run(job), 1);
    EXPECT_EQ(rtest::readText(report), rtest::readText(dir / "report.txt"));

    for (const auto& [args, message] : std::vector<std::pair<std::string, std::string>>{
             {"--rnetwork none.rn --src a --dst b", "Failed to load Tessal Rnetwork FILE: "},
             {"--rnetwork " + design + " --src 'a(' --dst b", "contains invalid characters."},
             {"--rnetwork " + design + " --src a --dst b --cmd none.cmd",
              "Can not open Dravix cmd file"}}) {
        EXPECT_EQ(status(args + " -o " + report), 1) << args;
        EXPECT_THAT(rtest::readText(out), HasSubstr(message));
    }
    EXPECT_NE(status("--rnetwork " + design + " --dspf x --src a --dst b -o " + report), 0);
    EXPECT_NE(status("--rnetwork " + design + " --dst b -o " + report), 0);

    // A generated network of 40,000 nodes: a grid whose corner pins the tool solves like the
    // solver itself, with the trim and the batch switches at their defaults.
    std::mt19937 rng(2);
    std::vector<RNetwork> nets(2);
    nets[1] = rtest::grid("big", 200, 200, rng, 0.5, 1.5);
    nets[1].node_names = {{0, "uBIG"}, {199, "M1:S"}, {39999, "M2:S"}, {20100, "M3:S"}};
    RNWriter w;
    ASSERT_EQ(w.write((dir / "big.rn").string(), nets, {}, {}), 1);
    ASSERT_EQ(
        status("--rnetwork " + (dir / "big.rn").string() + " --src uBIG --dst 'M*' -o " + report),
        0);
    const auto lines = parseReport(rtest::readText(report));
    ASSERT_EQ(lines.size(), 3u);
    RP2PSolver s;
    s.loadNetwork(nets[1], -1);
    s.use_trim = 0;
    for (const Line& l : lines)
        EXPECT_NEAR(l.value, s.solveP2pResistances(0, nodeNamed(nets[1], l.b)), 1e-6) << l.b;
}
