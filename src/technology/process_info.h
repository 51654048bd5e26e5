#pragma once
// The whole technology as one object: every layer record with its models, the device models,
// the lookups by name and the mapping between GDS layers and technology layers.

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "technology/task.h"
#include "technology/tech_records.h"

class CtfInterpreter;
class ElementProcessor;

class ProcessInfo {
public:
    ProcessInfo();
    ProcessInfo(const ProcessInfo&) = delete;
    ProcessInfo& operator=(const ProcessInfo&) = delete;
    ~ProcessInfo();

    // Reads the CTF file of `task`, stacks its layers and checks them. Returns 1 on success and
    // 0 on failure; errors are logged at fatal level, never thrown.
    int parseCtfwithInterpreter(Task& task);

    // Reads a GDS layer map file; returns 0 when it cannot be opened.
    int parseGdsLayerMap(const std::string& path);
    // Reads a tech layer map file; returns 0 when it cannot be opened.
    int parseTechLayerMap(const std::string& path);

    // Warns about GDS layers mapped to names the technology does not know.
    void checkTechLayermapping();
    // Finds each TSV's front and back conductors; returns 0 when one is missing.
    int checkTSVvalidity();
    // Drops gate-diffusion pairs of the fin models that do not fit the stack; returns 1.
    int checkMultiGateModelsValidity();
    // Checks the pillar transistor model against its three layers; returns 0 on a mismatch.
    int checkSAMTVPTModelValidity();
    // Fills the coat offsets of the conductors and the heights of the vias; returns 0 on a via
    // whose bottom or top conductor is missing or on the other wafer side.
    int completeLayerInfo();
    // Selects the via layers to extract from the task's list ("ALL" alone selects all).
    void setExtractVias(const Task& task);

    // Delete a record's models.
    static void cleanConductorLayer(Conductor& c) { c.clearModels(); }
    static void cleanViaLayer(Via& v) { v.clearModels(); }
    static void cleanDielectricLayer(ConformalLayer& d) { d.clearModels(); }

    double half_node_scale_factor = -1;
    std::vector<std::string> gds_layer_names;
    std::unordered_map<std::string, std::int32_t> gds_name_to_number;
    std::int32_t backside_mode = 0;
    std::unordered_map<std::string, std::int32_t> tech_layer_masks;
    std::map<std::string, std::string> gds_to_tech;
    std::vector<Conductor> conductors;
    std::vector<ConformalLayer> dielectrics;
    std::vector<Via> vias;
    std::vector<TSV> tsvs;
    std::vector<MultiGateModel> multigates;
    std::unique_ptr<SAMT_VPT_Model> samt_vpt;
    std::map<std::string, std::int32_t> conductor_index, via_index, dielectric_index, tsv_index;
    std::int32_t use_si_density = 0;
    double density_grid = 25.0;
    std::vector<std::string> layer_order;

    // From the tech layer map.
    struct GdsLayerSettings {
        int precedence = 0;
        std::string table_name;
        int mask = -1;
        double rpv = -1, rho = -1, area = -1, rpsq = -1;
    };
    std::map<std::string, GdsLayerSettings> gds_settings;
    std::map<std::int32_t, std::int32_t> gds_number_to_tsv;
    std::set<std::string> via_gds_layers, color_gds_layers;
    std::set<std::string> ignore_cap_layers, remove_layers;
    std::vector<std::vector<std::string>> ignore_cap_groups;
    std::vector<std::string> marker_layers, silicon_marker_layers, viewonly_layers;
    // Via layers selected for extraction.
    std::set<std::string> extract_vias;

private:
    // Acts on one finished top-level element; throws Ctf_Syntax_Error on a rule it breaks.
    void takeElement(CtfInterpreter& ci, ElementProcessor* e, double& height, int& side,
                     std::set<std::string>& seen, std::set<std::string>& level_conductors);
    void addConductor(CtfInterpreter& ci, Conductor c, double height, int side);
    // Keeps the layers of one wafer side; see the TSV and backside options.
    void selectWaferSide(const Task& task);
    void rebuildIndexes();
};
