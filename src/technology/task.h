#pragma once
// The job record of an extraction run, filled by the job-file reader and read by the process
// database. A run of the pattern generator sets only `ctf_file`.

#include <cstdint>
#include <set>
#include <string>
#include <vector>

struct Task {
    std::string ctf_file;
    std::string tech_layer_map;
    std::string netlist_file;
    std::string query_cmd;
    double magnification = 1.0;
    std::int64_t internal_coord_resolution = 0;
    double minimal_medium_thickness = 0.0;
    int cap3d_output_precision = 0;
    int ignore_mos_device = 0;
    int retain_gate_diffusion_coupling = 0;
    std::set<std::string> via_cap_names;  // via layers to extract; "ALL" alone selects all
    std::vector<std::string> power_nets;
    std::vector<std::string> extract_nets;
    std::vector<std::string> extract_rnets;
    std::vector<std::string> select_nets;
    bool output_gds = false;
    int multigate_modeling = 0;
    int r_standalone = 0;
    std::string r_standalone_arg;
    std::string rnetwork_file;
    int extract_mode = 0;
    std::string top_cell;
    int ignore_diffusion_substrate_cap = 0;
    int cut_substrate_by_od = 0;
    int samt_vpt_modeling = 0;
    std::vector<std::string> skip_cells;
    int distributed_mode = 0;
    std::string distributed_cap3d_dir;
    int hierarchy_netlist = 0;
    std::vector<std::string> hierarchy_netlist_cell_select;
    std::string hierarchy_netlist_cell_select_file;
    int hierarchy_netlist_pin_renaming = 0;
    int enable_cache = 0;
    int auto_cache_limit = 0;
    std::string cache_dir;
    // Folder of the job file, absolute, ending in "/"; relative paths in it are taken from here.
    std::string cmd_dir;

    // Output files of the layout verification run, found in its query command file.
    std::string gds_map_file;
    std::string device_table_file;
    std::string gds_file;
    std::string layout_netlist_file;
    std::string layout_nametable_file;
    std::string separated_properties_file;
    std::string port_table_file;
};
