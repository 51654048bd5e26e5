#include "solver/gft_solver.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace RW2D {

namespace {

constexpr double kPi = 3.14159265358979323846;

std::array<double, gft_solver::NMODE> make_lnm(int first, int step) {
    std::array<double, gft_solver::NMODE> q{};
    for (int n = 0; n < gft_solver::NMODE; ++n) q[n] = (first + step * n) * kPi / gft_solver::NGRID;
    return q;
}

// Mean of mode n over panel j, over 12: sin(m (2j+1) pi / 48) sinc(m pi / 48) / 12 with
// m = first + step*n. The panel mean, not the midpoint value: a walker lands on the panel centre,
// which is the mean of a field linear along the panel, so the weights then reproduce a uniform
// field exactly (the midpoint value overweighs mode m by 1 / sinc(m pi / 48), 0.07% for m = 1).
Eigen::Matrix<double, gft_solver::NMODE, gft_solver::NHALF> make_panel_transform(int first,
                                                                                 int step) {
    Eigen::Matrix<double, gft_solver::NMODE, gft_solver::NHALF> t;
    for (int n = 0; n < gft_solver::NMODE; ++n) {
        const double h = (first + step * n) * kPi / 48.0;
        for (int j = 0; j < gft_solver::NHALF; ++j)
            t(n, j) =
                std::sin((first + step * n) * (2 * j + 1) * kPi / 48.0) * std::sin(h) / h / 12.0;
    }
    return t;
}

// Number of interfaces strictly below the centre node.
int count_below_centre(const std::vector<int>& itf) {
    return static_cast<int>(std::lower_bound(itf.begin(), itf.end(), 12) - itf.begin());
}

// Shoots sinh-type mode solutions upward through the stack and returns mid/top where mid is the
// value at the centre (or its derivative, when derivative is set).
std::array<double, gft_solver::NMODE> shoot(const std::array<double, gft_solver::NMODE>& lnm,
                                            const std::vector<int>& itf,
                                            const std::vector<double>& eps, bool derivative,
                                            bool at_centre_above) {
    std::array<double, gft_solver::NMODE> phi{};
    const int m = static_cast<int>(itf.size());
    int b = count_below_centre(itf);
    if (derivative && at_centre_above && b < m && itf[b] == 12) ++b;
    for (int n = 0; n < gft_solver::NMODE; ++n) {
        const double q = lnm[n];
        if (m == 0) {
            phi[n] = derivative ? 12.0 * q * std::cosh(12 * q) / std::sinh(24 * q)
                                : std::sinh(12 * q) / std::sinh(24 * q);
            continue;
        }
        double s = std::sinh(q * itf[0]);
        double c = std::cosh(q * itf[0]) * eps[0] / eps[1];
        double mid = 0;
        if (b == 0) mid = derivative ? q * std::cosh(12 * q) : std::sinh(12 * q);
        auto step_to = [&](int i) {
            const double d = q * (itf[i] - itf[i - 1]);
            const double ch = std::cosh(d), sh = std::sinh(d);
            const double s2 = s * ch + c * sh;
            const double c2 = (s * sh + c * ch) * eps[i] / eps[i + 1];
            s = s2;
            c = c2;
        };
        for (int i = 1; i <= b - 1; ++i) step_to(i);
        int next = 1;
        if (b > 0) {
            const double x = q * (12 - itf[b - 1]);
            mid = derivative ? q * (s * std::sinh(x) + c * std::cosh(x))
                             : s * std::cosh(x) + c * std::sinh(x);
            next = b;
        }
        for (int i = std::max(next, 1); i < m; ++i) step_to(i);
        const double x = q * (24 - itf[m - 1]);
        const double top = s * std::cosh(x) + c * std::sinh(x);
        phi[n] = derivative ? 12.0 * mid / top : mid / top;
    }
    return phi;
}

// Turns a block into a running distribution of its own sum; returns that sum.
template <int N>
double normalise_block(double (&v)[N]) {
    double sum = 0;
    for (double x : v) sum += x;
    double run = 0;
    for (double& x : v) {
        run += x / sum;
        x = run;
    }
    return sum;
}

void set_faces(double (&face)[3], double sl, double su, double ss, double* total) {
    const double t = 2 * sl + 2 * su + 2 * ss;
    face[0] = 2 * sl / t;
    face[1] = (2 * sl + 2 * su) / t;
    face[2] = 1.0;
    if (total) *total = t;
}

}  // namespace

