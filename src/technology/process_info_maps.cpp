// The GDS layer map and the tech layer map: which GDS layer is which technology layer.
#include <cstdlib>
#include <fstream>

#include "runtime/logger.h"
#include "runtime/pargument.h"
#include "runtime/strutil.h"
#include "technology/process_info.h"

namespace {

bool sameWord(std::string a, std::string b) {
    return StrUtil::compare(a, b, 0) == 1;
}

// True when `word` starts with `field`, ignoring case.
bool startsWithField(const std::string& word, const std::string& field) {
    return word.size() >= field.size() && sameWord(word.substr(0, field.size()), field);
}

}  // namespace

int ProcessInfo::parseGdsLayerMap(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        PLOG::log(4) << "Can not open GDS layer map file \"" << path << "\"." << PLOG::endl;
        return 0;
    }
    std::vector<std::string> w;
    for (int n = 1; StrUtil::splitLine2Words(in, w); ++n) {
        if (n <= 3) continue;
        if (w.size() == 3 && w[0] == "END" && w[1] == "OF" && w[2] == "RESPONSE") break;
        const std::string where = "In GDS layer map (" + path + "), line " + std::to_string(n);
        if (w.size() < 3) {
            PLOG::log(3) << where << ": broken layer description, this line will be neglected."
                         << PLOG::endl;
            continue;
        }
        long number = std::strtol(w[1].c_str(), nullptr, 10);
        if (number < 0 || number > 65535) {
            PLOG::log(3) << where << ": invalid layer number, this line will be neglected."
                         << PLOG::endl;
            continue;
        }
        if (std::strtol(w[2].c_str(), nullptr, 10) != 0) {
            PLOG::log(3) << where
                         << ": invalid datatype number (only number 0 is supported), this line "
                            "will be neglected."
                         << PLOG::endl;
            continue;
        }
        std::string name = w[0];
        if (w.size() > 3 && sameWord(w[3], "DEVICE")) name += " DC";
        gds_layer_names[number] = name;
        gds_name_to_number[name] = static_cast<int32_t>(number);
    }
    return 1;
}

