// Every malformed input the tool can meet, run through the built program: each
// must end with the stated exit status and a line naming the problem, leave no
// sample file behind when it fails, and leave an older sample file as it was.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "driver_test_util.h"

using namespace driver_test;

namespace {

// One sample of one wire and the plate in a narrow window, solved coarsely:
// well under a second.
const std::string kTinyRun =
    R"({"Random": {"nsamples": 1, "poisson_lambda": 0, "window": 4.0, "conductor_window": 2.0}})";

class Cli : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        write("p.json", kTinyRun);
        write("out.jsonl", "old\n");
    }
    // Runs the tool with `args` under a time limit, so that a hang fails rather
    // than stalls.
    int karven(const std::string& args) { return sh("exec timeout 60 \"$K\" " + args); }
};

// What a case writes: 'c' the technology file, 'p' the parameter file, 's' a
// structure file that the parameters name; 'a' writes nothing and is the
// argument text itself.
struct Case {
    char kind;
    std::string input;
    int status;
    const char* message;
};

const std::string kStructureRun = R"({"Random": {"structure_input": "s.jsonl", "window": 4.0}})";
const std::string kNested = std::string(100000, '[') + std::string(100000, ']');

// One case per check the tool makes. Arguments use $S for the example stack, $D
// for the folder (the shell expands them).
const std::vector<Case> kCases = {
    // The technology file.
    {'a', "-i $D/none.ctf -o out.jsonl", 1, "[FATAL] Can not open CTF file"},
    {'c', "# nothing\n", 1, "[FATAL] CTF error: empty ctf file."},
    {'c', std::string("\x01\xff\x7f{{\"\x80 ]]\0 9e9e9", 17), 1, "[FATAL]"},
    {'c', "dielectric D { thickness 1 er 3 }\n", 1, "no usable conductor layer"},
    // The parameter file.
    {'a', "-i $S -o out.jsonl --param-json nope.json", 1, "Unable to open JSON file nope.json"},
    {'p', "{\"Random\": ", 1, "is not valid JSON"},
    {'p', R"({"Random": {"nsamples": )" + kNested + "}}", 1, "nests values too deeply"},
    {'p', "[1, 2]", 1, "must hold a JSON object"},
    {'p', R"({"Random": 5})", 1, "\"Random\" must be a JSON object"},
    {'p', R"({"Random": {"nsamples": -5}})", 1, "\"nsamples\" = -5"},
    {'p', R"({"Random": {"nsamples": 2.5}})", 1, "whole number"},
    {'p', R"({"Random": {"window_layer": 3}})", 1, "\"window_layer\" = 3 in \"Random\""},
    {'p', R"({"Random": {"nsamples": 1, "window": 10, "conductor_window": 0.3}})", 1, "too narrow"},
    {'p', R"({"Random": {"conductor_window": 0}})", 1, "\"conductor_window\" = 0"},
    {'p', R"({"Random": {"fixed_layers": [0, 9], "conductor_window": 2}})", 1,
     "entry 9 is not a usable layer index"},
    {'p', R"({"Random": {"fixed_layers": 3}})", 1, "\"fixed_layers\" = 3"},
    {'p', R"({"Random": {"fixed_layers": [-1]}})", 1, "\"fixed_layers\" = [-1]"},
    {'p', R"({"Random": {"nsamples": 0, "window_layer": "M9"}})", 1, "\"window_layer\" = \"M9\""},
    {'p', R"({"Random": {"exponent_base": 3}})", 1, "\"exponent_base\" = 3"},
    {'p', R"({"Random": {"nsamples": 0, "nsampels": 4, "conductor_window": 2}})", 0,
     "did you mean \"nsamples\"?"},
    {'p', R"({"Randm": {}, "Random": {"nsamples": 0, "conductor_window": 2}})", 0,
     "did you mean \"Random\"?"},
    // The command line.
    {'a', "-i $S -o out.jsonl -p 0", 1, "is not installed"},
    {'a', "-i $S -o out.jsonl -p nan", 1, "--precision nan"},
    {'a', "-i $S -o out.jsonl -n 100000", 1, "--nthreads 100000"},
    {'a', "-i $S -o out.jsonl -n 0", 1, "--nthreads 0"},
    {'a', "-i $S", 1, "no output file given"},
    {'a', "-i $S -o out.jsonl --shard 3/3", 1, "Error: --shard 3/3: must be k/n"},
    {'a', "-i $S -o out.jsonl -p fast", 104, "fast"},
    {'a', "-i $S -o out.jsonl --merge-diel maybe", 104, "--merge-diel = maybe"},
    {'a', "--bogus", 109, "The following argument was not expected: --bogus"},
    // --merge-diel takes a value: the run goes on to find no technology file.
    {'a', "--merge-diel false -o x/out.jsonl", 1, "[FATAL] Can not open CTF file \"\"."},
    // The output.
    {'a', "-i $S -o sub/ --param-json p.json", 1, "Is a directory"},
    {'a', "-i $S -o p.json/out.jsonl", 1, "Error: Unable to create folder p.json\n"},
    {'a', "-i $S -o /proc/karven.jsonl --param-json p.json", 1,
     "Unable to open file /proc/karven.jsonl.part for writing"},
    // Structure files.
    {'p', R"({"Random": {"structure_input": "none.jsonl", "window": 4}})", 1,
     "Error: Unable to open file none.jsonl"},
    {'p', R"({"Random": {"structure_input": "/dev/zero", "window": 4}})", 1,
     "Error: Unable to open file /dev/zero"},
    {'s',
     "\n"
     R"({"conductors": [["0", 0.5, 0.1, 0.1]], "layers": ["M1"]})",
     1, "line 2: conductor 0"},
    {'s', "[1, 2, 3]", 1, "line 1: must be a JSON object"},
    {'s', kNested, 1, "line 1: values nested too deeply"},
    {'s', "{conductors}", 1, "Error parsing JSON line: "},
    {'s', R"({"conductors": [[0, 0.5, 0, 0.1]], "layers": ["M1"]})", 1,
     "the width must be above 0"},
    {'s', R"({"conductors": [[1.98, 0.5, 0.1, 0.1]], "layers": ["M1"]})", 1,
     "outside the window from -2 to 2"},
    {'s', R"({"conductors": [[0, 0.5, 0.1, 0.1]], "layers": ["M9"]})", 1,
     "layer \"M9\" is not a usable layer"},
    {'s', R"({"conductors": [[0, 0.5, 0.1, 0.1]]})", 1, "\"layers\" must be an array"},
    {'s', "\n\n", 1, "holds no lines"},
};

}  // namespace

