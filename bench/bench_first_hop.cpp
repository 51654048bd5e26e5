// Exactness of the first hop's weight tables in layered boxes, without walks: exact layered
// potentials are fed through the z- and x-weight tables as a walker reads them (panel-centre
// landings, the sampler's mirror in x, the sign and total weight of the drawn panel, the
// permittivity the manager hands back), through the manager's real key path, so the rounding of
// interfaces to nodes and of permittivities to key steps is included. Printed: the relative
// error of the flux estimate as a layer stack slides through a box of half side 1, and its mean
// over a uniformly random offset, which is what a population of walkers sees as a bias.
//
//   build/bench/bench_first_hop [--centre-eps] [--scan NAME] [--case NAME LO FILM CELLS ...]
//                               [--at BOUNDS EPS]
//
// Fields (all exact for any layered medium, phi(z) = integral from the centre of dz/eps):
//   Dz  u = phi(z): eps du/dz = 1 everywhere; the z weights must give 1.
//   Dx  u = x: eps du/dx = eps at the centre; the x weights must give that.
//   Dx2 u = x (1 + eps_c phi(z)): du/dx = 1 at the centre, but the field along the layers varies
//       across them; error in units of eps_c.
// --centre-eps scales the z weights by the permittivity the key leaves at the box centre
// (get_middle_eps) instead of the manager's unit-flux scale, to show what the scale corrects.
// --at prints the errors of one stack, e.g. --at 0.75,1.5 4.2,7,2.7 (boundaries in the box of
// half side 1 with its bottom at 0, permittivities from the bottom up).
// --scan NAME prints the error against the offset for the case with that name. --case replaces
// the built-in cases: a film of permittivity FILM and CELLS cells in a host LO, or with CELLS 0
// a single interface, LO below and FILM above.
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "solver/gft_solver.h"
#include "solver/online_table.h"

namespace {

using RW2D::gft_solver;
using RW2D::online_table_manager;

constexpr int N = gft_solver::NGRID;
constexpr double kCell = 2.0 / N;  // box of half side 1, bottom at 0, centre at 1
bool g_centre_eps = false;

// A layered medium in box coordinates: eps[i] below bound[i], eps.back() above the last.
struct Medium {
    std::vector<double> bound;
    std::vector<double> eps;

