#pragma once
// The MOS capacitance of a through-silicon via: a metal cylinder in an oxide liner inside doped
// silicon. Gives the flat-band and threshold voltages and the capacitance at a bias from the
// depletion region that grows around the liner. Lengths in metres, capacitance in farads.

class TSVMosCapSolver {
public:
    // A via of metal radius `r_tsv` and length `l_tsv` whose oxide ends at radius `r_ox`.
    TSVMosCapSolver(double r_ox, double r_tsv, double l_tsv);
    virtual ~TSVMosCapSolver() = default;

    // Solves the threshold state and stores the two voltages through the non-null pointers.
    // Returns 1, or 0 for a bad geometry (radii not positive, r_ox not above r_tsv, length not
    // positive) or a Newton iteration that does not converge within iter_max rounds.
    int solveDepletion(double* v_fb, double* v_th);

    // Capacitance at `voltage`: c_ox in accumulation, the series of oxide and depletion
    // capacitance beyond flat band, fixed at its threshold value in inversion. Returns 1, or 0
    // (leaving `capacitance` untouched) before a successful solveDepletion or when the Newton
    // iteration does not converge.
    int solveCap(double voltage, double& capacitance);

    // Writes the parameters as text into `buffer`; returns what snprintf returns.
    int printParams(char* buffer, int size);

    // Silicon surface potential (V) when the depletion edge is at radius r.
    double depletionPotential(double r);
    // Its derivative by r.
    double depletionPotentialDeriv(double r);
    // Voltage across the oxide from the depletion charge when the edge is at radius r.
    double depletionChargeVoltage(double r);
    // Its derivative by r.
    double depletionCahrgeVoltageDeriv(double r);

    double eps_si = 11.68;
    double eps_ox = 3.9;
    double doping = 2e21;  // per cubic metre
    double n_i = 1.08e16;  // per cubic metre
    double r_ox;
    double r_tsv;
    double l_tsv;
    double temperature = 300.0;
    double phi_ms = 0.0;  // eV
    double q_ox = 5e14;   // per square metre
    int iter_max = 100;
    double tolerance = 0.0001;
    double r_dep_max = -1.0;  // depletion edge at threshold; -1 until solved
    double v_th = 0.0;
    double v_fb = 0.0;
    double phi_f = 0.0;
    double c_ox = 0.0;
    double c_dep = 0.0;
    double c_dep_min = 0.0;
    double r_dep = 0.0;
};
