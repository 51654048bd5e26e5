#pragma once
// The resistance network of one net, the network file that holds a design's networks, and the
// connectivity repair that ties a net's separate pieces together.
//
// A design is a vector of RNetwork indexed by net id; entry 0 is not a net. Beside it stand the
// layer table (name, number) and the layers' sheet values, a negative value meaning none.

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace RNIO {
class LineReader;
}

// One row of the layer table.
struct RLayer {
    std::string name;
    int number = 0;
};

// Neighbour lists of every node in compressed form: the neighbours of node v are
// targets[offsets[v] .. offsets[v + 1]), in the order of the resistors, both directions of each
// resistor. Kept ordered by node id like a multimap, but built in linear time and memory.
struct RAdjacency {
    std::vector<long> offsets;
    std::vector<long> targets;

    bool empty() const { return targets.empty(); }
    void clear() {
        offsets.clear();
        targets.clear();
    }
    // Builds the lists of `n` nodes from the resistor ends; ends outside [0, n) are passed over.
    void build(long n, const std::vector<long>& from, const std::vector<long>& to);
};

class RNetwork {
public:
    std::string name;
    std::vector<std::pair<int32_t, int32_t>> nodes;  // (x, y) in database units; index = node id
    std::vector<int32_t> node_layers;
    std::unordered_map<long, std::string> node_names;  // a name starting with 'u' is a user port
    std::vector<long> res_from;
    std::vector<long> res_to;
    std::vector<double> res_value;
    std::set<long> removed_nodes;
    std::map<int, std::map<int, long>> search_map;  // x -> y -> node
    std::vector<int> node_counts;
    std::vector<int> groups;  // -1 before labelling, -2 for a removed node
    RAdjacency adjacency;
    int group_count = 0;

    // Appends a node; returns its id.
    long addNode(int32_t x, int32_t y, int32_t layer);
    // Appends a resistor between two node ids.
    void addResistor(long from, long to, double value);
    long nodeCount() const { return static_cast<long>(nodes.size()); }
    bool isRemoved(long id) const { return removed_nodes.count(id) != 0; }

    // Fills search_map from the nodes that are not removed (a later node wins a shared spot).
    void buildSearchMap();
    void freeSearchMap();
    // Returns the node at (x, y) from search_map, or -1 when there is none.
    long search(int x, int y) const;

    // Refills node_counts with each node's number of resistor ends, -1 for a removed node.
    void countNodes();
    void clearNodeCounts() { node_counts.clear(); }
    // Returns the count of `id` from the last countNodes(), or 0 when out of range.
    int getNodeCount(long id) const;

    // Labels every node with its connected group (breadth first from the lowest unlabelled node)
    // and sets group_count; when `group_nodes` is given, rebuilds it as each group's nodes in
    // ascending order.
    void checkConnectivity(std::map<int, std::vector<long>>* group_nodes);
    // Chains the groups by resistors of 0.001 between their representatives. Returns 0 when there
    // are fewer than two groups, else 1; empties groups and adjacency.
    int fixGroups();
    // Ties every group to the net's user port "u" + name (made at the node closest to the centroid
    // when missing) by resistors of 0.001. Returns 0 when the net has no group, else 1.
    int connectGroupsByPort();

    // The value of the resistors added by the repairs; the solver's smallest resistance.
    static constexpr double kTieValue = 0.001;

private:
    // Runs checkConnectivity unless groups are current.
    void ensureGroups();
    // For each group, the node closest to the mean of its nodes' coordinates (lower id on a tie).
    std::vector<long> representatives() const;
};

// Writes a design's networks to a network file.
class RNWriter {
public:
    double scale = 1.0;        // coordinates are multiplied by this when written
    bool square_unit = false;  // "<UNIT SQUARE>" rather than "<UNIT ACTUALITY>"
    bool fixed_value = false;  // write `value` for every resistor
    double value = 0.0;
    double min_value = 0.0;  // lower limit of written resistances

    // Writes the whole design; returns 1 on success, 0 (having written nothing) when the layer
    // table and the values differ in length or the file does not open, and 0 on a write error.
    int write(const std::string& path, std::vector<RNetwork>& nets,
              const std::vector<RLayer>& layers, const std::vector<double>& layer_values);
    // Writes one net to the open file.
    void writenet(int id, RNetwork& net);

private:
    std::FILE* file_ = nullptr;
    std::vector<char> buffer_;
};

// Reads a network file back into a design. Malformed text raises std::runtime_error whose message
// names the file and line.
class RNLoader {
public:
    RNLoader();
    ~RNLoader();

    double scale = 1.0;        // written coordinates are divided by this and rounded
    bool square_unit = false;  // set from the file's unit line

    // Reads every net into `nets` (entry 0 left empty) and the layer table. Returns 0 when the
    // file does not open, 1 on success; throws std::runtime_error on a malformed file.
    int load(const std::string& path, std::vector<RNetwork>& nets, std::vector<RLayer>& layers,
             std::vector<double>& layer_values);
    // Reads the unit, total and layer lines; returns false when they are not as required.
    bool loadHeader();
    // Reads the next net into `net` and its id into `id`; returns false at a clean end of file.
    bool loadNet(int& id, RNetwork& net);
    // Splits `line` at white space into `words`.
    static void getWords(const std::string& line, std::vector<std::string>& words);

private:
    [[noreturn]] void fail(const std::string& what) const;
    void expectLine(const char* text);
    int32_t toCoordinate(std::string_view word, char open, char close);

    std::unique_ptr<RNIO::LineReader> in_;
    std::string path_;
    long total_ = 0;
    std::vector<RLayer>* layers_ = nullptr;
    std::vector<double>* layer_values_ = nullptr;
};
