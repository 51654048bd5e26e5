// The job file of the extraction engine: keyword lines that fill the Task and the argument table.
#include <climits>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "jobs/text_parser.h"
#include "runtime/logger.h"
#include "runtime/pargument.h"
#include "runtime/strutil.h"

namespace {

// Case-blind test against one of the words YES, NO, ALL, NONE; the value itself is not changed.
bool is(const std::string& value, const char* word) {
    std::string a = value, b = word;
    return StrUtil::compare(a, b, 0) == 1;
}

bool yesOrOne(const std::string& v) {
    return is(v, "YES") || v == "1";
}

bool isAlnum(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Letters, digits, "_", "$", "*", "?", and "!" as the first character only.
bool validCellName(const std::string& name) {
    for (std::size_t i = 0; i < name.size(); ++i) {
        const char c = name[i];
        if (isAlnum(c) || c == '_' || c == '$' || c == '*' || c == '?') continue;
        if (c == '!' && i == 0) continue;
        return false;
    }
    return true;
}

bool validDirName(const std::string& name) {
    for (char c : name)
        if (!isAlnum(c) && c != '_') return false;
    return true;
}

// strtod truncated to 64 bits; a value outside that range (or not finite) reads as 0, like a
// value that is no number, instead of an undefined conversion.
std::int64_t truncatedInteger(const std::string& v) {
    const double d = std::strtod(v.c_str(), nullptr);
    if (!std::isfinite(d) || d >= 9223372036854775808.0 || d < -9223372036854775808.0) return 0;
    return static_cast<std::int64_t>(d);
}

// Appends the words after the keyword that `seen` does not hold yet.
void appendUnique(const std::vector<std::string>& words, std::vector<std::string>& to,
                  std::unordered_map<std::string, std::size_t>& seen) {
    for (std::size_t i = 1; i < words.size(); ++i) {
        if (seen.count(words[i])) continue;
        seen.emplace(words[i], to.size());
        to.push_back(words[i]);
    }
}

void appendAll(const std::vector<std::string>& words, std::vector<std::string>& to) {
    to.insert(to.end(), words.begin() + 1, words.end());
}

// Folder of `path` as an absolute path ending in "/"; the path as written when it cannot be
// resolved.
std::string folderOf(const char* path) {
    std::string p(path);
    const std::size_t slash = p.rfind('/');
    std::string dir = slash == std::string::npos ? "." : p.substr(0, slash);
    if (dir.empty()) dir = "/";
    if (char* real = realpath(dir.c_str(), nullptr)) {
        dir = real;
        std::free(real);
    }
    if (dir.back() != '/') dir += '/';
    return dir;
}

const char* const kDfmSwitches[] = {"DISABLE_SIDE_TAN",
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

}  // namespace

bool TextParser::splitLine2Words(std::istream& in, std::vector<std::string>& words) {
    return StrUtil::splitLine2Words(in, words);
}

bool TextParser::parseDravixCmd(const char* path, Task& task) {
    std::ifstream in(path);
    if (!in) {
        PLOG::log(4) << "Can not open Dravix cmd file \"" << path << "\"." << PLOG::endl;
        return false;
    }
    task.cmd_dir = folderOf(path);

    std::unordered_map<std::string, std::size_t> seen_extract, seen_rnets, seen_select;
    bool dfm_disabled = false;

    // A handler returns false to end the read with a failure.
    using Handler = std::function<bool(const std::vector<std::string>&)>;
    auto flag_set_on_yes = [](int& flag) {
        return Handler([&flag](const std::vector<std::string>& w) {
            if (yesOrOne(w[1])) flag = 1;
            return true;
        });
    };
    auto flag_yes_or_clear = [](int& flag) {
        return Handler([&flag](const std::vector<std::string>& w) {
            flag = yesOrOne(w[1]) ? 1 : 0;
            return true;
        });
    };
    auto string_field = [](std::string& field) {
        return Handler([&field](const std::vector<std::string>& w) {
            field = w[1];
            return true;
        });
    };

    const std::unordered_map<std::string, Handler> handlers = {
        {"CTF_FILE", string_field(task.ctf_file)},
        {"TECH_LAYER_MAP", string_field(task.tech_layer_map)},
        {"NETLIST_FILE", string_field(task.netlist_file)},
        {"QUERY_CMD", string_field(task.query_cmd)},
        {"RNETWORK_FILE", string_field(task.rnetwork_file)},
        {"TOP_CELL", string_field(task.top_cell)},
        {"HIERARCHY_NETLIST_CELL_SELECT_FILE",
         string_field(task.hierarchy_netlist_cell_select_file)},
        {"MAGNIFICATION",
         [&](const auto& w) {
             task.magnification = std::strtod(w[1].c_str(), nullptr);
             return true;
         }},
        {"INTERNAL_COORD_RESOLUTION",
         [&](const auto& w) {
             task.internal_coord_resolution = truncatedInteger(w[1]);
             return true;
         }},
        {"MINIMAL_MEDIUM_THICKNESS",
         [&](const auto& w) {
             task.minimal_medium_thickness = std::strtod(w[1].c_str(), nullptr);
             return true;
         }},
        {"CAP3D_OUTPUT_PRECISION",
         [&](const auto& w) {
             task.cap3d_output_precision = static_cast<int>(std::strtol(w[1].c_str(), nullptr, 10));
             return true;
         }},
        {"IGNORE_MOS_DEVICE",
         [&](const auto& w) {
             if (is(w[1], "ALL")) {
                 task.ignore_mos_device = 1;
             } else if (w[1] == "RETAIN_GATE_DIFFUSION_COUPLING") {
                 task.ignore_mos_device = 1;
                 task.retain_gate_diffusion_coupling = 1;
             } else {
                 task.ignore_mos_device = 0;
             }
             return true;
         }},
        {"IGNORE_SUBSTRATE",
         [&](const auto&) {
             PLOG::log(3) << "IGNORE_SUBSTRATE in dravix command file is obsolete,"
                          << " the capacitances between substrate conductors are always neglected "
                             "now."
                          << PLOG::endl;
             return true;
         }},
        {"VIA_CAP",
         [&](const auto& w) {
             if (is(w[1], "NONE")) return true;
             task.via_cap_names.insert(w.begin() + 1, w.end());
             return true;
         }},
        {"POWER_NETS",
         [&](const auto& w) {
             appendAll(w, task.power_nets);
             return true;
         }},
        {"HIERARCHY_NETLIST_CELL_SELECT",
         [&](const auto& w) {
             appendAll(w, task.hierarchy_netlist_cell_select);
             return true;
         }},
        {"SKIP_CELLS",
         [&](const auto& w) {
             for (std::size_t i = 1; i < w.size(); ++i) {
                 if (!validCellName(w[i])) {
                     PLOG::log(4) << "Invalid cell name \"" << w[i]
                                  << "\" in the SKIP_CELLS setting." << PLOG::endl;
                     return false;
                 }
                 task.skip_cells.push_back(w[i]);
             }
             return true;
         }},
        {"EXTRACT_NETS",
         [&](const auto& w) {
             appendUnique(w, task.extract_nets, seen_extract);
             return true;
         }},
        {"EXTRACT_RNETS",
         [&](const auto& w) {
             appendUnique(w, task.extract_rnets, seen_rnets);
             return true;
         }},
        {"SELECT_NETS",
         [&](const auto& w) {
             appendUnique(w, task.select_nets, seen_select);
             return true;
         }},
        {"OUTPUT_GDS",
         [&](const auto& w) {
             task.output_gds = is(w[1], "YES");
             return true;
         }},
        {"DISABLE_DFM",
         [&](const auto& w) {
             if (is(w[1], "ALL") || is(w[1], "YES")) {
                 for (const char* key : kDfmSwitches) PARG::regArgument(key, "1");
                 PLOG::log(3) << "All DFM functionalities are disabled from dravix command file."
                              << PLOG::endl;
                 dfm_disabled = true;
             }
             return true;
         }},
        {"MULTIGATE_MODELING", flag_set_on_yes(task.multigate_modeling)},
        {"IGNORE_DIFFUSION_SUBSTRATE_CAP", flag_set_on_yes(task.ignore_diffusion_substrate_cap)},
        {"SAMT_VPT_MODELING", flag_set_on_yes(task.samt_vpt_modeling)},
        {"DISTRIBUTED_MODE", flag_set_on_yes(task.distributed_mode)},
        {"HIERARCHY_NETLIST", flag_set_on_yes(task.hierarchy_netlist)},
        {"CUT_SUBSTRATE_BY_OD", flag_yes_or_clear(task.cut_substrate_by_od)},
        {"HIERARCHY_NETLIST_PIN_RENAMING", flag_yes_or_clear(task.hierarchy_netlist_pin_renaming)},
        {"R_STANDALONE",
         [&](const auto& w) {
             task.r_standalone = 1;
             task.r_standalone_arg = w[1];
             return true;
         }},
        {"RC_DSPF",
         [&](const auto&) {
             task.r_standalone = 1;
             return true;
         }},
        {"EXTRACT_MODE",
         [&](const auto& w) {
             const std::string& v = w[1];
             if (v == "R" || v == "r") {
                 task.extract_mode = 1;
                 task.r_standalone = 1;
             } else if (v == "RC" || v == "rc" || v == "Rc" || v == "rC") {
                 task.extract_mode = 2;
                 task.r_standalone = 1;
             } else {
                 task.extract_mode = 0;
             }
             PARG::regArgument(w[0], v);
             return true;
         }},
        {"DISTRIBUTED_CAP3D_DIR",
         [&](const auto& w) {
             if (validDirName(w[1])) {
                 task.distributed_cap3d_dir = w[1];
             } else {
                 PLOG::log(3) << "DISTRIBUTED_CAP3D_DIR contains invalid characters, "
                              << "now using default directory name." << PLOG::endl;
             }
             return true;
         }},
        {"ENABLE_DRAVIX_CACHE",
         [&](const auto& w) {
             if (yesOrOne(w[1])) {
                 task.enable_cache = 1;
             } else if (w[1] == "0" || is(w[1], "NO")) {
                 task.enable_cache = 0;
             }
             return true;
         }},
        {"DRAVIX_AUTO_CACHE",
         [&](const auto& w) {
             if (yesOrOne(w[1])) {
                 task.enable_cache = 1;
                 task.auto_cache_limit = 10;
             } else {
                 task.auto_cache_limit = 0;
             }
             return true;
         }},
        {"DRAVIX_AUTO_CACHE_LIMIT",
         [&](const auto& w) {
             int limit = 0;
             try {
                 limit = std::stoi(w[1]);
             } catch (const std::logic_error&) {
                 return true;  // not a number: the line is dropped
             }
             if (limit > 0) {
                 task.auto_cache_limit = limit;
                 task.enable_cache = 1;
             }
             return true;
         }},
        {"DRAVIX_CACHE_DIR",
         [&](const auto& w) {
             task.cache_dir = w[1];
             if (task.cache_dir.back() != '/') task.cache_dir += '/';
             return true;
         }},
    };

    std::vector<std::string> words;
    while (splitLine2Words(in, words)) {
        if (words.size() < 2 || words[0][0] == '#') continue;
        auto h = handlers.find(words[0]);
        if (h == handlers.end()) {
            PARG::regArgument(words[0], words[1]);  // a tuning switch of the engine
            continue;
        }
        if (!h->second(words)) return false;
    }

    if (dfm_disabled) task.multigate_modeling = 0;

    if (!task.extract_nets.empty() && !task.extract_rnets.empty()) {
        std::set<std::string> all(task.extract_nets.begin(), task.extract_nets.end());
        all.insert(task.extract_rnets.begin(), task.extract_rnets.end());
        task.extract_nets.assign(all.begin(), all.end());
    }

    for (std::string* p : {&task.ctf_file, &task.tech_layer_map, &task.query_cmd})
        if (!p->empty() && (*p)[0] != '/') *p = task.cmd_dir + *p;
    return true;
}
