// Every malformed input the tool can meet, run through the built program: each must end with the
// stated exit status and a line naming the problem, leave no sample file behind when it fails,
// and leave an older sample file as it was.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

const std::string kStack = KARVEN_SOURCE_DIR "/examples/stack.ctf";
// One sample of one wire and the plate in a narrow window, solved coarsely: well under a second.
const std::string kTinyRun =
    R"({"Random": {"nsamples": 1, "poisson_lambda": 0, "window": 4.0, "conductor_window": 2.0}})";

// The whole of a literal, embedded NUL bytes included.
template <size_t N>
std::string bytes(const char (&text)[N]) {
    return std::string(text, N - 1);
}

std::string readFile(const fs::path& p) {
    std::ifstream in(p);
    return std::string((std::istreambuf_iterator<char>(in)), {});
}

class Cli : public testing::Test {
protected:
    void SetUp() override {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        dir = fs::path(testing::TempDir()) /
              ("karven_cli_" + std::to_string(getpid()) + "_" + info->name());
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    void write(const std::string& name, const std::string& text) {
        std::ofstream(dir / name, std::ios::binary) << text;
    }

    // Runs `sh -c` on `script` in the test's folder, with $K the tool, $S the example stack and
    // $D the folder; returns the exit status and keeps standard output and error in `log`.
    int sh(const std::string& script) {
        const std::string cmd = "cd '" + dir.string() + "' && K='" KARVEN_BINARY "' S='" + kStack +
                                "' D='" + dir.string() + "' sh -c '" + script + "' > '" +
                                (dir / "log.txt").string() + "' 2>&1";
        const int status = std::system(cmd.c_str());
        log = readFile(dir / "log.txt");
        // Under the sanitizers a finding also ends with status 1: look for its report.
        EXPECT_EQ(log.find("Sanitizer"), std::string::npos) << log;
        EXPECT_EQ(log.find("runtime error:"), std::string::npos) << log;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    // Runs the tool with `args` under a time limit, so that a hang fails rather than stalls.
    int karven(const std::string& args) { return sh("exec timeout 60 \"$K\" " + args); }

    fs::path dir;
    std::string log;
};

struct Case {
    const char* name;
    std::vector<std::pair<std::string, std::string>> files;  // written into the folder first
    const char* args;
    int status;
    const char* message;
};

// Argument texts use $S for the example stack and $D for the test's folder; "p.json" holds
// kTinyRun unless a case writes its own.
const std::vector<Case> kCases = {
    // The technology file.
    {"missing ctf", {}, "-i $D/none.ctf -o out.jsonl", 1, "[FATAL] Can not open CTF file"},
    {"ctf is a folder", {}, "-i $D -o out.jsonl", 1, "[FATAL]"},
    {"empty ctf",
     {{"t.ctf", ""}},
     "-i t.ctf -o out.jsonl",
     1,
     "[FATAL] CTF error: empty ctf file."},
    {"comments only",
     {{"t.ctf", "# nothing\n# here\n"}},
     "-i t.ctf -o out.jsonl",
     1,
     "[FATAL] CTF error: empty ctf file."},
    {"random bytes",
     {{"t.ctf", bytes("\x01\xff\x7f{{\"\x80 ]]\0 9e9e9")}},
     "-i t.ctf -o out.jsonl",
     1,
     "[FATAL]"},
    {"unknown keyword",
     {{"t.ctf", "conductr M1 { thickness 0.1 }\n"}},
     "-i t.ctf -o out.jsonl",
     1,
     "[FATAL]"},
    {"conductor without thickness",
     {{"t.ctf", "dielectric D { thickness 1 er 3 }\nconductor M1 { wmin 0.1 }\n"}},
     "-i t.ctf -o out.jsonl",
     1,
     "[FATAL]"},
    {"no dielectric at all",
     {{"t.ctf", "conductor M1 { thickness 0.1 rho 0.02 }\n"}},
     "-i t.ctf -o out.jsonl",
     1,
     "Error: "},
    {"only dielectrics",
     {{"t.ctf", "dielectric D { thickness 1 er 3 }\n"}},
     "-i t.ctf -o out.jsonl --param-json p.json",
     1,
     "no usable conductor layer"},
    // The parameter file.
    {"missing parameter file",
     {},
     "-i $S -o out.jsonl --param-json nope.json",
     1,
     "Unable to open JSON file nope.json"},
    {"parameter file is a folder",
     {},
     "-i $S -o out.jsonl --param-json $D",
     1,
     "Unable to open JSON file"},
    {"invalid json",
     {{"p.json", "{\"Random\": "}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "is not valid JSON"},
    {"empty json",
     {{"p.json", ""}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "is not valid JSON"},
    {"deeply nested value",
     {{"p.json",
       R"({"Random": {"nsamples": )" + std::string(100000, '[') + std::string(100000, ']') + "}}"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "nests values too deeply"},
    {"top-level array",
     {{"p.json", "[1, 2]"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "must hold a JSON object"},
    {"family is not an object",
     {{"p.json", R"({"Random": 5})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "\"Random\" must be a JSON object"},
    {"nsamples as text",
     {{"p.json", R"({"Random": {"nsamples": "ten"}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "\"nsamples\" = \"ten\""},
    {"nsamples negative",
     {{"p.json", R"({"Random": {"nsamples": -5}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "\"nsamples\" = -5"},
    {"nsamples huge",
     {{"p.json", R"({"Random": {"nsamples": 1e12}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "\"nsamples\" = 1000000000000.0"},
    {"nsamples fraction",
     {{"p.json", R"({"Random": {"nsamples": 2.5}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "whole number"},
    {"conductor window below the widest wmin",
     {{"p.json", R"({"Random": {"nsamples": 1, "window": 10, "conductor_window": 0.3}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "too narrow"},
    {"conductor window zero",
     {{"p.json", R"({"Random": {"conductor_window": 0}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "\"conductor_window\" = 0"},
    {"window huge",
     {{"p.json", R"({"Random": {"window": 1e9}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "\"window\" = 1000000000.0"},
    {"fixed layer out of range",
     {{"p.json", R"({"Random": {"fixed_layers": [0, 9], "conductor_window": 2}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "entry 9 is not a usable layer index"},
    {"fixed layers not an array",
     {{"p.json", R"({"Random": {"fixed_layers": 3}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "\"fixed_layers\" = 3"},
    {"unknown window layer",
     {{"p.json", R"({"Random": {"nsamples": 0, "window_layer": "M9"}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "\"window_layer\" = \"M9\""},
    {"exponent base above one",
     {{"p.json", R"({"Random": {"exponent_base": 3}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "\"exponent_base\" = 3"},
    {"misspelt key warns",
     {{"p.json", R"({"Random": {"nsamples": 0, "nsampels": 4, "conductor_window": 2}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     0,
     "did you mean \"nsamples\"?"},
    {"misspelt family warns",
     {{"p.json", R"({"Randm": {}, "Random": {"nsamples": 0, "conductor_window": 2}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     0,
     "did you mean \"Random\"?"},
    // The command line.
    {"precision zero without the external solver",
     {},
     "-i $S -o out.jsonl -p 0",
     1,
     "is not installed"},
    {"precision negative without the external solver",
     {},
     "-i $S -o out.jsonl -p -1",
     1,
     "is not installed"},
    {"precision nan", {}, "-i $S -o out.jsonl -p nan", 1, "--precision nan"},
    {"precision inf", {}, "-i $S -o out.jsonl -p inf", 1, "--precision inf"},
    {"too many threads", {}, "-i $S -o out.jsonl -n 100000", 1, "--nthreads 100000"},
    {"zero threads", {}, "-i $S -o out.jsonl -n 0", 1, "--nthreads 0"},
    {"no output", {}, "-i $S", 1, "no output file given"},
    {"not a number", {}, "-i $S -o out.jsonl -p fast", 104, "fast"},
    // The output.
    {"output is a folder", {}, "-i $S -o $D --param-json p.json", 1, "Is a directory"},
    {"output folder ends in a slash", {}, "-i $S -o sub/ --param-json p.json", 1, "Is a directory"},
    {"output folder cannot be made",
     {{"file", "x"}},
     "-i $S -o file/sub/out.jsonl",
     1,
     "Error: Unable to create folder file/sub"},
    {"output folder refuses files",
     {},
     "-i $S -o /proc/karven.jsonl --param-json p.json",
     1,
     "Unable to open file /proc/karven.jsonl.part for writing"},
    // Structure files.
    {"missing structure file",
     {{"p.json", R"({"Random": {"structure_input": "none.jsonl", "window": 4}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "Error: Unable to open file none.jsonl"},
    {"structure file is a device",
     {{"p.json", R"({"Random": {"structure_input": "/dev/zero", "window": 4}})"}},
     "-i $S -o out.jsonl --param-json p.json",
     1,
     "Error: Unable to open file /dev/zero"},
    {"three-number conductor",
     {{"s.jsonl", R"({"conductors": [[0, 0.5, 0.1]], "layers": ["M1"]})"}},
     "-i $S -o out.jsonl --param-json sp.json",
     1,
     "line 1: conductor 0"},
    {"strings for numbers",
     {{"s.jsonl",
       "\n"
       R"({"conductors": [["0", 0.5, 0.1, 0.1]], "layers": ["M1"]})"}},
     "-i $S -o out.jsonl --param-json sp.json",
     1,
     "line 2: conductor 0"},
    {"bare array",
     {{"s.jsonl", "[1, 2, 3]"}},
     "-i $S -o out.jsonl --param-json sp.json",
     1,
     "line 1: must be a JSON object"},
    {"deeply nested line",
     {{"s.jsonl", std::string(100000, '[') + std::string(100000, ']')}},
     "-i $S -o out.jsonl --param-json sp.json",
     1,
     "line 1: values nested too deeply"},
    {"not json",
     {{"s.jsonl", "{conductors}"}},
     "-i $S -o out.jsonl --param-json sp.json",
     1,
     "Error parsing JSON line: "},
    {"negative width",
     {{"s.jsonl", R"({"conductors": [[0, 0.5, -0.1, 0.1]], "layers": ["M1"]})"}},
     "-i $S -o out.jsonl --param-json sp.json",
     1,
     "the width must be above 0"},
    {"zero width",
     {{"s.jsonl", R"({"conductors": [[0, 0.5, 0, 0.1]], "layers": ["M1"]})"}},
     "-i $S -o out.jsonl --param-json sp.json",
     1,
     "the width must be above 0"},
    {"wire outside the window",
     {{"s.jsonl", R"({"conductors": [[1.98, 0.5, 0.1, 0.1]], "layers": ["M1"]})"}},
     "-i $S -o out.jsonl --param-json sp.json",
     1,
     "outside the window from -2 to 2"},
    {"unknown layer",
     {{"s.jsonl", R"({"conductors": [[0, 0.5, 0.1, 0.1]], "layers": ["M9"]})"}},
     "-i $S -o out.jsonl --param-json sp.json",
     1,
     "layer \"M9\" is not a usable layer"},
    {"layers missing",
     {{"s.jsonl", R"({"conductors": [[0, 0.5, 0.1, 0.1]]})"}},
     "-i $S -o out.jsonl --param-json sp.json",
     1,
     "\"layers\" must be an array"},
    {"no structures",
     {{"s.jsonl", "\n\n"}},
     "-i $S -o out.jsonl --param-json sp.json",
     1,
     "holds no lines"},
};

}  // namespace

TEST_F(Cli, EveryBadInputFailsWithItsMessageAndLeavesTheOldOutput) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        fs::remove_all(dir);
        fs::create_directories(dir);
        write("p.json", kTinyRun);
        write("sp.json", R"({"Random": {"structure_input": "s.jsonl", "window": 4.0}})");
        write("out.jsonl", "old\n");
        for (const auto& [name, text] : c.files) write(name, text);
        std::string args = c.args;
        for (size_t at; (at = args.find("$D")) != std::string::npos;)
            args.replace(at, 2, dir.string());
        EXPECT_EQ(karven(args), c.status) << log;
        EXPECT_NE(log.find(c.message), std::string::npos) << log;
        EXPECT_EQ(log.find("terminate called"), std::string::npos) << log;
        EXPECT_EQ(readFile(dir / "out.jsonl"), c.status == 0 ? "" : "old\n");
        EXPECT_FALSE(fs::exists(dir / "out.jsonl.part"));
    }
}

TEST_F(Cli, AFatalTechnologyErrorIsTheLastLine) {
    // The example cut in the middle of a statement: the layers read before it must not be used.
    std::ifstream in(kStack);
    std::string stack((std::istreambuf_iterator<char>(in)), {});
    write("cut.ctf", stack.substr(0, 2073));
    write("p.json", kTinyRun);
    EXPECT_EQ(karven("-i cut.ctf -o out.jsonl --param-json p.json"), 1) << log;
    const size_t fatal = log.rfind("[FATAL] ");
    ASSERT_NE(fatal, std::string::npos) << log;
    // Nothing follows it but the line end (the reader's text carries one of its own).
    EXPECT_EQ(log.find_first_not_of('\n', log.find('\n', fatal)), std::string::npos) << log;
    EXPECT_FALSE(fs::exists(dir / "out.jsonl"));
}

TEST_F(Cli, BareOutputNameAndBlankStructureLines) {
    // Two structures with blank lines around them; the file goes to the current folder.
    write("s.jsonl",
          "\n"
          R"({"conductors": [[0, 0.5, 0.1, 0.1]], "layers": ["M1"]})"
          "\n  \n"
          R"({"conductors": [[-0.5, 0.5, 0.2, 0.1]], "layers": ["M1"], "id": 7})"
          "\n\n");
    write("p.json", R"({"Random": {"structure_input": "s.jsonl", "window": 4.0}})");
    ASSERT_EQ(karven("-i $S -o samples.jsonl --param-json p.json -p 0.1 -n 2"), 0) << log;
    ASSERT_TRUE(fs::is_regular_file(dir / "samples.jsonl"));
    std::ifstream in(dir / "samples.jsonl");
    std::vector<nlohmann::json> samples;
    for (std::string line; std::getline(in, line);) samples.push_back(nlohmann::json::parse(line));
    ASSERT_EQ(samples.size(), 2u);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(samples[i]["id"], i);
        EXPECT_EQ(samples[i]["size"], 2);  // the wire and the plate
    }
    EXPECT_EQ(samples[1]["conductors"][0][0], -0.5);
    EXPECT_FALSE(fs::exists(dir / "samples.jsonl.part"));
}

TEST_F(Cli, AFullDiskFailsAfterSolvingAndKeepsTheOldOutput) {
    // A file size limit of 0 makes every write fail as a full disk would; the signal it would
    // raise is ignored, so the write returns its error.
    write("p.json", kTinyRun);
    write("out.jsonl", "old\n");
    // The limit holds only in the subshell, so that the log itself can still be written.
    sh("{ (ulimit -f 0; trap \"\" XFSZ; exec timeout 60 \"$K\" -i \"$S\" -o out.jsonl "
       "--param-json p.json -p 0.1 -n 1); echo status=$?; } 2>&1 | cat");
    EXPECT_NE(log.find("status=1"), std::string::npos) << log;
    // The journal's first line is the first write, before any solve.
    EXPECT_NE(log.find("Error: Unable to write out.jsonl.journal: "), std::string::npos) << log;
    EXPECT_EQ(readFile(dir / "out.jsonl"), "old\n");
    EXPECT_FALSE(fs::exists(dir / "out.jsonl.part"));
}

TEST_F(Cli, SignalsAndASecondRunLeaveNoFinishedLookingFile) {
    write("p.json", R"({"Random": {"nsamples": 1000, "window": 10.0, "conductor_window": 4.0}})");
    for (const char* signal : {"INT", "TERM"}) {
        SCOPED_TRACE(signal);
        write("out.jsonl", "old\n");
        // A long run in the background; once its temporary file exists a second run on the same
        // output must be refused, and the signal must remove the temporary file.
        const int status = sh(
            std::string("\"$K\" -i \"$S\" -o out.jsonl --param-json p.json -p 0.05 -n 1 & pid=$!; "
                        "i=0; while [ ! -e out.jsonl.part ] && [ $i -lt 200 ]; do sleep 0.05; "
                        "i=$((i+1)); done; "
                        "timeout 60 \"$K\" -i \"$S\" -o out.jsonl --param-json p.json; "
                        "echo second=$?; sleep 0.2; kill -") +
            signal + " $pid; wait $pid; echo first=$?");
        EXPECT_EQ(status, 0) << log;
        EXPECT_NE(log.find("Error: another run is writing out.jsonl"), std::string::npos) << log;
        EXPECT_NE(log.find("second=1"), std::string::npos) << log;
        EXPECT_NE(log.find("first=1"), std::string::npos) << log;
        EXPECT_EQ(readFile(dir / "out.jsonl"), "old\n");
        EXPECT_FALSE(fs::exists(dir / "out.jsonl.part"));
        // The journal keeps what was solved, for --resume.
        EXPECT_TRUE(fs::exists(dir / "out.jsonl.journal"));
        fs::remove(dir / "out.jsonl.journal");
    }
}