const std::array<double, gft_solver::NMODE> gft_solver::_lnm = make_lnm(1, 2);
const std::array<double, gft_solver::NMODE> gft_solver::_lnm_2 = make_lnm(2, 2);
const Eigen::Matrix<double, gft_solver::NMODE, gft_solver::NHALF> gft_solver::_Bjt =
    make_panel_transform(1, 2);
const Eigen::Matrix<double, gft_solver::NMODE, gft_solver::NHALF> gft_solver::_Csi =
    make_panel_transform(2, 2);

void gft_solver::PDFGFT::to_cdf() {
    const double sl = normalise_block(lower_cdf);
    const double su = normalise_block(upper_cdf);
    const double ss = normalise_block(side_cdf);
    set_faces(face_cdf, sl, su, ss, nullptr);
}

void gft_solver::PDFWVTz::to_cdf() {
    for (double& x : lower_cdf) x = -x;
    for (int j = 0; j < NGRID; ++j) {
        side_sign[j] = side_cdf[j] >= 0;
        side_cdf[j] = std::fabs(side_cdf[j]);
    }
    const double sl = normalise_block(lower_cdf);
    const double su = normalise_block(upper_cdf);
    const double ss = normalise_block(side_cdf);
    set_faces(face_cdf, sl, su, ss, &total_weight);
    derive_moments();
}

void gft_solver::PDFWVTz::derive_moments() {
    const double share = face_cdf[2] - face_cdf[1];
    double prev = 0;
    side_w0[0] = side_w1[0] = 0;
    for (int j = 0; j < NGRID; ++j) {
        const double p = share * (side_cdf[j] - prev);
        prev = side_cdf[j];
        const double w = side_sign[j] ? p : -p;
        side_w0[j + 1] = side_w0[j] + w;
        side_w1[j + 1] = side_w1[j] + w * (j + 0.5);
    }
}

void gft_solver::PDFWVTx::to_cdf() {
    for (double& x : lower_cdf) x = -x;
    for (double& x : upper_cdf) x = -x;
    for (double& x : side_cdf) x = -x;
    const double sl = normalise_block(lower_cdf);
    const double su = normalise_block(upper_cdf);
    const double ss = normalise_block(side_cdf);
    set_faces(face_cdf, sl, su, ss, &total_weight);
}

gft_solver::gft_solver() : node_to_interface(NGRID + 1, -1), eps{1.0} {}

void gft_solver::set_stack(const std::vector<int>& itf, const std::vector<double>& e) {
    interfaces = itf;
    eps = e;
    n_interfaces = static_cast<int32_t>(interfaces.size());
    node_to_interface.assign(NGRID + 1, -1);
    for (int i = 0; i < n_interfaces; ++i) node_to_interface[interfaces[i]] = i;
}

void gft_solver::flipped(std::vector<int>& itf, std::vector<double>& e) const {
    itf.assign(interfaces.rbegin(), interfaces.rend());
    for (int& z : itf) z = NGRID - z;
    e.assign(eps.rbegin(), eps.rend());
}

void gft_solver::solve_pack(solver_code code, const std::vector<int>& itf,
                            const std::vector<double>& e) {
    set_stack(itf, e);
    if (n_interfaces == 0) {
        solve_single();
        return;
    }
    switch (code) {
        case SOLVE_GFT:
            find_GFT();
            gft.to_cdf();
            break;
        case SOLVE_WVTZ:
            find_WVTz();
            wvtz.to_cdf();
            break;
        case SOLVE_WVTX:
            find_WVTx();
            wvtx.to_cdf();
            break;
    }
}

