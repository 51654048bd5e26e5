// karven-gds: draws the cross-sections of a sample file as a GDSII layout for a layout viewer.
// Each selected sample is one structure "sample_<id>", and a top structure "samples" places
// them in a row. A wire's layer is its metal layer: with a CTF file, the layer's position in the
// stack counted from 1; without one, its height band counted upward from 1. The substrate plate
// is layer 0. Every conductor carries a label with its index and its total capacitance.
// Coordinates are in nanometres.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

#include "geometry/gds_writer.h"
#include "technology/minictf.h"

using json = nlohmann::json;

namespace {

struct Conductor {
    double x0, y0, x1, y1;
};

struct Sample {
    long long id = 0;
    std::vector<Conductor> conductors;  // the last one is the substrate plate
    std::vector<double> capacitances;   // row by row
};

// A bad input file: the message says where and what.
struct InputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

Sample parseSample(const std::string& line, const std::string& where) {
    json value;
    try {
        value = json::parse(line);
    } catch (const json::parse_error& e) {
        throw InputError(where + ": not valid JSON (" + e.what() + ")");
    }
    auto fail = [&](const std::string& what) { throw InputError(where + ": " + what); };
    if (!value.is_object()) fail("not a JSON object");
    for (const char* key : {"capacitances", "conductors", "id", "size"})
        if (!value.contains(key)) fail(std::string("no key \"") + key + "\"");
    Sample sample;
    if (!value["id"].is_number_integer()) fail("\"id\" is not an integer");
    sample.id = value["id"].get<long long>();
    const json& conductors = value["conductors"];
    if (!conductors.is_array() || conductors.empty()) fail("\"conductors\" is not a list");
    for (const json& c : conductors) {
        if (!c.is_array() || c.size() != 4 ||
            !std::all_of(c.begin(), c.end(), [](const json& v) { return v.is_number(); }))
            fail("a conductor is not [cx, cy, w, h]");
        const double cx = c[0], cy = c[1], w = c[2], h = c[3];
        if (!(w > 0 && h > 0)) fail("a conductor has no area");
        sample.conductors.push_back({cx - w / 2, cy - h / 2, cx + w / 2, cy + h / 2});
    }
    const size_t n = sample.conductors.size();
    if (!value["size"].is_number_unsigned() || value["size"].get<size_t>() != n)
        fail("\"size\" is not the number of conductors");
    const json& caps = value["capacitances"];
    if (!caps.is_array() || caps.size() != n * n)
        fail("\"capacitances\" does not hold " + std::to_string(n * n) + " numbers");
    for (const json& v : caps) {
        if (!v.is_number()) fail("\"capacitances\" holds a value that is not a number");
        sample.capacitances.push_back(v.get<double>());
    }
    return sample;
}

std::vector<Sample> readSamples(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw InputError("Unable to open file " + path);
    std::vector<Sample> samples;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        samples.push_back(parseSample(line, path + ":" + std::to_string(number)));
    }
    if (samples.empty()) throw InputError(path + ": no samples");
    return samples;
}

long long nanometres(double micrometres) {
    return std::llround(micrometres * 1000.0);
}

// A coordinate of the file: 32 bits of nanometres, about two metres either way.
int coordinate(long long nm) {
    if (nm < INT32_MIN || nm > INT32_MAX)
        throw InputError("coordinate " + std::to_string(nm / 1000.0) + " um is out of range");
    return static_cast<int>(nm);
}

// A height band on the 1 nm grid: bottom and top of a wire.
using Band = std::pair<long long, long long>;
Band bandOf(const Conductor& c) {
    return {nanometres(c.y0), nanometres(c.y1)};
}

std::string label(size_t index, double total) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%zu C=%.6g", index, total);
    return buffer;
}

