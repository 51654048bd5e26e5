#include "technology/process_info.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "runtime/logger.h"
#include "runtime/pargument.h"
#include "runtime/strutil.h"
#include "technology/ctf_conductor.h"
#include "technology/ctf_device.h"
#include "technology/ctf_dielectric.h"
#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"
#include "technology/ctf_tsv.h"
#include "technology/ctf_via.h"
#include "technology/process_model_thickness.h"

namespace {

constexpr size_t kMaxNameLength = 64;
constexpr int kGdsLayers = 65536;

bool isYes(std::string value) {
    std::string yes = "YES";
    return StrUtil::compare(value, yes, 0) == 1;
}

// Rejects a name that is too long or taken by another layer of any kind.
void checkName(CtfInterpreter& ci, const std::string& name, const char* kind,
               const std::set<std::string>& seen) {
    if (name.size() > kMaxNameLength) {
        std::string text = std::string(kind) + " layer name is too long";
        throw Ctf_Syntax_Error(ci.stream, text.c_str(), -1);
    }
    if (seen.count(name)) {
        std::string text = std::string(kind) + " layer name is defined multiple times";
        throw Ctf_Syntax_Error(ci.stream, text.c_str(), -1);
    }
}

}  // namespace

ProcessInfo::ProcessInfo()
    : gds_layer_names(kGdsLayers), backside_mode(PARG::get("IC3D_BACKSIDE_MODE", 0)) {}

ProcessInfo::~ProcessInfo() = default;

int ProcessInfo::parseCtfwithInterpreter(Task& task) {
    std::ifstream in(task.ctf_file, std::ios::binary);
    if (!in) {
        PLOG::log(5) << "Can not open CTF file \"" << task.ctf_file << "\"." << PLOG::endl;
        return 0;
    }
    auto ci = std::make_unique<CtfInterpreter>();
    ci->initProcessors();
    try {
        ci->lexer(in);
    } catch (const Ctf_Error& e) {
        PLOG::log(5) << "CTF error: " << e.text << PLOG::endl;
        return 0;
    }
    in.close();
    layer_order.clear();
    if (ci->stream.tokens.empty()) throw Ctf_Error::emptyFile();

    double height = 0.0;
    int side = 0;
    std::set<std::string> seen, level_conductors;
    try {
        for (;;) {
            ElementProcessor* e = ci->processElem();
            takeElement(*ci, e, height, side, seen, level_conductors);
            if (!ci->stream.next()) break;
        }
    } catch (const Ctf_Error& e) {
        PLOG::log(5) << e.text << PLOG::endl;
        return 0;
    }
    ci.reset();

    checkTechLayermapping();
    if (!checkTSVvalidity()) return 0;
    checkMultiGateModelsValidity();
    if (samt_vpt && !checkSAMTVPTModelValidity()) return 0;
    selectWaferSide(task);
    int status = completeLayerInfo();
    if (status == 1) setExtractVias(task);
    return status;
}

