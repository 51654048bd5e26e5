#include "resistance/rdspf.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <limits>
#include <set>
#include <stdexcept>

#include "resistance/text_input.h"
#include "resistance/text_output.h"

using RNIO::put;
using RNIO::putFixed;

// ---------------------------------------------------------------------------------------------
// Writer

const char* RDspfWriter::pinName(char letter, size_t pin_count, size_t pos) {
    static const char* const kDiode[] = {"ANODE", "CATHODE"};
    static const char* const kBipolar[] = {"COLL", "BASE", "EMIT"};
    static const char* const kMos[] = {"DRN", "GATE", "SRC", "BULK"};
    const bool diode = letter == 'D' || (letter == 'X' && pin_count == 2);
    const bool bipolar = letter == 'Q' || (letter == 'X' && pin_count == 3);
    if (diode) return pos < 2 ? kDiode[pos] : "";
    if (bipolar) return pos < 3 ? kBipolar[pos] : "";
    return pos < 4 ? kMos[pos] : "";
}

bool RDspfWriter::write(const std::string& path, std::vector<RNetwork>& nets,
                        std::vector<long> net_ids, const Subckt& subckt,
                        const std::vector<RDspfInstance>& instances,
                        const std::vector<std::string>& more) {
    file_ = std::fopen(path.c_str(), "w");
    if (!file_) return false;
    std::vector<char> buffer(1048576);
    std::setvbuf(file_, buffer.data(), _IOFBF, buffer.size());
    writeDspfHead(nets, subckt);
    writeRNetworks(nets, std::move(net_ids));
    writeInstance(nets, instances, more);
    const bool ok = !std::ferror(file_);
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    return ok && closed;
}

void RDspfWriter::writeDspfHead(const std::vector<RNetwork>& nets, const Subckt& subckt) {
    const std::time_t now = std::time(nullptr);
    char date[64] = "";
    if (const char* text = std::ctime(&now)) {
        std::snprintf(date, sizeof date, "%s", text);
        date[std::strcspn(date, "\n")] = '\0';
    }
    std::fprintf(file_,
                 "*\n*|DSPF 1.5\n*\n*|DATE \"%s\"\n*|VENDOR \"Orvelle Technology\"\n*|PROGRAM "
                 "\"Dravix\"\n*|VERSION \"1.0\"\n*|DESIGN \"%s\"\n*|DIVIDER /\n*|DELIMITER "
                 ":\n*|DiviceFingerDelim \"@\"\n*|BUSBIT []\n*\n.SUBCKT %s",
                 date, subckt.name.c_str(), subckt.name.c_str());
    for (const std::string& port : subckt.ports) {
        long id = 0;
        put(file_, ' ');
        if (RNIO::toLong(port, id) && id >= 1 && id < static_cast<long>(nets.size())) {
            put(file_, nets[id].name);
        } else {
            put(file_, "ln_");
            put(file_, port);
        }
    }
    put(file_, '\n');
}

void RDspfWriter::writeRNetworks(std::vector<RNetwork>& nets, std::vector<long> net_ids) {
    std::sort(net_ids.begin(), net_ids.end());
    net_ids.erase(std::unique(net_ids.begin(), net_ids.end()), net_ids.end());
    static constexpr std::string_view kGround = "__signalGND";
    std::vector<std::string_view> names;  // a named node's DSPF name
    std::vector<long> subnode;            // a subnode's running number, 0 for others
    std::set<std::string_view> ports_written;
    for (long id : net_ids) {
        if (id < 1 || id >= static_cast<long>(nets.size())) continue;
        RNetwork& net = nets[id];
        if (net.name.empty()) continue;
        if (net.name.size() >= kGround.size() &&
            net.name.compare(net.name.size() - kGround.size(), kGround.size(), kGround) == 0)
            continue;
        put(file_, "*|NET ");
        put(file_, net.name);
        put(file_, " 0PF\n");
        const long n = net.nodeCount();
        names.assign(n, std::string_view());
        subnode.assign(n, 0);
        ports_written.clear();
        long running = 0;
        auto removed = net.removed_nodes.begin();
        for (long v = 0; v < n; ++v) {
            while (removed != net.removed_nodes.end() && *removed < v) ++removed;
            if (removed != net.removed_nodes.end() && *removed == v) continue;
            const double x = net.nodes[v].first * scale, y = net.nodes[v].second * scale;
            auto named = net.node_names.find(v);
            if (named == net.node_names.end()) {
                subnode[v] = ++running;
                std::fprintf(file_, "*|S (%s:%ld %.3f %.3f)\n", net.name.c_str(), running, x, y);
                continue;
            }
            const std::string_view full = named->second;
            if (!full.empty() && full[0] == 'u') {
                names[v] = full.substr(1);
                if (ports_written.insert(names[v]).second)
                    std::fprintf(file_, "*|P (%.*s O 0 %.3f %.3f)\n",
                                 static_cast<int>(names[v].size()), names[v].data(), x, y);
                continue;
            }
            names[v] = full;
            const size_t colon = full.find(':');
            const std::string_view inst = full.substr(0, colon);
            const std::string_view pin =
                colon == std::string_view::npos ? std::string_view() : full.substr(colon + 1);
            const char type = pin == "GATE" || pin == "G" ? 'I' : 'B';
            std::fprintf(file_, "*|I (%s %.*s %.*s %c 0 %.3f %.3f)\n", named->second.c_str(),
                         static_cast<int>(inst.size()), inst.data(), static_cast<int>(pin.size()),
                         pin.data(), type, x, y);
        }
        auto putEnd = [&](long v) {
            if (subnode[v] > 0) {
                put(file_, net.name);
                put(file_, ':');
                put(file_, subnode[v]);
            } else {
                put(file_, names[v]);
            }
        };
        for (size_t i = 0; i < net.res_from.size(); ++i) {
            const long a = net.res_from[i], b = net.res_to[i];
            // A resistor to a removed node (or outside the net) has no name to refer to.
            auto known = [&](long v) {
                return v >= 0 && v < n && (subnode[v] > 0 || !names[v].empty());
            };
            if (!known(a) || !known(b)) continue;
            put(file_, 'R');
            put(file_, id);
            put(file_, '_');
            put(file_, static_cast<long>(i));
            put(file_, ' ');
            putEnd(a);
            put(file_, ' ');
            putEnd(b);
            put(file_, ' ');
            putFixed(file_, fixed_value ? value : std::max(net.res_value[i], min_value), 6);
            put(file_, '\n');
        }
        put(file_, '\n');
    }
    put(file_, '\n');
}