void gft_solver::solve_single() {
    n_interfaces = 0;
    interfaces.clear();
    eps.assign(1, 1.0);
    node_to_interface.assign(NGRID + 1, -1);
    find_GFT();
    find_WVTz();
    find_WVTx();
    for (int j = 0; j < NHALF; ++j) {
        gft.lower_cdf[j] = gft.upper_cdf[j];
        gft.side_cdf[j] = gft.side_cdf[NGRID - 1 - j] = gft.upper_cdf[j];
        // The z derivative on the side faces is the x derivative on the upper face turned by 90
        // degrees, and vice versa.
        wvtz.lower_cdf[j] = -wvtz.upper_cdf[j];
        wvtz.side_cdf[j] = wvtx.upper_cdf[j];
        wvtz.side_cdf[NGRID - 1 - j] = -wvtx.upper_cdf[j];
        wvtx.lower_cdf[j] = wvtx.upper_cdf[j];
        wvtx.side_cdf[j] = wvtx.side_cdf[NGRID - 1 - j] = -wvtz.upper_cdf[j];
    }
    gft.to_cdf();
    wvtz.to_cdf();
    wvtx.to_cdf();
}

void gft_solver::solve(solver_code code, const std::vector<double>& heights,
                       const std::vector<double>& e, double size) {
    interface_aligned(heights, e, size);
    if (n_interfaces == 0) {
        solve_single();
        switch (code) {
            case SOLVE_GFT:
                gft.to_cdf();
                break;
            case SOLVE_WVTZ:
                wvtz.to_cdf();
                break;
            case SOLVE_WVTX:
                wvtx.to_cdf();
                break;
        }
        return;
    }
    const std::vector<int> itf = interfaces;
    const std::vector<double> ee = eps;
    solve_pack(code, itf, ee);
}

void gft_solver::interface_aligned(const std::vector<double>& heights, const std::vector<double>& e,
                                   double size) {
    interfaces.clear();
    eps.clear();
    const double cell = size / NGRID;
    long last_in_range = -1;
    for (size_t i = 0; i < heights.size(); ++i) {
        const long k = std::lround(heights[i] / cell);
        if (k < 1 || k > NGRID - 1) continue;
        last_in_range = static_cast<long>(i);
        if (!interfaces.empty() && interfaces.back() == k) continue;
        interfaces.push_back(static_cast<int>(k));
        eps.push_back(e[i]);
    }
    size_t top = last_in_range >= 0 ? static_cast<size_t>(last_in_range) + 1 : 1;
    if (!e.empty()) eps.push_back(e[std::min(top, e.size() - 1)]);
    n_interfaces = static_cast<int32_t>(interfaces.size());
    node_to_interface.assign(NGRID + 1, -1);
    for (int i = 0; i < n_interfaces; ++i) node_to_interface[interfaces[i]] = i;
}

void gft_solver::dump_pack(std::vector<double>& out) const {
    auto put = [&out](const double* p, int n) { out.insert(out.end(), p, p + n); };
    put(gft.lower_cdf, NHALF);
    put(gft.upper_cdf, NHALF);
    put(gft.side_cdf, NGRID);
    put(wvtz.lower_cdf, NHALF);
    put(wvtz.upper_cdf, NHALF);
    put(wvtz.side_cdf, NGRID);
    put(wvtx.lower_cdf, NHALF);
    put(wvtx.upper_cdf, NHALF);
    put(wvtx.side_cdf, NGRID);
    out.push_back(wvtz.total_weight);
    out.push_back(wvtx.total_weight);
}

std::array<double, gft_solver::NMODE> gft_solver::find_phi_z_GFT(const std::vector<int>& itf,
                                                                 const std::vector<double>& e) {
    return shoot(_lnm, itf, e, false, false);
}

std::array<double, gft_solver::NMODE> gft_solver::find_phi_z_WVTx(const std::vector<int>& itf,
                                                                  const std::vector<double>& e) {
    return shoot(_lnm_2, itf, e, false, false);
}

std::array<double, gft_solver::NMODE> gft_solver::find_phi_z_WVTz(const std::vector<int>& itf,
                                                                  const std::vector<double>& e,
                                                                  bool at_centre_above) {
    return shoot(_lnm, itf, e, true, at_centre_above);
}

