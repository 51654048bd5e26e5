#include "resistance/rnetwork.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>
#include <stdexcept>
#include <string_view>

#include "resistance/text_input.h"
#include "resistance/text_output.h"

using RNIO::put;
using RNIO::putFixed;

// ---------------------------------------------------------------------------------------------
// Network model

void RAdjacency::build(long n, const std::vector<long>& from, const std::vector<long>& to) {
    offsets.assign(n + 1, 0);
    const size_t m = std::min(from.size(), to.size());
    auto valid = [n](long v) { return v >= 0 && v < n; };
    for (size_t i = 0; i < m; ++i) {
        if (!valid(from[i]) || !valid(to[i])) continue;
        ++offsets[from[i] + 1];
        ++offsets[to[i] + 1];
    }
    for (long v = 0; v < n; ++v) offsets[v + 1] += offsets[v];
    targets.resize(offsets[n]);
    std::vector<long> fill(offsets.begin(), offsets.end() - 1);
    for (size_t i = 0; i < m; ++i) {
        if (!valid(from[i]) || !valid(to[i])) continue;
        targets[fill[from[i]]++] = to[i];
        targets[fill[to[i]]++] = from[i];
    }
}

long RNetwork::addNode(int32_t x, int32_t y, int32_t layer) {
    nodes.emplace_back(x, y);
    node_layers.push_back(layer);
    return static_cast<long>(nodes.size()) - 1;
}

void RNetwork::addResistor(long from, long to, double value) {
    res_from.push_back(from);
    res_to.push_back(to);
    res_value.push_back(value);
}

void RNetwork::buildSearchMap() {
    search_map.clear();
    for (long i = 0; i < nodeCount(); ++i)
        if (!isRemoved(i)) search_map[nodes[i].first][nodes[i].second] = i;
}

void RNetwork::freeSearchMap() {
    search_map.clear();
}

long RNetwork::search(int x, int y) const {
    auto col = search_map.find(x);
    if (col == search_map.end()) return -1;
    auto hit = col->second.find(y);
    return hit == col->second.end() ? -1 : hit->second;
}

void RNetwork::countNodes() {
    node_counts.assign(nodes.size(), 0);
    const long n = nodeCount();
    for (size_t i = 0; i < res_from.size(); ++i) {
        if (res_from[i] >= 0 && res_from[i] < n) ++node_counts[res_from[i]];
        if (res_to[i] >= 0 && res_to[i] < n) ++node_counts[res_to[i]];
    }
    for (long r : removed_nodes)
        if (r >= 0 && r < n) node_counts[r] = -1;
}

int RNetwork::getNodeCount(long id) const {
    return id >= 0 && id < static_cast<long>(node_counts.size()) ? node_counts[id] : 0;
}

void RNetwork::checkConnectivity(std::map<int, std::vector<long>>* group_nodes) {
    const long n = nodeCount();
    groups.clear();
    adjacency.build(n, res_from, res_to);
    groups.assign(n, -1);
    long alive = n;
    for (long r : removed_nodes)
        if (r >= 0 && r < n) {
            groups[r] = -2;
            --alive;
        }
    // Breadth first from the lowest unlabelled node; the cursor only moves forward, so finding
    // the next seed costs nothing beyond one pass over the nodes.
    int g = -1;
    long labelled = 0, cursor = 0;
    std::vector<long> queue;
    queue.reserve(std::min<long>(n, 1 << 16));
    while (labelled < alive) {
        while (groups[cursor] != -1) ++cursor;
        ++g;
        groups[cursor] = g;
        ++labelled;
        queue.clear();
        queue.push_back(cursor);
        for (size_t head = 0; head < queue.size(); ++head) {
            const long v = queue[head];
            for (long k = adjacency.offsets[v]; k < adjacency.offsets[v + 1]; ++k) {
                const long w = adjacency.targets[k];
                if (groups[w] != -1) continue;
                groups[w] = g;
                ++labelled;
                queue.push_back(w);
            }
        }
    }
    group_count = g + 1;
    if (group_nodes) {
        group_nodes->clear();
        for (long v = 0; v < n; ++v)
            if (groups[v] >= 0) (*group_nodes)[groups[v]].push_back(v);
    }
}

