#include "patterns/derived.h"

#include <omp.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <numeric>
#include <random>
#include <sstream>

#include "patterns/parameters.h"
#include "patterns/writer.h"
#include "runtime/failure.h"
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
    return populate(output_path, ctf, params, config, countingSolver(tally));
}

int Random::populate_with_structure_input(const std::string& output_path, const MCTF::MiniCTF& ctf,
                                          const json& params, const ExtractionConfig& config) {
    return populate_with_structure_input(output_path, ctf, params, config, countingSolver(tally));
}

PatternResult Random::solve_pattern_full_matrix(Pattern& pattern, const MCTF::MiniCTF& ctf,
                                                const ExtractionConfig& config) {
    return solveFullMatrix(window, pattern, ctf, config, fieldSolver(), plate_row);
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
        if (r.size() < 2) throw FatalError("Error: the field solver gave no result");
        double ratio = std::fabs(r[1] / r[0]);
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

// Reads fixed_layers[k]; the entries are checked whole numbers within the usable layers.
int fixedLayer(const json& fixed, size_t k) {
    return fixed.at(k).get<int>();
}

// A sample whose matrix keeps failing the row test would be redrawn for ever.
constexpr int kMaxRedraws = 100;
// A sample whose wires keep colliding would be placed again for ever.
constexpr int kMaxPlacementRestarts = 1000;

std::string layerNames(const Layers& layers) {
    std::string names;
    for (const auto* l : layers) names += (names.empty() ? "" : " ") + l->name;
    return names;
}

// Stops the run when a usable layer cannot carry wires: a width of 0 would make every width
// factor infinite.
void checkLayerRules(const Layers& layers) {
    for (const auto* l : layers) {
        if (!(l->wmin > 0) || !std::isfinite(l->wmin) || !(l->smin >= 0) ||
            !std::isfinite(l->smin)) {
            std::ostringstream os;
            os << "Error: layer " << l->name << " has wmin " << l->wmin << " and smin " << l->smin
               << "; random wires need wmin above 0 and smin of 0 or more";
            throw FatalError(os.str());
        }
    }
}

// Returns the usable layer called `name`, or null.
const MCTF::ConductorLayer* findLayer(const Layers& layers, const json& name) {
    for (const auto* l : layers)
        if (name == l->name) return l;
    return nullptr;
}

}  // namespace

