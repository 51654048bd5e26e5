// The job file reader: each keyword's rule, the argument-table fallback, relative paths, and the
// two failures.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "jobs/text_parser.h"
#include "jobs_test_util.h"
#include "runtime/pargument.h"

using jobs_test::JobFileTest;
using Strings = std::vector<std::string>;

namespace {

class DravixCmd : public JobFileTest {
protected:
    // Reads `text` as a job file into `task`; returns the reader's result and keeps its output.
    bool read(const std::string& text, Task& t, const std::string& name = "job.cmd") {
        const std::string path = write(name, text);
        testing::internal::CaptureStdout();
        const bool ok = TextParser::parseDravixCmd(path.c_str(), t);
        log = testing::internal::GetCapturedStdout();
        return ok;
    }
    std::string log;
};

}  // namespace

TEST_F(DravixCmd, ScalarKeywordsFillTheirFields) {
    Task t;
    ASSERT_TRUE(
        read("NETLIST_FILE net.spi\n"
             "MAGNIFICATION 0.5\n"
             "INTERNAL_COORD_RESOLUTION 1000.9\n"
             "MINIMAL_MEDIUM_THICKNESS 2.5e-3\n"
             "CAP3D_OUTPUT_PRECISION 7\n"
             "RNETWORK_FILE r.net\n"
             "TOP_CELL TOP\n"
             "HIERARCHY_NETLIST_CELL_SELECT_FILE cells.txt\n"
             "DRAVIX_CACHE_DIR cache\n"
             "DISTRIBUTED_CAP3D_DIR out_dir_2\n"
             "OUTPUT_GDS yes\n",
             t));
    EXPECT_EQ(t.netlist_file, "net.spi");  // never made absolute
    EXPECT_DOUBLE_EQ(t.magnification, 0.5);
    EXPECT_EQ(t.internal_coord_resolution, 1000);
    EXPECT_DOUBLE_EQ(t.minimal_medium_thickness, 2.5e-3);
    EXPECT_EQ(t.cap3d_output_precision, 7);
    EXPECT_EQ(t.rnetwork_file, "r.net");
    EXPECT_EQ(t.top_cell, "TOP");
    EXPECT_EQ(t.hierarchy_netlist_cell_select_file, "cells.txt");
    EXPECT_EQ(t.cache_dir, "cache/");
    EXPECT_EQ(t.distributed_cap3d_dir, "out_dir_2");
    EXPECT_TRUE(t.output_gds);
    EXPECT_TRUE(PARG::getTable().table.empty());  // no keyword of the table leaks into it
    EXPECT_EQ(log, "");
}

TEST_F(DravixCmd, NumbersThatAreNoNumbersReadAsZero) {
    struct Case {
        std::string value;
        std::int64_t resolution;
        double magnification;
        int precision;
    };
    for (const Case& c : std::vector<Case>{{"abc", 0, 0.0, 0},
                                           {"-3.7", -3, -3.7, -3},
                                           {"12x", 12, 12.0, 12},
                                           {"1e30", 0, 1e30, 1},  // past 64 bits reads as 0
                                           {"nan", 0, std::nan(""), 0}}) {
        SCOPED_TRACE(c.value);
        Task t;
        ASSERT_TRUE(read("INTERNAL_COORD_RESOLUTION " + c.value + "\nMAGNIFICATION " + c.value +
                             "\nCAP3D_OUTPUT_PRECISION " + c.value + "\n",
                         t));
        EXPECT_EQ(t.internal_coord_resolution, c.resolution);
        if (std::isnan(c.magnification))
            EXPECT_TRUE(std::isnan(t.magnification));
        else
            EXPECT_DOUBLE_EQ(t.magnification, c.magnification);
        EXPECT_EQ(t.cap3d_output_precision, c.precision);
    }
}

