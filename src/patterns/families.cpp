#include "patterns/families.h"

#include <cctype>
#include <cmath>
#include <stdexcept>

namespace KARVEN {

namespace {

// Variable slots of LinearExpr: c, p0..p3, W, w0..w3, s0..s3.
constexpr int kC = 0, kP = 1, kW = 5, kWmin = 6, kSmin = 10;

int variableIndex(const std::string& name) {
    if (name == "X" || name == "h") return kC;
    if (name == "W") return kW;
    if (name.size() == 2 && name[1] >= '0' && name[1] <= '3') {
        int i = name[1] - '0';
        if (name[0] == 'p') return kP + i;
        if (name[0] == 'w') return kWmin + i;
        if (name[0] == 's') return kSmin + i;
    }
    throw std::invalid_argument("unknown variable \"" + name + "\"");
}

}  // namespace

double LinearExpr::eval(const std::array<double, 14>& v) const {
    double sum = 0.0;
    for (const Term& t : terms) sum += t.coef * v[t.var];
    return sum;
}

LinearExpr LinearExpr::parse(const std::string& text) {
    LinearExpr e;
    size_t i = 0;
    auto skipBlanks = [&] {
        while (i < text.size() && text[i] == ' ') ++i;
    };
    skipBlanks();
    while (i < text.size()) {
        double sign = 1.0;
        if (text[i] == '+' || text[i] == '-') {
            sign = text[i] == '-' ? -1.0 : 1.0;
            ++i;
            skipBlanks();
        } else if (!e.terms.empty()) {
            throw std::invalid_argument("expected + or - in \"" + text + "\"");
        }
        size_t start = i;
        while (i < text.size() &&
               (std::isdigit(static_cast<unsigned char>(text[i])) || text[i] == '.'))
            ++i;
        double coef = start == i ? 1.0 : std::stod(text.substr(start, i - start));
        size_t nameStart = i;
        while (i < text.size() && std::isalnum(static_cast<unsigned char>(text[i]))) ++i;
        if (nameStart == i) throw std::invalid_argument("expected a variable in \"" + text + "\"");
        e.terms.push_back({sign * coef, variableIndex(text.substr(nameStart, i - nameStart))});
        skipBlanks();
    }
    if (e.terms.empty()) throw std::invalid_argument("empty expression");
    return e;
}

std::array<double, 14> FamilyTemplate::values(const Layers& layers, const std::array<double, 4>& p,
                                              double window) {
    std::array<double, 14> v{};
    for (int k = 0; k < 4; ++k) v[kP + k] = p[k];
    v[kW] = window;
    for (size_t i = 0; i < layers.size() && i < 4; ++i) {
        v[kWmin + i] = layers[i]->wmin;
        v[kSmin + i] = layers[i]->smin;
    }
    return v;
}

namespace {

using CT = GenericStructure::CombinationType;

// One family as the table writes it. `wires` lists the conductors between master and far
// neighbour: "P(Li)" is a plate across the window on layer i, "[a, b]Li" a wire from a to b.
struct FamilyRow {
    const char* name;
    CT combination;
    int master;
    const char* half;
    const char* wires;
    std::vector<std::string> roles;
    std::map<std::string, std::vector<std::string>> skips;
    std::array<int, 4> order;
    std::array<const char*, 4> grids;  // st, sb, wb, wt
};

const char* const P3_WIRES = "[-h-p0-w1, -h-p0]L1 [-h-s1-w1, -h-s1]L1";

// clang-format off
const std::vector<FamilyRow>& familyRows() {
    static const std::vector<FamilyRow> rows = {
    {"P1AAG", CT::AnyPair, 1, "0.5p2", "P(L0)", {"bottom"}, {}, {0,1,2,3},
        {"{10}", "{10}", "P1(w1)", "{10}"}},
    {"P1ABG", CT::AnyTriple, 1, "0.5p2", "P(L2) P(L0)", {"top", "bottom"}, {}, {0,1,2,3},
        {"{10}", "{10}", "P1(w1)", "{10}"}},
    {"AAG", CT::AnyPair, 1, "0.5p1", "[-h-p2-p3, -h-p2]L1 P(L0)", {"left", "bottom"}, {}, {0,1,2,3},
        {"{10}", "AAGW(w1)", "AAGS(s1)", "W3(w1)"}},
    {"ABG", CT::AnyTriple, 1, "0.5p1", "P(L2) [-h-p2-p3, -h-p2]L1 P(L0)", {"top", "left", "bottom"}, {}, {0,1,2,3},
        {"{10}", "AAGW(w1)", "AAGS(s1)", "W3(w1)"}},
    {"P3AAG", CT::AnyPair, 1, "0.5w1", "P3 P(L0)", {"left_left"}, {}, {0,1,2,3},
        {"P3(w1,s1)", "{10}", "{10}", "{10}"}},
    {"P3ABG", CT::AnyTriple, 1, "0.5w1", "P3 P(L2) P(L0)", {"left_left"}, {}, {0,1,2,3},
        {"P3(w1,s1)", "{10}", "{10}", "{10}"}},
    {"PAAG11B", CT::AnyTriple, 1, "1.5w1", "[-X-p3, X]L2 P(L0)", {"overlap", "closer_plane"},
        {{"overlap", {"other_left"}}, {"closer_plane", {"left", "further_plane"}}}, {0,1,2,3},
        {"{10}", "{10}", "{10}", "K(w1,w2)"}},
    {"PAAG11T", CT::PlatePair, 2, "1.5w2", "[-X-p2, X]L1 P(L0)", {"overlap", "further_plane"},
        {{"overlap", {"other_left", "closer_plane", "left"}}}, {0,1,2,3},
        {"{10}", "{10}", "K(w2,w1)", "{10}"}},
    {"PABG11T", CT::PlateTriple, 2, "1.5w2", "[-X-p2, X]L1 P(L3) P(L0)", {"overlap", "closer_plane", "further_plane"},
        {{"overlap", {"other_left"}}, {"closer_plane", {"left"}}}, {0,1,2,3},
        {"{10}", "{10}", "K(w2,w1)", "{10}"}},
    {"PAAG12", CT::PlatePair, 2, "0.5p1", "[-h-p3-p2, -h-p3]L1 P(L0)", {"other_left", "further_plane"},
        {{"", {"overlap"}}, {"other_left", {"closer_plane", "left"}}}, {0,3,2,1},
        {"{10}", "N6(s1)", "W6(w1)", "W5(w2)"}},
    {"PABG12", CT::PlateTriple, 2, "0.5p1", "[-h-p3-p2, -h-p3]L1 P(L3) P(L0)", {"other_left", "closer_plane", "further_plane"},
        {{"", {"overlap"}}, {"closer_plane", {"left"}}}, {0,3,2,1},
        {"{10}", "N6(s1)", "W6(w1)", "W5(w2)"}},
    {"PAAG13B", CT::AnyTriple, 1, "1.5w1", "[-X-p1, X]L2 P(L0) [-X-p3-p2, -X-p3]L1", {"overlap", "closer_plane", "left"},
        {{"overlap", {"other_left"}}, {"left", {"further_plane"}}}, {0,3,2,1},
        {"{s2}", "S5(s1)", "W3(w1)", "O5(w1,w2)"}},
    {"PAAG13T", CT::PlatePair, 2, "1.5w2", "[-X-p2, X]L1 [-X-p2-p3-w1, -X-p2-p3]L1 P(L0)", {"overlap", "other_left", "further_plane"},
        {{"other_left", {"closer_plane", "left"}}}, {0,3,2,1},
        {"{s2}", "S6(s1)", "O8(w2,w1)", "{w2}"}},
    {"PABG13T", CT::PlateTriple, 2, "1.5w2", "[-X-p2, X]L1 [-X-p2-p3-w1, -X-p2-p3]L1 P(L3) P(L0)", {"overlap", "other_left", "closer_plane", "further_plane"},
        {{"closer_plane", {"left"}}}, {0,3,2,1},
        {"{s2}", "S6(s1)", "O8(w2,w1)", "{w2}"}},
    {"PAAG21", CT::AnyTriple, 1, "0.5p1", "[-h-p3-p0, -h-p3]L2 P(L0)", {"other_left", "closer_plane"},
        {{"", {"overlap"}}, {"closer_plane", {"left", "further_plane"}}}, {3,2,1,0},
        {"N6(s2)", "{10}", "W5(w1)", "W6(w2)"}},
    {"PAAG23", CT::AnyTriple, 1, "1.5w1", "[-X-p3-p0, -X-p3]L2 P(L0) [-X-p2-p1, -X-p2]L1", {"other_left", "closer_plane", "left"},
        {{"", {"overlap"}}, {"left", {"further_plane"}}}, {3,2,1,0},
        {"N6(s2)", "S5(s1)", "W3(w1)", "W3(w2)"}},
    {"PAAG31B", CT::AnyTriple, 1, "1.5w1", "[-X-p0, X]L2 [-X-p0-p3-w2, -X-p0-p3]L2 P(L0)", {"overlap", "other_left", "closer_plane"},
        {{"closer_plane", {"left", "further_plane"}}}, {3,2,1,0},
        {"S6(s2)", "{s1}", "O8(w1,w2)", "{w1}"}},
    {"PAAG31T", CT::PlatePair, 2, "1.5w2", "[-X-p1, X]L1 [-X-p3-p0, -X-p3]L2 P(L0)", {"overlap", "left", "further_plane"},
        {{"overlap", {"other_left", "closer_plane"}}}, {3,2,1,0},
        {"S5(s2)", "{s1}", "O5(w2,w1)", "W3(w2)"}},
    {"PABG31T", CT::PlateTriple, 2, "1.5w2", "[-X-p1, X]L1 P(L3) [-X-p3-p0, -X-p3]L2 P(L0)", {"overlap", "closer_plane", "left", "further_plane"},
        {{"overlap", {"other_left"}}}, {3,2,1,0},
        {"S5(s2)", "{s1}", "O5(w2,w1)", "W3(w2)"}},
    {"PAAG32", CT::PlatePair, 2, "1.5w2", "[-X-p2-p1, -X-p2]L1 [-X-p3-p0, -X-p3]L2 P(L0)", {"other_left", "left", "further_plane"},
        {{"", {"overlap"}}, {"other_left", {"closer_plane"}}}, {3,2,1,0},
        {"S5(s2)", "N6(s1)", "W3(w1)", "W3(w2)"}},
    {"PABG32", CT::PlateTriple, 2, "1.5w2", "[-X-p2-p1, -X-p2]L1 P(L3) [-X-p3-p0, -X-p3]L2 P(L0)", {"other_left", "closer_plane", "left", "further_plane"},
        {{"", {"overlap"}}}, {3,2,1,0},
        {"S5(s2)", "N6(s1)", "W3(w1)", "W3(w2)"}},
    {"PAAG33B", CT::AnyTriple, 1, "1.5w1", "[-X-p0, X]L2 [-X-p0-p3-w2, -X-p0-p3]L2 P(L0) [-X-p2-p1, -X-p2]L1", {"overlap", "other_left", "closer_plane", "left"},
        {{"left", {"further_plane"}}}, {3,2,1,0},
        {"S6(s2)", "T6(s1)", "Q4(w1)", "O8(w1,w2)"}},
    {"PAAG33T", CT::PlatePair, 2, "1.5w2", "[-X-p1, X]L1 [-X-p1-p2-w1, -X-p1-p2]L1 [-X-p3-p0, -X-p3]L2 P(L0)", {"overlap", "other_left", "left", "further_plane"},
        {{"other_left", {"closer_plane"}}}, {3,2,1,0},
        {"T6(s2)", "S6(s1)", "O8(w2,w1)", "Q4(w2)"}},
    {"PABG33T", CT::PlateTriple, 2, "1.5w2", "[-X-p1, X]L1 [-X-p1-p2-w1, -X-p1-p2]L1 P(L3) [-X-p3-p0, -X-p3]L2 P(L0)", {"overlap", "other_left", "closer_plane", "left", "further_plane"},
        {}, {3,2,1,0},
        {"T6(s2)", "S6(s1)", "O8(w2,w1)", "Q4(w2)"}},
    };
    return rows;
}
// clang-format on

// Reads "P(Li)" and "[a, b]Li" items; "P3" stands for the two wires the P3 families share.
std::vector<TemplateWire> parseWires(const std::string& text) {
    std::vector<TemplateWire> wires;
    auto layerAt = [&](size_t pos) {
        if (pos + 1 >= text.size() || text[pos] != 'L' ||
            !std::isdigit(static_cast<unsigned char>(text[pos + 1])))
            throw std::invalid_argument("expected a layer in \"" + text + "\"");
        return text[pos + 1] - '0';
    };
    size_t i = 0;
    while (i < text.size()) {
        if (text[i] == ' ') {
            ++i;
        } else if (text.compare(i, 2, "P(") == 0) {
            wires.push_back(
                {LinearExpr::parse("-0.5W"), LinearExpr::parse("0.5W"), layerAt(i + 2)});
            i += 5;
        } else if (text.compare(i, 2, "P3") == 0) {
            for (TemplateWire& w : parseWires(P3_WIRES)) wires.push_back(std::move(w));
            i += 2;
        } else if (text[i] == '[') {
            size_t comma = text.find(',', i), close = text.find(']', i);
            if (comma == std::string::npos || close == std::string::npos || comma > close)
                throw std::invalid_argument("bad wire in \"" + text + "\"");
            wires.push_back({LinearExpr::parse(text.substr(i + 1, comma - i - 1)),
                             LinearExpr::parse(text.substr(comma + 1, close - comma - 1)),
                             layerAt(close + 1)});
            i = close + 3;
        } else {
            throw std::invalid_argument("unexpected text in \"" + text + "\"");
        }
    }
    return wires;
}

std::map<std::string, FamilyTemplate> compileTemplates() {
    std::map<std::string, FamilyTemplate> all;
    for (const FamilyRow& row : familyRows()) {
        FamilyTemplate t;
        t.name = row.name;
        t.combination = row.combination;
        t.master = row.master;
        t.half = LinearExpr::parse(row.half);
        t.wires = parseWires(row.wires);
        t.roles = row.roles;
        t.skips = row.skips;
        t.param_order = row.order;
        for (int k = 0; k < 4; ++k) t.grids[k] = row.grids[k];
        all.emplace(t.name, std::move(t));
    }
    return all;
}

// Reads the value of "w1", "s2" and the like on `layers`.
double layerValue(const std::string& name, const Layers& layers) {
    int index = variableIndex(name);
    std::array<double, 14> v = FamilyTemplate::values(layers, {0, 0, 0, 0}, 0.0);
    if (index < kWmin) throw std::invalid_argument("not a layer value: \"" + name + "\"");
    return v[index];
}

}  // namespace

const FamilyTemplate& familyTemplate(const std::string& name) {
    static const std::map<std::string, FamilyTemplate> all = compileTemplates();
    return all.at(name);
}

std::vector<double> sweepGrid(const std::string& grid, const Layers& layers) {
    if (grid.front() == '{') {
        std::string inner = grid.substr(1, grid.size() - 2);
        if (std::isdigit(static_cast<unsigned char>(inner[0]))) return {std::stod(inner)};
        return {layerValue(inner, layers)};
    }
    size_t open = grid.find('('), comma = grid.find(','), close = grid.find(')');
    if (open == std::string::npos || close == std::string::npos)
        throw std::invalid_argument("unknown grid \"" + grid + "\"");
    std::string kind = grid.substr(0, open);
    double a = layerValue(
        grid.substr(open + 1, (comma == std::string::npos ? close : comma) - open - 1), layers);
    double b = comma == std::string::npos
                   ? 0.0
                   : layerValue(grid.substr(comma + 1, close - comma - 1), layers);

    auto scaled = [](double x, std::initializer_list<double> factors) {
        std::vector<double> g;
        for (double f : factors) g.push_back(f * x);
        return g;
    };
    if (kind == "S6") return {a, 2 * a, 3.45 * a, 13 * a / 3, 8 * a, 13 * a};
    if (kind == "S5") return {a, 2 * a, 13 * a / 3, 8 * a, 13 * a};
    if (kind == "T6") return {a, 2 * a, 13 * a / 3, 8 * a, 8.43 * a, 13 * a};
    if (kind == "N6") return {-0.5 * a, 0.0, a, 10 * a / 3, 7 * a, 12 * a};
    if (kind == "W3") return scaled(a, {1, 2, 5});
    if (kind == "W5") return scaled(a, {1, 2, 5, 10, 17});
    if (kind == "W6") return scaled(a, {1, 2, 5, 10, 17, 26});
    if (kind == "Q4") return scaled(a, {1, 1.43, 2, 5});
    if (kind == "O5") return {-1.5 * a, 0.0, b, 4 * b, 9 * b};
    if (kind == "O8") return {-1.877 * a, -1.5 * a, -a, -0.5 * a, 0.0, b, 4 * b, 9 * b};
    if (kind == "K") {
        std::vector<double> g{-1.5 * a};
        for (int k = 0; k <= 9; ++k) g.push_back(k * k * b / 8.1);
        return g;
    }
    if (kind == "AAGW") return scaled(a, {1, 1.5, 3, 5.5, 9, 13.5});
    if (kind == "AAGS") return scaled(a, {1, 1.4, 2, 3, 4, 6, 13, 22, 33});
    if (kind == "P3") {
        std::vector<double> g;
        for (int k = 2; k <= 8; ++k) g.push_back(a + k * b);
        g.push_back(a + 21 * b);
        return g;
    }
    if (kind == "P1") {
        // Minimum width up to eight times it, then one wide and one very wide wire; fine
        // processes whose nine-fold width stays below one unit take fixed wide widths instead.
        std::vector<double> g;
        for (int k = 1; k <= 8; ++k) g.push_back(k * a);
        double nine = 9 * a;
        if (nine < 1.0) {
            g.push_back(10.0);
            g.push_back(40.0);
        } else {
            g.push_back(nine);
            g.push_back(nine + 30);
        }
        return g;
    }
    throw std::invalid_argument("unknown grid \"" + grid + "\"");
}

TemplateFamily::TemplateFamily(const std::string& family_name)
    : GenericStructure(family_name, familyTemplate(family_name).combination),
      tmpl(&familyTemplate(family_name)) {
    roles = tmpl->roles;
    skips = tmpl->skips;
    param_order = tmpl->param_order;
}

ParameterSet TemplateFamily::getParameterSet(const Layers& layers) {
    ParameterSet set;
    for (int k = 0; k < 4; ++k) set[k] = sweepGrid(tmpl->grids[k], layers);
    return set;
}

Pattern TemplateFamily::actualStructure(const Layers& layers, const std::array<double, 4>& p) {
    std::array<double, 14> v = FamilyTemplate::values(layers, p, window);
    double c = tmpl->half.eval(v);
    v[kC] = c;
    const MCTF::ConductorLayer* master = layers[tmpl->master];

    Pattern pattern;
    pattern.addConductor(-c, c, master);
    for (const TemplateWire& w : tmpl->wires)
        pattern.addConductor(w.left.eval(v), w.right.eval(v), layers[w.layer]);
    // The far neighbour keeps the master's right side from being open.
    double farLeft = c + 5 * master->smin;
    pattern.addConductor(farLeft, farLeft + master->wmin, master);
    return pattern;
}

#define KARVEN_REGISTER_FAMILY(NAME) static Register<NAME> register##NAME(#NAME);
KARVEN_GENERIC_FAMILIES(KARVEN_REGISTER_FAMILY)
#undef KARVEN_REGISTER_FAMILY

}  // namespace KARVEN
