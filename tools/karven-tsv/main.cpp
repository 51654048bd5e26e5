// karven-tsv: the MOS capacitance of one through-silicon via. Prints the model's parameters, the
// flat-band and threshold voltages, and a C-V table. Everything but the table is a "# " comment
// line, so the whole output reads as CSV with comments (scripts/plot-cv.py plots it).
#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>

#include "resistance/tsv_moscap.h"

namespace {

std::string num(double v) {
    std::ostringstream s;
    s << v;
    return s.str();
}

int fail(const std::string& message) {
    std::cerr << "karven-tsv: " << message << "\n";
    return 1;
}

// Each line of `text` with "# " in front; empty lines dropped.
void printCommented(const std::string& text) {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (!line.empty()) std::cout << "# " << line << "\n";
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"karven-tsv: flat-band and threshold voltages and the C-V curve of a TSV"};
    double r_tsv = 0, liner = 0, length = 0;
    double vmin = NAN, vmax = NAN;
    int steps = 40;
    TSVMosCapSolver defaults(2.0, 1.0, 1.0);
    double doping = defaults.doping, oxide_charge = defaults.q_ox;
    app.add_option("--r-tsv", r_tsv, "Radius of the metal (m)")->required();
    app.add_option("--liner", liner, "Thickness of the oxide liner (m)")->required();
    app.add_option("--length", length, "Length of the via (m)")->required();
    app.add_option("--doping", doping, "Wafer doping (m-3)")->capture_default_str();
    app.add_option("--oxide-charge", oxide_charge, "Oxide charge (m-2)")->capture_default_str();
    auto* lo = app.add_option("--vmin", vmin, "First bias (V); default flat band - 1 V");
    auto* hi = app.add_option("--vmax", vmax, "Last bias (V); default threshold + 1 V");
    app.add_option("--steps", steps, "Intervals of the sweep; the table has steps + 1 rows")
        ->capture_default_str();
    lo->needs(hi);
    hi->needs(lo);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
    }

    if (!(r_tsv > 0)) return fail("--r-tsv must be above 0 (got " + num(r_tsv) + ")");
    if (!(liner > 0)) return fail("--liner must be above 0 (got " + num(liner) + ")");
    if (!(length > 0)) return fail("--length must be above 0 (got " + num(length) + ")");
    if (!(doping > defaults.n_i))
        return fail("--doping must be above the intrinsic density " + num(defaults.n_i) +
                    " m-3 (got " + num(doping) + ")");
    if (!std::isfinite(oxide_charge)) return fail("--oxide-charge must be a finite number");
    if (steps < 1) return fail("--steps must be at least 1");
    if (!std::isnan(vmin) && !(vmin < vmax)) return fail("--vmin must be below --vmax");

    TSVMosCapSolver tsv(r_tsv + liner, r_tsv, length);
    tsv.doping = doping;
    tsv.q_ox = oxide_charge;
    double v_fb = 0, v_th = 0;
    if (!tsv.solveDepletion(&v_fb, &v_th))
        return fail("no threshold state found for this geometry and doping");

    char params[1024];
    tsv.printParams(params, sizeof params);
    printCommented(params);
    std::printf("# flat-band voltage          %.6f (V)\n", v_fb);
    std::printf("# threshold voltage          %.6f (V)\n", v_th);
    std::printf("# oxide capacitance          %.6f (fF)\n", tsv.c_ox * 1e15);
    std::printf("# inversion capacitance      %.6f (fF)\n",
                tsv.c_ox * tsv.c_dep_min / (tsv.c_ox + tsv.c_dep_min) * 1e15);

    if (std::isnan(vmin)) {
        vmin = v_fb - 1.0;
        vmax = v_th + 1.0;
    }
    std::printf("voltage_V,capacitance_fF,region\n");
    for (int i = 0; i <= steps; ++i) {
        const double v = vmin + (vmax - vmin) * i / steps;
        double c = 0;
        if (!tsv.solveCap(v, c)) return fail("no depletion edge found at " + num(v) + " V");
        const char* region = v <= v_fb ? "accumulation" : v >= v_th ? "inversion" : "depletion";
        std::printf("%.6f,%.6f,%s\n", v, c * 1e15, region);
    }
    return 0;
}
