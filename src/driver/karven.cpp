#include "driver/karven.h"

#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <iostream>

#include "patterns/derived.h"
#include "technology/minictf.h"

namespace KARVEN {

std::string outputFolder(const std::string& output_path) {
    // With no separator find_last_of gives npos, and substr(0, npos) keeps the whole path.
    return output_path.substr(0, output_path.find_last_of("/\\"));
}

namespace {

bool isDirectory(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

bool makeFolders(const std::string& folder) {
    for (size_t pos = folder.find('/'); pos != std::string::npos; pos = folder.find('/', pos + 1)) {
        std::string prefix = folder.substr(0, pos);
        if (prefix.empty() || isDirectory(prefix)) continue;
        if (mkdir(prefix.c_str(), 0755) != 0) return false;
    }
    if (isDirectory(folder)) return true;
    return mkdir(folder.c_str(), 0755) == 0;
}

void Karven::generate(const KarvenConfig& config) {
    longRun(config);  // a bad --shard fails before the stack is read
    MCTF::MiniCTF ctf;
    ctf.parseCtf(config.ctf_path);
    if (config.extraction.merge_diel) ctf.mergePlate();
    generate(config, ctf);
}

LongRun longRun(const KarvenConfig& config) {
    LongRun run;
    run.technology_path = config.ctf_path;
    run.resume = config.resume;
    if (!config.shard.empty() && !parseShard(config.shard, run.shard_index, run.shard_count)) {
        throw std::runtime_error("Error: --shard " + config.shard +
                                 ": must be k/n, two whole numbers with n at least 1 and k from 0 "
                                 "to n-1");
    }
    return run;
}

void Karven::generate(const KarvenConfig& config, const MCTF::MiniCTF& ctf) {
    json params = json::object();
    if (!config.param_json_path.empty()) {
        std::ifstream in(config.param_json_path);
        if (!in) {
            std::cerr << "Warning: Unable to open JSON file " << config.param_json_path
                      << std::endl;
        } else {
            params = json::parse(in);
        }
    }

    std::string folder = outputFolder(config.output_path);
    if (!makeFolders(folder)) {
        std::cerr << "Error: Unable to create folder " << folder << std::endl;
        return;
    }

    auto start = std::chrono::steady_clock::now();
    int solves = 0;
    // The run executes one family; the others are reachable through the factory only.
    for (const std::string name : {"Random"}) {
        std::unique_ptr<GenericStructure> family = PatternFactory::create(name);
        if (auto* random = dynamic_cast<Random*>(family.get())) random->long_run = longRun(config);
        json family_params = params.value(name, json::object());
        solves = family->populate(config.output_path, ctf, family_params, config.extraction);
    }
    auto end = std::chrono::steady_clock::now();
    auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(end - start).count();
    std::cout << "Total solve count: " << solves << ", elapsed time: " << ns / 1e9 << " s"
              << std::endl;
}

}  // namespace KARVEN
