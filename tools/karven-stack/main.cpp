// karven-stack: reads a CTF file into the reduced stack and prints it as JSON, so that scripts
// drawing samples see the same layer heights and dielectrics as the tool that made them.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "technology/minictf.h"

using json = nlohmann::json;

namespace {

json stackJson(const MCTF::MiniCTF& ctf) {
    json out = json::object();
    out["substrate"] = {{"name", ctf.substrate.name},
                        {"z_bottom", ctf.substrate.z_bottom},
                        {"z_top", ctf.substrate.z_top}};
    json conductors = json::array();
    for (const MCTF::ConductorLayer* c : ctf.conductors) {
        conductors.push_back({{"id", c->id},
                              {"name", c->name},
                              {"z_bottom", c->z_bottom},
                              {"z_top", c->z_top},
                              {"wmin", c->wmin},
                              {"smin", c->smin},
                              {"side_tan", c->side_tan}});
    }
    out["conductors"] = conductors;
    json dielectrics = json::array();
    for (const MCTF::DielectricLayer* d : ctf.dielectrics) {
        json bottoms = json::array();
        for (const MCTF::ConductorLayer* c : d->bottoms) bottoms.push_back(c->name);
        dielectrics.push_back({{"id", d->id},
                               {"name", d->name},
                               {"z_bottom", d->z_bottom},
                               {"z_top", d->z_top},
                               {"er", d->er},
                               {"side_thickness", d->side_thickness},
                               {"top_thickness", d->top_thickness},
                               {"bottoms", bottoms}});
    }
    out["dielectrics"] = dielectrics;
    json plates = json::array();
    for (const auto& [height, er] : ctf.plates) plates.push_back({height, er});
    out["plates"] = plates;
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    std::string ctf_path;
    std::string output_path;
    bool merge = false;
    CLI::App app{"karven-stack: the reduced stack of a CTF file as JSON"};
    app.add_option("-i,--input", ctf_path, "Input CTF file path")->required();
    app.add_option("-o,--output", output_path, "Output JSON file (default: standard output)");
    app.add_option("--merge-diel", merge,
                   "Merge the dielectrics across conductor heights (default: false)");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e, std::cout, std::cerr);
    }
    // The CTF reader logs its errors and goes on; an unreadable file must still fail here.
    if (!std::ifstream(ctf_path)) {
        std::cerr << "Error: Unable to open file " << ctf_path << std::endl;
        return 1;
    }
    MCTF::MiniCTF ctf;
    try {
        ctf.parseCtf(ctf_path);
        if (merge) ctf.mergePlate();
    } catch (const std::exception& e) {
        std::cerr << "Error: " << ctf_path << ": " << e.what() << std::endl;
        return 1;
    }
    if (ctf.conductors.empty() || ctf.dielectrics.empty()) {
        std::cerr << "Error: no conductor or dielectric layers read from " << ctf_path << std::endl;
        return 1;
    }
    const std::string text = stackJson(ctf).dump(2);
    if (output_path.empty()) {
        std::cout << text << std::endl;
        return 0;
    }
    std::ofstream out(output_path);
    out << text << std::endl;
    if (!out) {
        std::cerr << "Error: Unable to write " << output_path << std::endl;
        return 1;
    }
    return 0;
}
