#include "solver/mc_manager.h"

#include <dirent.h>
#include <omp.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "runtime/failure.h"
#include "solver/file_utils.h"
#include "solver/parser.h"
#include "solver/walk_manager.h"

namespace RW2D {

namespace {

// Reports are rendered into a buffer of this size, as a C string.
constexpr std::size_t REPORT_BUFFER = 1048576;

// Appends printf-formatted text to out, never letting it grow past the report buffer.
void appendf(std::string& out, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void appendf(std::string& out, const char* fmt, ...) {
    char line[1024];
    va_list ap;
    va_start(ap, fmt);
    const int n = std::vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    if (n <= 0) return;
    const std::size_t len = std::min<std::size_t>(static_cast<std::size_t>(n), sizeof line - 1);
    const std::size_t room = REPORT_BUFFER - 1 - std::min(out.size(), REPORT_BUFFER - 1);
    out.append(line, std::min(len, room));
}

std::string fixed(double v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%f", v);
    return buf;
}

double lookup(const std::unordered_map<const WireNet*, double>& m, const WireNet* net) {
    const auto it = m.find(net);
    return it == m.end() ? 0.0 : it->second;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Recorder

Recorder::Recorder(const Config::MCArgs& args, NetManager* nets)
    : stratified(args.stratified), combine(args.combine) {
    if (stratified && combine) Debugger::raise_error("ss and combine");
    symmetric = nets->symmetric;
    const std::size_t strata = stratified ? 2 : 1;
    walks.assign(strata, 0);
    hops.assign(strata, 0);
    sum.assign(strata, {});
    sum_sq.assign(strata, {});
    for (std::size_t s = 0; s < strata; ++s) {
        for (const WireNet* n : nets->nets) {
            sum[s][n] = 0.0;
            sum_sq[s][n] = 0.0;
        }
    }

    // Only the sides of the Gaussian rectangle that lie in the window are sampled.
    const Rectangle& g = *nets->master->gauss;
    const Rectangle& w = *nets->window;
    const double dx = std::min(w.right, g.right) - std::max(w.left, g.left);
    const double dy = std::min(w.top, g.top) - std::max(w.bottom, g.bottom);
    if (!(dx > 0) || !(dy > 0)) {
        scale = 0.0;
        return;
    }
    scale = 0.0;
    if (w.bottom <= g.bottom && g.bottom <= w.top) scale += dx;
    if (w.bottom <= g.top && g.top <= w.top) scale += dx;
    if (w.left <= g.left && g.left <= w.right) scale += dy;
    if (w.left <= g.right && g.right <= w.right) scale += dy;
}

void Recorder::merge(const Recorder* other) {
    for (std::size_t s = 0; s < walks.size() && s < other->walks.size(); ++s) {
        walks[s] += other->walks[s];
        hops[s] += other->hops[s];
        for (const auto& [net, v] : other->sum[s]) sum[s][net] += v;
        for (const auto& [net, v] : other->sum_sq[s]) sum_sq[s][net] += v;
    }
}

double Recorder::mean(std::size_t s, const WireNet* net) const {
    return lookup(sum[s], net) / static_cast<double>(walks[s]);
}

double Recorder::mean_sq(std::size_t s, const WireNet* net) const {
    return lookup(sum_sq[s], net) / static_cast<double>(walks[s]);
}

double Recorder::expectation(const WireNet* net) const {
    const WireNet* p = symmetric ? net->partner : nullptr;
    double e;
    if (stratified) {
        e = (mean(0, net) + mean(1, net)) * 0.5;
        if (p) e = (e + (mean(0, p) + mean(1, p)) * 0.5) * 0.5;
    } else if (p) {
        e = (lookup(sum[0], net) + lookup(sum[0], p)) / (2.0 * static_cast<double>(walks[0]));
    } else {
        e = mean(0, net);
    }
    return e * scale;
}

double Recorder::estimated_sigma(const WireNet* net) const {
    const WireNet* p = symmetric ? net->partner : nullptr;
    const double n0 = static_cast<double>(walks[0]);
    if (stratified) {
        const double n1 = static_cast<double>(walks[1]);
        const auto var = [&](const WireNet* x) {
            const double m0 = mean(0, x), m1 = mean(1, x);
            return (mean_sq(0, x) - m0 * m0) / n0 + (mean_sq(1, x) - m1 * m1) / n1;
        };
        double v = var(net), m = mean(0, net) + mean(1, net);
        if (p) {
            v += var(p);
            m += mean(0, p) + mean(1, p);
        }
        return std::sqrt(v) / m;
    }
    if (combine) {
        const auto var = [&](const WireNet* x) {
            const double m0 = mean(0, x);
            return 2.0 * (0.5 * mean_sq(0, x) - m0 * m0) / n0;
        };
        double v = var(net), m = mean(0, net);
        if (p) {
            v += var(p);
            m += mean(0, p);
        }
        return std::sqrt(v) / m;
    }
    const auto var = [&](const WireNet* x) {
        const double m0 = mean(0, x);
        return (mean_sq(0, x) - m0 * m0) / n0;
    };
    double v = var(net), m = mean(0, net);
    if (p) {
        v += var(p);
        m += mean(0, p);
    }
    const double r = std::sqrt(v) / m;
    return std::isnan(r) ? 1.0 : r;
}

double Recorder::variance_of_mean(const WireNet* net) const {
    const double n0 = static_cast<double>(walks[0]);
    const double m0 = mean(0, net);
    if (stratified) {
        const double n1 = static_cast<double>(walks[1]);
        const double m1 = mean(1, net);
        return ((mean_sq(0, net) - m0 * m0) / n0 + (mean_sq(1, net) - m1 * m1) / n1) * 0.25;
    }
    if (combine) return 2.0 * (0.5 * mean_sq(0, net) - m0 * m0) / n0;
    return (mean_sq(0, net) - m0 * m0) / n0;
}

std::uint64_t Recorder::total_walks() const {
    if (stratified) return walks[0] + walks[1];
    return combine ? walks[0] / 2 : walks[0];
}

double Recorder::hops_per_walk() const {
    if (stratified)
        return static_cast<double>(hops[0] + hops[1]) / static_cast<double>(walks[0] + walks[1]);
    const double h = static_cast<double>(hops[0]) / static_cast<double>(walks[0]);
    return combine ? 2.0 * h : h;
}

// ---------------------------------------------------------------------------------------------
// Reporter

std::string MCManager::Reporter::to_string() const {
    std::string out;
    const std::vector<WireNet*>& all = nets->nets;
    if (report_named) {
        for (const WireNet* n : all) {
            const std::size_t at = out.size();
            appendf(out, "%s : %.8g\n", n->name.c_str(), -recorder->expectation(n) * EPS0_FF);
            std::fwrite(out.data() + at, 1, out.size() - at, stdout);
        }
        std::fflush(stdout);
    } else if (report_values) {
        appendf(out, "%.7e\n", -(recorder->expectation(nets->master) * EPS0_F));
    } else if (report_full) {
        const WireNet* m = nets->master;
        appendf(out, "master conductor: %s\n\n", m->name.c_str());
        for (const WireNet* n : all) {
            const double v = recorder->expectation(n) * EPS0_F;
            appendf(out, "Capacitance between %s and %s: %.7e F (+/- %.3lf%%)\n", m->name.c_str(),
                    n->name.c_str(), n == m ? -v : v, std::abs(recorder->estimated_sigma(n)) * 100);
        }
        appendf(out, "\n");
        appendf(out, "total walk number: %llu (%.3lf hop per walk); total time cost: %.3lf s\n",
                static_cast<unsigned long long>(recorder->total_walks()), recorder->hops_per_walk(),
                recorder->seconds);
    } else {
        for (const WireNet* n : all) appendf(out, "          %s", n->name.c_str());
        appendf(out, "\nnet0: ");
        for (const WireNet* n : all) {
            const double v = recorder->expectation(n) * EPS0_F * 1e15;
            appendf(out, "%.6gfF ", n == nets->master ? -v : v);
        }
        appendf(out, "\n");
    }
    return out;
}

// ---------------------------------------------------------------------------------------------
// Estimate

void MCManager::walk_worker(NetManager* nets, const Config& config,
                            std::vector<online_table_manager>& tables, Recorder* global,
                            std::uint32_t& seed_base) const {
    std::uint32_t seed;
#pragma omp critical
    {
        // Zero is a fixed point of the step: without the nudge every walker would draw the same
        // stream from base seed 0.
        seed_base = seed_base == 0 ? 1u : seed_base * 3u;
        seed = seed_base;
    }
    const auto walker = std::make_unique<WalkManager>(nets, config, tables[omp_get_thread_num()],
                                                      static_cast<int>(seed));
    const auto rec = std::make_unique<Recorder>(config.mc, nets);
    const WireNet* master = nets->master;
    for (;;) {
        for (std::uint32_t b = 0; b < batch; ++b) {
            walker->walk();
            rec->record(walker->weight, walker->hit_net, walker->hops);
        }
        std::uint64_t n = rec->walks[0] + (rec->stratified ? rec->walks[1] : 0);
        if (rec->combine) n /= 2;
        if (max_walks < n) break;
        // Deliberately weak: the first net other than the master to reach the target stops it.
        bool done = false;
        for (const WireNet* net : nets->nets) {
            if (net == master) continue;
            if (precision > std::abs(rec->estimated_sigma(net))) {
                done = true;
                break;
            }
        }
        if (done) break;
    }
#pragma omp critical
    { global->merge(rec.get()); }
    if (walker->dump_tables) walker->tables.dump(nets->media.layer.hash_value(), walker->data_dir);
}

std::vector<double> MCManager::estimate(
    const std::vector<Rectangle>& wires, const std::vector<std::array<double, 2>>& layers,
    const std::vector<std::pair<double, Rectangle>>& dielectrics, const Rectangle& window,
    const Config& config) {
    if (config.mc.precision <= 0)
        return ref_solve(wires, layers, dielectrics, window, config.mc.precision);

    threads = config.mc.threads;
    precision = config.mc.precision;
    const std::size_t N = wires.size();
    std::vector<double> result(2 * N, 0.0);

    std::vector<Rectangle> kept;
    std::vector<std::size_t> index;
    for (std::size_t i = 0; i < N; ++i) {
        const Rectangle& w = wires[i];
        if (w.right - GEO_EPS > w.left && w.top - GEO_EPS > w.bottom) {
            kept.push_back(w);
            index.push_back(i);
        }
    }
    if (kept.empty()) return result;

    const auto nets = std::make_unique<NetManager>(kept, layers, dielectrics, window, config.space,
                                                   config.approx);
    const auto global = std::make_unique<Recorder>(config.mc, nets.get());

    const double t0 = omp_get_wtime();
    omp_set_dynamic(0);
    omp_set_num_threads(static_cast<int>(threads));
    Debugger::log("using threads ", threads);
    {
        std::vector<online_table_manager> tables(threads);
        std::uint32_t seed_base = config.mc.seed;
        // Without a sampled side in the window no start point exists, and the result is zero
        // whatever the walks would do: skip them rather than search for a start for ever.
        if (global->scale > 0) {
            KARVEN::FailureRelay relay;
#pragma omp parallel
            relay.run([&] { walk_worker(nets.get(), config, tables, global.get(), seed_base); });
            relay.rethrow();
        }
        last_tables = {};
        for (const online_table_manager& t : tables) last_tables += t.counts;
    }
    const double elapsed = omp_get_wtime() - t0;
    Debugger::log("walk time cost: ", fixed(elapsed), " s");
    Debugger::log("total walk: ", global->total_walks());
    Debugger::log("avg hop: ", fixed(global->hops_per_walk()));

    global->seconds = elapsed;
    last_walks = global->total_walks();
    last_hops = 0;
    for (const std::uint64_t h : global->hops) last_hops += h;

    const double f = global->scale * EPS0_FF;
    for (std::size_t k = 0; k < nets->nets.size(); ++k) {
        const WireNet* net = nets->nets[k];
        const double value = global->scale > 0 ? -global->expectation(net) * EPS0_FF : 0.0;
        const double var = global->scale > 0 ? global->variance_of_mean(net) * f * f : 0.0;
        result[index[k]] = value;
        result[index[k] + N] = var;
    }
    return result;
}

std::vector<double> MCManager::ref_solve(
    const std::vector<Rectangle>& wires, const std::vector<std::array<double, 2>>& layers,
    const std::vector<std::pair<double, Rectangle>>& dielectrics, const Rectangle& window,
    double precision) {
    try {
        const std::string text = ref_text(wires, layers, dielectrics, window, precision);
        const std::string out = FileUtils::run_binary_with_string_io(
            FileUtils::ref_solver_binary() + " -n -N -x -y -z -t", text, "");
        return scan_ref_charges(out, wires.size());
    } catch (const std::exception& e) {
        std::cerr << "Error: " << e.what() << std::endl;
        return {};
    }
}

std::string MCManager::estimate(std::string path, std::vector<online_table_manager>& tables,
                                const Config& config) {
    threads = config.mc.threads;
    precision = config.mc.precision;
    const auto nets = std::make_unique<NetManager>(path, config.space, config.approx);
    const auto global = std::make_unique<Recorder>(config.mc, nets.get());
    const double t0 = omp_get_wtime();
    omp_set_dynamic(0);
    omp_set_num_threads(static_cast<int>(threads));
    Debugger::log("using threads ", threads);
    // A stand-alone run is reproducible whatever the config's seed.
    std::uint32_t seed_base = 10007;
    if (global->scale > 0) {
        KARVEN::FailureRelay relay;
#pragma omp parallel
        relay.run([&] { walk_worker(nets.get(), config, tables, global.get(), seed_base); });
        relay.rethrow();
    }
    const double elapsed = omp_get_wtime() - t0;
    Debugger::log("walk time cost: ", fixed(elapsed), " s");
    Debugger::log("total walk: ", global->total_walks());
    Debugger::log("avg hop: ", fixed(global->hops_per_walk()));
    global->seconds = elapsed;
    const Reporter reporter{config.output_path,  config.report_full, config.report_values,
                            config.report_named, global.get(),       nets.get()};
    return reporter.to_string();
}

void MCManager::estimate(const Config& config) {
    precision = config.mc.precision;
    combine = config.mc.combine;
    threads = config.mc.threads;
    std::vector<online_table_manager> tables(threads);
    std::ofstream out(config.output_path);
    if (!out) Debugger::raise_error("Failed to open output file: " + config.output_path);
    if (!config.input_is_directory) {
        out << estimate(config.input_path, tables, config) << "\n";
        return;
    }
    DIR* dir = opendir(config.input_path.c_str());
    if (dir == nullptr) throw std::runtime_error("Failed to open directory: " + config.input_path);
    std::vector<std::string> files;
    for (dirent* e = readdir(dir); e != nullptr; e = readdir(dir)) {
        const std::string name = e->d_name;
        if (name.empty() || name[0] == '.') continue;
        const std::string full = FileUtils::join_path(config.input_path, name);
        struct stat st;
        if (stat(full.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
        if (name.size() < 4 || name.compare(name.size() - 4, 4, ".txt") != 0) continue;
        files.push_back(full);
    }
    closedir(dir);
    std::sort(files.begin(), files.end());
    for (std::size_t k = 0; k < files.size(); ++k) {
        Debugger::log("FRW for ", files[k], "... (", k + 1, "/", files.size(), ")");
        const std::string text = estimate(files[k], tables, config);
        out << "$$" << files[k] << "\n" << text << "\n";
    }
}

}  // namespace RW2D