    double eps_at(double z) const {
        size_t i = 0;
        while (i < bound.size() && z >= bound[i]) ++i;
        return eps[i];
    }
    // Integral of dz/eps from the centre (z = 1) to z.
    double phi(double z) const {
        auto from0 = [this](double t) {  // from z = -10
            double s = 0, lo = -10;
            for (size_t i = 0; i <= bound.size(); ++i) {
                const double hi = i < bound.size() ? bound[i] : 1e9;
                const double b = std::min(hi, t);
                if (b > lo) s += (b - lo) / eps[i];
                lo = hi;
                if (hi >= t) break;
            }
            return s;
        };
        return from0(z) - from0(1.0);
    }
    // psi(z) = integral from the centre of E/eps, E(s) = integral from the centre of eps, so that
    // x^2 - 2 psi(z) is harmonic in the layered medium with zero flux at the centre.
    double psi(double z) const {
        double a = 1.0, e_a = 0, sum = 0;
        while (a != z) {
            // The segment from a towards z within one layer.
            double b = z;
            for (double h : bound) {
                if (z > a && h > a && h < b) b = h;
                if (z < a && h < a && h > b) b = h;
            }
            const double e = eps_at(0.5 * (a + b));
            sum += e_a * (b - a) / e + 0.5 * (b - a) * (b - a);
            e_a += e * (b - a);
            a = b;
        }
        return sum;
    }
    // The stack a fitter hands the manager: heights from the box bottom, first 0, then every
    // boundary strictly inside the box.
    void fitter_stack(std::vector<double>& h, std::vector<double>& e) const {
        h.assign(1, 0.0);
        e.assign(1, eps_at(0.0));
        for (size_t i = 0; i < bound.size(); ++i)
            if (bound[i] > 0 && bound[i] < 2.0) {
                h.push_back(bound[i]);
                e.push_back(eps[i + 1]);
            }
    }
};

double panel_offset(int j) {
    return (2 * j + 1) / static_cast<double>(N) - 1;
}

template <class T>
double block_p(const T& t, int face, int j) {
    const double* cdf = face == 0 ? t.lower_cdf : face == 1 ? t.upper_cdf : t.side_cdf;
    const double share = t.face_cdf[face] - (face ? t.face_cdf[face - 1] : 0);
    return share * (cdf[j] - (j ? cdf[j - 1] : 0));
}

// Expectation of the sampled weight times u at the landing point (box units, centre 0,0), as
// online_sampling draws it: face, panel, then a coin for the mirror in x.
template <class U>
double expect_z(const RW2D::PDFWVTz& t, U u) {
    const double T = t.total_weight;
    double s = 0;
    for (int j = 0; j < N / 2; ++j) {
        const double x = panel_offset(j);
        s += block_p(t, 0, j) * -T * 0.5 * (u(x, -1.0) + u(-x, -1.0));
        s += block_p(t, 1, j) * T * 0.5 * (u(x, 1.0) + u(-x, 1.0));
    }
    for (int j = 0; j < N; ++j) {
        const double z = panel_offset(j);
        s += block_p(t, 2, j) * (t.side_sign[j] ? T : -T) * 0.5 * (u(-1.0, z) + u(1.0, z));
    }
    return s;
}

template <class U>
double expect_x(const RW2D::PDFWVTx& t, U u) {
    const double T = t.total_weight;
    double s = 0;
    auto odd = [&u](double x, double z) { return 0.5 * (-u(x, z) + u(-x, z)); };
    for (int j = 0; j < N / 2; ++j) {
        const double x = panel_offset(j);
        s += block_p(t, 0, j) * T * odd(x, -1.0);
        s += block_p(t, 1, j) * T * odd(x, 1.0);
    }
    for (int j = 0; j < N; ++j) s += block_p(t, 2, j) * T * odd(-1.0, panel_offset(j));
    return s;
}

template <class U>
double expect_gft(const RW2D::PDFGFT& t, U u) {
    double s = 0;
    for (int j = 0; j < N / 2; ++j) {
        const double x = panel_offset(j);
        s += block_p(t, 0, j) * 0.5 * (u(x, -1.0) + u(-x, -1.0));
        s += block_p(t, 1, j) * 0.5 * (u(x, 1.0) + u(-x, 1.0));
    }
    for (int j = 0; j < N; ++j) {
        const double z = panel_offset(j);
        s += block_p(t, 2, j) * 0.5 * (u(-1.0, z) + u(1.0, z));
    }
    return s;
}

struct Errors {
    double dz, dq, dc, dx, dx2, g;
};

Errors first_hop_errors(online_table_manager& m, const Medium& med) {
    std::vector<double> h, e;
    med.fitter_stack(h, e);
    const double ec = med.eps_at(1.0);
    Errors r{};
    double mz = 0, mx = 0;
    const RW2D::PDFWVTz* tz = m.get_WVTz(h, e, 2.0, mz);
    if (g_centre_eps) {  // the permittivity the key leaves at the centre, as the scale once was
        const double step = online_table_manager::eps_step();
        mz = online_table_manager::get_middle_eps(
            h, e, online_table_manager::pack_avg(h, e, 2.0, step, 1), 2.0, step);
    }
    const RW2D::PDFWVTx* tx = m.get_WVTx(h, e, 2.0, mx);
    // Box units are real units here (half side 1, centre at z = 1).
    r.dz = mz * expect_z(*tz, [&](double, double z) { return med.phi(1.0 + z); }) - 1.0;
    // x^2 - 2 psi: zero flux at the centre; error in units of its flux change over a half side.
    r.dq = mz * expect_z(*tz, [&](double x, double z) { return x * x - 2 * med.psi(1.0 + z); }) /
           (2 * ec);
    r.dc = mz * expect_z(*tz, [](double, double) { return 1.0; });
    const RW2D::PDFGFT* tg = m.get_GFT(h, e, 2.0);
    r.g = expect_gft(*tg, [&](double, double z) { return med.phi(1.0 + z); }) /
          (med.phi(2.0) - med.phi(0.0));
    r.dx = mx * expect_x(*tx, [](double x, double) { return x; }) / ec - 1.0;
    r.dx2 = mx *
                expect_x(*tx, [&](double x, double z) { return x * (1 + ec * med.phi(1.0 + z)); }) /
                ec -
            1.0;
    return r;
}

struct Case {
    std::string name;
    double lo, hi;  // host permittivities below and above (equal for a film)
    double film;    // film permittivity, 0 for a single interface
    double cells;   // film thickness in cells
};

// Medium with the case's interface (or the film's centre) at offset d half sides from the centre.
Medium place(const Case& c, double d) {
    if (c.film == 0) return Medium{{1.0 + d}, {c.lo, c.hi}};
    const double t = c.cells * kCell;
    return Medium{{1.0 + d - t / 2, 1.0 + d + t / 2}, {c.lo, c.film, c.hi}};
}

}  // namespace

