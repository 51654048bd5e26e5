#pragma once
// DSPF out and in: the writer emits one fixed resistive dialect with the design's instances; the
// reader takes the subset that the resistance solver needs from any tool's file (nets, their
// ports, instance pins and subnodes, resistors) and drops capacitors.

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "resistance/rnetwork.h"

namespace RNIO {
class LineReader;
}

// The design's subcircuit: its name and its port texts (net ids in the usual case).
struct Subckt {
    std::string name;
    std::vector<std::string> ports;
};

// One device instance of the instance section.
struct RDspfInstance {
    char letter = 'M';               // device letter; fixes the pin names (see pinName)
    std::string name;                // instance name without the letter
    std::string suffix;              // appended to the name in the letter-first form
    std::string prefix;              // when set, the name is written prefix, letter, name
    std::vector<long> pins;          // net id of each pin
    std::vector<bool> pin_has_node;  // the pin is a node of its own, "d" + name + ":" + pin
    std::string model;
    std::vector<std::string> params;
};

class RDspfWriter {
public:
    double scale = 1.0;
    bool fixed_value = false;
    double value = 0.0;
    double min_value = 0.0;

    // Writes the head, the nets of `net_ids` (ascending, each once), the instances, then any
    // `more` lines of the instance section verbatim, and ".ENDS". Returns false when the file
    // does not open or a write fails.
    bool write(const std::string& path, std::vector<RNetwork>& nets, std::vector<long> net_ids,
               const Subckt& subckt, const std::vector<RDspfInstance>& instances,
               const std::vector<std::string>& more = {});

    void writeDspfHead(const std::vector<RNetwork>& nets, const Subckt& subckt);
    void writeRNetworks(std::vector<RNetwork>& nets, std::vector<long> net_ids);
    void writeInstance(const std::vector<RNetwork>& nets,
                       const std::vector<RDspfInstance>& instances,
                       const std::vector<std::string>& more);

    // Returns the name of pin `pos` of a device with `letter` and `pin_count` pins.
    static const char* pinName(char letter, size_t pin_count, size_t pos);

private:
    std::FILE* file_ = nullptr;
};

// Reads the nets of a DSPF file. Malformed text raises std::runtime_error.
class RDspfLoader {
public:
    RDspfLoader();
    ~RDspfLoader();

    double scale = 1.0;  // written coordinates are divided by this and rounded

    // Reads every net into `nets` (entry 0 left empty, then one per "*|NET" in file order).
    // Throws std::runtime_error when the file does not open, is malformed, or ends before
    // ".ENDS"; `nets` changes only on success.
    void load(const std::string& path, std::vector<RNetwork>& nets);
    // Reads the net whose "*|NET" line was just read; returns false when the net section ended
    // with it (at ".ENDS", another dot card or "*Instance Section").
    bool loadNet(RNetwork& net);
    // Splits `line` at white space into `words`.
    static void getWords(const std::string& line, std::vector<std::string>& words);

private:
    // Reads the next line with its "+" continuation lines joined; false at the end of the file.
    bool nextLine(std::string& line);
    // The line put back by the last net, else nextLine.
    bool takeLine(std::string& line);
    long nodeFor(std::string_view name, RNetwork& net, std::string_view fields, bool* is_new);
    [[noreturn]] void fail(const std::string& what) const;

    std::unique_ptr<RNIO::LineReader> in_;
    std::string path_;
    std::unordered_map<std::string, long> ids_;  // node names of the present net
    bool section_end_ = false;                   // the net section has ended
    std::string pending_;                        // a line read ahead and put back
    bool has_pending_ = false;
};
