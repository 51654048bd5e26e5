#include "resistance/tsv_moscap.h"

#include <cmath>
#include <cstdio>

namespace {

constexpr double kCharge = 1.602177e-19;
constexpr double kBoltzmann = 1.380649e-23;
constexpr double kEps0 = 8.854188e-12;
constexpr double kTwoPiEps0 = 5.56325038850364e-11;

// Newton on f(r) = 0 from `r`, at most `rounds` rounds while the relative step exceeds `tol`.
// Returns whether it converged; `r` holds the last iterate. A step that is not a number (from
// parameters outside the physics, such as a negative doping) counts as not converged.
template <class F, class D>
bool newton(F f, D df, double& r, int rounds, double tol) {
    double error = 1.0;
    for (int i = 0; i < rounds && error > tol; ++i) {
        const double step = f(r) / df(r);
        error = std::fabs(step / r);
        r -= step;
    }
    return error <= tol;
}

}  // namespace

TSVMosCapSolver::TSVMosCapSolver(double r_ox, double r_tsv, double l_tsv)
    : r_ox(r_ox), r_tsv(r_tsv), l_tsv(l_tsv) {}

double TSVMosCapSolver::depletionPotential(double r) {
    const double k = kCharge * doping / kEps0 / eps_si * 0.5;
    return k * ((r_ox * r_ox - r * r) * 0.5 - r * r * std::log(r_ox / r));
}

double TSVMosCapSolver::depletionPotentialDeriv(double r) {
    const double k = kCharge * doping / kEps0 / eps_si * 0.5;
    return (-2.0 * r * std::log(r_ox / r) + r - r) * k;
}

double TSVMosCapSolver::depletionChargeVoltage(double r) {
    const double a = kCharge * doping;
    return std::log(r_ox / r_tsv) * (r * r - r_ox * r_ox) * a * 0.5 / eps_ox / kEps0;
}

double TSVMosCapSolver::depletionCahrgeVoltageDeriv(double r) {
    const double a = kCharge * doping;
    return a * r * std::log(r_ox / r_tsv) / eps_ox / kEps0;
}

int TSVMosCapSolver::solveDepletion(double* v_fb_out, double* v_th_out) {
    if (!(r_ox > 0 && r_tsv > 0 && r_ox > r_tsv && l_tsv > 0)) return 0;
    const double l = std::log(r_ox / r_tsv);
    c_ox = kTwoPiEps0 * eps_ox * l_tsv / l;
    phi_f = kBoltzmann * temperature * std::log(doping / n_i) / kCharge;
    v_fb = phi_ms - l * (q_ox * r_ox * kCharge) / eps_ox / kEps0;

    // The edge where the silicon surface reaches strong inversion, twice the Fermi potential.
    double r = 2.0 * r_ox;
    const bool converged =
        newton([&](double x) { return depletionPotential(x) - 2.0 * phi_f; },
               [&](double x) { return depletionPotentialDeriv(x); }, r, iter_max, tolerance);
    if (!converged) return 0;

    r_dep_max = r;
    v_th = depletionChargeVoltage(r) + 2.0 * phi_f + v_fb;
    const double ln_dep = std::log(r / r_ox);
    if (ln_dep == 0.0) return 0;
    c_dep_min = kTwoPiEps0 * eps_si * l_tsv / ln_dep;
    if (v_fb_out) *v_fb_out = v_fb;
    if (v_th_out) *v_th_out = v_th;
    return 1;
}

int TSVMosCapSolver::solveCap(double voltage, double& capacitance) {
    if (r_dep_max <= 0) return 0;
    if (v_fb >= voltage) {
        capacitance = c_ox;  // accumulation
        return 1;
    }
    if (voltage >= v_th) {
        capacitance = c_dep_min * c_ox / (c_dep_min + c_ox);  // inversion
        return 1;
    }
    double r = (r_dep_max + r_ox) * 0.5;
    const bool converged = newton(
        [&](double x) {
            return depletionPotential(x) + v_fb + depletionChargeVoltage(x) - voltage;
        },
        [&](double x) { return depletionPotentialDeriv(x) + depletionCahrgeVoltageDeriv(x); }, r,
        iter_max, tolerance);
    if (!converged) return 0;
    if (std::log(r / r_ox) < 1e-50) {
        capacitance = c_ox;
        return 1;
    }
    r_dep = r;
    c_dep = kTwoPiEps0 * eps_si * l_tsv / std::log(r / r_ox);
    capacitance = c_dep * c_ox / (c_dep + c_ox);
    return 1;
}

int TSVMosCapSolver::printParams(char* buffer, int size) {
    return std::snprintf(buffer, size,
                         "\nepsilon SI                 %.6f\n"
                         "epsilon oxide              %.6f\n"
                         "wafer doping               %.6e (m-3)\n"
                         "wafer intrinsic carrier    %.6e (m-3)\n"
                         "Rtsv                       %.6e (m)\n"
                         "Rox                        %.6e (m)\n"
                         "Ltsv                       %.6e (m)\n"
                         "Temperature                %.2f (K)\n"
                         "M-S workfunction           %.6f (eV)\n"
                         "MOS Oxide charge           %.6e (m-2)\n"
                         "Iter max                   %d\n"
                         "Error threshold            %.6e (%%)\n",
                         eps_si, eps_ox, doping, n_i, r_tsv, r_ox, l_tsv, temperature, phi_ms, q_ox,
                         iter_max, tolerance);
}