void RNetwork::ensureGroups() {
    if (groups.size() != nodes.size()) checkConnectivity(nullptr);
}

std::vector<long> RNetwork::representatives() const {
    std::vector<double> sx(group_count, 0.0), sy(group_count, 0.0);
    std::vector<long> count(group_count, 0);
    const long n = nodeCount();
    for (long v = 0; v < n; ++v) {
        const int g = groups[v];
        if (g < 0) continue;
        sx[g] += nodes[v].first;
        sy[g] += nodes[v].second;
        ++count[g];
    }
    for (int g = 0; g < group_count; ++g)
        if (count[g] > 0) {
            sx[g] /= count[g];
            sy[g] /= count[g];
        }
    std::vector<long> rep(group_count, -1);
    std::vector<double> best(group_count, std::numeric_limits<double>::infinity());
    for (long v = 0; v < n; ++v) {
        const int g = groups[v];
        if (g < 0) continue;
        const double dx = nodes[v].first - sx[g], dy = nodes[v].second - sy[g];
        const double d = dx * dx + dy * dy;
        if (d < best[g]) {  // ascending ids: the lower id stays on a tie
            best[g] = d;
            rep[g] = v;
        }
    }
    return rep;
}

int RNetwork::fixGroups() {
    if (group_count < 2) return 0;
    ensureGroups();
    if (group_count < 2) return 0;
    const std::vector<long> rep = representatives();
    for (int g = 0; g + 1 < group_count; ++g) addResistor(rep[g], rep[g + 1], kTieValue);
    groups.clear();
    adjacency.clear();
    return 1;
}

int RNetwork::connectGroupsByPort() {
    if (group_count < 1) return 0;
    ensureGroups();
    if (group_count < 1) return 0;
    const std::string port_name = "u" + (name.empty() ? std::string("NONAME") : name);
    long port = -1;
    for (const auto& [id, node_name] : node_names)
        if (node_name == port_name && id >= 0 && id < nodeCount() && !isRemoved(id)) port = id;
    if (port >= 0 && group_count < 2) return 1;

    long closest = -1;
    if (port < 0) {
        double cx = 0, cy = 0;
        long count = 0;
        for (long v = 0; v < nodeCount(); ++v)
            if (groups[v] >= 0) {
                cx += nodes[v].first;
                cy += nodes[v].second;
                ++count;
            }
        cx /= count;
        cy /= count;
        double best = std::numeric_limits<double>::infinity();
        for (long v = 0; v < nodeCount(); ++v) {
            if (groups[v] < 0) continue;
            const double dx = nodes[v].first - cx, dy = nodes[v].second - cy;
            if (dx * dx + dy * dy < best) {
                best = dx * dx + dy * dy;
                closest = v;
            }
        }
        port = addNode(nodes[closest].first, nodes[closest].second, node_layers[closest]);
        node_names[port] = port_name;
        groups.push_back(groups[closest]);
        if (group_count < 2) {
            addResistor(port, closest, kTieValue);
            return 1;
        }
    }
    const std::vector<long> rep = representatives();
    const int own = groups[port];
    for (int g = 0; g < group_count; ++g) {
        if (closest >= 0 && g == own) {
            addResistor(port, closest, kTieValue);  // a new port joins its group at its own spot
        } else if (g != own) {
            addResistor(port, rep[g], kTieValue);
        }
    }
    return 1;
}

// ---------------------------------------------------------------------------------------------
// Network file writer

