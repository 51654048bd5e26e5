#pragma once
// Readers of the text files that describe an extraction job: the job (Dravix command) file, the
// query command file of the layout verification run, its net name file and its port table.
//
// The query command and net name readers throw std::out_of_range on a malformed file (a word is
// read past the end of its line). Tools never call them directly: they call the checked forms
// readQueryCmd and readNetName, which turn that error into a logged message naming the file, the
// line and what was missing, and a false return.

#include <cstdint>
#include <istream>
#include <map>
#include <string>
#include <vector>

#include "technology/task.h"

// One record of a port table; the fields are named by the position of their word on the line.
struct PortEntry {
    std::string name;   // word 2
    std::string alias;  // word 0
    std::int32_t number_1 = 0;
    std::int32_t number_3 = 0;
    std::int32_t number_4 = 0;
    std::string text_5;
};

class TextParser {
public:
    // Reads one line of `in` into `words`, split on blanks and tabs; returns false at the end of
    // the input, with `words` empty.
    static bool splitLine2Words(std::istream& in, std::vector<std::string>& words);

    // Fills `task` and the argument table from the job file at `path`. Returns false when the
    // file cannot be opened or a SKIP_CELLS name is invalid (both logged at level 4).
    static bool parseDravixCmd(const char* path, Task& task);

    // Sets the seven output-file paths of `task` from the query command file at `path`. Returns
    // false when the file cannot be opened (logged). Throws std::out_of_range on a malformed file.
    static bool parseQueryCmd(std::string path, Task& task);

    // Fills `names` from the net name file at `path`. Returns false when the file cannot be
    // opened (logged). Throws std::out_of_range on a line of one word.
    static bool parseNetName(std::string path, std::map<std::int32_t, std::string>& names);

    // Fills `entries` with the ports of `cell` from the port table at `path`; lines that do not
    // fit are dropped silently. Returns false when the file cannot be opened (logged).
    static bool parsePortTable(std::string path, std::vector<PortEntry>& entries,
                               const std::string& cell);

    // parseQueryCmd that never throws: on a malformed file logs at level 4 and stores in `error`
    // (when given) the file, the line number and what was missing, and returns false. `task` may
    // then hold the paths read before the fault.
    static bool readQueryCmd(const std::string& path, Task& task, std::string* error = nullptr);

    // parseNetName that never throws; on a malformed file reports as readQueryCmd does and
    // returns false.
    static bool readNetName(const std::string& path, std::map<std::int32_t, std::string>& names,
                            std::string* error = nullptr);

    // Where a read stands: the number of the last line read (from 1) and what the reader needs
    // next from that line. Lets the checked forms explain an out-of-range error.
    struct Position {
        int line = 0;
        std::string wanted;
    };

private:
    static bool queryCmd(const std::string& path, Task& task, Position& at);
    static bool netName(const std::string& path, std::map<std::int32_t, std::string>& names,
                        Position& at);
};
