#pragma once
// The point-to-point resistance job: loads a design's networks from a DSPF file, a resistance
// matrix file or a network file, matches the source and destination pin patterns against each
// selected net's named nodes, solves every matching pair and writes a text report. Tuning comes
// from the argument store (the P2P_* switches of a job file).

#include <string>
#include <vector>

#include "resistance/rnetwork.h"
#include "resistance/rp2p_solver.h"

class RP2Pmain {
public:
    std::string rnetwork_file;
    std::string dspf_file;
    std::string rmatrix_file;
    std::string report_file;
    std::string src_pin;  // P2P_SRC_PIN: a name, or a pattern with the wildcards ? and *
    std::string dst_pin;  // P2P_DST_PIN
    std::string src_regex;
    std::string dst_regex;
    int src_is_pattern = 0;
    int dst_is_pattern = 0;
    std::vector<std::string> nets;  // nets to solve by name; all nets when empty
    bool verbose = false;

    // The batch switches of the argument store.
    struct BatchOptions {
        int batch_mode = 1;
        int batch_threshold = 3000;
        int force_batch = 0;
    };
    // Reads the P2P_* switches of the argument store into `solver` (a switch that is absent or
    // out of its range leaves the solver's value) and returns the batch switches.
    static BatchOptions readOptions(RP2PSolver& solver);

    // Runs the job. Returns 1 when the report was written; 0 when a pattern is empty or holds an
    // invalid character, no input is named, the load fails or the report cannot be written
    // (each logged). Pairs that fail to solve are logged and left out; they do not fail the run.
    int run();

    // Turns a wildcard pattern into a regular expression ("?" -> ".", "*" -> ".*") and sets
    // `is_pattern` when it holds a wildcard. Returns 0 when the text holds a character that is
    // neither part of a name nor a wildcard (blanks, control characters, \ ^ $ | + ( ) [ ] { }),
    // else 1.
    static int convertRegex(const std::string& in, std::string& out, int& is_pattern);
    // Splits `line` at white space into `words`.
    static void getWords(const std::string& line, std::vector<std::string>& words);
    // Reads a resistance matrix file ("NAME NAME VALUE" lines) into one network named after the
    // file. Returns false when the file does not open.
    static bool loadRMatrix(const std::string& path, RNetwork& net);
};