void writeSample(GdsWriter& gds, const Sample& s, const std::map<Band, int>& layers) {
    const size_t n = s.conductors.size();
    for (size_t i = 0; i < n; ++i) {
        const Conductor& c = s.conductors[i];
        const int layer = i + 1 == n ? 0 : layers.at(bandOf(c));
        const long long x0 = nanometres(c.x0), y0 = nanometres(c.y0);
        const long long x1 = nanometres(c.x1), y1 = nanometres(c.y1);
        const Point2D p0{coordinate(x0), coordinate(y0)}, p1{coordinate(x1), coordinate(y1)};
        gds.writeBoundary(layer, {p0, {p1.first, p0.second}, p1, {p0.first, p1.second}, p0}, 0);
        gds.writeText(layer, 0, {coordinate((x0 + x1) / 2), coordinate((y0 + y1) / 2)},
                      label(i, s.capacitances[i * n + i]));
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string samples_path;
    std::string output_path;
    std::string ctf_path;
    std::vector<long long> ids;
    CLI::App app{"karven-gds: draws the samples of a sample file as a GDSII layout"};
    app.add_option("SAMPLES", samples_path, "Sample file, one JSON object per line")->required();
    app.add_option("--ids", ids, "Ids of the samples to draw (default: all)");
    app.add_option("-o,--output", output_path, "Output GDS file")->required();
    app.add_option("--ctf", ctf_path, "CTF file of the samples: layers numbered as in its stack");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e, std::cout, std::cerr);
    }

    try {
        const std::vector<Sample> all = readSamples(samples_path);
        // Layers come from the whole file, so that a wire keeps its layer whatever is selected.
        std::set<Band> bands;
        for (const Sample& s : all)
            for (size_t i = 0; i + 1 < s.conductors.size(); ++i)
                bands.insert(bandOf(s.conductors[i]));
        std::map<Band, int> layers;
        std::map<int, std::string> names;
        if (ctf_path.empty()) {
            for (const Band& b : bands) layers.emplace(b, static_cast<int>(layers.size()) + 1);
        } else {
            if (!std::ifstream(ctf_path)) throw InputError("Unable to open file " + ctf_path);
            MCTF::MiniCTF ctf;
            ctf.parseCtf(ctf_path);
            for (const MCTF::ConductorLayer* c : ctf.conductors) {
                const Band band{nanometres(c->z_bottom), nanometres(c->z_top)};
                if (bands.count(band) && !layers.count(band)) layers.emplace(band, c->id + 1);
                names[c->id + 1] = c->name;
            }
            for (const Band& b : bands)
                if (!layers.count(b))
                    throw InputError("a wire from " + std::to_string(b.first / 1000.0) + " to " +
                                     std::to_string(b.second / 1000.0) +
                                     " um lies on no conductor layer of " + ctf_path);
        }

        std::vector<const Sample*> selected;
        if (ids.empty()) {
            for (const Sample& s : all) selected.push_back(&s);
        }
        for (long long id : ids) {
            auto it =
                std::find_if(all.begin(), all.end(), [&](const Sample& s) { return s.id == id; });
            if (it == all.end())
                throw InputError("no sample with id " + std::to_string(id) + " in " + samples_path);
            selected.push_back(&*it);
        }

        GdsWriter gds;
        gds.openFile(output_path);
        if (!gds) throw InputError("Unable to open file " + output_path + " for writing");
        // One database unit is a nanometre; the user unit is the micrometre of the samples.
        std::vector<std::pair<std::string, int>> placed;
        long long next_x = 0;
        for (const Sample* s : selected) {
            const std::string name = "sample_" + std::to_string(s->id);
            if (placed.empty())
                gds.writeGdsHead(name, 0.001, 1e-9);
            else
                gds.writeNextStructure(name);
            writeSample(gds, *s, layers);
            long long left = 0, right = 0;
            for (const Conductor& c : s->conductors) {
                left = std::min(left, nanometres(c.x0));
                right = std::max(right, nanometres(c.x1));
            }
            // Side by side, a tenth of a sample's width apart.
            const long long width = right - left;
            placed.emplace_back(name, coordinate(next_x - left));
            next_x += width + width / 10;
        }
        gds.writeNextStructure("samples");
        for (const auto& [name, x] : placed) gds.writeReference(name, {x, 0});
        gds.writeGdsTail();
        if (!gds) throw InputError("Unable to write " + output_path);

        std::cout << "karven-gds: wrote " << selected.size() << " samples to " << output_path
                  << "\n  layer 0: substrate plate\n";
        for (const auto& [band, layer] : layers)
            std::cout << "  layer " << layer << (names.count(layer) ? " " + names[layer] : "")
                      << ": wires from " << band.first / 1000.0 << " to " << band.second / 1000.0
                      << " um\n";
    } catch (const std::exception& e) {
        std::cerr << "Error: " << e.what() << std::endl;
        return 1;
    }
    return 0;
}