TEST_F(Cli, EveryBadInputFailsWithItsMessageAndLeavesTheOldOutput) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.input.substr(0, 80));
        SetUp();
        std::string args = "-i $S -o out.jsonl --param-json p.json";
        if (c.kind == 'a') args = c.input;
        if (c.kind == 'c') args = "-i t.ctf -o out.jsonl --param-json p.json";
        if (c.kind != 'a')
            write(c.kind == 'c' ? "t.ctf" : c.kind == 's' ? "s.jsonl" : "p.json", c.input);
        if (c.kind == 's') write("p.json", kStructureRun);
        EXPECT_EQ(karven(args), c.status) << log;
        EXPECT_NE(log.find(c.message), std::string::npos) << log;
        EXPECT_EQ(log.find("terminate called"), std::string::npos) << log;
        EXPECT_EQ(readFile(dir / "out.jsonl"), c.status == 0 ? "" : "old\n");
        EXPECT_FALSE(fs::exists(dir / "out.jsonl.part"));
    }
}

TEST_F(Cli, AFatalTechnologyErrorIsTheLastLine) {
    // The example cut in the middle of a statement: the layers read before it
    // must not be used.
    write("cut.ctf", readFile(kStack).substr(0, 2073));
    EXPECT_EQ(karven("-i cut.ctf -o new.jsonl --param-json p.json"), 1) << log;
    const size_t fatal = log.rfind("[FATAL] ");
    ASSERT_NE(fatal, std::string::npos) << log;
    // Nothing follows it but the line end (the reader's text carries one of its
    // own).
    EXPECT_EQ(log.find_first_not_of('\n', log.find('\n', fatal)), std::string::npos) << log;
    EXPECT_FALSE(fs::exists(dir / "new.jsonl"));
}

