// The TSV MOS capacitance model against physics computed here another way: coaxial capacitors,
// the surface potential as the integral of the depletion field (Gauss's law), and the
// small-signal capacitance as the slope dQ/dV of the depletion charge.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "resistance/tsv_moscap.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
// CODATA values, not the model's rounded ones.
constexpr double kQ = 1.602176634e-19, kK = 1.380649e-23, kEps0 = 8.8541878128e-12;
constexpr double kEpsSi = 11.68, kEpsOx = 3.9, kNi = 1.08e16, kT = 300.0;

double coaxial(double eps_r, double length, double r_in, double r_out) {
    return 2 * kPi * eps_r * kEps0 * length / std::log(r_out / r_in);
}

struct Via {
    double r_tsv, liner, length, doping;
    double r_ox() const { return r_tsv + liner; }
    double c_ox() const { return coaxial(kEpsOx, length, r_tsv, r_ox()); }
    // Depletion charge (C) when the edge is at r_d.
    double charge(double r_d) const {
        return kQ * doping * kPi * (r_d * r_d - r_ox() * r_ox()) * length;
    }
    // Potential across the depletion shell: the integral of the field that the charge between r
    // and r_d gives by Gauss's law, E(r) = q N (r_d^2 - r^2) / (2 eps r), by Simpson's rule.
    double surfacePotential(double r_d) const {
        const int n = 2000;
        const double h = (r_d - r_ox()) / n;
        auto field = [&](double r) {
            return kQ * doping * (r_d * r_d - r * r) / (2 * kEpsSi * kEps0 * r);
        };
        double sum = field(r_ox()) + field(r_d);
        for (int i = 1; i < n; ++i) sum += field(r_ox() + i * h) * (i % 2 ? 4 : 2);
        return sum * h / 3;
    }
    // Gate voltage that puts the depletion edge at r_d: flat band, silicon and oxide voltages.
    double gateVoltage(double v_fb, double r_d) const {
        return v_fb + surfacePotential(r_d) + charge(r_d) / c_ox();
    }
};

const Via kVias[] = {{2.5e-6, 120e-9, 20e-6, 2e21},
                     {5e-6, 500e-9, 50e-6, 1e21},
                     {1e-6, 200e-9, 10e-6, 1e22},
                     {50e-6, 1e-6, 100e-6, 2e21}};

}  // namespace

TEST(TSVMosCap, ThresholdAndCapacitanceFollowPoissonAndGauss) {
    // 2.5 um metal, 120 nm liner, 20 um long: 2 pi 3.9 eps0 20 um / ln(2.62 / 2.5) = 92.6 fF.
    TSVMosCapSolver first(2.62e-6, 2.5e-6, 20e-6);
    ASSERT_EQ(first.solveDepletion(nullptr, nullptr), 1);
    EXPECT_NEAR(first.c_ox, 92.6e-15, 0.05e-15);
    for (const Via& v : kVias) {
        SCOPED_TRACE(v.r_tsv);
        TSVMosCapSolver m(v.r_ox(), v.r_tsv, v.length);
        m.doping = v.doping;
        double v_fb = 0, v_th = 0;
        ASSERT_EQ(m.solveDepletion(&v_fb, &v_th), 1);
        EXPECT_NEAR(m.c_ox / v.c_ox(), 1.0, 1e-6);
        const double phi_f = kK * kT / kQ * std::log(v.doping / kNi);
        EXPECT_NEAR(m.phi_f / phi_f, 1.0, 1e-5);
        // Strong inversion: the silicon surface sits at twice the Fermi potential.
        EXPECT_NEAR(v.surfacePotential(m.r_dep_max) / (2 * phi_f), 1.0, 1e-4);
        // Flat band: the oxide charge q Q_ox on the liner's outer face over the oxide capacitance.
        const double fixed_charge = kQ * 5e14 * 2 * kPi * v.r_ox() * v.length;
        EXPECT_NEAR(v_fb, -fixed_charge / v.c_ox(), 1e-5 * std::fabs(v_fb));
        // Threshold: flat band, the silicon's 2 phi_f, and the depletion charge over C_ox.
        const double span = v_th - v_fb;
        EXPECT_NEAR(v_th, v.gateVoltage(v_fb, m.r_dep_max), 1e-4 * span);
        // The depletion shell is a coaxial capacitor in silicon.
        const double c_dep = coaxial(kEpsSi, v.length, v.r_ox(), m.r_dep_max);
        EXPECT_NEAR(m.c_dep_min / c_dep, 1.0, 1e-6);

        const double series = v.c_ox() * c_dep / (v.c_ox() + c_dep);
        auto cap = [&](double volts) {
            double c = -1;
            EXPECT_EQ(m.solveCap(volts, c), 1) << volts;
            return c;
        };
        // Accumulation, inversion, and no jump at either end of depletion.
        for (auto [volts, want, tolerance] :
             std::vector<std::tuple<double, double, double>>{{v_fb - 2.0, v.c_ox(), 1e-6},
                                                             {v_fb, v.c_ox(), 1e-6},
                                                             {v_fb + 1e-6 * span, v.c_ox(), 1e-3},
                                                             {v_th - 1e-6 * span, series, 1e-3},
                                                             {v_th, series, 1e-6},
                                                             {v_th + 3.0, series, 1e-6}})
            EXPECT_NEAR(cap(volts) / want, 1.0, tolerance) << volts;
        // In depletion: the edge sits where Poisson's and Gauss's laws put the gate voltage, and
        // the capacitance is the slope dQ/dV there.
        for (double f : {0.1, 0.4, 0.8}) {
            const double volts = v_fb + f * span, c = cap(volts), r = m.r_dep, dr = 1e-4 * r;
            EXPECT_NEAR(v.gateVoltage(v_fb, r), volts, 1e-4 * span) << f;
            const double slope = (v.charge(r + dr) - v.charge(r - dr)) /
                                 (v.gateVoltage(v_fb, r + dr) - v.gateVoltage(v_fb, r - dr));
            EXPECT_NEAR(c / slope, 1.0, 2e-3) << f;
        }
    }
}

TEST(TSVMosCap, FailuresLeaveTheOutputUntouched) {
    // A liner of no thickness, no metal, no length; a doping below the intrinsic density, and a
    // negative one.
    const Via bad[] = {{2.5e-6, 0, 20e-6, 2e21},
                       {0, 2.6e-6, 20e-6, 2e21},
                       {2.5e-6, 120e-9, 0, 2e21},
                       {2.5e-6, 120e-9, 20e-6, 1e15},
                       {2.5e-6, 120e-9, 20e-6, -2e21}};
    for (const Via& v : bad) {
        TSVMosCapSolver s(v.r_ox(), v.r_tsv, v.length);
        s.doping = v.doping;
        double v_fb = 7, v_th = 7, c = 7;
        EXPECT_EQ(s.solveDepletion(&v_fb, &v_th), 0)
            << v.r_tsv << " " << v.liner << " " << v.doping;
        EXPECT_EQ(s.solveCap(1.0, c), 0);
        EXPECT_EQ(v_fb + v_th + c, 21);
    }
}
