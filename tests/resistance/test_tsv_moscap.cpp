// The TSV MOS capacitance model against physics computed here another way: coaxial capacitors,
// the surface potential as the integral of the depletion field (Gauss's law), the planar depletion
// width, and the small-signal capacitance as the slope dQ/dV of the depletion charge.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "resistance/tsv_moscap.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kQ = 1.602176634e-19;  // CODATA values, not the model's rounded ones
constexpr double kK = 1.380649e-23;
constexpr double kEps0 = 8.8541878128e-12;
constexpr double kEpsSi = 11.68, kEpsOx = 3.9, kNi = 1.08e16, kT = 300.0;

double coaxial(double eps_r, double length, double r_in, double r_out) {
    return 2 * kPi * eps_r * kEps0 * length / std::log(r_out / r_in);
}

double fermiPotential(double doping) {
    return kK * kT / kQ * std::log(doping / kNi);
}

// Potential across a depletion shell from r_ox to r_d: the integral of the field that the charge
// q N between r and r_d gives by Gauss's law, E(r) = q N (r_d^2 - r^2) / (2 eps r), by Simpson.
double surfacePotential(double doping, double r_ox, double r_d) {
    const int n = 2000;
    const double h = (r_d - r_ox) / n;
    auto field = [&](double r) {
        return kQ * doping * (r_d * r_d - r * r) / (2 * kEpsSi * kEps0 * r);
    };
    double sum = field(r_ox) + field(r_d);
    for (int i = 1; i < n; ++i) sum += field(r_ox + i * h) * (i % 2 ? 4 : 2);
    return sum * h / 3;
}

// Depletion charge per via (C) when the edge is at r_d.
double depletionCharge(double doping, double r_ox, double r_d, double length) {
    return kQ * doping * kPi * (r_d * r_d - r_ox * r_ox) * length;
}

struct Via {
    double r_tsv, liner, length, doping;
};

// Gate voltage that puts the depletion edge at r_d: flat band, silicon, and oxide voltages.
double gateVoltage(const Via& v, double v_fb, double r_d) {
    const double r_ox = v.r_tsv + v.liner;
    return v_fb + surfacePotential(v.doping, r_ox, r_d) +
           depletionCharge(v.doping, r_ox, r_d, v.length) /
               coaxial(kEpsOx, v.length, v.r_tsv, r_ox);
}

// Depletion charge at gate voltage `volts`, by bisection on the edge.
double chargeAt(const Via& v, double v_fb, double r_max, double volts) {
    const double r_ox = v.r_tsv + v.liner;
    double lo = r_ox, hi = r_max;
    for (int i = 0; i < 60; ++i) {
        const double mid = 0.5 * (lo + hi);
        (gateVoltage(v, v_fb, mid) < volts ? lo : hi) = mid;
    }
    return depletionCharge(v.doping, r_ox, 0.5 * (lo + hi), v.length);
}

TSVMosCapSolver solved(const Via& v) {
    TSVMosCapSolver s(v.r_tsv + v.liner, v.r_tsv, v.length);
    s.doping = v.doping;
    EXPECT_EQ(s.solveDepletion(nullptr, nullptr), 1);
    return s;
}

const std::vector<Via> kVias = {
    {2.5e-6, 120e-9, 20e-6, 2e21},
    {5e-6, 500e-9, 50e-6, 1e21},
    {1e-6, 200e-9, 10e-6, 1e22},
    {50e-6, 1e-6, 100e-6, 2e21},
};

}  // namespace

TEST(TSVMosCap, OxideCapacitanceIsTheCoaxialValue) {
    // 2.5 um metal, 120 nm liner, 20 um long: 2 pi 3.9 eps0 20 um / ln(2.62 / 2.5) = 92.6 fF.
    TSVMosCapSolver s(2.62e-6, 2.5e-6, 20e-6);
    ASSERT_EQ(s.solveDepletion(nullptr, nullptr), 1);
    EXPECT_NEAR(s.c_ox, 92.6e-15, 0.05e-15);
    for (const Via& v : kVias) {
        SCOPED_TRACE(v.r_tsv);
        TSVMosCapSolver m = solved(v);
        const double want = coaxial(kEpsOx, v.length, v.r_tsv, v.r_tsv + v.liner);
        EXPECT_NEAR(m.c_ox / want, 1.0, 1e-6);
        double c = 0;
        ASSERT_EQ(m.solveCap(m.v_fb - 2.0, c), 1);  // accumulation
        EXPECT_NEAR(c / want, 1.0, 1e-6);
    }
}

