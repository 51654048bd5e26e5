// Multi-mask tables against the layer map's mask ids, and the switch for their rule.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "runtime/pargument.h"
#include "tech_test_util.h"
#include "technology/process_info.h"

namespace fs = std::filesystem;

namespace {

using Switches = std::vector<std::pair<std::string, std::string>>;

const std::string kBase = "dielectric D0 { thickness 1 er 4 }\n";
const std::string kMaskEtch =
    " width_var_from_ws { nmask 2 mask (1 1) (1 2) (2 1) (2 2) {\n"
    "   widths { 1 } spacings { 1 } values { 0.07 } } }\n";

std::string metal(const std::string& body) {
    return "conductor M1 { rho 0.02 thickness 0.5\n" + body + "}\n";
}
std::string maskMap(int id) {
    return "conducting_layers\nm1_gds M1 MASK=" + std::to_string(id) + "\n";
}

class ProcessRules : public tech_test::FileTest {
protected:
    // Reads `ctf` into a fresh database under exactly `switches`, after the tech layer map
    // `map` when one is given; returns the status and keeps what was logged.
    int read(const std::string& ctf, const Switches& switches = {}, const std::string& map = "") {
        PARG::clear();
        for (const auto& [key, value] : switches) PARG::regArgument(key, value);
        info = std::make_unique<ProcessInfo>();
        testing::internal::CaptureStdout();
        if (!map.empty()) info->parseTechLayerMap(write("t.map", map));
        Task task;
        task.ctf_file = write("t.ctf", ctf);
        const int status = info->parseCtfwithInterpreter(task);
        logged = testing::internal::GetCapturedStdout();
        return status;
    }
    const Conductor& m1() const { return info->conductors.at(info->conductor_index.at("M1")); }

    std::unique_ptr<ProcessInfo> info;
    std::string logged;
};

TEST_F(ProcessRules, MaskIdsKeepTheMultiMaskTablesOtherwiseTheyActAsPlainTables) {
    ASSERT_EQ(read(kBase + metal(kMaskEtch), {}, maskMap(2)), 1) << logged;
    EXPECT_EQ(m1().cap_mask_etch.size(), 1u);
    EXPECT_EQ(m1().res_mask_etch.size(), 1u);
    EXPECT_TRUE(m1().cap_etch.empty() && m1().res_etch.empty());
    EXPECT_EQ(m1().cap_mask_etch[0]->rule, 1);  // the legacy rule is the default
    EXPECT_EQ(m1().needs_cap_modeling, 1);

    ASSERT_EQ(read(kBase + metal(kMaskEtch), {{"MULTIMASK_ETCH_LEGACY_RULE", "0"}}, maskMap(2)), 1);
    EXPECT_EQ(m1().res_mask_etch.at(0)->rule, 0);

    ASSERT_EQ(read(kBase + metal(kMaskEtch)), 1) << logged;
    EXPECT_TRUE(m1().cap_mask_etch.empty() && m1().res_mask_etch.empty());
    EXPECT_EQ(m1().cap_etch.size(), 1u);
    EXPECT_EQ(m1().res_etch.size(), 1u);
}

}  // namespace