void ProcessInfo::takeElement(CtfInterpreter& ci, ElementProcessor* e, double& height, int& side,
                              std::set<std::string>& seen,
                              std::set<std::string>& level_conductors) {
    if (auto* a = dynamic_cast<CtfNumberAttri*>(e)) {
        if (a->keyword == "half_node_scale_factor") {
            if (!(a->value > 0 && a->value < 1))
                throw Ctf_Syntax_Error(ci.stream, "invalid half_node_scale_factor", -1);
            half_node_scale_factor = a->value;
        } else if (a->keyword == "density_grid") {
            if (!(a->value > 0))
                throw Ctf_Syntax_Error(ci.stream, "invalid density_grid value", -1);
            density_grid = a->value;
        } else if (a->keyword == "background_er") {
            if (!(a->value > 0))
                throw Ctf_Syntax_Error(ci.stream, "invalid background_er value", -1);
        }
        return;
    }
    if (auto* a = dynamic_cast<CtfStringAttri*>(e)) {
        if (a->keyword == "use_si_density" && isYes(a->value)) use_si_density = 1;
        return;
    }
    if (auto* t = dynamic_cast<CtfTSV*>(e)) {
        checkName(ci, t->tsv.name, "tsv", seen);
        if (!tsvs.empty() && std::fabs(tsvs.back().thickness - t->tsv.thickness) > 1e-6)
            throw Ctf_Syntax_Error(ci.stream, "all tsv layers must have the same thickness value",
                                   -1);
        tsv_index[t->tsv.name] = static_cast<int32_t>(tsvs.size());
        tsvs.push_back(t->tsv);
        seen.insert(t->tsv.name);
        // What follows belongs to the back side, stacked from 0 again.
        side = 1;
        height = 0.0;
        return;
    }
    if (auto* v = dynamic_cast<CtfVia*>(e)) {
        checkName(ci, v->via.name, "via", seen);
        Via via = v->via;
        if (PARG::get("DISABLE_VIA_ETCH", 0)) {
            dropOwned(via.etch);
            dropOwned(via.gate_etch);
        }
        via.side = side;
        via_index[via.name] = static_cast<int32_t>(vias.size());
        seen.insert(via.name);
        vias.push_back(std::move(via));
        return;
    }
    if (auto* d = dynamic_cast<CtfDielectric*>(e)) {
        checkName(ci, d->layer.name, "dielectric", seen);
        ConformalLayer layer = d->layer;
        layer.base = height;
        height += layer.thickness;
        layer.side = side;
        if (PARG::get("DISABLE_SPACER_ER_VS_WS", 0)) dropOwned(layer.spacer_model);
        dielectric_index[layer.name] = static_cast<int32_t>(dielectrics.size());
        seen.insert(layer.name);
        dielectrics.push_back(std::move(layer));
        const ConformalLayer& added = dielectrics.back();
        if (!added.bottoms.empty()) {
            if (added.spacer_model) {
                for (const std::string& b : added.bottoms) {
                    auto it = conductor_index.find(b);
                    if (it == conductor_index.end() || conductors[it->second].layer_type_code != 1)
                        throw Ctf_Syntax_Error(ci.stream,
                                               "conformal layers with spacer_er_from_gate_ws model "
                                               "must coat GATE conductor layers",
                                               -1);
                }
            }
            if (added.thickness > 0) {
                size_t found = 0;
                for (const std::string& b : added.bottoms) found += level_conductors.count(b);
                if (found != level_conductors.size())
                    throw Ctf_Syntax_Error(ci.stream,
                                           "conformal layers with non-zero thickness must coat all "
                                           "the conductor layers in the relevant z-coord range",
                                           -1);
            }
        } else {
            level_conductors.clear();
        }
        layer_order.push_back(added.name);
        return;
    }
    if (auto* c = dynamic_cast<CtfConductor*>(e)) {
        checkName(ci, c->conductor.name, "conductor", seen);
        addConductor(ci, c->conductor, height, side);
        seen.insert(c->conductor.name);
        level_conductors.insert(c->conductor.name);
        layer_order.push_back(c->conductor.name);
        return;
    }
    if (auto* m = dynamic_cast<CtfMultiGate*>(e)) {
        multigates.push_back(m->model);
        return;
    }
    if (auto* s = dynamic_cast<CtfSAMT_VPT*>(e)) {
        if (samt_vpt) throw Ctf_Syntax_Error(ci.stream, "only one samt_vpt model is allowed", -1);
        samt_vpt = std::make_unique<SAMT_VPT_Model>(s->model);
        return;
    }
    throw Ctf_Syntax_Error(ci.stream, "unknown keyword", -1);
}