TEST(TSVMosCap, ThresholdStateSatisfiesPoissonAndGauss) {
    for (const Via& v : kVias) {
        SCOPED_TRACE(v.r_tsv);
        const double r_ox = v.r_tsv + v.liner;
        TSVMosCapSolver m(r_ox, v.r_tsv, v.length);
        m.doping = v.doping;
        double v_fb = 0, v_th = 0;
        ASSERT_EQ(m.solveDepletion(&v_fb, &v_th), 1);
        EXPECT_EQ(v_fb, m.v_fb);
        EXPECT_EQ(v_th, m.v_th);

        const double phi_f = fermiPotential(v.doping);
        EXPECT_NEAR(m.phi_f / phi_f, 1.0, 1e-5);
        // Strong inversion: the silicon surface sits at twice the Fermi potential.
        EXPECT_GT(m.r_dep_max, r_ox);
        EXPECT_NEAR(surfacePotential(v.doping, r_ox, m.r_dep_max) / (2 * phi_f), 1.0, 1e-4);
        // Flat band: the oxide charge q Q_ox on the liner's outer face over the oxide capacitance.
        const double c_ox = coaxial(kEpsOx, v.length, v.r_tsv, r_ox);
        const double fixed_charge = kQ * 5e14 * 2 * kPi * r_ox * v.length;
        EXPECT_NEAR(v_fb, -fixed_charge / c_ox, 1e-5 * std::fabs(v_fb));
        // Threshold: flat band, the silicon's 2 phi_f, and the depletion charge over C_ox.
        const double q_dep = depletionCharge(v.doping, r_ox, m.r_dep_max, v.length);
        EXPECT_NEAR(v_th, v_fb + 2 * phi_f + q_dep / c_ox, 1e-4 * std::fabs(v_th - v_fb));
        // The depletion shell is a coaxial capacitor in silicon.
        EXPECT_NEAR(m.c_dep_min / coaxial(kEpsSi, v.length, r_ox, m.r_dep_max), 1.0, 1e-6);
    }
}

TEST(TSVMosCap, CapacitanceVersusBiasFallsSmoothlyToTheSeriesValue) {
    for (const Via& v : kVias) {
        SCOPED_TRACE(v.r_tsv);
        TSVMosCapSolver m = solved(v);
        const double r_ox = v.r_tsv + v.liner;
        const double c_ox = coaxial(kEpsOx, v.length, v.r_tsv, r_ox);
        const double c_dep = coaxial(kEpsSi, v.length, r_ox, m.r_dep_max);
        const double series = c_ox * c_dep / (c_ox + c_dep);
        auto cap = [&](double volts) {
            double c = -1;
            EXPECT_EQ(m.solveCap(volts, c), 1) << volts;
            return c;
        };
        EXPECT_NEAR(cap(m.v_fb) / c_ox, 1.0, 1e-6);
        EXPECT_NEAR(cap(m.v_th) / series, 1.0, 1e-6);
        EXPECT_NEAR(cap(m.v_th + 3.0) / series, 1.0, 1e-6);
        // No jump at either end of depletion.
        const double span = m.v_th - m.v_fb;
        EXPECT_NEAR(cap(m.v_fb + 1e-6 * span) / c_ox, 1.0, 1e-3);
        EXPECT_NEAR(cap(m.v_th - 1e-6 * span) / series, 1.0, 1e-3);
        // Monotone fall across the whole sweep.
        double last = cap(m.v_fb - 1.0);
        for (int i = 0; i <= 400; ++i) {
            const double c = cap(m.v_fb - 1.0 + i * (span + 2.0) / 400);
            EXPECT_LE(c, last * (1 + 1e-9)) << i;
            last = c;
        }
        // In depletion the capacitance is the slope of the depletion charge with the gate
        // voltage, found here by bisection on Poisson's and Gauss's laws.
        for (double f : {0.1, 0.4, 0.8}) {
            const double volts = m.v_fb + f * span, dv = 1e-4 * span;
            const double slope = (chargeAt(v, m.v_fb, m.r_dep_max * 1.01, volts + dv) -
                                  chargeAt(v, m.v_fb, m.r_dep_max * 1.01, volts - dv)) /
                                 (2 * dv);
            EXPECT_NEAR(cap(volts) / slope, 1.0, 2e-3) << f;
            EXPECT_GT(m.r_dep, r_ox);
            EXPECT_LT(m.r_dep, m.r_dep_max);
        }
    }
}

