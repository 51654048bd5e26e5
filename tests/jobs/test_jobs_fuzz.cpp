// Bounded damaged input for the four job-file readers, with fixed seeds: every truncation of a
// valid file, and random soups of its words and line breaks. Nothing may crash, hang or throw
// through the checked forms, and what a successful read returns keeps its invariants.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "jobs/text_parser.h"
#include "jobs_test_util.h"
#include "runtime/pargument.h"

using jobs_test::JobFileTest;

namespace {

const std::string kJob =
    "CTF_FILE tech.ctf\nTECH_LAYER_MAP map.txt\nQUERY_CMD q.cmd\nMAGNIFICATION 0.5\n"
    "INTERNAL_COORD_RESOLUTION 1000\nIGNORE_MOS_DEVICE RETAIN_GATE_DIFFUSION_COUPLING\n"
    "VIA_CAP V1 V2\nPOWER_NETS VDD VSS\nEXTRACT_NETS a b a\nEXTRACT_RNETS c a\n"
    "OUTPUT_GDS YES\nDISABLE_DFM ALL\nR_STANDALONE x\nEXTRACT_MODE rc\nSKIP_CELLS !f* c$1\n"
    "DISTRIBUTED_CAP3D_DIR d_1\nDRAVIX_AUTO_CACHE_LIMIT 4\nDRAVIX_CACHE_DIR c\n"
    "# comment\nP2P_USE_CG_SOLVER 1\n";
const std::string kQuery =
    "GDS WRITE out.gds\nLAYOUT NETLIST WRITE top.net\nLAYOUT NAMETABLE WRITE names.txt\n"
    "LAYOUT SEPARATED PROPERTIES WRITE props.txt\nPORT TABLE CELLS WRITE ports.txt\n"
    "RESPONSE FILE gds.map\nGDS MAP\nDEVICE TABLE\nRESPONSE DIRECT\n# end\n";
const std::string kNames = "# nets\n1 VDD\n2 VSS\n12 clk extra\n% c\n";
const std::string kPorts = "A 1 A 3 4 in TOP\nB 2 B 3 4 out TOP\nC 5 C 6 7 io OTHER\n";

std::vector<std::string> tokens(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> out;
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

// The words of `text` in random order and number, with random blanks, tabs and line breaks, and
// now and then a damaged byte.
std::string soup(const std::string& text, std::mt19937& rng) {
    const auto words = tokens(text);
    static const char* const gaps[] = {" ", "\t", "\n", "\n", "\n\n", "  "};
    std::uniform_int_distribution<std::size_t> count(0, 3 * words.size());
    std::string s;
    for (std::size_t n = count(rng); n > 0; --n) {
        s += words[rng() % words.size()];
        s += gaps[rng() % 6];
    }
    if (!s.empty() && rng() % 4 == 0) s[rng() % s.size()] = static_cast<char>(rng() % 256);
    return s;
}

class JobsFuzz : public JobFileTest {
protected:
    // Runs every reader on `text`; fails the test on an exception or a broken invariant.
    void readAll(const std::string& text) {
        const std::string path = write("in put.txt", text);
        try {
            PARG::clear();
            Task job;
            if (TextParser::parseDravixCmd(path.c_str(), job)) {
                for (const std::string* p : {&job.ctf_file, &job.tech_layer_map, &job.query_cmd})
                    EXPECT_TRUE(p->empty() || (*p)[0] == '/') << *p;
                std::set<std::string> unique(job.extract_nets.begin(), job.extract_nets.end());
                EXPECT_EQ(unique.size(), job.extract_nets.size());
            }
            Task q;
            if (TextParser::readQueryCmd(path, q)) {
                for (const std::string* p :
                     {&q.gds_map_file, &q.device_table_file, &q.gds_file, &q.layout_netlist_file,
                      &q.layout_nametable_file, &q.separated_properties_file, &q.port_table_file})
                    EXPECT_TRUE(p->empty() || (*p)[0] == '/') << *p;
            }
            std::map<std::int32_t, std::string> names;
            if (TextParser::readNetName(path, names)) {
                for (const auto& [number, name] : names) EXPECT_FALSE(name.empty()) << number;
            }
            std::vector<PortEntry> ports;
            EXPECT_TRUE(TextParser::parsePortTable(path, ports, "TOP"));
            for (const PortEntry& p : ports) EXPECT_EQ(p.alias, p.name);
        } catch (const std::exception& e) {
            ADD_FAILURE() << "escaped: " << e.what() << "\ninput:\n" << text;
        }
    }
    // The readers' messages are many and expected: keep them off the test's output.
    void SetUp() override {
        JobFileTest::SetUp();
        testing::internal::CaptureStdout();
    }
    void TearDown() override {
        testing::internal::GetCapturedStdout();
        JobFileTest::TearDown();
    }
};

}  // namespace

TEST_F(JobsFuzz, EveryTruncationOfValidFiles) {
    for (const std::string* valid : {&kJob, &kQuery, &kNames, &kPorts})
        for (std::size_t n = 0; n <= valid->size(); ++n) readAll(valid->substr(0, n));
}

TEST_F(JobsFuzz, RandomSoupsOfValidWords) {
    std::mt19937 rng(20261122);
    const std::string all = kJob + kQuery + kNames + kPorts;
    for (int i = 0; i < 300; ++i) {
        readAll(soup(kJob, rng));
        readAll(soup(kQuery, rng));
        readAll(soup(kNames + kPorts, rng));
        readAll(soup(all, rng));
    }
}