void ProcessInfo::addConductor(CtfInterpreter& ci, Conductor c, double height, int side) {
    c.base = height + (c.bottom_diel_thickness > 0 ? c.bottom_diel_thickness : 0.0);
    c.side = side;

    if (PARG::get("DISABLE_SIDE_TAN", 0)) {
        dropOwned(c.side_tan_model);
        c.side_tan = 0;
    }
    const bool noEtch = PARG::get("DISABLE_CONDUCTOR_ETCH", 0) != 0;
    if (noEtch) {
        dropOwned(c.cap_etch);
        dropOwned(c.res_etch);
        dropOwned(c.cap_mask_etch);
        dropOwned(c.res_mask_etch);
    }
    if (PARG::get("DISABLE_THICKNESS_VS_WS", 0)) {
        dropOwned(c.cap_thickness_ws);
        dropOwned(c.res_thickness_ws);
    }
    if (PARG::get("DISABLE_THICKNESS_POLY", 0)) dropOwned(c.thickness_polynomial);
    if (PARG::get("DISABLE_ILD_THICKNESS", 0)) dropOwned(c.ild_model);
    if (PARG::get("DISABLE_THICKNESS_VS_DENSITY", 0)) dropOwned(c.cap_thickness_density);
    if (PARG::get("DISABLE_THICKNESS_VS_DENSITY_AND_WIDTH", 0))
        dropOwned(c.thickness_density_width);
    if (PARG::get("DISABLE_BOTTOM_THICKNESS_VS_WIDTH", 0)) dropOwned(c.cap_bottom_thickness);
    if (PARG::get("DISABLE_RAISED_DIFFUSION", 0)) dropOwned(c.raised_diff);

    const std::string head = "CTF file: conductor \"" + c.name + "\" layer contains ";
    if ((!c.cap_etch.empty() && !c.cap_mask_etch.empty()) ||
        (!c.res_etch.empty() && !c.res_mask_etch.empty())) {
        PLOG::log(3) << head
                     << "both multi-mask etch models and regular etch models,"
                        " now all the regular etch models are being neglected."
                     << PLOG::endl;
        if (!c.cap_mask_etch.empty()) dropOwned(c.cap_etch);
        if (!c.res_mask_etch.empty()) dropOwned(c.res_etch);
    }
    if (c.side_tan_model && c.side_tan != 0) {
        PLOG::log(3) << head
                     << "both side_tan and side_tan_vs_si_width_and_spacing model, "
                        "now the side_tan value are being neglected."
                     << PLOG::endl;
        c.side_tan = 0;
    }

    auto masks = tech_layer_masks.find(c.name);
    if (masks != tech_layer_masks.end() && masks->second >= 1 && !noEtch) {
        for (auto* list : {&c.cap_mask_etch, &c.res_mask_etch})
            for (SyntheticEtchModel* m : *list)
                if (m->nmask < masks->second)
                    throw Ctf_Syntax_Error(ci.stream,
                                           "multi-mask etch model for the tech layer must have "
                                           "equal or larger nmask value than the mask ids of "
                                           "the gds layers",
                                           -1);
        if (c.cap_mask_etch.empty() && c.res_mask_etch.empty())
            throw Ctf_Syntax_Error(ci.stream,
                                   "must specify multi-mask etch model for the tech layer which "
                                   "contains gds layers with mask id",
                                   -1);
    } else {
        // Without coloured GDS layers a multi-mask table acts as its plain table.
        for (SyntheticEtchModel* m : c.cap_mask_etch)
            if (EtchModel* plain = m->disColor()) c.cap_etch.push_back(plain);
        for (SyntheticEtchModel* m : c.res_mask_etch)
            if (EtchModel* plain = m->disColor()) c.res_etch.push_back(plain);
        dropOwned(c.cap_mask_etch);
        dropOwned(c.res_mask_etch);
    }

    c.needs_cap_modeling = (!c.cap_etch.empty() || !c.cap_mask_etch.empty() || c.cap_thickness_ws ||
                            c.thickness_polynomial || c.ild_model || c.cap_thickness_density ||
                            c.cap_bottom_thickness || c.thickness_density_width || c.side_tan_model)
                               ? 1
                               : 0;

    const int rule = PARG::get("MULTIMASK_ETCH_LEGACY_RULE", 1);
    for (auto* list : {&c.cap_mask_etch, &c.res_mask_etch}) {
        if (list->empty()) continue;
        double largest = 0.0;
        for (SyntheticEtchModel* m : *list) largest = std::max(largest, m->max_feature);
        for (SyntheticEtchModel* m : *list) {
            m->rule = rule;
            m->max_feature = largest;
        }
    }
    conductor_index[c.name] = static_cast<int32_t>(conductors.size());
    conductors.push_back(std::move(c));
}