int RNWriter::write(const std::string& path, std::vector<RNetwork>& nets,
                    const std::vector<RLayer>& layers, const std::vector<double>& layer_values) {
    if (layers.size() != layer_values.size()) return 0;
    file_ = std::fopen(path.c_str(), "w");
    if (!file_) return 0;
    buffer_.resize(1048576);
    std::setvbuf(file_, buffer_.data(), _IOFBF, buffer_.size());
    put(file_, square_unit ? "<UNIT SQUARE>\n" : "<UNIT ACTUALITY>\n");
    put(file_, "<TOTAL NETS ");
    put(file_, static_cast<long>(nets.size()));
    put(file_, ">\n<TECHLAYER NAME>\n");
    for (size_t i = 0; i < layers.size(); ++i) {
        put(file_, '\t');
        put(file_, layers[i].name);
        put(file_, '\t');
        put(file_, static_cast<long>(layers[i].number));
        if (layer_values[i] >= 0) {
            put(file_, '\t');
            putFixed(file_, layer_values[i], 6);
        }
        put(file_, '\n');
    }
    put(file_, "</TECHLAYER NAME>\n\n");
    for (size_t id = 1; id < nets.size(); ++id) writenet(static_cast<int>(id), nets[id]);
    const bool ok = !std::ferror(file_);
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    buffer_.clear();
    buffer_.shrink_to_fit();
    return ok && closed ? 1 : 0;
}

void RNWriter::writenet(int id, RNetwork& net) {
    if (!file_) return;
    put(file_, "<NET ");
    put(file_, net.name);
    put(file_, ">\n\t<NETID ");
    put(file_, static_cast<long>(id));
    put(file_, ">\n\t<NODE NAME>\n");
    // Ascending ids rather than the hash map's order: the file then depends only on the net, and
    // a file read back and written again is byte for byte the same.
    std::vector<const std::pair<const long, std::string>*> named;
    named.reserve(net.node_names.size());
    for (const auto& entry : net.node_names) named.push_back(&entry);
    std::sort(named.begin(), named.end(), [](auto* a, auto* b) { return a->first < b->first; });
    for (const auto* entry : named) {
        put(file_, "\t\t");
        put(file_, entry->first);
        put(file_, '\t');
        put(file_, entry->second);
        put(file_, '\n');
    }
    put(file_, "\t</NODE NAME>\n\t<NODE>\n");
    auto removed = net.removed_nodes.begin();
    for (long i = 0; i < net.nodeCount(); ++i) {
        while (removed != net.removed_nodes.end() && *removed < i) ++removed;
        if (removed != net.removed_nodes.end() && *removed == i) continue;
        put(file_, "\t\t");
        put(file_, i);
        put(file_, "\t(");
        putFixed(file_, net.nodes[i].first * scale, 6);
        put(file_, ", ");
        putFixed(file_, net.nodes[i].second * scale, 6);
        put(file_, ")\t");
        put(file_, static_cast<long>(net.node_layers[i]));
        put(file_, '\n');
    }
    put(file_, "\t</NODE>\n\t<RV>\n");
    for (size_t i = 0; i < net.res_from.size(); ++i) {
        put(file_, "\t\t");
        put(file_, net.res_from[i]);
        put(file_, '\t');
        put(file_, net.res_to[i]);
        put(file_, '\t');
        putFixed(file_, fixed_value ? value : std::max(net.res_value[i], min_value), 6);
        put(file_, '\n');
    }
    put(file_, "\t</RV>\n</NET>\n\n");
}

// ---------------------------------------------------------------------------------------------
// Network file reader

RNLoader::RNLoader() = default;
RNLoader::~RNLoader() = default;

void RNLoader::getWords(const std::string& line, std::vector<std::string>& words) {
    words.clear();
    std::string_view w[64];
    const size_t n = RNIO::splitWords(line, w, 64);
    if (n <= 64) {
        for (size_t i = 0; i < n; ++i) words.emplace_back(w[i]);
        return;
    }
    size_t i = 0;  // more words than the fixed array holds: split again one by one
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
        const size_t start = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t') ++i;
        if (i > start) words.push_back(line.substr(start, i - start));
    }
}

void RNLoader::fail(const std::string& what) const {
    throw std::runtime_error("Network file " + path_ + " line " +
                             std::to_string(in_ ? in_->lineNumber() : 0) + ": " + what);
}

void RNLoader::expectLine(const char* text) {
    std::string_view line;
    if (!in_->next(line)) fail(std::string("unexpected end of file, expected \"") + text + "\"");
    if (line != text) fail(std::string("expected \"") + text + "\"");
}