TEST_F(Cli, BlankStructureLinesAreSkipped) {
    write("s.jsonl",
          "\n"
          R"({"conductors": [[0, 0.5, 0.1, 0.1]], "layers": ["M1"]})"
          "\n  \n"
          R"({"conductors": [[-0.5, 0.5, 0.2, 0.1]], "layers": ["M1"]})"
          "\n\n");
    write("p.json", kStructureRun);
    ASSERT_EQ(karven("-i $S -o out.jsonl --param-json p.json -p 0.1 -n 2"), 0) << log;
    std::istringstream in(readFile(dir / "out.jsonl"));
    std::vector<nlohmann::json> samples;
    for (std::string line; std::getline(in, line);) samples.push_back(nlohmann::json::parse(line));
    ASSERT_EQ(samples.size(), 2u);
    EXPECT_EQ(samples[1]["id"], 1);
    EXPECT_EQ(samples[1]["conductors"][0][0], -0.5);
}

TEST_F(Cli, AFullDiskFailsAndKeepsTheOldOutput) {
    // A file size limit of 0 makes every write fail as a full disk would; the signal it would
    // raise is ignored, so the write returns its error. The limit holds only in the subshell, so
    // that the log itself can still be written.
    sh("{ (ulimit -f 0; trap \"\" XFSZ; exec timeout 60 \"$K\" -i \"$S\" -o out.jsonl "
       "--param-json p.json -p 0.1 -n 1); echo status=$?; } 2>&1 | cat");
    EXPECT_NE(log.find("status=1"), std::string::npos) << log;
    EXPECT_NE(log.find("Error: Unable to write out.jsonl.journal: "), std::string::npos) << log;
    EXPECT_EQ(readFile(dir / "out.jsonl"), "old\n");
    EXPECT_FALSE(fs::exists(dir / "out.jsonl.part"));
}

TEST_F(Cli, SignalsAndASecondRunLeaveNoFinishedLookingFile) {
    write("p.json", R"({"Random": {"nsamples": 1000, "window": 10.0, "conductor_window": 4.0}})");
    const std::string run = "\"$K\" -i \"$S\" -o out.jsonl --param-json p.json -p 0.05 -n 1";
    for (const std::string signal : {"INT", "TERM"}) {
        SCOPED_TRACE(signal);
        // A long run in the background; once its temporary file exists a second run on the same
        // output must be refused, and the signal must remove the temporary file.
        EXPECT_EQ(sh(run + " & pid=$!; i=0; while [ ! -e out.jsonl.part ] && [ $i -lt 200 ]; do " +
                     "sleep 0.05; i=$((i+1)); done; timeout 60 " + run + "; echo second=$?; " +
                     "sleep 0.2; kill -" + signal + " $pid; wait $pid; echo first=$?"),
                  0)
            << log;
        EXPECT_NE(log.find("Error: another run is writing out.jsonl"), std::string::npos) << log;
        EXPECT_NE(log.find("second=1"), std::string::npos) << log;
        EXPECT_NE(log.find("first=1"), std::string::npos) << log;
        EXPECT_EQ(readFile(dir / "out.jsonl"), "old\n");
        EXPECT_FALSE(fs::exists(dir / "out.jsonl.part"));
        // The journal keeps what was solved, for --resume.
        EXPECT_TRUE(fs::remove(dir / "out.jsonl.journal"));
    }
}
