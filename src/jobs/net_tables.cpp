// The net name file and the port table of a layout verification run.
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "jobs/text_parser.h"
#include "runtime/logger.h"
#include "runtime/pargument.h"

bool TextParser::netName(const std::string& path, std::map<std::int32_t, std::string>& names,
                         Position& at) {
    names.clear();
    std::ifstream in(path);
    if (!in) {
        PLOG::log(4) << "Can not open net name file \"" << path << "\"." << PLOG::endl;
        return false;
    }
    std::vector<std::string> w;
    while (splitLine2Words(in, w)) {
        ++at.line;
        if (w.empty() || w[0][0] == '#' || w[0][0] == '%') continue;
        const auto number = static_cast<std::int32_t>(std::strtol(w[0].c_str(), nullptr, 10));
        at.wanted = "the net name after the number " + w[0];
        names.emplace(number, w.at(1));  // the first line for a number wins
    }
    return true;
}

bool TextParser::parseNetName(std::string path, std::map<std::int32_t, std::string>& names) {
    Position at;
    return netName(path, names, at);
}

bool TextParser::readNetName(const std::string& path, std::map<std::int32_t, std::string>& names,
                             std::string* error) {
    Position at;
    try {
        return netName(path, names, at);
    } catch (const std::out_of_range&) {
        const std::string message = "Malformed net name file \"" + path + "\", line " +
                                    std::to_string(at.line) + ": missing " + at.wanted + ".";
        PLOG::log(4) << message << PLOG::endl;
        if (error) *error = message;
        return false;
    }
}

bool TextParser::parsePortTable(std::string path, std::vector<PortEntry>& entries,
                                const std::string& cell) {
    entries.clear();
    std::ifstream in(path);
    if (!in) {
        PLOG::log(4) << "Can not open port table file \"" << path << "\"." << PLOG::endl;
        return false;
    }
    const int rule = PARG::get("CELL_USERPORT_MATCHING_RULE", 1);
    std::vector<std::string> w;
    while (splitLine2Words(in, w)) {
        if (w.size() != 7 || w[6] != cell) continue;
        if (rule != 0 && w[0] != w[2]) continue;
        PortEntry e;
        try {
            e.number_1 = std::stoi(w[1]);
            e.number_3 = std::stoi(w[3]);
            e.number_4 = std::stoi(w[4]);
        } catch (const std::logic_error&) {
            continue;  // no number, or out of range: the table is a filter
        }
        e.name = w[2];
        e.alias = w[0];
        e.text_5 = w[5];
        entries.push_back(std::move(e));
    }
    return true;
}