void ProcessInfo::checkTechLayermapping() {
    for (const auto& [gds, number] : gds_name_to_number) {
        auto mapped = gds_to_tech.find(gds);
        if (mapped == gds_to_tech.end() || mapped->second == "SUBSTRATE") continue;
        const std::string& tech = mapped->second;
        if (conductor_index.count(tech) || via_index.count(tech) || dielectric_index.count(tech))
            continue;
        PLOG::log(3) << "GDS layer " << gds << " (" << number << ":0)"
                     << " is being mapped to an invalid Tech layer (" << tech << "), "
                     << "please check consistency between mapping file and ctf." << PLOG::endl;
    }
}

int ProcessInfo::checkTSVvalidity() {
    for (size_t t = 0; t < tsvs.size(); ++t) {
        TSV& tsv = tsvs[t];
        bool front = false, back = false;
        for (const Conductor& c : conductors) {
            if (c.name != tsv.bottom && c.name != tsv.top) continue;
            if (c.side != 0) {
                tsv.back_base = c.base;
                back = true;
            } else {
                tsv.front_base = c.base;
                front = true;
            }
        }
        if (!front || !back) {
            PLOG::log(5) << "Invalid bottom or top tech layer in the TSV layer: " << tsv.name
                         << PLOG::endl;
            return 0;
        }
        for (const auto& [gds, tech] : gds_to_tech) {
            if (tech != tsv.name) continue;
            auto number = gds_name_to_number.find(gds);
            if (number != gds_name_to_number.end())
                gds_number_to_tsv[number->second] = static_cast<int32_t>(t);
        }
    }
    return 1;
}

int ProcessInfo::checkMultiGateModelsValidity() {
    std::set<std::string> used;
    for (MultiGateModel& model : multigates) {
        std::vector<std::pair<std::string, std::string>> kept;
        for (const auto& [gate, diff] : model.layer_pairs) {
            const std::string pair = gate + ", " + diff + ").";
            const std::string where = "\" in the multigate \"" + model.name + "\" table ";
            auto g = conductor_index.find(gate), d = conductor_index.find(diff);
            std::string problem;
            if (g == conductor_index.end() || conductors[g->second].layer_type_code != 1) {
                problem = "Invalid gate layer \"" + gate + where +
                          "(must be a conductor layer with layer_type GATE), ";
            } else if (d == conductor_index.end() || conductors[d->second].layer_type_code != 2) {
                problem = "Invalid diffusion layer \"" + diff + where +
                          "(must be a conductor layer with layer_type DIFFUSION), ";
            } else if (conductors[g->second].side != conductors[d->second].side) {
                problem = "Gate layer \"" + gate + "\" and Diffusion layer \"" + diff + where +
                          "are on the different side of silicon wafer, ";
            } else if (used.count(gate)) {
                problem = "Gate layer \"" + gate + where + "has been used repeatedly, ";
            } else if (used.count(diff)) {
                problem = "Diffusion layer \"" + diff + where + "has been used repeatedly, ";
            }
            if (!problem.empty()) {
                PLOG::log(3) << problem << "now neglecting this gate-diff pair (" << pair
                             << PLOG::endl;
                continue;
            }
            used.insert(gate);
            used.insert(diff);
            kept.emplace_back(gate, diff);
            for (const auto& [name, kind] :
                 {std::pair{gate, "Gate"}, std::pair{diff, "Diffusion"}}) {
                Conductor& c = conductors[conductor_index[name]];
                if (c.side_tan == 0) continue;
                PLOG::log(3) << kind << " conductor layer \"" << name
                             << "\" with multigate modeling can not have side_tan, "
                             << "side_tan for the layer will be neglected." << PLOG::endl;
                c.side_tan = 0;
            }
        }
        model.layer_pairs = std::move(kept);
    }
    return 1;
}