int32_t RNLoader::toCoordinate(std::string_view word, char open, char close) {
    if (open) {
        if (word.empty() || word.front() != open) fail("bad coordinate");
        word.remove_prefix(1);
    }
    if (word.empty() || word.back() != close) fail("bad coordinate");
    word.remove_suffix(1);
    double v;
    if (!RNIO::toDouble(word, v)) fail("invalid number \"" + std::string(word) + "\"");
    const double r = std::nearbyint(v / scale);
    if (!(r >= std::numeric_limits<int32_t>::min() && r <= std::numeric_limits<int32_t>::max()))
        fail("coordinate out of range");
    return static_cast<int32_t>(r);
}

bool RNLoader::loadHeader() {
    std::string_view line;
    if (!in_->next(line)) return false;
    if (line == "<UNIT SQUARE>") {
        square_unit = true;
    } else if (line == "<UNIT ACTUALITY>") {
        square_unit = false;
    } else {
        return false;
    }
    static constexpr std::string_view kTotal = "<TOTAL NETS ";
    if (!in_->next(line) || line.substr(0, kTotal.size()) != kTotal || line.back() != '>')
        return false;
    std::string_view number = line.substr(kTotal.size(), line.size() - kTotal.size() - 1);
    if (!RNIO::toLong(number, total_) || total_ < 0) return false;
    if (!in_->next(line) || line != "<TECHLAYER NAME>") return false;
    layers_->clear();
    layer_values_->clear();
    std::string_view w[4];
    for (;;) {
        if (!in_->next(line)) return false;
        if (line == "</TECHLAYER NAME>") break;
        const size_t n = RNIO::splitWords(line, w, 4);
        if (n != 2 && n != 3) return false;
        RLayer layer{std::string(w[0]), 0};
        double value = -1.0;
        if (!RNIO::toInt(w[1], layer.number)) return false;
        if (n == 3 && !RNIO::toDouble(w[2], value)) return false;
        layers_->push_back(std::move(layer));
        layer_values_->push_back(value);
    }
    return true;
}

