// Bounded damaged input for the four job-file readers, with fixed seeds: every truncation of a
// valid file, and random soups of its words and line breaks. Nothing may crash, hang or throw
// through the checked forms, and what a successful read returns keeps its invariants.
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "jobs_test_util.h"

namespace {

const std::vector<std::string> kValid = {
    "CTF_FILE tech.ctf\nTECH_LAYER_MAP map.txt\nQUERY_CMD q.cmd\nMAGNIFICATION 0.5\n"
    "IGNORE_MOS_DEVICE RETAIN_GATE_DIFFUSION_COUPLING\nVIA_CAP V1 V2\nEXTRACT_NETS a b a\n"
    "EXTRACT_RNETS c a\nDISABLE_DFM ALL\nR_STANDALONE x\nEXTRACT_MODE rc\nSKIP_CELLS !f* c$1\n"
    "DRAVIX_AUTO_CACHE_LIMIT 4\nDRAVIX_CACHE_DIR c\n# comment\nP2P_USE_CG_SOLVER 1\n",
    "GDS WRITE out.gds\nLAYOUT NETLIST WRITE top.net\nLAYOUT NAMETABLE WRITE names.txt\n"
    "LAYOUT SEPARATED PROPERTIES WRITE props.txt\nPORT TABLE CELLS WRITE ports.txt\n"
    "RESPONSE FILE gds.map\nGDS MAP\nDEVICE TABLE\nRESPONSE DIRECT\n# end\n",
    "# nets\n1 VDD\n2 VSS\n12 clk extra\n% c\nA 1 A 3 4 in TOP\nC 5 C 6 7 io OTHER\n"};

class JobsFuzz : public jobs_test::JobFileTest {
protected:
    // Runs every reader on `text`; fails the test on an exception or a broken invariant.
    void readAll(const std::string& text) {
        const std::string path = write("in put.txt", text);
        auto absolute = [](const std::string& p) { return p.empty() || p[0] == '/'; };
        try {
            logged([&] {
                PARG::clear();
                Task job;
                if (TextParser::parseDravixCmd(path.c_str(), job)) {
                    for (const auto* p : {&job.ctf_file, &job.tech_layer_map, &job.query_cmd})
                        EXPECT_TRUE(absolute(*p)) << *p;
                    const std::set<std::string> unique(job.extract_nets.begin(),
                                                       job.extract_nets.end());
                    EXPECT_EQ(unique.size(), job.extract_nets.size());
                }
                Task q;
                const bool query = TextParser::readQueryCmd(path, q);
                for (const auto* p : {&q.gds_map_file, &q.device_table_file, &q.gds_file,
                                      &q.layout_netlist_file, &q.port_table_file})
                    EXPECT_TRUE(!query || absolute(*p)) << *p;
                std::map<std::int32_t, std::string> names;
                TextParser::readNetName(path, names);
                for (const auto& [number, name] : names) EXPECT_FALSE(name.empty()) << number;
                std::vector<PortEntry> ports;
                EXPECT_TRUE(TextParser::parsePortTable(path, ports, "TOP"));
                for (const PortEntry& p : ports) EXPECT_EQ(p.alias, p.name);
                return 0;
            });
        } catch (const std::exception& e) {
            ADD_FAILURE() << "escaped: " << e.what() << "\ninput:\n" << text;
        }
    }
};

}  // namespace

TEST_F(JobsFuzz, EveryTruncationAndRandomSoupsOfValidWords) {
    for (const std::string& valid : kValid)
        for (std::size_t n = 0; n <= valid.size(); ++n) readAll(valid.substr(0, n));
    // The words of a valid file in random order and number, with random blanks and line breaks,
    // and now and then a damaged byte.
    std::mt19937 rng(20261122);
    static const char* const gaps[] = {" ", "\t", "\n", "\n", "\n\n", "  "};
    for (int i = 0; i < 900; ++i) {
        std::istringstream in(kValid[i % 3]);
        std::vector<std::string> words;
        for (std::string w; in >> w;) words.push_back(w);
        std::string s;
        for (std::size_t n = rng() % (3 * words.size()); n > 0; --n)
            s += words[rng() % words.size()] + gaps[rng() % 6];
        if (!s.empty() && rng() % 4 == 0) s[rng() % s.size()] = static_cast<char>(rng() % 256);
        readAll(s);
    }
}