TEST_F(DravixCmd, FlagRulesSetLeaveOrClear) {
    // Value -> state after the line, starting from 0 and from 1.
    struct Case {
        std::string keyword;
        int Task::*field;
        bool clears;  // an other value clears the flag instead of leaving it
    };
    const std::vector<Case> cases = {
        {"MULTIGATE_MODELING", &Task::multigate_modeling, false},
        {"IGNORE_DIFFUSION_SUBSTRATE_CAP", &Task::ignore_diffusion_substrate_cap, false},
        {"SAMT_VPT_MODELING", &Task::samt_vpt_modeling, false},
        {"DISTRIBUTED_MODE", &Task::distributed_mode, false},
        {"HIERARCHY_NETLIST", &Task::hierarchy_netlist, false},
        {"CUT_SUBSTRATE_BY_OD", &Task::cut_substrate_by_od, true},
        {"HIERARCHY_NETLIST_PIN_RENAMING", &Task::hierarchy_netlist_pin_renaming, true},
    };
    for (const Case& c : cases) {
        for (const std::string value : {"YES", "yes", "yEs", "1", "NO", "0", "2", "Y"}) {
            const bool yes = value == "1" || value.size() == 3;
            for (int start : {0, 1}) {
                SCOPED_TRACE(c.keyword + " " + value + " from " + std::to_string(start));
                Task t;
                t.*c.field = start;
                ASSERT_TRUE(read(c.keyword + " " + value + "\n", t));
                EXPECT_EQ(t.*c.field, yes ? 1 : (c.clears ? 0 : start));
            }
        }
    }
}

TEST_F(DravixCmd, MosDeviceModeAndCacheRules) {
    struct Case {
        std::string text;
        int ignore_mos, retain, enable_cache, limit;
    };
    // Each case starts from ignore_mos 1, retain 0, enable_cache 1, limit 5.
    const std::vector<Case> cases = {
        {"IGNORE_MOS_DEVICE all", 1, 0, 1, 5},
        {"IGNORE_MOS_DEVICE RETAIN_GATE_DIFFUSION_COUPLING", 1, 1, 1, 5},
        {"IGNORE_MOS_DEVICE retain_gate_diffusion_coupling", 0, 0, 1, 5},  // exact word only
        {"IGNORE_MOS_DEVICE NONE", 0, 0, 1, 5},
        {"ENABLE_DRAVIX_CACHE no", 1, 0, 0, 5},
        {"ENABLE_DRAVIX_CACHE 0", 1, 0, 0, 5},
        {"ENABLE_DRAVIX_CACHE maybe", 1, 0, 1, 5},
        {"DRAVIX_AUTO_CACHE Yes", 1, 0, 1, 10},
        {"DRAVIX_AUTO_CACHE off", 1, 0, 1, 0},
        {"DRAVIX_AUTO_CACHE_LIMIT 25", 1, 0, 1, 25},
        {"DRAVIX_AUTO_CACHE_LIMIT -4", 1, 0, 1, 5},
        {"DRAVIX_AUTO_CACHE_LIMIT many", 1, 0, 1, 5},
        {"DRAVIX_AUTO_CACHE_LIMIT 99999999999", 1, 0, 1, 5},  // out of range: dropped
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        Task t;
        t.ignore_mos_device = 1;
        t.enable_cache = 1;
        t.auto_cache_limit = 5;
        ASSERT_TRUE(read(c.text + "\n", t));
        EXPECT_EQ(t.ignore_mos_device, c.ignore_mos);
        EXPECT_EQ(t.retain_gate_diffusion_coupling, c.retain);
        EXPECT_EQ(t.enable_cache, c.enable_cache);
        EXPECT_EQ(t.auto_cache_limit, c.limit);
    }
    Task t;  // a positive limit switches the cache on
    ASSERT_TRUE(read("DRAVIX_AUTO_CACHE_LIMIT 3\n", t));
    EXPECT_EQ(t.enable_cache, 1);
    EXPECT_EQ(t.auto_cache_limit, 3);
}

TEST_F(DravixCmd, ExtractModeAndStandaloneRuns) {
    struct Case {
        std::string text;
        int mode, standalone;
    };
    for (const Case& c : std::vector<Case>{{"EXTRACT_MODE r", 1, 1},
                                           {"EXTRACT_MODE R", 1, 1},
                                           {"EXTRACT_MODE rC", 2, 1},
                                           {"EXTRACT_MODE Rc", 2, 1},
                                           {"EXTRACT_MODE C", 0, 0},
                                           {"EXTRACT_MODE RCX", 0, 0},
                                           {"RC_DSPF anything", 0, 1}}) {
        SCOPED_TRACE(c.text);
        PARG::clear();
        Task t;
        ASSERT_TRUE(read(c.text + "\n", t));
        EXPECT_EQ(t.extract_mode, c.mode);
        EXPECT_EQ(t.r_standalone, c.standalone);
    }
    EXPECT_EQ(PARG::get("EXTRACT_MODE", "unset"), std::string("unset"));  // last case: RC_DSPF
    Task t;
    ASSERT_TRUE(read("EXTRACT_MODE rc\nR_STANDALONE net_a.cfg extra\n", t));
    EXPECT_EQ(PARG::get("EXTRACT_MODE", ""), std::string("rc"));
    EXPECT_EQ(t.r_standalone, 1);
    EXPECT_EQ(t.r_standalone_arg, "net_a.cfg");
}

