#include "solver/parser.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <unordered_map>

#include "runtime/failure.h"
#include "solver/config.h"
#include "solver/net_manager.h"

namespace RW2D {

namespace {

std::string percent_f(double v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%f", v);
    return buf;
}

bool near(double a, double b) {
    return std::abs(a - b) < GEO_EPS;
}

}  // namespace

std::ostream& operator<<(std::ostream& os, const Object& o) {
    static const char* const kinds[] = {"Medium", "Conf", "Cond", "Win"};
    os << "(Object)" << (o.type < 4 ? kinds[o.type] : "") << " " << o.name << " " << o.value;
    for (const Vector2D& p : o.points) os << "(" << p.x << "," << p.y << ")";
    return os;
}

Object* parse_quad(std::istream& in) {
    int count = 0;
    if (!(in >> count) || count < 1) return nullptr;
    // y keyed on a 1e-6 grid so that vertices of one edge meet whatever their rounding.
    std::unordered_map<long long, std::pair<double, double>> rows;
    long long kmin = 0, kmax = 0;
    for (int i = 0; i < count; ++i) {
        double x = 0, y = 0;
        if (!(in >> x >> y)) return nullptr;
        const long long k = std::llround(y / 1e-6);
        auto [it, fresh] = rows.try_emplace(k, x, x);
        if (!fresh) {
            it->second.first = std::min(it->second.first, x);
            it->second.second = std::max(it->second.second, x);
        }
        if (i == 0 || k < kmin) kmin = k;
        if (i == 0 || k > kmax) kmax = k;
    }
    auto* o = new Object();
    const auto& lo = rows[kmin];
    const auto& hi = rows[kmax];
    const double ylo = static_cast<double>(kmin) * 1e-6, yhi = static_cast<double>(kmax) * 1e-6;
    o->points = {Vector2D{lo.first, ylo}, Vector2D{lo.second, ylo}, Vector2D{hi.second, yhi},
                 Vector2D{hi.first, yhi}};
    return o;
}

std::vector<Object*> parse_structure_text(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        std::cerr << "Error: Failed to open " << path << std::endl;
        throw KARVEN::FatalError("Error: Failed to open " + path, true);
    }
    std::vector<Object*> conductors, dielectrics;
    const auto fail = [&]() {
        for (Object* o : conductors) delete o;
        for (Object* o : dielectrics) delete o;
        Debugger::raise_error("parser error: malformed structure file " + path);
    };
    const auto conductor = [&](double value) {
        std::string name;
        if (!(in >> name)) fail();
        Object* o = parse_quad(in);
        if (o == nullptr) fail();
        o->type = Object::CONDUCTOR;
        o->name = name;
        o->value = value;
        conductors.push_back(o);
    };
    conductor(1.0);
    int n = 0;
    if (!(in >> n)) fail();
    for (int i = 0; i < n; ++i) conductor(0.0);
    int m = 0;
    if (!(in >> m)) fail();
    for (int i = 0; i < m; ++i) {
        std::string name;
        if (!(in >> name)) fail();
        Object* o = parse_quad(in);
        if (o == nullptr) fail();
        o->type = Object::MEDIUM;
        o->name = name;
        dielectrics.push_back(o);
        if (!(in >> o->value)) fail();
    }
    Object* window = parse_quad(in);
    if (window == nullptr) fail();
    window->type = Object::WINDOW;
    window->name = "window";
    window->value = 0.0;
    auto* background = new Object(*window);
    background->type = Object::MEDIUM;
    background->value = -1.0;

    std::vector<Object*> out = std::move(conductors);
    out.push_back(window);
    out.push_back(background);
    out.insert(out.end(), dielectrics.begin(), dielectrics.end());
    return out;
}

std::string format_ref(const Object* o, const std::string& name, const std::string& suffix) {
    const auto& p = o->points;
    std::ostringstream os;
    if (near(p[0].x, p[3].x) && near(p[0].y, p[1].y) && near(p[1].x, p[2].x) &&
        near(p[2].y, p[3].y)) {
        os << "BOX NAME=" << name << "; CX=" << (p[0].x + p[1].x) / 2
           << "; CY=" << (p[0].y + p[3].y) / 2 << "; W=" << p[1].x - p[0].x
           << "; H=" << p[3].y - p[0].y << ";" << suffix;
    } else {
        os << "POLY NAME=" << name << "; COORD=";
        for (int i = 3; i >= 0; --i) os << p[i].x << "," << p[i].y << (i > 0 ? "; " : "");
        os << ";" << suffix;
    }
    return os.str();
}