int ProcessInfo::checkSAMTVPTModelValidity() {
    SAMT_VPT_Model& m = *samt_vpt;
    const std::string in = "\" specified in the samt_vpt model \"" + m.name + "\"";
    struct Part {
        const char* role;
        const std::string& name;
        double height;
    };
    const Part parts[3] = {{"drain", m.drain_layer, m.drain_height},
                           {"source", m.source_layer, m.source_height},
                           {"gate", m.gate_layer, m.gate_height}};
    const Conductor* layer[3] = {nullptr, nullptr, nullptr};
    for (int k = 0; k < 3; ++k) {
        auto it = conductor_index.find(parts[k].name);
        if (it == conductor_index.end()) {
            PLOG::log(4) << parts[k].role << "_layer \"" << parts[k].name << in
                         << " does not exist." << PLOG::endl;
            return 0;
        }
        layer[k] = &conductors[it->second];
        if (std::fabs(layer[k]->thickness - parts[k].height) > 1e-6) {
            PLOG::log(4) << "the value of " << parts[k].role
                         << "_height specified in the samt_vpt model \"" << m.name
                         << "\" must match the thickness of conductor layer \"" << parts[k].name
                         << "\"." << PLOG::endl;
            return 0;
        }
    }
    const Conductor *drain = layer[0], *source = layer[1], *gate = layer[2];
    if (std::fabs(source->base + source->thickness - gate->base) > 1e-6) {
        PLOG::log(4) << "source_layer \"" << m.source_layer << "\" and gate_layer \""
                     << m.gate_layer << in << " must be adjacent along the z-axis." << PLOG::endl;
        return 0;
    }
    if (std::fabs(gate->base + gate->thickness - drain->base) > 1e-6) {
        PLOG::log(4) << "drain_layer \"" << m.drain_layer << "\" and gate_layer \"" << m.gate_layer
                     << in << " must be adjacent along the z-axis." << PLOG::endl;
        return 0;
    }
    m.source_base = source->base;
    return 1;
}

void ProcessInfo::rebuildIndexes() {
    conductor_index.clear();
    via_index.clear();
    dielectric_index.clear();
    for (size_t i = 0; i < conductors.size(); ++i) conductor_index[conductors[i].name] = i;
    for (size_t i = 0; i < vias.size(); ++i) via_index[vias[i].name] = i;
    for (size_t i = 0; i < dielectrics.size(); ++i) dielectric_index[dielectrics[i].name] = i;
}

void ProcessInfo::selectWaferSide(const Task& task) {
    std::string mode = PARG::get(std::string("TSV_MODE"), std::string());
    const bool yes = isYes(mode) || mode == "1";
    auto keepSide = [](auto& records, auto keep) {
        std::erase_if(records, [&](const auto& r) { return !keep(r.side); });
    };
    if (backside_mode == 0) {
        const bool standalone = PARG::get("TSV_LAYERSTACK_STANDALONE_MODE", 1) != 0;
        const bool disabled = PARG::get("DISABLE_TSV_TECH", 0) != 0;
        if (!standalone && !disabled && !task.distributed_mode) return;
        if (disabled) {
            PLOG::log(3) << "TSV technique is disabled from command file, all tsv layers and "
                            "backside layers will be dropped."
                         << PLOG::endl;
        } else if (task.distributed_mode && !tsvs.empty()) {
            PLOG::log(3) << "TSV technique is disabled when using DISTRIBUTED_MODE, all tsv "
                            "layers and backside layers will be dropped."
                         << PLOG::endl;
        } else if (yes && !tsvs.empty()) {
            // Tells the surrounding flow that a back-side run is wanted.
            if (std::system("touch _VORLINTEK_NEED_IC3D_BACKSIDE_MODE") != 0)
                PLOG::log(3) << "could not write the back-side marker file" << PLOG::endl;
        }
        tsvs.clear();
        tsv_index.clear();
        auto front = [](int s) { return s == 0; };
        keepSide(conductors, front);
        keepSide(vias, front);
        keepSide(dielectrics, front);
        rebuildIndexes();
        return;
    }
    auto back = [](int s) { return s != 0; };
    keepSide(conductors, back);
    keepSide(vias, back);
    keepSide(dielectrics, back);
    for (auto& c : conductors) c.side = 0;
    for (auto& v : vias) v.side = 0;
    for (auto& d : dielectrics) d.side = 0;
    if (backside_mode >= 2) {
        conductors.clear();
        vias.clear();
    }
    rebuildIndexes();
}