TEST_F(DravixCmd, ListKeywords) {
    Task t;
    ASSERT_TRUE(
        read("POWER_NETS VDD VSS\n"
             "POWER_NETS VDD\n"  // appended again: no memory for power nets
             "SKIP_CELLS !fill* cell_$1 a?b\n"
             "HIERARCHY_NETLIST_CELL_SELECT A B\n"
             "VIA_CAP V2 V1\n"
             "VIA_CAP V1 V3\n"
             "SELECT_NETS s1 s1 s2\n",
             t));
    EXPECT_EQ(t.power_nets, (Strings{"VDD", "VSS", "VDD"}));
    EXPECT_EQ(t.skip_cells, (Strings{"!fill*", "cell_$1", "a?b"}));
    EXPECT_EQ(t.hierarchy_netlist_cell_select, (Strings{"A", "B"}));
    EXPECT_EQ(t.via_cap_names, (std::set<std::string>{"V1", "V2", "V3"}));
    EXPECT_EQ(t.select_nets, (Strings{"s1", "s2"}));

    Task none;
    ASSERT_TRUE(read("VIA_CAP none V1\n", none));
    EXPECT_TRUE(none.via_cap_names.empty());
}

TEST_F(DravixCmd, ExtractNetsKeepFirstSightingsAndJoinTheResistanceNetsSorted) {
    Task t;
    ASSERT_TRUE(read("EXTRACT_NETS n3 n1 n3\nEXTRACT_NETS n1 n2\n", t));
    EXPECT_EQ(t.extract_nets, (Strings{"n3", "n1", "n2"}));  // no union: order kept

    Task u;
    ASSERT_TRUE(read("EXTRACT_NETS n3 n1\nEXTRACT_RNETS r9 n1 r0 r9\n", u));
    EXPECT_EQ(u.extract_rnets, (Strings{"r9", "n1", "r0"}));
    EXPECT_EQ(u.extract_nets, (Strings{"n1", "n3", "r0", "r9"}));

    Task r;  // resistance nets alone do not reach extract_nets
    ASSERT_TRUE(read("EXTRACT_RNETS r1\n", r));
    EXPECT_TRUE(r.extract_nets.empty());
}

TEST_F(DravixCmd, SkippedLinesAndUnknownKeywords) {
    Task t;
    ASSERT_TRUE(
        read("CTF_FILE\n"              // one word: skipped
             "   # TOP_CELL hidden\n"  // blanks dropped, then a comment
             "#TOP_CELL hidden\n"      // comment
             "\t\n"                    // no words
             "top_cell lower\n"        // keywords are exact: an engine switch
             "P2P_USE_CG_SOLVER 1 2 3\n"
             "TSV_MODE\tyes\n",
             t));
    EXPECT_EQ(t.ctf_file, "");
    EXPECT_EQ(t.top_cell, "");
    const auto& table = PARG::getTable().table;
    EXPECT_EQ(table.size(), 3u);
    EXPECT_EQ(table.at("top_cell"), "lower");
    EXPECT_EQ(table.at("P2P_USE_CG_SOLVER"), "1");  // first value only
    EXPECT_EQ(PARG::get("P2P_USE_CG_SOLVER", 0), 1);
    EXPECT_EQ(table.at("TSV_MODE"), "yes");
}