int ProcessInfo::parseTechLayerMap(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        PLOG::log(4) << "Can not open tech layer map file \"" << path << "\"." << PLOG::endl;
        return 0;
    }
    static const char* const sections[] = {"conducting_layers", "via_layers",
                                           "ignore_cap_layers", "marker_layers",
                                           "remove_layers",     "silicon_marker_layers",
                                           "viewonly_layers",   "color_layers"};
    std::string section;
    std::vector<std::string> w;
    for (int n = 1; StrUtil::splitLine2Words(in, w); ++n) {
        // A word that begins with '*' ends the line.
        for (size_t i = 0; i < w.size(); ++i) {
            if (w[i][0] == '*') {
                w.resize(i);
                break;
            }
        }
        if (w.empty()) continue;
        bool isSection = false;
        for (const char* s : sections) {
            if (sameWord(w[0], s)) {
                section = s;
                isSection = true;
            }
        }
        if (isSection) continue;

        if (section == "conducting_layers" || section == "via_layers" ||
            section == "color_layers") {
            if (w.size() < 2) {
                PLOG::log(3) << "In layer mapping file (" << path << "), line " << n << ": "
                             << "invalid layer mapping statement, now neglecting this line."
                             << PLOG::endl;
                continue;
            }
            const std::string& gds = w[0];
            std::string tech = w[1] == "substrate" ? "SUBSTRATE" : w[1];
            if (gds_to_tech.count(gds)) {
                PLOG::log(3) << "Gds layer \"" << gds << "\" is specified more than once "
                             << "in the layer mapping file " << path << PLOG::endl;
                continue;
            }
            gds_to_tech[gds] = tech;
            if (section == "via_layers") via_gds_layers.insert(gds);
            if (section == "color_layers") color_gds_layers.insert(gds);
            GdsLayerSettings& settings = gds_settings[gds];
            // Fields come as field=value or field = value.
            for (size_t i = 2; i < w.size(); ++i) {
                std::string field = w[i], value;
                size_t eq = field.find('=');
                if (eq != std::string::npos) {
                    value = field.substr(eq + 1);
                    field = field.substr(0, eq);
                    if (value.empty() && i + 1 < w.size()) value = w[++i];
                } else if (i + 2 < w.size() && w[i + 1] == "=") {
                    value = w[i + 2];
                    i += 2;
                } else if (i + 1 < w.size() && w[i + 1][0] == '=') {
                    value = w[i + 1].substr(1);
                    ++i;
                }
                const std::string about = "for the gds layer \"" + gds + "\" ";
                const std::string file = "in the layer mapping file " + path + ".";
                const double number = std::strtod(value.c_str(), nullptr);
                const bool isVia = section == "via_layers";
                if (startsWithField(field, "precedence")) {
                    long p = std::strtol(value.c_str(), nullptr, 10);
                    if (p < 0 || p >= 1024) {
                        PLOG::log(3) << "Invalid precedence " << about
                                     << "(must be equal or greater than 0, and smaller than "
                                     << 1024 << ") " << file << PLOG::endl;
                        continue;
                    }
                    settings.precedence = static_cast<int>(p);
                } else if (startsWithField(field, "table_name")) {
                    settings.table_name = value;
                } else if (startsWithField(field, "MASK")) {
                    long m = std::strtol(value.c_str(), nullptr, 10);
                    if (m < 0) {
                        PLOG::log(3) << "Invalid mask id (can not be smaller than 0) " << about
                                     << file << PLOG::endl;
                        continue;
                    }
                    settings.mask = static_cast<int>(m);
                    int32_t& count = tech_layer_masks[tech];
                    count = std::max<int32_t>(count, static_cast<int32_t>(m));
                } else if (startsWithField(field, "RPV") && isVia) {
                    if (!(number > 0)) {
                        PLOG::log(3) << "Invalid RPV value " << about << file << PLOG::endl;
                        continue;
                    }
                    settings.rpv = number;
                } else if (startsWithField(field, "area") && isVia) {
                    if (!(number > 0)) {
                        PLOG::log(3) << "Invalid area value " << about << file << PLOG::endl;
                        continue;
                    }
                    settings.area = number;
                } else if (startsWithField(field, "RHO")) {
                    if (!(number > 0)) {
                        PLOG::log(3) << "Invalid RHO value " << about << file << PLOG::endl;
                        continue;
                    }
                    settings.rho = number;
                    PLOG::log(3) << "RHO value for the gds layer \"" << gds << "\" "
                                 << "is being overridden by the mapping file." << PLOG::endl;
                } else if (startsWithField(field, "RPSQ") && !isVia) {
                    if (!(number > 0) && !PARG::get("ENABLE_GDS_RPSQ_NEGATIVE_OVERRIDING", 0)) {
                        PLOG::log(3) << "Invalid RPSQ value " << about << file << PLOG::endl;
                        continue;
                    }
                    settings.rpsq = number;
                    PLOG::log(3) << "RPSQ value for the gds layer \"" << gds << "\" "
                                 << "is being overridden by the mapping file." << PLOG::endl;
                }
            }
        } else if (section == "ignore_cap_layers") {
            std::vector<std::string> group;
            for (const std::string& word : w) {
                if (startsWithField(word, "L=")) {
                    PLOG::log(3) << "intra-device length based cap ignoring is not supported "
                                    "currently, this field will be neglected."
                                 << PLOG::endl;
                    continue;
                }
                group.push_back(word);
            }
            if (group.size() == 1)
                ignore_cap_layers.insert(group[0]);
            else if (group.size() > 1)
                ignore_cap_groups.push_back(group);
        } else if (section == "remove_layers") {
            remove_layers.insert(w[0]);
        } else if (section == "marker_layers") {
            marker_layers.push_back(w[0]);
        } else if (section == "silicon_marker_layers") {
            silicon_marker_layers.push_back(w[0]);
        } else if (section == "viewonly_layers") {
            viewonly_layers.push_back(w[0]);
        }
    }
    return 1;
}
