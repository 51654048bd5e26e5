// Surface Green's function and weight tables of a square box in a z-layered medium.
//
// The box is unit-free: NGRID cells per side, walker at node (12, 12). Dielectric interfaces sit
// on whole grid nodes and only permittivity ratios matter, so one table serves every box size
// with the same quantised stack. The faces parallel to the layers are solved by sine modes
// carried through the layers by a transfer recurrence; the faces across the layers by a
// finite-difference eigen-decomposition of the z operator with the interface potentials
// eliminated.
#pragma once

#include <Eigen/Dense>
#include <array>
#include <cstdint>
#include <vector>

namespace RW2D {

class gft_solver {
public:
    static constexpr int NGRID = 24;
    static constexpr int NMODE = 8;
    static constexpr int NHALF = 12;

    enum solver_code { SOLVE_GFT = 0, SOLVE_WVTZ = 1, SOLVE_WVTX = 2 };

    // Wave numbers of the modes symmetric (_lnm) and antisymmetric (_lnm_2) about the centre line,
    // and the transforms from 8 mode amplitudes to the 12 half-face panel values.
    static const std::array<double, NMODE> _lnm;
    static const std::array<double, NMODE> _lnm_2;
    static const Eigen::Matrix<double, NMODE, NHALF> _Bjt;
    static const Eigen::Matrix<double, NMODE, NHALF> _Csi;

    // First-passage probabilities of the box surface. Blocks hold raw panel values until to_cdf.
    struct PDFGFT {
        double face_cdf[3] = {0, 0, 0};
        double unused = 0;  // keeps the three records alike at their head
        double lower_cdf[NHALF] = {};
        double upper_cdf[NHALF] = {};
        double side_cdf[NGRID] = {};
        // Normalises each block into a running distribution and weighs the face groups.
        void to_cdf();
    };

    // Weights of the z derivative of the centre potential, in half-box units.
    struct PDFWVTz {
        double face_cdf[3] = {0, 0, 0};
        double total_weight = 0;
        bool side_sign[NGRID] = {};
        double lower_cdf[NHALF] = {};
        double upper_cdf[NHALF] = {};
        double side_cdf[NGRID] = {};
        // Derived from the side block, never stored in table files: running sums over the side
        // panels below k of the signed draw probability (side_w0[k]) and of that times the panel
        // centre's height in cells, j + 1/2 (side_w1[k]). They let a first hop weigh a potential
        // linear in each layer in a few operations per layer.
        double side_w0[NGRID + 1] = {};
        double side_w1[NGRID + 1] = {};
        // As PDFGFT::to_cdf; the lower block is negated, the side taken by magnitude with its sign
        // kept in side_sign, and total_weight set to the summed magnitude of the whole surface.
        // Ends with derive_moments.
        void to_cdf();
        // Fills side_w0 and side_w1 from face_cdf, side_cdf and side_sign.
        void derive_moments();
    };

    // Weights of the x derivative of the centre potential, in half-box units.
    struct PDFWVTx {
        double face_cdf[3] = {0, 0, 0};
        double total_weight = 0;
        double lower_cdf[NHALF] = {};
        double upper_cdf[NHALF] = {};
        double side_cdf[NGRID] = {};
        // As PDFGFT::to_cdf with all blocks negated; sets total_weight.
        void to_cdf();
    };

    using Vec24 = Eigen::Matrix<double, NGRID, 1>;
    using Mat24 = Eigen::Matrix<double, NGRID, NGRID>;

    // Side-face modes of the present stack.
    struct fdm_solution {
        Vec24 lambda;  // decay constants squared, for a box of unit width
        Mat24 modes;   // column k is mode k over the 24 cell centres
        Vec24 mid;     // value of each mode at the centre node
        Vec24 dmid;    // derivative at the centre over the lower half cell (only when asked)
    };

    PDFGFT gft;
    PDFWVTz wvtz;
    PDFWVTx wvtx;
    int32_t n_interfaces = 0;
    std::vector<int> interfaces;
    std::vector<int> node_to_interface;
    std::vector<double> eps;

    // An empty (homogeneous) stack with no results yet.
    gft_solver();

    // Solves the record named by code for interfaces on grid nodes (ascending, 1..23) with
    // eps.size() == interfaces.size() + 1; with no interface all three records are filled.
    // Never fails; a degenerate stack shows as NaN in the result.
    void solve_pack(solver_code code, const std::vector<int>& interfaces,
                    const std::vector<double>& eps);

    // Fills all three records for a homogeneous box.
    void solve_single();

    // As solve_pack for layer boundaries in real units within a box of side size (heights[i] has
    // eps[i] below it and eps[i+1] above). A stack that aligns to no interface is solved as
    // homogeneous, after which the named record is passed through to_cdf once more.
    void solve(solver_code code, const std::vector<double>& heights, const std::vector<double>& eps,
               double size);

    // Quantises heights to grid nodes into interfaces/eps/node_to_interface.
    void interface_aligned(const std::vector<double>& heights, const std::vector<double>& eps,
                           double size);

    // Appends the blocks of the three records and the two total weights: 146 numbers.
    void dump_pack(std::vector<double>& out) const;

    // Raw (pre-cdf) solves of one record for the present stack; with no interface only the upper
    // block is filled.
    void find_GFT();
    void find_WVTz();
    void find_WVTx();

    // Centre value of each symmetric mode for unit value on the upper face, zero on the lower.
    static std::array<double, NMODE> find_phi_z_GFT(const std::vector<int>& interfaces,
                                                    const std::vector<double>& eps);
    // The same for the antisymmetric modes.
    static std::array<double, NMODE> find_phi_z_WVTx(const std::vector<int>& interfaces,
                                                     const std::vector<double>& eps);
    // 12 times the z derivative at the centre; an interface on node 12 counts as below the centre
    // only when at_centre_above is set.
    static std::array<double, NMODE> find_phi_z_WVTz(const std::vector<int>& interfaces,
                                                     const std::vector<double>& eps,
                                                     bool at_centre_above);
    // Side-face modes of the present stack. Prints a warning when the decomposition turns complex.
    fdm_solution find_phi_z_FDM(bool want_derivative) const;

private:
    void set_stack(const std::vector<int>& itf, const std::vector<double>& e);
    void flipped(std::vector<int>& itf, std::vector<double>& e) const;
    static Vec24 side_from_modes(const fdm_solution& f, const Vec24& c);
};

}  // namespace RW2D