void RDspfWriter::writeInstance(const std::vector<RNetwork>& nets,
                                const std::vector<RDspfInstance>& instances,
                                const std::vector<std::string>& more) {
    put(file_, "*\n*Instance Section\n*\n");
    for (const RDspfInstance& inst : instances) {
        if (inst.prefix.empty()) {
            std::fprintf(file_, "%c%s%s ", inst.letter, inst.name.c_str(), inst.suffix.c_str());
        } else {
            std::fprintf(file_, "%s%c%s ", inst.prefix.c_str(), inst.letter, inst.name.c_str());
        }
        for (size_t p = 0; p < inst.pins.size(); ++p) {
            const long net = inst.pins[p];
            if (p < inst.pin_has_node.size() && inst.pin_has_node[p]) {
                std::fprintf(file_, "d%s:%s ", inst.name.c_str(),
                             pinName(inst.letter, inst.pins.size(), p));
            } else if (net >= 1 && net < static_cast<long>(nets.size())) {
                std::fprintf(file_, "%s ", nets[net].name.c_str());
            } else {
                std::fprintf(file_, "%ld ", net);
            }
        }
        std::fprintf(file_, "%s ", inst.model.c_str());
        for (const std::string& p : inst.params) std::fprintf(file_, "%s ", p.c_str());
        put(file_, '\n');
    }
    for (const std::string& line : more) {
        put(file_, line);
        put(file_, '\n');
    }
    put(file_, ".ENDS\n");
}

// ---------------------------------------------------------------------------------------------
// Reader

RDspfLoader::RDspfLoader() = default;
RDspfLoader::~RDspfLoader() = default;

void RDspfLoader::getWords(const std::string& line, std::vector<std::string>& words) {
    RNLoader::getWords(line, words);
}

void RDspfLoader::fail(const std::string& what) const {
    throw std::runtime_error(what);
}

namespace {

bool startsWith(std::string_view s, std::string_view prefix) {
    return s.substr(0, prefix.size()) == prefix;
}

bool blank(std::string_view s) {
    return s.find_first_not_of(" \t") == std::string_view::npos;
}

// "*Instance Section", in any case and spacing: where the nets end and the devices begin.
bool instanceSectionComment(std::string_view s) {
    if (s.empty() || s[0] != '*' || startsWith(s, "*|")) return false;
    std::string folded;
    for (char c : s.substr(1))
        if (c != ' ' && c != '\t')
            folded += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return folded == "instancesection";
}

int32_t toCoordinate(double v, double scale) {
    const double r = std::nearbyint(v / scale);
    if (!(r >= std::numeric_limits<int32_t>::min() && r <= std::numeric_limits<int32_t>::max()))
        return 0;
    return static_cast<int32_t>(r);
}

}  // namespace

bool RDspfLoader::nextLine(std::string& line) {
    std::string_view raw;
    if (!in_->next(raw)) return false;
    line.assign(raw);
    // Continuation lines belong to the line before: join them before it is classified.
    while (in_->next(raw)) {
        if (raw.empty() || raw[0] != '+') {
            in_->unread();
            break;
        }
        line += ' ';
        line.append(raw.substr(1));
    }
    return true;
}