int ProcessInfo::completeLayerInfo() {
    for (size_t di = 0; di < dielectrics.size(); ++di) {
        const ConformalLayer& d = dielectrics[di];
        for (Conductor& c : conductors) {
            if (std::find(d.bottoms.begin(), d.bottoms.end(), c.name) == d.bottoms.end()) continue;
            if (d.bw_t < 0) {
                if (c.conformal_ids.empty()) {
                    c.conformal_side_offsets.push_back(0);
                    c.conformal_top_offsets.push_back(0);
                } else {
                    const ConformalLayer& last = dielectrics[c.conformal_ids.back()];
                    c.conformal_side_offsets.push_back(c.conformal_side_offsets.back() +
                                                       last.side_thickness);
                    c.conformal_top_offsets.push_back(c.conformal_top_offsets.back() +
                                                      last.top_thickness);
                }
                c.conformal_ids.push_back(static_cast<int32_t>(di));
            } else {
                if (c.bottom_wall_ids.empty()) {
                    c.bottom_wall_offsets.push_back(0);
                } else {
                    const ConformalLayer& last = dielectrics[c.bottom_wall_ids.back()];
                    c.bottom_wall_offsets.push_back(c.bottom_wall_offsets.back() + last.bw_t);
                }
                c.bottom_wall_ids.push_back(static_cast<int32_t>(di));
            }
        }
    }
    for (Conductor& c : conductors) {
        if (c.bottom_wall_ids.empty()) continue;
        double t = c.bottom_wall_offsets.back() + dielectrics[c.bottom_wall_ids.back()].bw_t;
        for (double& o : c.bottom_wall_offsets) {
            o -= t;
            if (c.bottom_diel_thickness > 0) o -= c.bottom_diel_thickness;
        }
    }
    for (Via& v : vias) {
        if (v.bottom == "SUBSTRATE" || v.bottom == "substrate") {
            v.base = 0;
        } else {
            auto it = conductor_index.find(v.bottom);
            if (it == conductor_index.end()) {
                PLOG::log(5) << "CTF error: invalid bottom conductor \"" << v.bottom
                             << "\" for the via layer \"" << v.name << "\"." << PLOG::endl;
                return 0;
            }
            const Conductor& b = conductors[it->second];
            if (b.side != v.side) {
                PLOG::log(5) << "CTF error: via layer \"" << v.name
                             << "\" is not at the same wafer side as its bottom conductor \""
                             << v.bottom << "\"." << PLOG::endl;
                return 0;
            }
            v.base = b.base + b.thickness;
        }
        auto it = conductor_index.find(v.top);
        if (it == conductor_index.end()) {
            PLOG::log(5) << "CTF error: invalid top conductor \"" << v.top
                         << "\" for the via layer \"" << v.name << "\"." << PLOG::endl;
            return 0;
        }
        const Conductor& top = conductors[it->second];
        if (top.side != v.side) {
            PLOG::log(5) << "CTF error: via layer \"" << v.name
                         << "\" is not at the same wafer side as its top conductor \"" << v.top
                         << "\"." << PLOG::endl;
            return 0;
        }
        v.thickness = top.base - v.base;
    }
    return 1;
}

void ProcessInfo::setExtractVias(const Task& task) {
    const bool all = task.via_cap_names.size() == 1 && *task.via_cap_names.begin() == "ALL";
    extract_vias.clear();
    for (const Via& v : vias)
        if (all || task.via_cap_names.count(v.name)) extract_vias.insert(v.name);
    for (const auto& [gds, tech] : gds_to_tech) {
        if (!via_index.count(tech) || extract_vias.count(tech)) continue;
        auto number = gds_name_to_number.find(gds);
        PLOG::log(2) << "The whole GDS layer \"" << gds << "\" "
                     << (number == gds_name_to_number.end() ? -1 : number->second)
                     << ":0 (via layer)"
                     << " is neglected." << PLOG::endl;
    }
}