int Random::populate(const std::string& output_path, const MCTF::MiniCTF& ctf, const json& params,
                     const ExtractionConfig& config, const FieldSolver& solve) {
    const json* structure = params.is_object() && params.contains("structure_input")
                                ? &params["structure_input"]
                                : nullptr;
    if (structure != nullptr && structure->is_string() && !structure->get<std::string>().empty())
        return populate_with_structure_input(output_path, ctf, params, config, solve);
    checkRandomParameters(params);
    plate_row = params.value("solve_plate_row", false) ? PlateRow::Solved : PlateRow::Derived;

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

    // What the stack must offer, checked before anything is solved.
    if (layers.empty() && nsamples > 0)
        throw FatalError("Error: the technology has no usable conductor layer to place wires on");
    checkLayerRules(layers);
    for (const json& entry : fixed_layers) {
        if (entry.get<double>() >= static_cast<double>(layers.size())) {
            throw FatalError("Error: parameter \"fixed_layers\" = " + shortJson(fixed_layers) +
                             " in \"Random\": entry " + entry.dump() +
                             " is not a usable layer index (0 to " +
                             std::to_string(static_cast<int>(layers.size()) - 1) + ": " +
                             layerNames(layers) + ")");
        }
    }
    const std::string wanted = params.value("window_layer", std::string());
    if (!wanted.empty() && findLayer(layers, wanted) == nullptr) {
        throw FatalError("Error: parameter \"window_layer\" = " + json(wanted).dump() +
                         " in \"Random\": must be a usable layer (" + layerNames(layers) + ")");
    }
    SampleOutput out(output_path);
    const ShardRange range = shardRange(nsamples, long_run.shard_index, long_run.shard_count);
    SampleJournal journal(output_path, runHeader(params, config, long_run, nsamples), range,
                          long_run.resume);

    double Wc = params.value("conductor_window", -1.0);
    if (Wc < 0) {
        const MCTF::ConductorLayer* probe = findLayer(layers, wanted);
        if (probe == nullptr && !layers.empty()) probe = layers[(layers.size() - 1) / 2];
        if (probe != nullptr) Wc = automaticConductorWindow(probe, B, ctf, config, solve);
    }
    if (B < 0) {
        B = 2 * Wc;
        window = B;
    }
    Wc = std::min(B, Wc);
    std::cout << "[INFO] conductor window=" << Wc << ", boundary window=" << B << std::endl;
    effective_parameters = {{"structure_input", ""},
                            {"nsamples", nsamples},
                            {"nlayers", nlayers},
                            {"poisson_lambda", lambda},
                            {"exponent_base", exponent_base},
                            {"fixed_layers", fixed_layers},
                            {"window", B},
                            {"conductor_window", Wc},
                            {"window_layer", wanted}};
    usable_layers = layers;

    std::atomic<int> nlayers_cell{std::min(static_cast<int>(layers.size()), nlayers)};
    if (fixed_layers.empty()) {
        std::cout << "Using " << nlayers_cell << " layers out of " << layers.size() << std::endl;
    } else {
        nlayers_cell = static_cast<int>(fixed_layers.size());
        std::cout << "Using fixed layers: ";
        for (const json& entry : fixed_layers) std::cout << layers[entry.get<int>()]->name << " ";
        int central = fixedLayer(fixed_layers, nlayers_cell / 2);
        std::cout << "(" << nlayers_cell << " layers, central conductor placed at "
                  << layers.at(central)->name << " )" << std::endl;
    }
    if (nsamples == 0) {
        journal.finish(out);
        return 0;
    }

    // The first wire of a sample sits at the centre with room 0.4995 Wc on either side; a layer
    // too wide for that could never be placed, and a sample drawing only such layers would never
    // end.
    double widest = 0.0, narrowest = layers.front()->wmin;
    if (fixed_layers.empty()) {
        for (const auto* l : layers) widest = std::max(widest, l->wmin);
    } else {
        for (const json& entry : fixed_layers)
            widest = std::max(widest, layers[entry.get<int>()]->wmin);
    }
    for (const auto* l : layers) narrowest = std::min(narrowest, l->wmin);
    if (!(widest / 2 < 0.4995 * Wc)) {
        std::ostringstream os;
        os << "Error: the conductor window " << Wc << " (boundary window " << B
           << ") is too narrow: it must be wider than " << widest / 0.999
           << ", the widest minimum wire width of the layers in use (" << widest << ") over 0.999";
        throw FatalError(os.str());
    }

    const int nthreads = std::max(1, config.nthreads);
    std::vector<std::mt19937> engines(nthreads);
    const std::vector<int64_t> pending = journal.pending();
    ProgressBar bar(range.size(), 50, 1, journal.resumedCount());
    omp_set_num_threads(nthreads);

    const double right = -(-0.5 * Wc) * 0.999;
    const double left = (-0.5 * Wc) * 0.999;
    const auto widest_factor = static_cast<uint32_t>(std::min(B / narrowest, 4294967295.0));
    // A wire's width factor never exceeds Wc / wmin, so weights past that are never drawn.
    const auto reachable =
        static_cast<uint32_t>(std::min<double>(widest_factor, Wc / narrowest + 1));
    std::vector<double> weights(reachable);
    for (uint32_t i = 0; i < reachable; ++i) weights[i] = std::pow(exponent_base, i);
    std::cout << "Exponent weight " << exponent_base << " for max factor " << widest_factor
              << std::endl;

    // The first draws of sample i: its engine seeded, the number of layers it draws from, their
    // order in `copy`, and its wire count.
    const auto drawHead = [&](int i, std::mt19937& engine, Layers& copy) {
        // Unsigned, so that a seed near the top of the range wraps instead of overflowing.
        engine.seed(static_cast<std::mt19937::result_type>(static_cast<uint32_t>(i) +
                                                           static_cast<uint32_t>(config.seed)));
        // Fresh laws for every sample: a law may keep state between calls, which would tie a
        // sample to the one drawn before it on the same worker.
        std::poisson_distribution<int> poisson(lambda);
        std::uniform_int_distribution<int> layer_count(3, 5);
        copy = layers;
        int drawn = layer_count(engine);
        // A stack (or a fixed list) with fewer layers than drawn uses all of them.
        drawn = std::min(
            drawn, static_cast<int>(fixed_layers.empty() ? copy.size() : fixed_layers.size()));
        if (fixed_layers.empty() && drawn < static_cast<int>(copy.size()))
            std::shuffle(copy.begin(), copy.end(), engine);
        return std::pair<int, int>{drawn, poisson(engine) + 1};
    };
    // Costly samples first: a sample costs about one solve per wire, and samples left to the end
    // of a run would keep one thread busy while the others idle. Each sample draws from its own
    // engine, so the order changes no result.
    std::vector<size_t> order(pending.size());
    {
        std::vector<int> wires(pending.size());
        std::mt19937 scratch;
        Layers copy;
        for (size_t t = 0; t < pending.size(); ++t)
            wires[t] = drawHead(static_cast<int>(pending[t]), scratch, copy).second;
        std::iota(order.begin(), order.end(), size_t{0});
        std::stable_sort(order.begin(), order.end(),
                         [&wires](size_t a, size_t b) { return wires[a] > wires[b]; });
    }

    FailureRelay relay;
#pragma omp parallel for schedule(dynamic, 1)
    for (size_t t = 0; t < pending.size(); ++t) {
        if (relay.failed()) continue;
        relay.run([&] {
            const int i = static_cast<int>(pending[order[t]]);
            std::mt19937& engine = engines[omp_get_thread_num()];
            Layers copy;
            const auto [drawn, n] = drawHead(i, engine, copy);
            nlayers_cell.store(drawn, std::memory_order_relaxed);
            std::normal_distribution<double> position(0.0, Wc / 6);
            PatternResult result;

            for (int redraw = 0;; ++redraw) {
                if (redraw == kMaxRedraws) {
                    throw FatalError("Error: sample " + std::to_string(i) + " failed the row-sum " +
                                     "test " + std::to_string(kMaxRedraws) +
                                     " times in a row; the precision cannot be met");
                }
                Pattern pattern;
                int trials = 0, restarts = 0;
                const MCTF::ConductorLayer* layer = nullptr;
                while (static_cast<int>(pattern.conductors.size()) < n) {
                    int k = std::uniform_int_distribution<int>(0, drawn - 1)(engine);
                    if (!fixed_layers.empty()) {
                        // The sample's own count, not the shared cell that another sample may
                        // have set meanwhile.
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
                        x = static_cast<double>(static_cast<int64_t>(std::round(x / pitch))) *
                            pitch;
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
                                  << layer->name << ", nconductors = " << n
                                  << ", trials = " << trials << std::endl;
                        if (++restarts == kMaxPlacementRestarts) {
                            throw FatalError("Error: sample " + std::to_string(i) +
                                             ": no room for " + std::to_string(n) +
                                             " wires in the conductor window; lower "
                                             "\"poisson_lambda\" or widen \"conductor_window\"");
                        }
                        pattern = Pattern{};
                        trials = 0;
                    }
                }
                pattern.addConductor(-B / 2, B / 2, ctf.substrate_ref);
                // A sample whose matrix fails the constraint is drawn again with the same count.
                if (solveConstrained(window, pattern, ctf, config, solve, result, plate_row)) break;
            }
            journal.append(i, sampleLine(result, i));
#pragma omp critical
            bar.tick(name);
        });
    }
    relay.rethrow();
    journal.finish(out);
    return static_cast<int>(range.size());
}