bool RNLoader::loadNet(int& id, RNetwork& net) {
    std::string_view line;
    do {  // blank lines separate the nets
        if (!in_->next(line)) return false;
    } while (line.empty());
    static constexpr std::string_view kNet = "<NET ", kNetId = "\t<NETID ";
    if (line.substr(0, kNet.size()) != kNet || line.back() != '>') fail("expected \"<NET \"");
    net = RNetwork();
    net.name = std::string(line.substr(kNet.size(), line.size() - kNet.size() - 1));
    if (!in_->next(line)) fail("unexpected end of file, expected \"<NETID \"");
    long net_id = 0;
    if (line.substr(0, kNetId.size()) != kNetId || line.back() != '>' ||
        !RNIO::toLong(line.substr(kNetId.size(), line.size() - kNetId.size() - 1), net_id))
        fail("expected \"<NETID \"");
    if (net_id < 1 || net_id >= total_) fail("net id " + std::to_string(net_id) + " out of range");
    id = static_cast<int>(net_id);

    // Ids far beyond what the file could describe are damage, not removed nodes: keep the
    // largest id within reach of the file's size so that a bad digit cannot exhaust memory.
    const long id_limit =
        std::min<long>(64 * in_->fileSize() + 65536, std::numeric_limits<int32_t>::max());
    std::string_view w[5];
    expectLine("\t<NODE NAME>");
    for (;;) {
        if (!in_->next(line)) fail("unexpected end of file in the node names");
        if (line == "\t</NODE NAME>") break;
        // The name is the rest of the line after the id and one tab.
        if (RNIO::splitWords(line, w, 2) < 2) fail("a node name line needs an id and a name");
        long node = 0;
        if (!RNIO::toLong(w[0], node)) fail("invalid node id \"" + std::string(w[0]) + "\"");
        if (node < 0 || node >= id_limit) fail("node id " + std::to_string(node) + " out of range");
        const size_t name_at = w[1].data() - line.data();
        std::string_view node_name = line.substr(name_at);
        while (!node_name.empty() && (node_name.back() == ' ' || node_name.back() == '\t'))
            node_name.remove_suffix(1);
        if (!net.node_names.emplace(node, std::string(node_name)).second)
            fail("node " + std::to_string(node) + " named twice");
    }
    expectLine("\t<NODE>");
    for (;;) {
        if (!in_->next(line)) fail("unexpected end of file in the nodes");
        if (line == "\t</NODE>") break;
        if (RNIO::splitWords(line, w, 5) != 4) fail("a node line needs 4 words");
        long node = 0;
        int layer = 0;
        if (!RNIO::toLong(w[0], node)) fail("invalid node id \"" + std::string(w[0]) + "\"");
        if (node < net.nodeCount()) fail("node id " + std::to_string(node) + " goes backward");
        if (node >= id_limit) fail("node id " + std::to_string(node) + " out of range");
        const int32_t x = toCoordinate(w[1], '(', ',');
        const int32_t y = toCoordinate(w[2], 0, ')');
        if (!RNIO::toInt(w[3], layer)) fail("invalid layer \"" + std::string(w[3]) + "\"");
        for (long gap = net.nodeCount(); gap < node; ++gap) {  // ids stay stable
            net.addNode(0, 0, 0);
            net.removed_nodes.insert(net.removed_nodes.end(), gap);
        }
        net.addNode(x, y, layer);
    }
    for (const auto& [node, node_name] : net.node_names)
        if (node >= net.nodeCount()) fail("named node " + std::to_string(node) + " is unknown");
    expectLine("\t<RV>");
    for (;;) {
        if (!in_->next(line)) fail("unexpected end of file in the resistors");
        if (line == "\t</RV>") break;
        if (RNIO::splitWords(line, w, 4) != 3) fail("a resistor line needs 3 words");
        long a = 0, b = 0;
        double value = 0;
        if (!RNIO::toLong(w[0], a)) fail("invalid node id \"" + std::string(w[0]) + "\"");
        if (!RNIO::toLong(w[1], b)) fail("invalid node id \"" + std::string(w[1]) + "\"");
        if (!RNIO::toDouble(w[2], value)) fail("invalid number \"" + std::string(w[2]) + "\"");
        if (a < 0 || a >= net.nodeCount()) fail("unknown node " + std::to_string(a));
        if (b < 0 || b >= net.nodeCount()) fail("unknown node " + std::to_string(b));
        net.addResistor(a, b, value);
    }
    expectLine("</NET>");
    // The vectors grew by doubling; give back the slack so a large design holds only its data.
    net.nodes.shrink_to_fit();
    net.node_layers.shrink_to_fit();
    net.res_from.shrink_to_fit();
    net.res_to.shrink_to_fit();
    net.res_value.shrink_to_fit();
    return true;
}

int RNLoader::load(const std::string& path, std::vector<RNetwork>& nets,
                   std::vector<RLayer>& layers, std::vector<double>& layer_values) {
    in_ = std::make_unique<RNIO::LineReader>();
    path_ = path;
    if (!in_->open(path)) {
        in_.reset();
        return 0;
    }
    layers_ = &layers;
    layer_values_ = &layer_values;
    if (!loadHeader()) fail("the header is not as required");
    std::vector<RNetwork> read(1);  // the caller's vector changes only on success
    int id = 0;
    RNetwork net;
    while (loadNet(id, net)) {
        // The writer puts the nets in the order of their ids, so any other order is damage.
        if (static_cast<size_t>(id) != read.size())
            fail("net id " + std::to_string(id) + " out of order, expected " +
                 std::to_string(read.size()));
        read.push_back(std::move(net));
    }
    // Every net below the total is written, so fewer means the file was cut short.
    if (static_cast<long>(read.size()) != std::max(total_, 1L))
        fail("the file ends after " + std::to_string(read.size() - 1) + " nets of " +
             std::to_string(std::max(total_ - 1, 0L)));
    nets.swap(read);
    in_.reset();
    return 1;
}
