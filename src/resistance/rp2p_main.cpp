#include "resistance/rp2p_main.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <regex>
#include <set>
#include <unordered_map>
#include <utility>

#include "resistance/rdspf.h"
#include "resistance/text_input.h"
#include "runtime/logger.h"
#include "runtime/pargument.h"
#include "runtime/ptimer.h"

int RP2Pmain::convertRegex(const std::string& in, std::string& out, int& is_pattern) {
    out.clear();
    is_pattern = 0;
    static const std::string kInvalid = "\\^$|+()[]{}";
    for (char c : in) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (u <= ' ' || u == 0x7f || kInvalid.find(c) != std::string::npos) return 0;
        if (c == '?') {
            out += '.';
            is_pattern = 1;
        } else if (c == '*') {
            out += ".*";
            is_pattern = 1;
        } else {
            out += c;
        }
    }
    return 1;
}

void RP2Pmain::getWords(const std::string& line, std::vector<std::string>& words) {
    RNLoader::getWords(line, words);
}

bool RP2Pmain::loadRMatrix(const std::string& path, RNetwork& net) {
    std::ifstream in(path);
    if (!in) return false;
    net = RNetwork();
    const size_t slash = path.find_last_of('/');
    net.name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::unordered_map<std::string, long> ids;
    std::vector<std::string> w;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '[') continue;
        getWords(line, w);
        double value = 0;
        if (w.size() != 3 || !RNIO::toDouble(w[2], value) || value < 0) continue;
        long end[2];
        for (int k = 0; k < 2; ++k) {
            auto [it, inserted] = ids.try_emplace(w[k], net.nodeCount());
            if (inserted) {
                net.addNode(0, 0, 0);
                net.node_names[it->second] = w[k];
            }
            end[k] = it->second;
        }
        // A matrix lists each pair in both orders; one resistor per pair.
        if (end[0] < end[1]) net.addResistor(end[0], end[1], value);
    }
    return true;
}

namespace {

// Matches one name against a pin pattern: a regular expression when it holds wildcards, plain
// comparison otherwise.
struct PinMatcher {
    std::string text;
    std::regex re;
    bool is_pattern = false;