void parse_to_ref(const std::string& in_path, const std::string& out_path) {
    std::vector<Object*> objects = parse_structure_text(in_path);
    std::ofstream out(out_path);
    if (!out) std::cerr << "Dump to ref file parser" << std::endl;
    for (const Object* o : objects) {
        if (o->type != Object::WINDOW) continue;
        const auto& p = o->points;
        out << "WINDOW X1=" << (p[0].x + p[3].x) / 2 << "; Y1=" << (p[0].y + p[1].y) / 2
            << "; X2=" << (p[1].x + p[2].x) / 2 << "; Y2=" << (p[2].y + p[3].y) / 2 << ";\n";
        break;
    }
    int counter = 0;
    for (const Object* o : objects) {
        if (o->type != Object::MEDIUM || !(o->value >= 1.0)) continue;
        out << format_ref(o, "diel_no" + std::to_string(counter++),
                          " DIEL=" + percent_f(o->value) + ";")
            << "\n";
    }
    for (const Object* o : objects) {
        if (o->type != Object::CONDUCTOR) continue;
        out << format_ref(o, o->name, o->value == 0.0 ? " VOLT=0;" : " VOLT=1;") << "\n";
    }
    out << "OPTIONS SET_GRID=grid_num;\n"
        << "POTENTIAL\n";
    for (Object* o : objects) delete o;
}

std::string ref_text(const std::vector<Rectangle>& wires,
                     const std::vector<std::array<double, 2>>& layers,
                     const std::vector<std::pair<double, Rectangle>>& dielectrics,
                     const Rectangle& window, double precision) {
    std::ostringstream os;
    os << "WINDOW X1=" << window.left << "; Y1=" << window.bottom << "; X2=" << window.right
       << "; Y2=" << window.top << ";\n";
    int counter = 0;
    const auto diel = [&](double eps, const Rectangle& r) {
        os << NetManager::format_ref(r, "dielno" + std::to_string(counter++),
                                     " DIEL=" + percent_f(eps) + ";", window)
           << "\n";
    };
    for (std::size_t i = 0; i < layers.size(); ++i) {
        const double top = i + 1 < layers.size() ? layers[i + 1][0] : window.top;
        diel(layers[i][1], Rectangle(window.left, window.right, top, layers[i][0]));
    }
    for (const auto& [eps, r] : dielectrics) diel(eps, r);
    for (std::size_t i = 0; i < wires.size(); ++i) {
        os << NetManager::format_ref(wires[i], "cond" + std::to_string(i),
                                     i == 0 ? " VOLT=1;" : " VOLT=0;", window)
           << "\n";
    }
    os << "OPTIONS SET_GRID=80000;\n"
       << "OPTIONS MAX_REGRID=4;\n"
       << "OPTIONS FAC_REGRID=4;\n"
       << "OPTIONS REGRID_TOL=" << std::abs(precision * 100) << ";\n"
       << "POTENTIAL\n";
    return os.str();
}

std::vector<double> scan_ref_charges(const std::string& output, std::size_t wires) {
    static const std::string key = "Charge on cond";
    std::vector<double> result(wires, 0.0);
    std::size_t at = output.find(key);
    while (at != std::string::npos) {
        const int index = std::stoi(output.substr(at + key.size(), 32));
        if (index < 0) break;
        const std::size_t eq = output.find('=', at + key.size());
        if (eq == std::string::npos) break;
        const double q = std::stod(output.substr(eq + 1, 64));
        result.at(static_cast<std::size_t>(index)) = q * 1e15;
        at = output.find(key, eq);
    }
    return result;
}

// ---------------------------------------------------------------------------------------------
// The ref text of one box of the in-memory route, clipped to the window.

std::string NetManager::format_ref(const Rectangle& r, const std::string& name,
                                   const std::string& suffix, const Rectangle& window) {
    const double left = std::max(r.left, window.left);
    const double right = std::min(r.right, window.right);
    const double top = std::min(r.top, window.top);
    const double bottom = std::max(r.bottom, window.bottom);
    const double w = right - left, h = top - bottom;
    if (w == 0.0 || h == 0.0) return {};
    std::ostringstream os;
    os << "BOX NAME=" << name << "; CX=" << (left + right) / 2 << "; CY=" << (top + bottom) / 2
       << "; W=" << w << "; H=" << h << ";" << suffix;
    return os.str();
}

// ---------------------------------------------------------------------------------------------
// File route of NetManager and MediumManager.