gft_solver::fdm_solution gft_solver::find_phi_z_FDM(bool want_derivative) const {
    const int m = n_interfaces;
    Mat24 T = Mat24::Zero();
    Eigen::MatrixXd A = Eigen::MatrixXd::Zero(NGRID, m);
    Eigen::MatrixXd B = Eigen::MatrixXd::Zero(m, m);
    Eigen::MatrixXd D = Eigen::MatrixXd::Zero(m, NGRID);
    const std::vector<int>& node = node_to_interface;

    // Quarter of the second difference over cell centres; half-cell stencils next to a face or an
    // interface node.
    {
        const int b = node[1];
        if (b < 0) {
            T(0, 0) = -1;
            T(0, 1) = 1.0 / 3;
        } else {
            T(0, 0) = -2;
            A(0, b) = 1;
        }
        const int a = node[NGRID - 1];
        if (a < 0) {
            T(NGRID - 1, NGRID - 1) = -1;
            T(NGRID - 1, NGRID - 2) = 1.0 / 3;
        } else {
            T(NGRID - 1, NGRID - 1) = -2;
            A(NGRID - 1, a) = 1;
        }
    }
    for (int r = 1; r < NGRID - 1; ++r) {
        const int a = node[r], b = node[r + 1];
        if (a < 0 && b < 0) {
            T(r, r - 1) = 0.25;
            T(r, r) = -0.5;
            T(r, r + 1) = 0.25;
        } else if (a >= 0 && b < 0) {
            T(r, r) = -1;
            T(r, r + 1) = 1.0 / 3;
            A(r, a) = 2.0 / 3;
        } else if (a < 0 && b >= 0) {
            T(r, r) = -1;
            T(r, r - 1) = 1.0 / 3;
            A(r, b) = 2.0 / 3;
        } else {
            T(r, r) = -2;
            A(r, a) = 1;
            A(r, b) = 1;
        }
    }
    // Flux continuity at each interface node, second-order one-sided on both sides.
    for (int i = 0; i < m; ++i) {
        const int k = interfaces[i];
        const double e = eps[i], f = eps[i + 1];
        if (k == 1) {
            B(i, i) = 1.5 * e;
            D(i, 0) = -2 * e;
        } else if (node[k - 1] < 0) {
            B(i, i) = 4.0 / 3 * e;
            D(i, k - 1) = -1.5 * e;
            D(i, k - 2) = e / 6;
        } else {
            B(i, i) = 1.5 * e;
            D(i, k - 1) = -2 * e;
            B(i, i - 1) = 0.5 * e;
        }
        if (k == NGRID - 1) {
            B(i, i) += 1.5 * f;
            D(i, NGRID - 1) = -2 * f;
        } else if (node[k + 1] < 0) {
            B(i, i) += 4.0 / 3 * f;
            D(i, k) = -1.5 * f;
            D(i, k + 1) = f / 6;
        } else {
            B(i, i) += 1.5 * f;
            D(i, k) = -2 * f;
            B(i, i + 1) = 0.5 * f;
        }
    }

    Mat24 S = T;
    if (m > 0) {
        const Eigen::MatrixXd X = B.llt().solve(D);
        S.noalias() -= A * X;
    }
    Eigen::EigenSolver<Mat24> es(S, true);
    const auto& values = es.eigenvalues();
    const auto vectors = es.eigenvectors();
    const double g =
        std::max(values.imag().cwiseAbs().maxCoeff(), vectors.imag().cwiseAbs().maxCoeff());
    if (g > 0.001) std::printf("Warning: complex eigen values or vectors (%e)\n", g);

    fdm_solution f;
    f.lambda = -2304.0 * values.real();
    f.modes = vectors.real();
    const int ic = node[12];
    for (int k = 0; k < NGRID; ++k) {
        if (ic < 0)
            f.mid[k] = (f.modes(11, k) + f.modes(12, k)) / 2;
        else
            f.mid[k] =
                (f.modes(11, k) * eps[ic] + f.modes(12, k) * eps[ic + 1]) / (eps[ic] + eps[ic + 1]);
    }
    if (want_derivative)
        for (int k = 0; k < NGRID; ++k) f.dmid[k] = 2 * (f.mid[k] - f.modes(11, k));
    else
        f.dmid.setZero();
    return f;
}

