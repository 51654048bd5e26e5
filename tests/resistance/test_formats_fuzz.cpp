// Damaged network and DSPF files, with fixed seeds: every cut of a valid file and random byte
// damage must end in either a clean load or std::runtime_error, never a crash, a hang or a
// silently shortened design.
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

#include "resistance/rdspf.h"
#include "resistance/rnetwork.h"
#include "resistance_test_util.h"

namespace {

// A corpus of valid files: small generated designs in both formats, and the hand-written DSPF.
struct Corpus {
    std::vector<std::string> networks;
    std::vector<std::string> dspfs;
};

Corpus makeCorpus(const std::filesystem::path& dir) {
    Corpus corpus;
    std::mt19937 rng(17);
    for (int k = 0; k < 2; ++k) {
        std::vector<RNetwork> nets(1);
        for (int i = 0; i < 2 + k; ++i) {
            RNetwork net = rtest::randomConnected(2 + rng() % 6, rng() % 3, rng);
            net.name = "n" + std::to_string(i);
            net.node_names[0] = "u" + net.name;
            net.node_names[1] = "M" + std::to_string(i) + ":G";
            if (net.nodeCount() > 3) net.removed_nodes.insert(1 + rng() % (net.nodeCount() - 2));
            nets.push_back(std::move(net));
        }
        RNWriter w;
        const auto rn = dir / ("c" + std::to_string(k) + ".rn");
        EXPECT_EQ(w.write(rn.string(), nets, {{"M1", 1}}, {0.1}), 1);
        corpus.networks.push_back(rtest::readText(rn));
        RDspfWriter d;
        const auto spf = dir / ("c" + std::to_string(k) + ".spf");
        std::vector<long> ids;
        for (size_t i = 1; i < nets.size(); ++i) ids.push_back(i);
        EXPECT_TRUE(d.write(spf.string(), nets, ids, {"top", {"1"}}, {}));
        corpus.dspfs.push_back(rtest::readText(spf));
    }
    corpus.dspfs.push_back(
        rtest::readText(std::filesystem::path(KARVEN_TEST_DIR) / "data" / "inverter.spf"));
    return corpus;
}

// Loads `text` as a network (or DSPF) file: 1 loaded, 0 runtime_error. The nets land in `nets`.
int load(const std::filesystem::path& dir, bool network, const std::string& text,
         std::vector<RNetwork>& nets) {
    const auto path = dir / (network ? "t.rn" : "t.spf");
    rtest::writeText(path, text);
    std::vector<RLayer> layers;
    std::vector<double> values;
    try {
        if (network) return RNLoader().load(path.string(), nets, layers, values);
        RDspfLoader().load(path.string(), nets);
        return 1;
    } catch (const std::runtime_error&) {
        return 0;
    }
}

// Total resistor count of a design: a shortened design loses some.
size_t resistors(const std::vector<RNetwork>& nets) {
    size_t n = 0;
    for (const RNetwork& net : nets) n += net.res_from.size();
    return n;
}

// Every resistor end and name lies inside its net.
bool consistent(const std::vector<RNetwork>& nets) {
    for (const RNetwork& net : nets) {
        for (size_t i = 0; i < net.res_from.size(); ++i)
            if (net.res_from[i] < 0 || net.res_from[i] >= net.nodeCount() || net.res_to[i] < 0 ||
                net.res_to[i] >= net.nodeCount())
                return false;
        for (const auto& [id, name] : net.node_names)
            if (id < 0 || id >= net.nodeCount()) return false;
    }
    return true;
}

}  // namespace

TEST(FormatsFuzz, EveryCutOfAValidFileFailsUnlessOnlyTheLastLineEndIsLost) {
    const auto dir = rtest::tempDir();
    const Corpus corpus = makeCorpus(dir);
    for (bool network : {true, false})
        for (const std::string& full : network ? corpus.networks : corpus.dspfs) {
            std::vector<RNetwork> whole;
            ASSERT_EQ(load(dir, network, full, whole), 1);
            // Past the last net's end (or ".ENDS") only line ends are left.
            const size_t complete = network ? full.rfind("</NET>") + 6 : full.rfind(".ENDS") + 5;
            for (size_t cut = 0; cut < full.size(); ++cut) {
                std::vector<RNetwork> nets;
                const int ok = load(dir, network, full.substr(0, cut), nets);
                ASSERT_EQ(ok, cut >= complete ? 1 : 0) << "cut at " << cut;
                EXPECT_EQ(ok ? resistors(nets) : resistors(whole), resistors(whole));
            }
        }
}

TEST(FormatsFuzz, RandomByteDamageLoadsConsistentlyOrFails) {
    const auto dir = rtest::tempDir();
    const Corpus corpus = makeCorpus(dir);
    static const std::string likely = "0123456789.-+ \t\n()<>/:*|RCPIS+eE";
    int loaded = 0, failed = 0;
    for (unsigned seed : {1u, 2u}) {
        std::mt19937 rng(seed);
        for (int iter = 0; iter < 500; ++iter) {
            const bool network = iter % 2 == 0;
            const auto& files = network ? corpus.networks : corpus.dspfs;
            std::string text = files[rng() % files.size()];
            const int damage = 1 + rng() % 3;
            for (int d = 0; d < damage; ++d) {
                const size_t at = rng() % text.size();
                switch (rng() % 3) {
                    case 0:
                        text[at] = likely[rng() % likely.size()];
                        break;
                    case 1:
                        text.erase(at, 1 + rng() % 8);
                        break;
                    default:
                        text.insert(at, 1, static_cast<char>(rng() % 256));
                }
                if (text.empty()) text = "x";
            }
            std::vector<RNetwork> nets;
            const int ok = load(dir, network, text, nets);
            SCOPED_TRACE("seed " + std::to_string(seed) + " iteration " + std::to_string(iter));
            if (ok) {
                ASSERT_TRUE(consistent(nets));
                ++loaded;
            } else {
                ++failed;
            }
        }
    }
    // Both outcomes occur: damage in names or values can leave a valid file.
    EXPECT_GT(loaded, 0);
    EXPECT_GT(failed, 0);
}