namespace {

// Rectangle of the side means of a quad's corners.
Rectangle side_means(const Object& o) {
    const auto& p = o.points;
    return Rectangle((p[0].x + p[3].x) / 2, (p[1].x + p[2].x) / 2, (p[2].y + p[3].y) / 2,
                     (p[0].y + p[1].y) / 2);
}

// Staircase of n slices, each at the mean width of its height range.
Trapezoid* staircase(const Object& o, std::uint32_t n) {
    const auto& p = o.points;
    const double dl = (p[3].x - p[0].x) / (2.0 * n), dr = (p[2].x - p[1].x) / (2.0 * n);
    const double dy = (p[3].y - p[0].y) / n;
    auto* t = new Trapezoid();
    for (std::uint32_t s = 0; s < n; ++s) {
        const double k = 2.0 * s + 1.0;
        const double bottom = p[0].y + s * dy;
        t->add_slice(new Rectangle(p[0].x + k * dl, p[1].x + k * dr, bottom + dy, bottom));
    }
    return t;
}

}  // namespace

NetManager::NetManager(std::string path, const Config::SpaceArgs& space_args,
                       const Config::ApproxArgs& approx_args)
    : space(space_args), approx(approx_args) {
    boundary = space.neumann_walls ? 1 : 0;
    std::vector<Object*> objects = parse_structure_text(path);
    std::vector<std::pair<double, Rectangle>> dielectrics;
    for (const Object* o : objects) {
        if (o->type == Object::WINDOW && window == nullptr) window = new Rectangle(side_means(*o));
        if (o->type == Object::MEDIUM) dielectrics.emplace_back(o->value, side_means(*o));
    }
    if (window == nullptr) Debugger::raise_error("parser error: no window");
    std::vector<std::pair<double, Rectangle*>> cells = split_dielectrics(dielectrics);

    for (const Object* o : objects) {
        if (o->type != Object::CONDUCTOR) continue;
        const auto& p = o->points;
        auto* net = new WireNet();
        net->name = o->name;
        net->is_master = o->value != 0.0;
        const bool slanted = !near(p[0].x, p[3].x) || !near(p[1].x, p[2].x);
        if (slanted && approx.approx_order > 1) {
            net->shape = staircase(*o, approx.approx_order);
        } else {
            Rectangle w = side_means(*o);
            clip_wire(w, *window);
            net->shape = new Rectangle(w);
        }
        nets.push_back(net);
    }
    for (Object* o : objects) delete o;
    std::sort(nets.begin(), nets.end(),
              [](const WireNet* a, const WireNet* b) { return a->name < b->name; });
    for (WireNet* n : nets)
        if (n->is_master && master == nullptr) master = n;
    if (master == nullptr && !nets.empty()) master = nets.front();

    filter_pieces(cells);
    pieces = std::move(cells);
    media.init(pieces, window);
    finish_media();
    finish_nets();
    preprocess();
}

void MediumManager::init(const std::vector<std::pair<double, Rectangle*>>& pieces, Rectangle* w) {
    set_window(w);
    layer.top = w->top;
    // Every bottom and top inside the window bounds a band; keys on a 1e-8 grid.
    std::map<long long, double> keys;
    for (const auto& pc : pieces) {
        for (double y : {pc.second->bottom, pc.second->top})
            if (y > w->bottom - GEO_EPS && y < w->top + GEO_EPS)
                keys.emplace(std::llround(y / 1e-8), y);
    }
    keys.emplace(std::llround(w->bottom / 1e-8), w->bottom);
    std::vector<double> ys;
    for (const auto& kv : keys) ys.push_back(kv.second);

    // Each band's permittivity is the one that covers most of its width (background counts as
    // vacuum); pieces that differ from a band they cross stay as media.
    const auto eps_of = [](double e) { return e < 0 ? 1.0 : e; };
    std::vector<std::array<double, 2>> stack;
    std::vector<bool> kept(pieces.size(), false);
    for (std::size_t b = 0; b + 1 < ys.size(); ++b) {
        const double lo = ys[b], hi = ys[b + 1];
        std::map<double, double> cover;
        std::vector<std::size_t> inside;
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            const Rectangle& r = *pieces[i].second;
            if (r.bottom < hi - GEO_EPS && r.top > lo + GEO_EPS) {
                cover[eps_of(pieces[i].first)] +=
                    std::min(r.right, w->right) - std::max(r.left, w->left);
                inside.push_back(i);
            }
        }
        double band = 1.0, best = -1.0;
        for (const auto& [e, width] : cover)
            if (width > best + GEO_EPS) {
                best = width;
                band = e;
            }
        stack.push_back({lo, band});
        for (std::size_t i : inside)
            if (std::abs(eps_of(pieces[i].first) - band) > GEO_EPS) kept[i] = true;
    }
    if (stack.empty()) stack.push_back({w->bottom, 1.0});
    layer.set_layers(stack);
    for (Medium* m : layer.media) delete m;
    layer.media.clear();
    for (std::size_t i = 0; i < pieces.size(); ++i)
        if (kept[i]) layer.media.push_back(new Medium(eps_of(pieces[i].first), *pieces[i].second));
}

}  // namespace RW2D
