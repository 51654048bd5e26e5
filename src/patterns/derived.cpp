#include "patterns/derived.h"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <random>

#include "runtime/progress_bar.h"

namespace KARVEN {

Random::Random() : GenericStructure("Random", static_cast<CombinationType>(4)) {}

ParameterSet Random::getParameterSet(const Layers&) {
    return {};
}

Pattern Random::actualStructure(const Layers&, const std::array<double, 4>&) {
    return {};
}

int Random::populate(const std::string& output_path, const MCTF::MiniCTF& ctf, const json& params,
                     const ExtractionConfig& config) {
    return populate(output_path, ctf, params, config, fieldSolver());
}

int Random::populate_with_structure_input(const std::string& output_path, const MCTF::MiniCTF& ctf,
                                          const json& params, const ExtractionConfig& config) {
    return populate_with_structure_input(output_path, ctf, params, config, fieldSolver());
}

PatternResult Random::solve_pattern_full_matrix(Pattern& pattern, const MCTF::MiniCTF& ctf,
                                                const ExtractionConfig& config) {
    return solveFullMatrix(window, pattern, ctf, config, fieldSolver());
}

namespace {

// True when a wire [x0, x1] over [bottom, top] keeps the spacing `s` to `c` or lies on another
// height range.
bool clearOf(const Rect& c, double x0, double bottom, double x1, double top, double s) {
    return c[1] + 0.001 > top || bottom + 0.001 > c[3] || c[0] + 0.001 > x1 + s ||
           (x0 - s) + 0.001 > c[2];
}

bool passesDesignRules(const Pattern& p, double x0, double bottom, double x1, double top,
                       double s) {
    for (const Rect& c : p.conductors)
        if (!clearOf(c, x0, bottom, x1, top, s)) return false;
    return true;
}

// The smallest distance between a wire and its neighbour at which the neighbour takes less than
// one percent of the wire's capacitance, found by solving growing spacings.
double automaticConductorWindow(const MCTF::ConductorLayer* layer, double boundary,
                                const MCTF::MiniCTF& ctf, const ExtractionConfig& config,
                                const FieldSolver& solve) {
    std::cout << "[INFO] Determining conductor window automatically (boundary: " << boundary
              << ")..." << std::endl;
    const double w = layer->wmin, s = layer->smin;
    int factor = 2;
    if (w > 0) {
        while (factor * w <= 0) factor += 2;
    }
    const Rect domain = solveWindow(1000.0, ctf);
    const std::vector<std::array<double, 2>> layers = solverLayers(ctf);
    for (;;) {
        double d = factor * w + s;
        double right = d + w / 2, left = d - w / 2;
        if (right >= 499.5) {
            factor -= 2;
            break;
        }
        Pattern p;
        p.addConductor(-w / 2, w / 2, layer);
        p.addConductor(left, right, layer);
        p.addConductor(-500, 500, ctf.substrate_ref);
        std::vector<ConformalRect> coats;
        if (!config.merge_diel) coats = p.flattenConformals();
        std::vector<double> r =
            solve(p.conductors, layers, coats, domain, config.precision, config.seed);
        double ratio = std::fabs(r.at(1) / r.at(0));
        std::cout << layer->name << " Factor " << factor << "(" << factor * w
                  << ") Ratio: " << ratio << std::endl;
        if (ratio < 0.01) break;
        factor += 2;
    }
    double wc = 2 * factor * w;
    if (!(wc > 0)) wc = 0;
    std::cout << "Max found distance: " << wc << std::endl;
    return wc;
}

// Reads fixed_layers[k] as the library would, null (and its type error) past the end.
int fixedLayer(const json& fixed, size_t k) {
    return k < fixed.size() ? fixed[k].get<int>() : json().get<int>();
}

}  // namespace

int Random::populate(const std::string& output_path, const MCTF::MiniCTF& ctf, const json& params,
                     const ExtractionConfig& config, const FieldSolver& solve) {
    if (!params.value("structure_input", std::string()).empty())
        return populate_with_structure_input(output_path, ctf, params, config, solve);

    const int nsamples = static_cast<int>(params.value("nsamples", 1000.0));
    const int nlayers = params.value("nlayers", 5);
    const double lambda = params.value("poisson_lambda", 4);
    const double exponent_base = params.value("exponent_base", 0.75);
    json fixed_layers = json::array();
    if (params.contains("fixed_layers")) fixed_layers = params["fixed_layers"];

    std::cout << "Generating " << nsamples << " random samples with Poisson(lambda = " << lambda
              << ") distribution." << std::endl;
    const Layers layers = get_nonoverlap_metal_layers(ctf);
    window = params.value("window", window);
    double B = window;

    double Wc = params.value("conductor_window", -1.0);
    if (Wc < 0) {
        const std::string wanted = params.value("window_layer", std::string());
        const MCTF::ConductorLayer* probe = nullptr;
        for (const auto* l : layers)
            if (l->name == wanted) probe = l;
        if (probe == nullptr && !layers.empty()) probe = layers[(layers.size() - 1) / 2];
        if (probe != nullptr) Wc = automaticConductorWindow(probe, B, ctf, config, solve);
    }
    if (B < 0) {
        B = 2 * Wc;
        window = B;
    }
    Wc = std::min(B, Wc);
    std::cout << "[INFO] conductor window=" << Wc << ", boundary window=" << B << std::endl;

    std::atomic<int> nlayers_cell{std::min(static_cast<int>(layers.size()), nlayers)};
    if (fixed_layers.empty()) {
        std::cout << "Using " << nlayers_cell << " layers out of " << layers.size() << std::endl;
    } else {
        nlayers_cell = static_cast<int>(fixed_layers.size());
        std::cout << "Using fixed layers: ";
        for (const json& entry : fixed_layers) {
            int id = entry.get<int>();
            if (id >= 0 && id < static_cast<int>(layers.size()))
                std::cout << layers[id]->name << " ";
            else
                std::cout << "[WARN]: invalid layer id " << id << std::endl;
        }
        int central = fixedLayer(fixed_layers, nlayers_cell / 2);
        std::cout << "(" << nlayers_cell << " layers, central conductor placed at "
                  << layers.at(central)->name << " )" << std::endl;
    }
    if (nsamples > 0 && (layers.empty() || !(Wc > 0))) {
        // No wire could ever be placed: the draw would never end.
        std::cerr << "Error: no room to place wires (conductor window " << Wc << ", "
                  << layers.size() << " usable layers)" << std::endl;
        return 0;
    }

    const ShardRange range = shardRange(nsamples, long_run.shard_index, long_run.shard_count);
    SampleJournal journal(output_path, runHeader(params, config, long_run, nsamples), range,
                          long_run.resume);
    const std::vector<int64_t> pending = journal.pending();

    const int nthreads = std::max(1, config.nthreads);
    std::vector<std::mt19937> engines(nthreads);
    ProgressBar bar(range.size(), 50, 1, journal.resumedCount());
    omp_set_num_threads(nthreads);

    const double right = -(-0.5 * Wc) * 0.999;
    const double left = (-0.5 * Wc) * 0.999;
    double min_wmin = layers.front()->wmin;
    for (const auto* l : layers) min_wmin = std::min(min_wmin, l->wmin);
    const auto widest_factor = static_cast<uint32_t>(B / min_wmin);
    std::vector<double> weights(widest_factor);
    for (uint32_t i = 0; i < widest_factor; ++i) weights[i] = std::pow(exponent_base, i);
    std::cout << "Exponent weight " << exponent_base << " for max factor " << widest_factor
              << std::endl;

#pragma omp parallel for schedule(dynamic, 1)
    for (size_t t = 0; t < pending.size(); ++t) {
        const int i = static_cast<int>(pending[t]);
        std::mt19937& engine = engines[omp_get_thread_num()];
        engine.seed(static_cast<std::mt19937::result_type>(i + config.seed));
        // Fresh laws for every sample: the normal law keeps a spare deviate between calls, which
        // would tie a sample to the one drawn before it on the same worker.
        std::poisson_distribution<int> poisson(lambda);
        std::uniform_int_distribution<int> layer_count(3, 5);
        std::normal_distribution<double> position(0.0, Wc / 6);
        Layers copy = layers;
        int drawn = layer_count(engine);
        // A stack with fewer usable layers than drawn uses all of them.
        if (fixed_layers.empty()) drawn = std::min(drawn, static_cast<int>(copy.size()));
        nlayers_cell.store(drawn, std::memory_order_relaxed);
        if (fixed_layers.empty() && drawn < static_cast<int>(copy.size()))
            std::shuffle(copy.begin(), copy.end(), engine);
        const int n = poisson(engine) + 1;
        PatternResult result;

        for (;;) {
            Pattern pattern;
            int trials = 0;
            const MCTF::ConductorLayer* layer = nullptr;
            while (static_cast<int>(pattern.conductors.size()) < n) {
                int k = std::uniform_int_distribution<int>(0, drawn - 1)(engine);
                if (!fixed_layers.empty()) {
                    // The sample's own count, not the shared cell another sample may have set.
                    k = pattern.conductors.empty() ? fixedLayer(fixed_layers, drawn / 2)
                                                   : fixedLayer(fixed_layers, k);
                }
                layer = copy.at(k);
                const double w = layer->wmin, s = layer->smin;
                double x = 0.0;
                if (!pattern.conductors.empty()) x = position(engine);
                const double m = std::min(right - x, x - left);
                const double hw = w / 2;
                if (hw >= m) continue;

                double h;
                if (engine() % 10 != 0) {
                    const double pitch = w + s;
                    x = static_cast<double>(static_cast<int64_t>(std::round(x / pitch))) * pitch;
                    const auto f = static_cast<int64_t>(m / hw);
                    h = hw;
                    if (f > 1) {
                        const size_t count = std::min<size_t>(f, weights.size());
                        std::discrete_distribution<int> width(weights.begin(),
                                                              weights.begin() + count);
                        h = hw * (width(engine) + 1);
                    }
                } else {
                    h = hw + (m - hw) * std::generate_canonical<double, 53>(engine);
                }
                const double x0 = x - h, x1 = x + h;
                if (passesDesignRules(pattern, x0, layer->z_bottom, x1, layer->z_top, s))
                    pattern.addConductor(x0, x1, layer);
                ++trials;
                if (trials > 10 * n) {
#pragma omp critical(random_laws_report)
                    std::cout << "[WARN]: too many trials for sample " << i << ", layer "
                              << layer->name << ", nconductors = " << n << ", trials = " << trials
                              << std::endl;
                    pattern = Pattern{};
                    trials = 0;
                }
            }
            pattern.addConductor(-B / 2, B / 2, ctf.substrate_ref);
            // A sample whose matrix fails the constraint is drawn again with the same count.
            if (solveConstrained(window, pattern, ctf, config, solve, result)) break;
        }
        journal.append(i, sampleLine(result, i));
#pragma omp critical
        bar.tick(name);
    }
    writeLinesAtomically(output_path, journal.linesInOrder());
    journal.complete();
    return nsamples;
}

int Random::populate_with_structure_input(const std::string& output_path, const MCTF::MiniCTF& ctf,
                                          const json& params, const ExtractionConfig& config,
                                          const FieldSolver& solve) {
    const std::string path = params.value("structure_input", std::string());
    std::vector<json> structures = parse_jsonl(path);
    std::cout << "Generating " << structures.size() << " samples from structure input file "
              << json(path).dump() << std::endl;
    const Layers layers = get_nonoverlap_metal_layers(ctf);
    window = params.value("window", window);
    const double B = window;

    const auto count = static_cast<int64_t>(structures.size());
    const ShardRange range = shardRange(count, long_run.shard_index, long_run.shard_count);
    SampleJournal journal(output_path, runHeader(params, config, long_run, count, path), range,
                          long_run.resume);
    const std::vector<int64_t> pending = journal.pending();
    ProgressBar bar(range.size(), 50, 1, journal.resumedCount());
    omp_set_num_threads(config.nthreads);
#pragma omp parallel for schedule(dynamic, 1)
    for (size_t t = 0; t < pending.size(); ++t) {
        const auto i = static_cast<size_t>(pending[t]);
        const json& sample = structures[i];
        const json conductors = sample.value("conductors", json());
        const json names = sample.value("layers", json());
        Pattern pattern;
        for (size_t j = 0; j < conductors.size(); ++j) {
            const json& c = conductors[j];
            const double cx = c[0].get<double>(), w = c[2].get<double>();
            (void)c[1].get<double>();
            (void)c[3].get<double>();
            const json layer_name = j < names.size() ? names[j] : json();
            const MCTF::ConductorLayer* layer = nullptr;
            for (const auto* l : layers)
                if (layer_name == l->name) layer = l;
            if (layer == nullptr) {
#pragma omp critical(structure_report)
                std::cout << "[WARN]: invalid layer name " << layer_name.dump() << " for conductor "
                          << j << " in sample " << i << std::endl;
                continue;
            }
            const double x0 = cx - w / 2, x1 = cx + w / 2;
            if (!passesDesignRules(pattern, x0, layer->z_bottom, x1, layer->z_top, layer->smin)) {
#pragma omp critical(structure_report)
                std::cout << "[WARN]: design rule violation for conductor " << j << " in sample "
                          << i << std::endl;
                continue;
            }
            pattern.addConductor(x0, x1, layer);
        }
        pattern.addConductor(-B / 2, B / 2, ctf.substrate_ref);
        PatternResult result = solveFullMatrix(window, pattern, ctf, config, solve);
        journal.append(pending[t], sampleLine(result, pending[t]));
#pragma omp critical
        bar.tick(name);
    }
    writeLinesAtomically(output_path, journal.linesInOrder());
    journal.complete();
    return static_cast<int>(structures.size());
}

std::vector<json> parse_jsonl(const std::string& path) {
    std::vector<json> out;
    std::ifstream in(path);
    if (!in) {
        std::cerr << "Error: Unable to open file " << path << std::endl;
        return out;
    }
    for (std::string line; std::getline(in, line);) {
        try {
            out.push_back(json::parse(line));
        } catch (const json::exception& e) {
            std::cerr << "Error parsing JSON line: " << e.what() << std::endl;
        }
    }
    return out;
}

}  // namespace KARVEN

namespace KARVEN {
static Register<Random> registerRandom("Random");
}  // namespace KARVEN