long RDspfLoader::nodeFor(std::string_view name, RNetwork& net, std::string_view fields,
                          bool* is_new) {
    auto [it, inserted] = ids_.try_emplace(std::string(name), net.nodeCount());
    *is_new = inserted;
    if (inserted) {
        // The last two fields are the position; a node line without one stays at the origin.
        std::string_view w[16];
        const size_t n = std::min<size_t>(RNIO::splitWords(fields, w, 16), 16);
        double x = 0, y = 0;
        if (n >= 3 && RNIO::toDouble(w[n - 2], x) && RNIO::toDouble(w[n - 1], y)) {
            net.addNode(toCoordinate(x, scale), toCoordinate(y, scale), 0);
        } else {
            net.addNode(0, 0, 0);
        }
    }
    return it->second;
}

bool RDspfLoader::loadNet(RNetwork& net) {
    ids_.clear();
    std::string line;
    std::string_view w[5];
    for (;;) {
        if (!takeLine(line)) fail("Unexpected end of SPF file " + path_ + ": \".ENDS\" is missing");
        std::string_view s = line;
        if (blank(s)) continue;
        if (s.size() >= 8 && startsWith(s, "*|NET ")) {
            pending_ = line;
            has_pending_ = true;
            return true;
        }
        const char c = s[0];
        if (c == 'C' || c == 'c') continue;  // capacitors are not the solver's business
        if (c == 'R' || c == 'r') {
            if (RNIO::splitWords(s, w, 5) < 4) fail("Unrecognized spf line: " + line);
            long ends[2];
            for (int k = 0; k < 2; ++k) {
                auto it = ids_.find(std::string(w[1 + k]));
                if (it == ids_.end()) fail("Unrecognized node name: " + std::string(w[1 + k]));
                ends[k] = it->second;
            }
            double value = 0;
            if (!RNIO::toDouble(w[3], value)) fail("Invalid resistance value: " + line);
            net.addResistor(ends[0], ends[1], value);
            continue;
        }
        if (c == '.' || instanceSectionComment(s)) {
            section_end_ = true;
            pending_ = line;
            has_pending_ = true;
            return false;
        }
        if (c == '*' && !startsWith(s, "*|")) continue;  // a comment
        if (s.size() < 6 || !startsWith(s, "*|") || (s[2] != 'P' && s[2] != 'I' && s[2] != 'S') ||
            s.substr(3, 2) != " (")
            fail("Unrecognized spf line: " + line);
        std::string_view fields = s.substr(5);
        const size_t close = fields.find(')');
        if (close != std::string_view::npos) fields = fields.substr(0, close);
        const size_t space = fields.find_first_of(" \t");
        const std::string_view name = fields.substr(0, space);
        if (name.empty()) fail("Unrecognized spf line: " + line);
        bool is_new = false;
        const long id = nodeFor(name, net, fields, &is_new);
        if (s[2] == 'P') {
            net.node_names.try_emplace(id, "u" + std::string(name));
        } else if (s[2] == 'I') {
            net.node_names.try_emplace(id, std::string(name));
        }
    }
}

bool RDspfLoader::takeLine(std::string& line) {
    if (has_pending_) {
        has_pending_ = false;
        line.swap(pending_);
        return true;
    }
    return nextLine(line);
}

void RDspfLoader::load(const std::string& path, std::vector<RNetwork>& nets) {
    in_ = std::make_unique<RNIO::LineReader>();
    path_ = path;
    section_end_ = false;
    has_pending_ = false;
    if (!in_->open(path)) fail("Cannot open SPF file " + path);
    std::vector<RNetwork> read(1);
    std::string line;
    bool ended = false;
    // The head and the subcircuit line come before the first net.
    while (!ended && takeLine(line)) {
        if (startsWith(line, "*|NET ")) {
            has_pending_ = true;
            pending_.swap(line);
            break;
        }
        ended = startsWith(line, ".ENDS") || startsWith(line, ".ends");
    }
    while (!ended && !section_end_ && takeLine(line)) {
        std::string_view w[3];
        if (RNIO::splitWords(line, w, 3) < 2) fail("Unrecognized spf line: " + line);
        RNetwork net;
        net.name = std::string(w[1]);
        loadNet(net);
        read.push_back(std::move(net));
    }
    // After the nets: the instance section, which the solver does not need, up to ".ENDS".
    while (!ended && takeLine(line)) ended = startsWith(line, ".ENDS") || startsWith(line, ".ends");
    if (!ended) fail("Unexpected end of SPF file " + path_ + ": \".ENDS\" is missing");
    in_.reset();
    ids_.clear();
    nets.swap(read);
}