TEST(TSVMosCap, FailuresLeaveTheOutputUntouched) {
    struct Geometry {
        double r_ox, r_tsv, length;
    };
    for (const Geometry& g : std::vector<Geometry>{
             {2.5e-6, 2.5e-6, 20e-6}, {2.6e-6, 0.0, 20e-6}, {2.6e-6, 2.5e-6, 0.0}}) {
        SCOPED_TRACE(std::to_string(g.r_ox) + " " + std::to_string(g.r_tsv));
        TSVMosCapSolver s(g.r_ox, g.r_tsv, g.length);
        double v_fb = 7, v_th = 7, c = 7;
        EXPECT_EQ(s.solveDepletion(&v_fb, &v_th), 0);
        EXPECT_EQ(s.solveCap(1.0, c), 0);
        EXPECT_EQ(v_fb + v_th + c, 21);
    }

    TSVMosCapSolver fresh(2.62e-6, 2.5e-6, 20e-6);
    double c = 7;
    EXPECT_EQ(fresh.solveCap(0.0, c), 0);  // before solveDepletion
    EXPECT_EQ(c, 7);

    // Physics outside the model (a doping below the intrinsic density, a negative doping) fails
    // instead of returning a number.
    for (double doping : {1e15, -2e21}) {
        TSVMosCapSolver s(2.62e-6, 2.5e-6, 20e-6);
        s.doping = doping;
        EXPECT_EQ(s.solveDepletion(nullptr, nullptr), 0) << doping;
    }

    // After a solve, running out of rounds fails only inside depletion.
    TSVMosCapSolver m(2.62e-6, 2.5e-6, 20e-6);
    ASSERT_EQ(m.solveDepletion(nullptr, nullptr), 1);
    m.iter_max = 0;
    c = 7;
    EXPECT_EQ(m.solveCap(0.5 * (m.v_fb + m.v_th), c), 0);
    EXPECT_EQ(c, 7);
    EXPECT_EQ(m.solveCap(m.v_fb, c), 1);
    EXPECT_EQ(m.solveCap(m.v_th, c), 1);
}

TEST(TSVMosCap, PrintParamsListsEveryParameter) {
    TSVMosCapSolver s(2.62e-6, 2.5e-6, 20e-6);
    char buffer[1024];
    const int n = s.printParams(buffer, sizeof buffer);
    const std::string want =
        "\nepsilon SI                 11.680000\n"
        "epsilon oxide              3.900000\n"
        "wafer doping               2.000000e+21 (m-3)\n"
        "wafer intrinsic carrier    1.080000e+16 (m-3)\n"
        "Rtsv                       2.500000e-06 (m)\n"
        "Rox                        2.620000e-06 (m)\n"
        "Ltsv                       2.000000e-05 (m)\n"
        "Temperature                300.00 (K)\n"
        "M-S workfunction           0.000000 (eV)\n"
        "MOS Oxide charge           5.000000e+14 (m-2)\n"
        "Iter max                   100\n"
        "Error threshold            1.000000e-04 (%)\n";
    EXPECT_EQ(std::string(buffer), want);
    EXPECT_EQ(n, static_cast<int>(want.size()));
    char small[16];
    EXPECT_EQ(s.printParams(small, sizeof small), n);  // the full length, text cut
    EXPECT_EQ(std::string(small), want.substr(0, 15));
}