int main(int argc, char** argv) {
    const char* scan = nullptr;
    std::vector<Case> extra;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--scan") == 0 && i + 1 < argc) scan = argv[++i];
        if (std::strcmp(argv[i], "--centre-eps") == 0) g_centre_eps = true;
        if (std::strcmp(argv[i], "--at") == 0 && i + 2 < argc) {
            // One stack only: boundaries and permittivities as comma lists, in the box of half
            // side 1 whose bottom is 0 (the centre at 1).
            auto list = [](const char* text) {
                std::vector<double> v;
                for (const char* p = text; *p;) {
                    char* end = nullptr;
                    v.push_back(std::strtod(p, &end));
                    p = *end == ',' ? end + 1 : end;
                    if (end == p && *p) break;
                }
                return v;
            };
            const Medium med{list(argv[i + 1]), list(argv[i + 2])};
            online_table_manager m;
            const Errors e = first_hop_errors(m, med);
            std::printf("Dz %+.4f%%  Dq %+.4f%%  Dc %+.4f%%  Dx %+.4f%%  Dx2 %+.4f%%  G %+.4f%%\n",
                        100 * e.dz, 100 * e.dq, 100 * e.dc, 100 * e.dx, 100 * e.dx2, 100 * e.g);
            return 0;
        }
        if (std::strcmp(argv[i], "--case") == 0 && i + 4 < argc) {
            Case c{argv[i + 1], 0, 0, 0, 0};
            c.lo = c.hi = std::atof(argv[i + 2]);
            c.film = std::atof(argv[i + 3]);
            c.cells = std::atof(argv[i + 4]);
            if (c.cells <= 0) c.hi = c.film, c.film = 0;  // a single interface lo|film
            extra.push_back(c);
            i += 4;
        }
    }

    std::vector<Case> cases = {
        {"if 2.7|7", 2.7, 7, 0, 0},
        {"if 7|2.7", 7, 2.7, 0, 0},
        {"if 2.6|7.5", 2.6, 7.5, 0, 0},
        {"if 7.5|2.6", 7.5, 2.6, 0, 0},
    };
    for (double t : {0.25, 0.5, 1.0, 2.0}) {
        char name[64];
        std::snprintf(name, sizeof name, "film 7 in 2.7, %.2f cell", t);
        cases.push_back({name, 2.7, 2.7, 7, t});
        std::snprintf(name, sizeof name, "film 7.5 in 2.6, %.2f cell", t);
        cases.push_back({name, 2.6, 2.6, 7.5, t});
    }
    if (!extra.empty()) cases = extra;

    // Offsets from -1.5 to 1.5 half sides in steps of 0.02 cell.
    const double step = 0.02 * kCell / 2;  // half sides: a cell is 1/12 of a half side
    const int n = static_cast<int>(std::lround(3.0 / step));
    online_table_manager m;

    const char* field_names[] = {"Dz: u = phi, z weights",
                                 "Dq: u = x^2 - 2 psi, z weights",
                                 "Dc: u = 1, z weights (flux per unit potential)",
                                 "Dx: u = x, x weights",
                                 "Dx2: u = x (1 + eps_c phi), x weights",
                                 "G: u = phi, Green's function (in units of the drop across)"};
    constexpr int F = 6;
    struct Stat {
        double sum[4] = {}, max = 0;  // over all, |d| <= 1, centre, edges
        int cnt[4] = {};
    };
    std::vector<std::array<Stat, F>> stats(cases.size());
    for (size_t ci = 0; ci < cases.size(); ++ci) {
        const Case& c = cases[ci];
        const bool print = scan && c.name == scan;
        for (int i = 0; i <= n; ++i) {
            const double d = -1.5 + i * step;
            const Errors e = first_hop_errors(m, place(c, d));
            const double ad = std::fabs(d);
            const bool in[4] = {true, ad <= 1 + 1e-12, ad <= 2 * kCell / 2 + 1e-12,
                                std::fabs(ad - 1) <= 2 * kCell / 2 + 1e-12};
            const double v[F] = {e.dz, e.dq, e.dc, e.dx, e.dx2, e.g};
            for (int k = 0; k < F; ++k) {
                Stat& st = stats[ci][k];
                for (int a = 0; a < 4; ++a)
                    if (in[a]) st.sum[a] += v[k], ++st.cnt[a];
                st.max = std::max(st.max, std::fabs(v[k]));
            }
            if (print && i % 5 == 0)
                std::printf(
                    "  d %+8.4f (%+7.2f cells)  Dz %+8.4f  Dq %+8.4f  Dx %+8.4f  Dx2 %+8.4f  "
                    "G %+8.4f  (%%)\n",
                    d, d * N / 2, 100 * e.dz, 100 * e.dq, 100 * e.dx, 100 * e.dx2, 100 * e.g);
        }
    }

    std::printf("first-hop weight tables: error in %% of the exact flux, mean over the offset d\n");
    std::printf(
        "  all: d uniform in [-1.5, 1.5] half sides; box: |d| <= 1; centre: |d| <= 2 cells;\n");
    std::printf("  edges: ||d| - 1| <= 2 cells; max: largest |error| met\n");
    for (int k = 0; k < F; ++k) {
        std::printf("\n%s\n%-26s %8s %8s %8s %8s %8s\n", field_names[k], "case", "all", "box",
                    "centre", "edges", "max");
        for (size_t ci = 0; ci < cases.size(); ++ci) {
            const Stat& st = stats[ci][k];
            std::printf("%-26s", cases[ci].name.c_str());
            for (int a = 0; a < 4; ++a) std::printf(" %+8.4f", 100 * st.sum[a] / st.cnt[a]);
            std::printf(" %8.4f\n", 100 * st.max);
        }
    }
    // What the scale adds to a first hop: a z-table lookup that hits, with and without it.
    {
        const Medium med = place({"", 2.7, 2.7, 7, 1}, 0.31);
        std::vector<double> h, e;
        med.fitter_stack(h, e);
        double s = 0, sink = 0;
        const RW2D::PDFWVTz* t = m.get_WVTz(h, e, 2.0, s);
        const int reps = 1000000;
        auto t0 = std::chrono::steady_clock::now();
        for (int i = 0; i < reps; ++i) sink += m.get_WVTz(h, e, 2.0, s)->total_weight * s;
        auto t1 = std::chrono::steady_clock::now();
        for (int i = 0; i < reps; ++i)
            sink += online_table_manager::unit_flux_scale(*t, h, e, 2.0 + 1e-9 * (i & 1));
        auto t2 = std::chrono::steady_clock::now();
        std::printf(
            "\nz-table lookup on a hit, scale included: %.1f ns; the scale alone: %.1f ns "
            "(%g)\n",
            std::chrono::duration<double, std::nano>(t1 - t0).count() / reps,
            std::chrono::duration<double, std::nano>(t2 - t1).count() / reps, sink > 0 ? 1.0 : 0.0);
    }
    std::printf("%zu tables solved\n", m.stores().size());
    return 0;
}