    bool matches(const std::string& name) const {
        return is_pattern ? std::regex_match(name, re) : name == text;
    }
};

// The named nodes of `net` (not removed) that match, by ascending id.
std::vector<long> matchingNodes(const RNetwork& net, const PinMatcher& m) {
    std::vector<long> out;
    for (const auto& [id, name] : net.node_names)
        if (id >= 0 && id < net.nodeCount() && !net.isRemoved(id) && m.matches(name))
            out.push_back(id);
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

RP2Pmain::BatchOptions RP2Pmain::readOptions(RP2PSolver& solver) {
    if (const double v = PARG::get("P2P_CG_TOL", -1.0); v > 0) solver.cg_tolerance = v;
    if (const int v = PARG::get("P2P_CG_ITER_MATRIX_THRESHOLD", -1); v >= 0)
        solver.cg_iter_threshold = v;
    if (const int v = PARG::get("P2P_CG_ITER_RATE", -1); v > 0) solver.cg_iter_rate = v;
    if (const int v = PARG::get("P2P_CG_ITER_LIMIT", -1); v > 0) solver.cg_iter_limit = v;
    if (PARG::get("P2P_USE_CG_SOLVER", 0) != 0) solver.use_cg = 1;
    solver.use_trim = PARG::get("P2P_USE_NETWORK_TRIM", 1) != 0 ? 1 : 0;
    if (const int v = PARG::get("P2P_NETWORK_TRIM_THRESHOLD", 3000); v >= 0)
        solver.trim_threshold = v;
    BatchOptions b;
    b.batch_mode = PARG::get("P2P_BATCH_MODE", 1);
    b.batch_threshold = PARG::get("P2P_BATCH_MODE_THRESHOLD", 3000);
    b.force_batch = PARG::get("P2P_FORCE_BATCH_MODE", 0);
    return b;
}

int RP2Pmain::run() {
    if (src_pin.empty()) return 0;
    PinMatcher src, dst;
    if (!convertRegex(src_pin, src_regex, src_is_pattern)) {
        PLOG::log(4) << "P2P_SRC_PIN :\"" << src_pin << "\" contains invalid characters."
                     << PLOG::endl;
        return 0;
    }
    if (!convertRegex(dst_pin, dst_regex, dst_is_pattern)) {
        PLOG::log(4) << "P2P_DST_PIN :\"" << dst_pin << "\" contains invalid characters."
                     << PLOG::endl;
        return 0;
    }
    // The refused characters leave only names, "." and ".*", which always compile.
    src = {src_pin, std::regex(src_is_pattern ? src_regex : ""), src_is_pattern != 0};
    dst = {dst_pin, std::regex(dst_is_pattern ? dst_regex : ""), dst_is_pattern != 0};

    std::vector<RNetwork> design;
    PTimer load_timer;
    if (!dspf_file.empty()) {
        try {
            RDspfLoader loader;
            loader.load(dspf_file, design);
        } catch (const std::exception& e) {
            PLOG::log(4) << e.what() << PLOG::endl;
            PLOG::log(4) << "Failed to load SPF file: " << dspf_file << "." << PLOG::endl;
            return 0;
        }
        PLOG::log(2) << "SPF file " << dspf_file << " loaded, time costs " << load_timer.stop()
                     << "." << PLOG::endl;
    } else if (!rmatrix_file.empty()) {
        design.resize(2);
        if (!loadRMatrix(rmatrix_file, design[1])) {
            PLOG::log(4) << "Failed to load rMatrix file: " << rmatrix_file << "." << PLOG::endl;
            return 0;
        }
    } else if (!rnetwork_file.empty()) {
        std::vector<RLayer> layers;
        std::vector<double> values;
        bool ok = false;
        try {
            RNLoader loader;
            ok = loader.load(rnetwork_file, design, layers, values) == 1;
        } catch (const std::exception& e) {
            PLOG::log(4) << e.what() << PLOG::endl;
        }
        if (!ok) {
            PLOG::log(4) << "Failed to load Tessal Rnetwork FILE: " << rnetwork_file << "."
                         << PLOG::endl;
            return 0;
        }
        PLOG::log(2) << "Tessal Rnetwork loaded, time costs " << load_timer.stop() << "."
                     << PLOG::endl;
    } else {
        return 0;
    }

    RP2PSolver solver;
    solver.verbose = verbose;
    const BatchOptions batch_options = readOptions(solver);

    std::FILE* report = std::fopen(report_file.c_str(), "w");
    if (!report) {
        PLOG::log(4) << "Failed to write p2p report file: " << report_file << "." << PLOG::endl;
        return 0;
    }

    std::vector<size_t> selected;
    if (nets.empty()) {
        for (size_t i = 1; i < design.size(); ++i) selected.push_back(i);
    } else {
        std::unordered_map<std::string, size_t> by_name;
        for (size_t i = design.size(); i-- > 1;) by_name[design[i].name] = i;  // first one wins
        for (const std::string& name : nets) {
            auto it = by_name.find(name);
            if (it == by_name.end()) {
                PLOG::log(3) << "Net " << name << " is not in the input." << PLOG::endl;
                continue;
            }
            selected.push_back(it->second);
        }
    }

    for (size_t id : selected) {
        RNetwork& net = design[id];
        PLOG::log(2) << "NET [" << net.name << "]" << PLOG::endl;
        std::fprintf(report, "NET [%s]\n", net.name.c_str());
        PTimer net_timer;
        solver.clear();
        solver.loadNetwork(net, -1);
        const std::vector<long> sources = matchingNodes(net, src);
        const std::vector<long> destinations = matchingNodes(net, dst);
        // Distinct unordered pairs, in the order of the sources and then the destinations.
        std::vector<long> from, to;
        std::set<std::pair<long, long>> done;
        for (long s : sources)
            for (long d : destinations) {
                if (s == d || !done.insert({std::min(s, d), std::max(s, d)}).second) continue;
                from.push_back(s);
                to.push_back(d);
            }
        std::vector<double> results;
        const bool batch =
            batch_options.force_batch != 0 ||
            (batch_options.batch_mode != 0 && static_cast<long>(batch_options.batch_threshold) >=
                                                  static_cast<long>(solver.all_nodes.size()));
        if (batch) {
            solver.batchsolveCurrentFirst(from, to, results);
        } else {
            results.resize(from.size());
            for (size_t i = 0; i < from.size(); ++i)
                results[i] = solver.solveP2pResistances(from[i], to[i]);
        }
        for (size_t i = 0; i < from.size(); ++i) {
            const std::string& a = net.node_names[from[i]];
            const std::string& b = net.node_names[to[i]];
            if (results[i] < 0) {
                PLOG::log(3) << "Failed to solve p2p resistance (" << a << " - " << b << ")."
                             << PLOG::endl;
                continue;
            }
            std::fprintf(report, "\t%s\t%s\t%f\n", a.c_str(), b.c_str(), results[i]);
        }
        PLOG::log(2) << "NET [" << net.name << "] time costs " << net_timer.stop() << PLOG::endl;
    }
    const bool written = !std::ferror(report);
    if (std::fclose(report) != 0 || !written) {
        PLOG::log(4) << "Failed to write p2p report file: " << report_file << "." << PLOG::endl;
        return 0;
    }
    return 1;
}
