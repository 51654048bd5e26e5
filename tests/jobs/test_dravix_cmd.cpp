// The job file reader: each keyword's rule, the argument-table fallback, relative paths, and the
// two failures.
#include <set>
#include <unordered_map>
#include <vector>

#include "jobs_test_util.h"

using Strings = std::vector<std::string>;
using DravixCmd = jobs_test::JobFileTest;

TEST_F(DravixCmd, ValueAndListKeywordsFillTheirFields) {
    Task t;
    ASSERT_TRUE(
        readJob("NETLIST_FILE net.spi\nMAGNIFICATION 0.5\nINTERNAL_COORD_RESOLUTION 1000.9\n"
                "MINIMAL_MEDIUM_THICKNESS 2.5e-3\nRNETWORK_FILE r.net\nTOP_CELL TOP\n"
                "HIERARCHY_NETLIST_CELL_SELECT_FILE cells.txt\nDRAVIX_CACHE_DIR cache\n"
                "DISTRIBUTED_CAP3D_DIR out_dir_2\nOUTPUT_GDS yes\n"
                "POWER_NETS VDD VSS\nPOWER_NETS VDD\nSKIP_CELLS !fill* cell_$1 a?b\n"
                "HIERARCHY_NETLIST_CELL_SELECT A B\nVIA_CAP V2 V1\nVIA_CAP V1 V3\n"
                "SELECT_NETS s1 s1 s2\nEXTRACT_NETS n3 n1 n3\nEXTRACT_NETS n1 n2\n"
                "EXTRACT_MODE rc\nR_STANDALONE net_a.cfg extra\n",
                t));
    // These paths are never made absolute.
    EXPECT_EQ(
        (Strings{t.netlist_file, t.rnetwork_file, t.top_cell, t.hierarchy_netlist_cell_select_file,
                 t.cache_dir, t.distributed_cap3d_dir, t.r_standalone_arg}),
        (Strings{"net.spi", "r.net", "TOP", "cells.txt", "cache/", "out_dir_2", "net_a.cfg"}));
    EXPECT_EQ((std::vector<double>{t.magnification, double(t.internal_coord_resolution),
                                   t.minimal_medium_thickness, double(t.output_gds)}),
              (std::vector<double>{0.5, 1000, 2.5e-3, 1}));
    EXPECT_EQ(t.power_nets, (Strings{"VDD", "VSS", "VDD"}));  // no memory for power nets
    EXPECT_EQ(t.skip_cells, (Strings{"!fill*", "cell_$1", "a?b"}));
    EXPECT_EQ(t.hierarchy_netlist_cell_select, (Strings{"A", "B"}));
    EXPECT_EQ(t.via_cap_names, (std::set<std::string>{"V1", "V2", "V3"}));
    EXPECT_EQ(t.select_nets, (Strings{"s1", "s2"}));
    EXPECT_EQ(t.extract_nets, (Strings{"n3", "n1", "n2"}));  // first sightings, order kept
    // Of these keywords only the mode is also kept in the argument table.
    EXPECT_EQ(PARG::getTable().table,
              (std::unordered_map<std::string, std::string>{{"EXTRACT_MODE", "rc"}}));
    EXPECT_EQ(log, "");

    Task u;  // the resistance nets join the extracted ones, sorted; "none" empties the via list
    ASSERT_TRUE(readJob("EXTRACT_NETS n3 n1\nEXTRACT_RNETS r9 n1 r0 r9\nVIA_CAP none V1\n", u));
    EXPECT_EQ(u.extract_rnets, (Strings{"r9", "n1", "r0"}));
    EXPECT_EQ(u.extract_nets, (Strings{"n1", "n3", "r0", "r9"}));
    EXPECT_TRUE(u.via_cap_names.empty());
    Task r;  // without extracted nets the resistance nets stay apart
    ASSERT_TRUE(readJob("EXTRACT_RNETS r1\n", r));
    EXPECT_TRUE(r.extract_nets.empty());
}

