// The output folder of a path, and the technology statements the tool links.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "driver/karven.h"
#include "technology/ctf_interpreter.h"

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