namespace {

// The plate's layer in a sample file read back: every sample gets its plate anyway, so such an
// entry is skipped.
const char* const kPlateLayer = "substrate";

// Checks one structure line against the usable layers and the window; throws FatalError naming
// the file, the line and the conductor.
void checkStructure(const json& sample, const std::string& where, const Layers& layers, double B) {
    const auto reject = [&](const std::string& what) {
        throw FatalError("Error: structure file " + where + ": " + what);
    };
    if (!sample.is_object())
        reject("must be a JSON object, not a value of type " + std::string(sample.type_name()));
    static const json kNull;
    const json& conductors = sample.contains("conductors") ? sample["conductors"] : kNull;
    const json& names = sample.contains("layers") ? sample["layers"] : kNull;
    if (!conductors.is_array() || conductors.empty())
        reject("\"conductors\" must be a non-empty array of [cx, cy, w, h]");
    if (!names.is_array() || names.size() != conductors.size())
        reject("\"layers\" must be an array with one layer name per conductor");
    for (size_t j = 0; j < conductors.size(); ++j) {
        const json& c = conductors[j];
        const std::string which = "conductor " + std::to_string(j) + " " + shortJson(c);
        bool numbers = c.is_array() && c.size() == 4;
        for (size_t k = 0; numbers && k < 4; ++k)
            numbers = c[k].is_number() && std::isfinite(c[k].get<double>());
        if (!numbers) reject(which + ": must be [cx, cy, w, h], four finite numbers");
        const double cx = c[0].get<double>(), w = c[2].get<double>();
        if (!(w > 0)) reject(which + ": the width must be above 0");
        if (cx - w / 2 < -B / 2 || cx + w / 2 > B / 2) {
            std::ostringstream os;
            os << which << ": lies outside the window from " << -B / 2 << " to " << B / 2;
            reject(os.str());
        }
        if (findLayer(layers, names[j]) == nullptr && names[j] != kPlateLayer) {
            reject(which + ": layer " + shortJson(names[j]) + " is not a usable layer (" +
                   layerNames(layers) + ")");
        }
    }
}

}  // namespace

