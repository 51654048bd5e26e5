// The command line: option table, bad options, the output folder, and the technology statements
// the tool links.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "driver/karven.h"
#include "driver_test_util.h"
#include "technology/ctf_interpreter.h"

using CommandLine = driver_test::ToolTest;

TEST_F(CommandLine, HelpListsOptionsInOrderWithTheirTexts) {
    EXPECT_EQ(sh("exec \"$K\" --help"), 0);
    const std::string& out = log;
    size_t at = 0;
    for (const char* line : {
             "KARVEN: Pattern Generator",
             "-i,--input TEXT             Input CTF file path",
             "-o,--output TEXT            Output file path",
             "-n,--nthreads INT           Number of threads (default: max available)",
             "-p,--precision FLOAT        Precsion (default: 0.005)",
             "--merge-diel BOOLEAN        Merge dielectrics (default: true)",
             "--tmp-folder TEXT           Temporary folder for output (default: tmp/)",
             "--param-json TEXT           Parameter JSON file path (default: none)",
             "--seed INT                  Random seed (default: 1)",
         }) {
        at = out.find(line, at);
        ASSERT_NE(at, std::string::npos) << "missing or out of order: " << line << "\n" << out;
    }
}

TEST_F(CommandLine, ValuedMergeDielAndBadOptions) {
    // --merge-diel takes a value; the run then finds no CTF file and stops there.
    EXPECT_EQ(sh("exec \"$K\" --merge-diel false -o x/out.jsonl"), 1);
    EXPECT_NE(log.find("[FATAL] Can not open CTF file \"\"."), std::string::npos) << log;
    EXPECT_FALSE(std::filesystem::exists(dir / "x"));
    EXPECT_EQ(sh("exec \"$K\" --bogus"), 109);  // CLI11's code for an extra argument
    EXPECT_NE(log.find("The following argument was not expected: --bogus"), std::string::npos);
    for (const std::string args : {"--merge-diel", "--merge-diel maybe"})
        EXPECT_NE(sh("exec \"$K\" " + args), 0) << args;
}

TEST(OutputFolder, CutsAtTheLastSeparatorOfEitherKind) {
    EXPECT_EQ(KARVEN::outputFolder("a/b/c.jsonl"), "a/b");
    EXPECT_EQ(KARVEN::outputFolder("a/b\\c.jsonl"), "a/b");
    EXPECT_EQ(KARVEN::outputFolder("c.jsonl"), "");
    EXPECT_EQ(KARVEN::outputFolder("/x.jsonl"), "");
}

// The tool links the technology library as this test does; every statement and table class
// must reach the reader, or its keyword would fall back to the generic element reader.
TEST(ToolLinking, EveryCtfStatementAndTableClassIsRegistered) {
    std::istringstream names(
        "CtfConductor CtfContact_gate_table CtfDensity_box CtfDielectric CtfDiff_gate_table "
        "CtfEtch_contact_gate_spacing CtfEtch_width_length CtfEtch_width_spacing CtfGate2Diff_cap "
        "CtfILD_thickness CtfMaskEtchTable CtfMultiGate CtfRHO_SI_width_thickness "
        "CtfRHO_width_spacing CtfRPSQ_SI_width CtfRPSQ_width_spacing CtfRPV_Area "
        "CtfRPV_width_length CtfSAMT_VPT CtfSideTan_width_spacing CtfSpacer_er_vs_width_spacing "
        "CtfTSV CtfTSVCeffTable CtfThickness_bottom_width CtfThickness_density "
        "CtfThickness_density_width CtfThickness_polynomial CtfThickness_width_spacing CtfVia");
    for (std::string name; names >> name;)
        EXPECT_NE(registeredCtfProcessor(name.c_str()), nullptr) << name;
}
