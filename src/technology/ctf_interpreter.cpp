#include "technology/ctf_interpreter.h"

#include <map>

#include "technology/ctf_scanner.h"

namespace {

std::map<std::string, CtfProcessorFactory>& factories() {
    static std::map<std::string, CtfProcessorFactory> table;  // built on first use: any init order
    return table;
}

// One processor of the interpreter: its class name, how to build it when no class of that name
// is registered, and the keywords it serves (none for processors driven by other processors).
struct ProcessorSlot {
    const char* class_name;
    ElementProcessor* (*make_default)();
    std::vector<const char*> keywords;
};

template <class T>
ElementProcessor* make() {
    return new T;
}
ElementProcessor* namedTable() {
    return new CtfPendingTable(1, false);
}
ElementProcessor* subTable() {
    return new CtfPendingTable(0, false);
}
ElementProcessor* maskTable() {
    return new CtfPendingTable(1, true);
}
ElementProcessor* tupleTable() {
    return new CtfPendingTuplevector;
}

const std::vector<ProcessorSlot>& slots() {
    static const std::vector<ProcessorSlot> table = {
        {"CtfNumberAttri",
         make<CtfNumberAttri>,
         {"half_node_scale_factor", "density_grid", "gtemp", "background_er", "thickness", "er",
          "rho", "rpv", "side_thickness", "top_thickness", "via_size", "side_tan", "damage_size",
          "damage_er", "width_var", "capaci_only_width_var", "resistive_only_width_var",
          "num_tables", "wmin", "smin", "gate2contact_smin", "insulation_thickness",
          "insulation_er", "bottom_diel_er", "bottom_diel_thickness", "bw_t", "drop_factor",
          "drop_factor_lateral_spacing", "extensionmin", "fill_ratio", "fill_spacing", "fill_width",
          "fin_spacing", "fin_w", "fin_l", "fin_thickness", "raised_diffusion_growth",
          "gate_oxide_top_t", "gate_oxide_side_t", "gate_poly_top_t", "gate_poly_side_t",
          "gate_poly_extension", "gate_oxide_er", "channel_er", "raiseddiffu_etch",
          "raiseddiffu_gateside_conformal_er", "raiseddiffu_thickness", "raiseddiffu2gate_smin",
          "crt1", "crt2", "t_zero", "nmask", "core_size", "waist_size", "waist_corner_radius",
          "source_height", "drain_height", "gate_height", "gate_expansion_range",
          "gate_oxide_thickness", "corner_rounding_points", "gate_expansion_slice",
          // The device attributes are listed twice; the second binding changes nothing.
          "gate_oxide_er", "channel_er"}},
        {"CtfStringAttri",
         make<CtfStringAttri>,
         {"use_si_density",   "technology",      "bottom",        "top",
          "dielectric_layer", "layer_type",      "linked_to",     "associated_conductor",
          "dual_poly",        "fill_type",       "ref_direction", "etch_associated_layer",
          "process_corner",   "process_foundry", "process_node",  "process_type",
          "process_version",  "drain_layer",     "gate_layer",    "source_layer"}},
        {"CtfStandalone",
         make<CtfStandalone>,
         {"resistive_only", "capacitive_only", "etch_from_top", "parallel2ref", "perpendicular2ref",
          "parallel2gate", "is_planar", "is_gate", "is_conformal", "is_diff"}},
        {"CtfVector",
         make<CtfVector>,
         {"spacings",
          "siwidths",
          "densities",
          "sidensities",
          "widths",
          "width",
          "values",
          "lengths",
          "contact2contact_spacings",
          "gate2contact_spacings",
          "gate_w",
          "caps_per_micron",
          "density_polynomial_orders",
          "si_density_polynomial_orders",
          "width_polynomial_orders",
          "si_width_polynomial_orders",
          "width_ranges",
          "polynomial_coefficients",
          "thickness_bounds",
          "thickness_changes",
          "frq",
          "gate_pitch",
          "gate2contact_spacing"}},
        {"CtfStringVector", make<CtfStringVector>, {"device_type"}},
        {"CtfTuple", make<CtfTuple>, {"("}},
        {"CtfTuplevector",
         make<CtfTuplevector>,
         {"density_bounds_vs_width", "csub_vs_spacing", "rsub_vs_spacing", "er_sispacing",
          "thickness_var_vs_mask", "crt_area", "crt_siwidth"}},
        {"CtfTuplemap",
         make<CtfTuplemap>,
         {"er_table", "raiseddiffu_etch_table", "raiseddiffu2gate_smin_table"}},
        {"CtfStrPairVector", make<CtfStrPairVector>, {"gate_diffusion_layer_pair"}},
        {"CtfDummystruct",
         make<CtfDummystruct>,
         {"gate2diffusion_adjust", "gate2diffusion_channel_cap", "rpsq_vs_si_w_and_l",
          "rpv_vs_coverage", "rpv_vs_si_coverage", "rpv_vs_si_w_and_l",
          "side_tan_vs_si_width_and_cco_spacing", "spacer_er_vs_width_and_spacing",
          "tall_via_config", "user_defined_diffusion_resistance",
          "vertical_resistance_vs_si_w_and_l", "airgap_vs_spacing", "diel_fill_emu_vs_sispacing",
          "diel_fill_vs_sispacing"}},
        {"CtfKeyvalueTuple", make<CtfKeyvalueTuple>, {}},
        {"CtfStrPairTuple", make<CtfStrPairTuple>, {}},
        // Statements and tables with a class of their own.
        {"CtfConductor", namedTable, {"conductor"}},
        {"CtfDielectric", namedTable, {"dielectric"}},
        {"CtfVia", namedTable, {"via"}},
        {"CtfTSV", namedTable, {"tsv"}},
        {"CtfTSVCeffTable", namedTable, {"ceff_vs_frq_and_spacing"}},
        {"CtfMultiGate", namedTable, {"multigate"}},
        {"CtfSAMT_VPT", namedTable, {"samt_vpt"}},
        {"CtfGate2Diff_cap", namedTable, {"gate2diffusion_cap"}},
        {"CtfEtch_width_spacing", namedTable, {"width_var_from_ws"}},
        {"CtfEtch_width_length", namedTable, {"width_var_from_wl"}},
        {"CtfEtch_contact_gate_spacing", namedTable, {"width_var_from_contact_gate_s"}},
        {"CtfMaskEtchTable", maskTable, {"mask"}},
        {"CtfThickness_width_spacing", namedTable, {"thickness_var_from_ws"}},
        {"CtfThickness_density", tupleTable, {"thickness_var_from_d"}},
        {"CtfThickness_bottom_width", tupleTable, {"bottom_thickness_var_from_si_width"}},
        {"CtfThickness_polynomial", namedTable, {"thickness_var_from_polynomial"}},
        {"CtfThickness_density_width", namedTable, {"thickness_vs_density_and_width"}},
        {"CtfILD_thickness", namedTable, {"ild_thickness_var_from_effective_ws"}},
        {"CtfDensity_box", tupleTable, {"densitybox_weight_factor"}},
        {"CtfSideTan_width_spacing", namedTable, {"side_tan_vs_si_width_and_spacing"}},
        {"CtfSpacer_er_vs_width_spacing", namedTable, {"spacer_er_from_gate_ws"}},
        {"CtfRHO_width_spacing", namedTable, {"rho_vs_width_and_spacing"}},
        {"CtfRHO_SI_width_thickness", namedTable, {"rho_vs_si_width_and_thickness"}},
        {"CtfRPSQ_width_spacing", namedTable, {"rpsq_vs_width_and_spacing"}},
        {"CtfRPSQ_SI_width", tupleTable, {"rpsq_vs_si_width"}},
        {"CtfRPV_width_length", namedTable, {"rpv_vs_width_and_length"}},
        {"CtfRPV_Area", tupleTable, {"rpv_vs_area"}},
        // Sub tables `name { ... }`, reached through default_processor by their parents.
        {"CtfContact_gate_table", subTable, {}},
        {"CtfDiff_gate_table", subTable, {}},
    };
    return table;
}

// Counts nesting while an element is read, also when it is left by an error.
class DepthGuard {
public:
    explicit DepthGuard(int& depth) : depth_(depth) { ++depth_; }
    ~DepthGuard() { --depth_; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;

private:
    int& depth_;
};

}  // namespace

CtfProcessorFactory registerCtfProcessor(const char* class_name, CtfProcessorFactory factory) {
    auto& table = factories();
    CtfProcessorFactory previous = nullptr;
    if (auto it = table.find(class_name); it != table.end()) previous = it->second;
    if (factory)
        table[class_name] = factory;
    else
        table.erase(class_name);
    return previous;
}

CtfProcessorFactory registeredCtfProcessor(const char* class_name) {
    const auto& table = factories();
    auto it = table.find(class_name);
    return it == table.end() ? nullptr : it->second;
}

CtfInterpreter::~CtfInterpreter() {
    clearProcessors();
}

void CtfInterpreter::clearProcessors() {
    for (ElementProcessor* p : processors) delete p;
    processors.clear();
    by_class_.clear();
    keyword_table.clear();
    default_processor = nullptr;
}

int CtfInterpreter::lexer(std::istream& in) {
    stream.tokens.clear();
    stream.contexts.clear();
    stream.comments.clear();
    stream.current = 0;
    stream.at_end = 0;
    if (!buffer) buffer.reset(new char[CTF_BUFFER_SIZE]);
    in.read(buffer.get(), static_cast<std::streamsize>(CTF_BUFFER_SIZE - 2));
    const auto count = static_cast<std::size_t>(in.gcount());
    buffer[count] = '\0';
    buffer[count + 1] = '\0';
    int error = 0;
    std::uint64_t error_line = 0;
    std::uint64_t error_pos = 0;
    yylex_parse_file(buffer.get(), static_cast<int>(count + 2), stream.tokens, stream.contexts,
                     stream.comments, error, error_line, error_pos);
    if (error) throw Ctf_Lexical_Error(static_cast<int>(error_line), static_cast<int>(error_pos));
    return 1;
}

void CtfInterpreter::initProcessors() {
    clearProcessors();
    for (const ProcessorSlot& slot : slots()) {
        CtfProcessorFactory factory = registeredCtfProcessor(slot.class_name);
        ElementProcessor* p = factory ? factory() : slot.make_default();
        processors.push_back(p);
        by_class_[slot.class_name] = p;
        for (const char* keyword : slot.keywords) regKeyword(keyword, p);
    }
}

void CtfInterpreter::regKeyword(const char* keyword, ElementProcessor* processor) {
    keyword_table[keyword] = processor;
}

ElementProcessor* CtfInterpreter::processElem() {
    ElementProcessor* p = boundTo(stream.token());
    if (!p) p = default_processor;
    if (!p) throw Ctf_Syntax_Error(stream, "unknown keyword", -1);
    if (depth_ >= CTF_MAX_ELEMENT_DEPTH)
        throw Ctf_Syntax_Error(stream, "elements are nested too deeply", -1);
    DepthGuard guard(depth_);
    return p->translate(this);
}

ElementProcessor* CtfInterpreter::processorOf(const std::string& class_name) const {
    auto it = by_class_.find(class_name);
    return it == by_class_.end() ? nullptr : it->second;
}

ElementProcessor* CtfInterpreter::boundTo(const std::string& keyword) const {
    auto it = keyword_table.find(keyword);
    return it == keyword_table.end() ? nullptr : it->second;
}

CtfKeywordBinding::CtfKeywordBinding(CtfInterpreter* ci, const char* keyword,
                                     ElementProcessor* processor)
    : ci_(ci), keyword_(keyword), previous_(nullptr), had_previous_(false) {
    auto it = ci_->keyword_table.find(keyword_);
    if (it != ci_->keyword_table.end()) {
        previous_ = it->second;
        had_previous_ = true;
    }
    ci_->regKeyword(keyword, processor);
}

CtfKeywordBinding::~CtfKeywordBinding() {
    if (had_previous_)
        ci_->keyword_table[keyword_] = previous_;
    else
        ci_->keyword_table.erase(keyword_);
}