gft_solver::Vec24 gft_solver::side_from_modes(const fdm_solution& f, const Vec24& c) {
    // Panel values y of the centre response solve modes^T y = c.
    return Eigen::PartialPivLU<Mat24>(f.modes.transpose()).solve(c);
}

void gft_solver::find_GFT() {
    const auto phi = find_phi_z_GFT(interfaces, eps);
    for (int j = 0; j < NHALF; ++j) {
        double u = 0;
        for (int n = 0; n < NMODE; ++n) u += _Bjt(n, j) * ((n & 1) ? -phi[n] : phi[n]);
        gft.upper_cdf[j] = u;
    }
    if (n_interfaces == 0) return;
    std::vector<int> fi;
    std::vector<double> fe;
    flipped(fi, fe);
    const auto phf = find_phi_z_GFT(fi, fe);
    for (int j = 0; j < NHALF; ++j) {
        double l = 0;
        for (int n = 0; n < NMODE; ++n) l += _Bjt(n, j) * ((n & 1) ? -phf[n] : phf[n]);
        gft.lower_cdf[j] = l;
    }
    const fdm_solution f = find_phi_z_FDM(false);
    Vec24 c;
    for (int k = 0; k < NGRID; ++k) c[k] = f.mid[k] / (2 * std::cosh(std::sqrt(f.lambda[k]) * 0.5));
    const Vec24 y = side_from_modes(f, c);
    for (int j = 0; j < NGRID; ++j) gft.side_cdf[j] = y[j];
    // The lower and upper blocks are exact mode sums; the side block comes from a 24-cell
    // difference scheme whose total runs 0.2% short. The four faces must carry probability 1, so
    // the side takes what the exact faces leave; otherwise every layered box sends its walkers up
    // and down a little too often.
    double lower = 0, upper = 0, side = 0;
    for (int j = 0; j < NHALF; ++j) lower += gft.lower_cdf[j], upper += gft.upper_cdf[j];
    for (int j = 0; j < NGRID; ++j) side += gft.side_cdf[j];
    if (side > 0)
        for (double& v : gft.side_cdf) v *= (0.5 - lower - upper) / side;
}