TEST_F(DravixCmd, IntegerRulesFromAKnownStart) {
    struct Case {
        std::string line;
        int Task::*field;
        int start, want;
    };
    const std::vector<Case> cases = {
        {"IGNORE_MOS_DEVICE all", &Task::ignore_mos_device, 0, 1},
        {"IGNORE_MOS_DEVICE NONE", &Task::ignore_mos_device, 1, 0},
        {"IGNORE_MOS_DEVICE retain_gate_diffusion_coupling", &Task::ignore_mos_device, 1, 0},
        {"IGNORE_MOS_DEVICE RETAIN_GATE_DIFFUSION_COUPLING", &Task::retain_gate_diffusion_coupling,
         0, 1},
        {"ENABLE_DRAVIX_CACHE no", &Task::enable_cache, 1, 0},
        {"ENABLE_DRAVIX_CACHE maybe", &Task::enable_cache, 1, 1},
        {"DRAVIX_AUTO_CACHE Yes", &Task::auto_cache_limit, 5, 10},
        {"DRAVIX_AUTO_CACHE Yes", &Task::enable_cache, 0, 1},
        {"DRAVIX_AUTO_CACHE off", &Task::auto_cache_limit, 5, 0},
        {"DRAVIX_AUTO_CACHE_LIMIT 25", &Task::auto_cache_limit, 5, 25},
        {"DRAVIX_AUTO_CACHE_LIMIT 3", &Task::enable_cache, 0, 1},
        {"DRAVIX_AUTO_CACHE_LIMIT -4", &Task::auto_cache_limit, 5, 5},
        {"DRAVIX_AUTO_CACHE_LIMIT 99999999999", &Task::auto_cache_limit, 5, 5},
        {"EXTRACT_MODE r", &Task::extract_mode, 0, 1},
        {"EXTRACT_MODE rC", &Task::extract_mode, 0, 2},
        {"EXTRACT_MODE R", &Task::r_standalone, 0, 1},
        {"RC_DSPF anything", &Task::r_standalone, 0, 1},
        {"CAP3D_OUTPUT_PRECISION 7", &Task::cap3d_output_precision, 0, 7},
        {"CAP3D_OUTPUT_PRECISION abc", &Task::cap3d_output_precision, 5, 0},
        {"CAP3D_OUTPUT_PRECISION 1e30", &Task::cap3d_output_precision, 0, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        Task t;
        t.*c.field = c.start;
        ASSERT_TRUE(readJob(c.line + "\n", t));
        EXPECT_EQ(t.*c.field, c.want);
    }
    // Numbers that are no numbers read as zero; 64-bit overflow too.
    for (const auto& [text, want] : std::vector<std::pair<std::string, std::int64_t>>{
             {"abc", 0}, {"-3.7", -3}, {"12x", 12}, {"1e30", 0}}) {
        Task t;
        ASSERT_TRUE(readJob("INTERNAL_COORD_RESOLUTION " + text + "\nMAGNIFICATION " + text, t));
        EXPECT_EQ(t.internal_coord_resolution, want) << text;
        EXPECT_DOUBLE_EQ(t.magnification, text == "abc" ? 0.0 : std::stod(text)) << text;
    }
}

TEST_F(DravixCmd, FlagRulesSetLeaveOrClear) {
    const std::vector<std::pair<std::string, int Task::*>> leave = {
        {"MULTIGATE_MODELING", &Task::multigate_modeling},
        {"IGNORE_DIFFUSION_SUBSTRATE_CAP", &Task::ignore_diffusion_substrate_cap},
        {"SAMT_VPT_MODELING", &Task::samt_vpt_modeling},
        {"DISTRIBUTED_MODE", &Task::distributed_mode},
        {"HIERARCHY_NETLIST", &Task::hierarchy_netlist}};
    const std::vector<std::pair<std::string, int Task::*>> clear = {
        {"CUT_SUBSTRATE_BY_OD", &Task::cut_substrate_by_od},
        {"HIERARCHY_NETLIST_PIN_RENAMING", &Task::hierarchy_netlist_pin_renaming}};
    for (const auto* list : {&leave, &clear})
        for (const auto& [keyword, field] : *list)
            for (const std::string value : {"YES", "yEs", "1", "NO", "2", "Y"})
                for (int start : {0, 1}) {
                    SCOPED_TRACE(keyword + " " + value + " from " + std::to_string(start));
                    const bool yes = value == "1" || value.size() == 3;
                    Task t;
                    t.*field = start;
                    ASSERT_TRUE(readJob(keyword + " " + value + "\n", t));
                    EXPECT_EQ(t.*field, yes ? 1 : (list == &clear ? 0 : start));
                }
}

TEST_F(DravixCmd, SkippedLinesUnknownKeywordsAndDisableDfmFillTheTable) {
    Task t;
    ASSERT_TRUE(readJob(
        "CTF_FILE\n   # TOP_CELL hidden\n\t\ntop_cell lower\nP2P_USE_CG_SOLVER 1 2 3\n", t));
    EXPECT_EQ(t.ctf_file + t.top_cell, "");  // a line of one word and a comment are skipped
    EXPECT_EQ(PARG::getTable().table, (std::unordered_map<std::string, std::string>{
                                          {"top_cell", "lower"},          // keywords are exact
                                          {"P2P_USE_CG_SOLVER", "1"}}));  // first value only
    for (const std::string value : {"all", "Yes", "NO"}) {
        SCOPED_TRACE(value);
        PARG::clear();
        Task d;  // the multigate flag set after the switch is still cleared at the end
        ASSERT_TRUE(readJob("DISABLE_DFM " + value + "\nMULTIGATE_MODELING YES\n", d));
        const bool off = value != "NO";
        EXPECT_EQ(d.multigate_modeling, off ? 0 : 1);
        EXPECT_EQ(PARG::getTable().table.size(), off ? 11u : 0u);
        EXPECT_EQ(PARG::get("DISABLE_RAISED_DIFFUSION", 0) + PARG::get("DISABLE_SIDE_TAN", 0),
                  off ? 2 : 0);
        EXPECT_EQ(log, off ? "[WARNING] All DFM functionalities are disabled from dravix command "
                             "file.\n"
                           : "");
    }
}

TEST_F(DravixCmd, WarningsAndFailures) {
    Task t;
    ASSERT_TRUE(readJob("IGNORE_SUBSTRATE YES\nDISTRIBUTED_CAP3D_DIR bad-name\n", t));
    EXPECT_EQ(log,
              "[WARNING] IGNORE_SUBSTRATE in dravix command file is obsolete, the capacitances "
              "between substrate conductors are always neglected now.\n"
              "[WARNING] DISTRIBUTED_CAP3D_DIR contains invalid characters, now using default "
              "directory name.\n");
    EXPECT_EQ(t.distributed_cap3d_dir, "");
    for (const std::string bad : {"a!b", "x/y"}) {
        Task s;
        EXPECT_FALSE(readJob("SKIP_CELLS good " + bad + "\nTOP_CELL T\n", s));
        EXPECT_EQ(log, "[ERROR] Invalid cell name \"" + bad + "\" in the SKIP_CELLS setting.\n");
        EXPECT_EQ(s.top_cell, "");  // the read stopped there
    }
    const std::string nowhere = (dir / "no such.cmd").string();
    EXPECT_FALSE(logged([&] { return TextParser::parseDravixCmd(nowhere.c_str(), t); }));
    EXPECT_EQ(log, "[ERROR] Can not open Dravix cmd file \"" + nowhere + "\".\n");
}

TEST_F(DravixCmd, PathsAreTakenFromTheFilesOwnFolder) {
    // The job sits in a folder with blanks in its name, reached through a link and a "..".
    write("job files/run 1/job.cmd",
          "CTF_FILE ../tech.ctf\nTECH_LAYER_MAP /abs/map.txt\nQUERY_CMD query.cmd\n");
    const auto real_folder = dir / "job files" / "run 1";
    std::filesystem::create_directory_symlink(real_folder, dir / "link");
    const std::string via_link = (dir / "link" / ".." / "run 1" / "job.cmd").string();
    Task t;
    ASSERT_TRUE(logged([&] { return TextParser::parseDravixCmd(via_link.c_str(), t); }));
    const std::string folder = real_folder.string() + "/";
    EXPECT_EQ((Strings{t.cmd_dir, t.ctf_file, t.tech_layer_map, t.query_cmd}),
              (Strings{folder, folder + "../tech.ctf", "/abs/map.txt", folder + "query.cmd"}));

    // A value is one word; a bare file name resolves against the working folder.
    write("plain.cmd", "CTF_FILE my tech.ctf\n");
    const auto cwd = std::filesystem::current_path();
    std::filesystem::current_path(dir);
    Task b;
    ASSERT_TRUE(logged([&] { return TextParser::parseDravixCmd("plain.cmd", b); }));
    std::filesystem::current_path(cwd);
    EXPECT_EQ(b.ctf_file, dir.string() + "/my");
}
