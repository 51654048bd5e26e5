#pragma once
// Readers of the text files that describe an extraction job: the job (Dravix command) file, the
// query command file of the layout verification run, its net name file and its port table.

#include <istream>
#include <string>
#include <vector>

#include "technology/task.h"

class TextParser {
public:
    // Reads one line of `in` into `words`, split on blanks and tabs; returns false at the end of
    // the input, with `words` empty.
    static bool splitLine2Words(std::istream& in, std::vector<std::string>& words);

    // Fills `task` and the argument table from the job file at `path`. Returns false when the
    // file cannot be opened or a SKIP_CELLS name is invalid (both logged at level 4).
    static bool parseDravixCmd(const char* path, Task& task);
};
