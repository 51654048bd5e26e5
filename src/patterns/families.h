#pragma once
// The 24 generic pattern families. Each is one row of data: its layers, the wires it draws in the
// table's own notation, its roles and skips, and the grids it sweeps.

#include <array>
#include <string>
#include <vector>

#include "patterns/generic.h"

namespace KARVEN {

// A linear expression over the half width of the master (c, written X or h), the tuple p0..p3,
// the window W and the layers' minimum widths w0..w3 and spacings s0..s3, kept as its terms in
// reading order so that it evaluates left to right like the written formula.
struct LinearExpr {
    struct Term {
        double coef;
        int var;  // index into the value vector of FamilyTemplate::values
    };
    std::vector<Term> terms;
    // Returns the value for the variable values `v`.
    double eval(const std::array<double, 14>& v) const;
    // Returns the expression parsed from text like "-X-p1-p2-w1" or "1.5w2"; throws
    // std::invalid_argument on anything else.
    static LinearExpr parse(const std::string& text);
};

struct TemplateWire {
    LinearExpr left, right;
    int layer;
};

// A family's data, compiled from its row.
struct FamilyTemplate {
    std::string name;
    GenericStructure::CombinationType combination;
    int master;                       // index of the master's layer
    LinearExpr half;                  // the master's half width
    std::vector<TemplateWire> wires;  // between the master and the far neighbour
    std::vector<std::string> roles;
    std::map<std::string, std::vector<std::string>> skips;
    std::array<int, 4> param_order;
    std::array<std::string, 4> grids;  // st, sb, wb, wt

    // Variable vector for the tuple p on `layers` with window W; c is filled in by actualStructure.
    static std::array<double, 14> values(const Layers& layers, const std::array<double, 4>& p,
                                         double window);
};

// Returns the template of the family `name`; throws std::out_of_range for an unknown name.
const FamilyTemplate& familyTemplate(const std::string& name);

// Returns the values of the grid written as `grid` ("{10}", "{s2}", "S6(s2)", "O8(w2,w1)", ...)
// on `layers`; throws std::invalid_argument for an unknown grid.
std::vector<double> sweepGrid(const std::string& grid, const Layers& layers);

// A family drawn from its template.
class TemplateFamily : public GenericStructure {
public:
    explicit TemplateFamily(const std::string& name);
    // Returns the four grids of the family on `layers`.
    ParameterSet getParameterSet(const Layers& layers) override;
    // Returns master, the template's wires, then the far neighbour.
    Pattern actualStructure(const Layers& layers, const std::array<double, 4>& p) override;

private:
    const FamilyTemplate* tmpl;
};

// clang-format off
#define KARVEN_GENERIC_FAMILIES(X) \
    X(P1AAG) X(P1ABG) X(AAG) X(ABG) X(P3AAG) X(P3ABG) \
    X(PAAG11B) X(PAAG11T) X(PABG11T) X(PAAG12) X(PABG12) X(PAAG13B) \
    X(PAAG13T) X(PABG13T) X(PAAG21) X(PAAG23) X(PAAG31B) X(PAAG31T) \
    X(PABG31T) X(PAAG32) X(PABG32) X(PAAG33B) X(PAAG33T) X(PABG33T)
// clang-format on

#define KARVEN_DECLARE_FAMILY(NAME)       \
    struct NAME : TemplateFamily {        \
        NAME() : TemplateFamily(#NAME) {} \
    };
KARVEN_GENERIC_FAMILIES(KARVEN_DECLARE_FAMILY)
#undef KARVEN_DECLARE_FAMILY

}  // namespace KARVEN
