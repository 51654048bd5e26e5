// The query command file of the layout verification run: only the paths of what it wrote.
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "jobs/text_parser.h"
#include "runtime/logger.h"
#include "runtime/strutil.h"

namespace {

using Words = std::vector<std::string>;
using Position = TextParser::Position;

// Word `i` of the line; notes first what the reader wants, since a missing word throws.
std::string& word(Words& w, std::size_t i, Position& at, const std::string& wanted) {
    at.wanted = wanted;
    return w.at(i);
}

// Case-blind test of word `i` against `keyword`; upper-cases the word as a side effect.
bool kw(Words& w, std::size_t i, const char* keyword, Position& at, const std::string& wanted) {
    std::string k = keyword;
    return StrUtil::compare(word(w, i, at, wanted), k, 0) == 1;
}

// The first words of the line are the given keywords; reads no word past the first mismatch.
bool starts(Words& w, std::initializer_list<const char*> keywords, Position& at) {
    std::size_t i = 0;
    for (const char* k : keywords) {
        if (!kw(w, i, k, at, std::string("word ") + std::to_string(i + 1))) return false;
        ++i;
    }
    return true;
}

// Folder of a file, resolved, without a trailing "/"; the path's own folder when it cannot be
// resolved.
std::string folderOf(const std::string& path) {
    std::string p = path;
    if (char* real = realpath(path.c_str(), nullptr)) {
        p = real;
        std::free(real);
    }
    const std::size_t slash = p.rfind('/');
    return slash == std::string::npos ? "." : p.substr(0, slash);
}

}  // namespace

bool TextParser::queryCmd(const std::string& path, Task& task, Position& at) {
    std::ifstream in(path);
    if (!in) {
        PLOG::log(4) << "Can not open QUERY_CMD file \"" << path << "\"." << PLOG::endl;
        return false;
    }
    Words w;
    while (splitLine2Words(in, w)) {
        ++at.line;
        if (w.empty() || w[0][0] == '#' || w.size() < 3) continue;

        if (starts(w, {"RESPONSE", "FILE"}, at)) {
            const std::string target = w[2];
            const int opened = at.line;
            const std::string closing =
                "the closing \"RESPONSE DIRECT\" of the response block "
                "opened on line " +
                std::to_string(opened);
            // A block ends only at its closing line: an empty line or the end of the file throws.
            for (;;) {
                const bool more = splitLine2Words(in, w);
                if (more) ++at.line;
                const std::string where =
                    more ? "a command, or " + closing : closing + " (the file ends)";
                if (w.size() >= 2 && starts(w, {"GDS", "MAP"}, at)) task.gds_map_file = target;
                if (w.size() >= 2 && starts(w, {"DEVICE", "TABLE"}, at))
                    task.device_table_file = target;
                if (kw(w, 0, "RESPONSE", at, where) &&
                    kw(w, 1, "DIRECT", at, "\"DIRECT\" after \"RESPONSE\" (" + closing + ")"))
                    break;
            }
        } else if (starts(w, {"GDS", "WRITE"}, at)) {
            task.gds_file = w[2];
        } else if (starts(w, {"LAYOUT", "NETLIST", "WRITE"}, at)) {
            task.layout_netlist_file = word(w, 3, at, "the path after \"LAYOUT NETLIST WRITE\"");
        } else if (starts(w, {"LAYOUT", "NAMETABLE", "WRITE"}, at)) {
            task.layout_nametable_file =
                word(w, 3, at, "the path after \"LAYOUT NAMETABLE WRITE\"");
        } else if (starts(w, {"LAYOUT", "SEPARATED", "PROPERTIES"}, at)) {
            const std::string& p =
                word(w, 4, at, "\"WRITE\" and a path after \"LAYOUT SEPARATED PROPERTIES\"");
            if (kw(w, 3, "WRITE", at, "")) task.separated_properties_file = p;
        } else if (starts(w, {"PORT", "TABLE", "CELLS"}, at)) {
            const std::string& p =
                word(w, 4, at, "\"WRITE\" and a path after \"PORT TABLE CELLS\"");
            if (kw(w, 3, "WRITE", at, "")) task.port_table_file = p;
        }
    }

    const std::string dir = folderOf(path);
    for (std::string* f :
         {&task.gds_map_file, &task.device_table_file, &task.gds_file, &task.layout_netlist_file,
          &task.layout_nametable_file, &task.separated_properties_file, &task.port_table_file})
        if (!f->empty() && (*f)[0] != '/') *f = dir + "/" + *f;
    return true;
}

bool TextParser::parseQueryCmd(std::string path, Task& task) {
    Position at;
    return queryCmd(path, task, at);
}

bool TextParser::readQueryCmd(const std::string& path, Task& task, std::string* error) {
    Position at;
    try {
        return queryCmd(path, task, at);
    } catch (const std::out_of_range&) {
        const std::string message = "Malformed QUERY_CMD file \"" + path + "\", line " +
                                    std::to_string(at.line) + ": missing " + at.wanted + ".";
        PLOG::log(4) << message << PLOG::endl;
        if (error) *error = message;
        return false;
    }
}