TEST_F(DravixCmd, DisableDfmRegistersEverySwitchAndDropsMultigate) {
    const Strings switches = {"DISABLE_SIDE_TAN",
                              "DISABLE_CONDUCTOR_ETCH",
                              "DISABLE_VIA_ETCH",
                              "DISABLE_THICKNESS_VS_WS",
                              "DISABLE_THICKNESS_POLY",
                              "DISABLE_ILD_THICKNESS",
                              "DISABLE_THICKNESS_VS_DENSITY",
                              "DISABLE_THICKNESS_VS_DENSITY_AND_WIDTH",
                              "DISABLE_BOTTOM_THICKNESS_VS_WIDTH",
                              "DISABLE_SPACER_ER_VS_WS",
                              "DISABLE_RAISED_DIFFUSION"};
    for (const std::string value : {"all", "Yes"}) {
        SCOPED_TRACE(value);
        PARG::clear();
        Task t;
        // The multigate flag set after the switch is still cleared at the end.
        ASSERT_TRUE(read("DISABLE_DFM " + value + "\nMULTIGATE_MODELING YES\n", t));
        EXPECT_EQ(t.multigate_modeling, 0);
        EXPECT_EQ(PARG::getTable().table.size(), switches.size());
        for (const auto& key : switches) EXPECT_EQ(PARG::get(key, 0), 1) << key;
        EXPECT_EQ(log,
                  "[WARNING] All DFM functionalities are disabled from dravix command file.\n");
    }
    PARG::clear();
    Task t;
    ASSERT_TRUE(read("DISABLE_DFM NO\nMULTIGATE_MODELING 1\n", t));
    EXPECT_EQ(t.multigate_modeling, 1);
    EXPECT_TRUE(PARG::getTable().table.empty());
}

TEST_F(DravixCmd, WarningsAndFailures) {
    Task t;
    ASSERT_TRUE(read("IGNORE_SUBSTRATE YES\nDISTRIBUTED_CAP3D_DIR bad-name\n", t));
    EXPECT_EQ(log,
              "[WARNING] IGNORE_SUBSTRATE in dravix command file is obsolete, the capacitances "
              "between substrate conductors are always neglected now.\n"
              "[WARNING] DISTRIBUTED_CAP3D_DIR contains invalid characters, now using default "
              "directory name.\n");
    EXPECT_EQ(t.distributed_cap3d_dir, "");

    for (const std::string bad : {"a!b", "x/y", "c-1", "%"}) {
        SCOPED_TRACE(bad);
        Task s;
        EXPECT_FALSE(read("SKIP_CELLS good " + bad + "\nTOP_CELL T\n", s));
        EXPECT_EQ(log, "[ERROR] Invalid cell name \"" + bad + "\" in the SKIP_CELLS setting.\n");
        EXPECT_EQ(s.top_cell, "");  // the read stopped there
    }

    Task missing;
    const std::string nowhere = (dir / "no such.cmd").string();
    testing::internal::CaptureStdout();
    EXPECT_FALSE(TextParser::parseDravixCmd(nowhere.c_str(), missing));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[ERROR] Can not open Dravix cmd file \"" + nowhere + "\".\n");
}

TEST_F(DravixCmd, PathsAreTakenFromTheFilesOwnFolder) {
    // The job sits in a folder with blanks in its name, reached through a link and a "..".
    const std::string job = "job files/run 1/job.cmd";
    write(job, "");
    const auto real_folder = dir / "job files" / "run 1";
    std::filesystem::create_directory_symlink(real_folder, dir / "link");
    Task t;
    write(job,
          "CTF_FILE ../tech.ctf\n"
          "TECH_LAYER_MAP /abs/map.txt\n"
          "QUERY_CMD query.cmd\n"
          "NETLIST_FILE top.spi\n");
    const std::string via_link = (dir / "link" / ".." / "run 1" / "job.cmd").string();
    testing::internal::CaptureStdout();
    ASSERT_TRUE(TextParser::parseDravixCmd(via_link.c_str(), t));
    testing::internal::GetCapturedStdout();
    const std::string folder = real_folder.string() + "/";
    EXPECT_EQ(t.cmd_dir, folder);
    EXPECT_EQ(t.ctf_file, folder + "../tech.ctf");
    EXPECT_EQ(t.tech_layer_map, "/abs/map.txt");
    EXPECT_EQ(t.query_cmd, folder + "query.cmd");
    EXPECT_EQ(t.netlist_file, "top.spi");

    // A value is one word: a path written with a blank keeps its first word only.
    Task s;
    ASSERT_TRUE(read("CTF_FILE my tech.ctf\n", s, "plain.cmd"));
    EXPECT_EQ(s.ctf_file, dir.string() + "/my");

    // A bare file name resolves against the working folder.
    const auto cwd = std::filesystem::current_path();
    std::filesystem::current_path(dir);
    Task b;
    testing::internal::CaptureStdout();
    ASSERT_TRUE(TextParser::parseDravixCmd("plain.cmd", b));
    testing::internal::GetCapturedStdout();
    std::filesystem::current_path(cwd);
    EXPECT_EQ(b.cmd_dir, dir.string() + "/");
}