void gft_solver::find_WVTz() {
    const auto d = find_phi_z_WVTz(interfaces, eps, false);
    for (int j = 0; j < NHALF; ++j) {
        double u = 0;
        for (int n = 0; n < NMODE; ++n) u += _Bjt(n, j) * ((n & 1) ? -d[n] : d[n]);
        wvtz.upper_cdf[j] = u;
    }
    if (n_interfaces == 0) return;
    std::vector<int> fi;
    std::vector<double> fe;
    flipped(fi, fe);
    const auto df = find_phi_z_WVTz(fi, fe, true);
    for (int j = 0; j < NHALF; ++j) {
        double l = 0;
        for (int n = 0; n < NMODE; ++n) l += _Bjt(n, j) * ((n & 1) ? -df[n] : df[n]);
        wvtz.lower_cdf[j] = -l;  // the z derivative changes sign under the flip
    }
    const fdm_solution f = find_phi_z_FDM(true);
    Vec24 c;
    for (int k = 0; k < NGRID; ++k)
        c[k] = f.dmid[k] / (2 * std::cosh(std::sqrt(f.lambda[k]) * 0.5));
    const Vec24 y = side_from_modes(f, c);
    for (int j = 0; j < NGRID; ++j) wvtz.side_cdf[j] = 12 * y[j];
    // As in find_GFT, the side block from the difference scheme is brought onto two exact
    // solutions of every layered box: a constant, whose derivative is 0, and the potential of unit
    // flux phi(z) = integral dz/eps, whose derivative is 12/eps at the centre in half-box units
    // (the layer below the centre when an interface lies on it, as the faces' modes take it). The
    // side's halves below and above the centre are scaled apart. Unscaled, the weights gave a
    // constant potential a flux of up to 1e-3 of the unit flux, of one sign for a given order of
    // the layers, and phi 0.14% too little with an interface on the centre node.
    double phi_node[NGRID + 1];
    phi_node[0] = 0;
    for (int k = 0, layer = 0; k < NGRID; ++k) {
        if (layer < n_interfaces && interfaces[layer] == k) ++layer;
        phi_node[k + 1] = phi_node[k] + 1 / eps[layer];
    }
    const int centre_layer = count_below_centre(interfaces);
    auto phi_at = [&](double z) {  // linear within a cell
        const int k = std::min(static_cast<int>(z), NGRID - 1);
        return phi_node[k] + (z - k) * (phi_node[k + 1] - phi_node[k]) - phi_node[NHALF];
    };
    double faces = 0, faces_phi = 0, below = 0, below_phi = 0, above = 0, above_phi = 0;
    for (int j = 0; j < NHALF; ++j) {
        faces += wvtz.lower_cdf[j] + wvtz.upper_cdf[j];
        faces_phi += wvtz.lower_cdf[j] * phi_at(0) + wvtz.upper_cdf[j] * phi_at(NGRID);
    }
    for (int j = 0; j < NGRID; ++j) {
        const double w = wvtz.side_cdf[j], p = phi_at(j + 0.5);
        (j < NHALF ? below : above) += w;
        (j < NHALF ? below_phi : above_phi) += w * p;
    }
    // a * below + b * above = -faces, a * below_phi + b * above_phi = 6 / eps_c - faces_phi
    // (the blocks stand for two halves each, so the targets are halved).
    const double want = 6 / eps[centre_layer] - faces_phi;
    const double det = below * above_phi - above * below_phi;
    if (det != 0 && std::isfinite(det)) {
        const double a = (-faces * above_phi - above * want) / det;
        const double b = (below * want + faces * below_phi) / det;
        if (a > 0 && b > 0) {
            for (int j = 0; j < NHALF; ++j) wvtz.side_cdf[j] *= a;
            for (int j = NHALF; j < NGRID; ++j) wvtz.side_cdf[j] *= b;
        }
    }
}

void gft_solver::find_WVTx() {
    auto upper_from = [](const std::array<double, NMODE>& phi, double(&block)[NHALF]) {
        for (int j = 0; j < NHALF; ++j) {
            double u = 0;
            for (int n = 0; n < NMODE; ++n) {
                const double e = ((n & 1) ? -1.0 : 1.0) * (n + 1) * kPi * phi[n];
                u += _Csi(n, j) * e;
            }
            block[j] = -u;
        }
    };
    upper_from(find_phi_z_WVTx(interfaces, eps), wvtx.upper_cdf);
    if (n_interfaces == 0) return;
    std::vector<int> fi;
    std::vector<double> fe;
    flipped(fi, fe);
    upper_from(find_phi_z_WVTx(fi, fe), wvtx.lower_cdf);
    const fdm_solution f = find_phi_z_FDM(false);
    Vec24 c;
    for (int k = 0; k < NGRID; ++k) {
        const double beta = std::sqrt(f.lambda[k]);
        c[k] = (beta * f.mid[k] / (2 * std::sinh(beta * 0.5))) * 0.5;
    }
    const Vec24 y = side_from_modes(f, c);
    for (int j = 0; j < NGRID; ++j) wvtx.side_cdf[j] = -y[j];
    // As in find_GFT, the side block is scaled so that the table is exact where every layered box
    // is: for u = x, whose x derivative is 1 in half-box units. A panel of the upper or lower block
    // at offset t weighs u(t) - u(-t) = 2t, a side panel u(-1) - u(1) = -2.
    double faces = 0, side = 0;
    for (int j = 0; j < NHALF; ++j) {
        const double t = (2 * j + 1) / static_cast<double>(NGRID) - 1;  // where panel j lands
        faces += 2 * t * (wvtx.lower_cdf[j] + wvtx.upper_cdf[j]);
    }
    for (int j = 0; j < NGRID; ++j) side += -2 * wvtx.side_cdf[j];
    if (side != 0)
        for (double& v : wvtx.side_cdf) v *= (1 - faces) / side;
}

}  // namespace RW2D