int Random::populate_with_structure_input(const std::string& output_path, const MCTF::MiniCTF& ctf,
                                          const json& params, const ExtractionConfig& config,
                                          const FieldSolver& solve) {
    checkRandomParameters(params);
    plate_row = params.value("solve_plate_row", false) ? PlateRow::Solved : PlateRow::Derived;
    const std::string path = params.value("structure_input", std::string());
    std::vector<int> line_numbers;
    std::vector<json> structures = parse_jsonl(path, &line_numbers);
    std::cout << "Generating " << structures.size() << " samples from structure input file "
              << json(path).dump() << std::endl;
    const Layers layers = get_nonoverlap_metal_layers(ctf);
    window = params.value("window", window);
    const double B = window;
    if (!(B > 0)) {
        throw FatalError("Error: parameter \"window\" = " + json(B).dump() +
                         " in \"Random\": must be above 0 with a structure file");
    }
    if (structures.empty()) throw FatalError("Error: structure file " + path + " holds no lines");
    effective_parameters = {{"structure_input", path}, {"window", B}};
    usable_layers = layers;
    for (size_t i = 0; i < structures.size(); ++i) {
        checkStructure(structures[i], path + ", line " + std::to_string(line_numbers[i]), layers,
                       B);
    }
    SampleOutput out(output_path);
    const auto count = static_cast<int64_t>(structures.size());
    const ShardRange range = shardRange(count, long_run.shard_index, long_run.shard_count);
    SampleJournal journal(output_path, runHeader(params, config, long_run, count, path), range,
                          long_run.resume);
    const std::vector<int64_t> pending = journal.pending();

    ProgressBar bar(range.size(), 50, 1, journal.resumedCount());
    omp_set_num_threads(std::max(1, config.nthreads));
    FailureRelay relay;
#pragma omp parallel for schedule(dynamic, 1)
    for (size_t t = 0; t < pending.size(); ++t) {
        if (relay.failed()) continue;
        relay.run([&] {
            const auto i = static_cast<size_t>(pending[t]);
            const json& sample = structures[i];
            const json& conductors = sample["conductors"];
            const json& names = sample["layers"];
            Pattern pattern;
            for (size_t j = 0; j < conductors.size(); ++j) {
                const json& c = conductors[j];
                const double cx = c[0].get<double>(), w = c[2].get<double>();
                const MCTF::ConductorLayer* layer = findLayer(layers, names[j]);
                if (layer == nullptr) continue;  // the plate of a sample file read back
                const double x0 = cx - w / 2, x1 = cx + w / 2;
                if (!passesDesignRules(pattern, x0, layer->z_bottom, x1, layer->z_top,
                                       layer->smin)) {
#pragma omp critical(structure_report)
                    std::cout << "[WARN]: design rule violation for conductor " << j
                              << " in sample " << i << std::endl;
                    continue;
                }
                pattern.addConductor(x0, x1, layer);
            }
            pattern.addConductor(-B / 2, B / 2, ctf.substrate_ref);
            PatternResult result = solveFullMatrix(window, pattern, ctf, config, solve, plate_row);
            journal.append(pending[t], sampleLine(result, pending[t]));
#pragma omp critical
            bar.tick(name);
        });
    }
    relay.rethrow();
    journal.finish(out);
    return static_cast<int>(range.size());
}

std::vector<json> parse_jsonl(const std::string& path, std::vector<int>* line_numbers) {
    std::vector<json> out;
    std::ifstream in(path);
    struct stat st {};
    // A folder reads as empty and a device such as /dev/zero as one endless line.
    if (!in || (stat(path.c_str(), &st) == 0 &&
                (S_ISDIR(st.st_mode) || S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode))))
        throw FatalError("Error: Unable to open file " + path);
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        // Blank lines carry no structure and take no id.
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        json value;
        try {
            value = json::parse(line);
        } catch (const json::exception& e) {
            throw FatalError(std::string("Error parsing JSON line: ") + e.what() + " (" + path +
                             ", line " + std::to_string(number) + ")");
        }
        if (!nestingWithin(value, kMaxNesting)) {
            throw FatalError("Error: structure file " + path + ", line " + std::to_string(number) +
                             ": values nested too deeply");
        }
        out.push_back(std::move(value));
        if (line_numbers != nullptr) line_numbers->push_back(number);
    }
    if (in.bad()) throw FatalError("Error: Unable to read file " + path);
    return out;
}

}  // namespace KARVEN

namespace KARVEN {
static Register<Random> registerRandom("Random");
}  // namespace KARVEN
