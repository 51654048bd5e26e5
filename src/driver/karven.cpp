#include "driver/karven.h"

#include <sys/stat.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <iostream>
#include <sstream>

#include "driver/provenance.h"
#include "driver/table_cache.h"
#include "patterns/derived.h"
#include "patterns/parameters.h"
#include "runtime/failure.h"
#include "solver/file_utils.h"
#include "technology/minictf.h"

namespace KARVEN {

std::string outputFolder(const std::string& output_path) {
    const size_t cut = output_path.find_last_of("/\\");
    return cut == std::string::npos ? std::string() : output_path.substr(0, cut);
}

namespace {

bool isDirectory(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Returns the parameter document of `path`, or an empty object when no file is named.
json readParameters(const std::string& path) {
    if (path.empty()) return json::object();
    std::ifstream in(path);
    if (!in || isDirectory(path)) throw FatalError("Warning: Unable to open JSON file " + path);
    json params;
    try {
        params = json::parse(in);
    } catch (const json::parse_error& e) {
        throw FatalError("Error: parameter file " + path + " is not valid JSON: " + e.what());
    }
    if (!nestingWithin(params, kMaxNesting))
        throw FatalError("Error: parameter file " + path + " nests values too deeply");
    return params;
}

}  // namespace

bool makeFolders(const std::string& folder) {
    if (folder.empty()) return true;
    for (size_t pos = folder.find('/'); pos != std::string::npos; pos = folder.find('/', pos + 1)) {
        std::string prefix = folder.substr(0, pos);
        if (prefix.empty() || isDirectory(prefix)) continue;
        if (mkdir(prefix.c_str(), 0755) != 0) return false;
    }
    if (isDirectory(folder)) return true;
    return mkdir(folder.c_str(), 0755) == 0;
}

void checkCommandLine(const KarvenConfig& config) {
    if (config.output_path.empty())
        throw FatalError("Error: no output file given; name one with -o,--output");
    const int n = config.extraction.nthreads;
    if (n < 1 || n > kMaxThreads) {
        throw FatalError("Error: --nthreads " + std::to_string(n) + ": must be from 1 to " +
                         std::to_string(kMaxThreads));
    }
    const double p = config.extraction.precision;
    if (!std::isfinite(p) || p > 1) {
        std::ostringstream os;
        os << "Error: --precision " << p
           << ": must be a finite number of at most 1 (0 or below selects the external "
              "reference solver)";
        throw FatalError(os.str());
    }
    if (p <= 0 && !RW2D::FileUtils::ref_solver_available()) {
        std::ostringstream os;
        os << "Error: --precision " << p << " selects the external reference solver, but "
           << RW2D::FileUtils::ref_solver_binary()
           << " is not installed; give a precision above 0 for the built-in solver";
        throw FatalError(os.str());
    }
}

void Karven::generate(const KarvenConfig& config) {
    checkCommandLine(config);
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
        throw FatalError("Error: --shard " + config.shard +
                         ": must be k/n, two whole numbers with n at least 1 and k from 0 to n-1");
    }
    return run;
}

void Karven::generate(const KarvenConfig& config, const MCTF::MiniCTF& ctf) {
    json params = readParameters(config.param_json_path);
    checkParameterFile(params, config.param_json_path);

    std::string folder = outputFolder(config.output_path);
    if (!makeFolders(folder)) throw FatalError("Error: Unable to create folder " + folder);

    auto start = std::chrono::steady_clock::now();
    const TableCacheSession cache(tableCachePath(config, ctf));
    RunTotals totals;
    totals.table_cache = cache.path();
    totals.tables_loaded = cache.loaded();
    totals.start = std::chrono::system_clock::now();
    int solves = 0;
    // The run executes one family; the others are reachable through the factory only.
    for (const std::string name : {"Random"}) {
        std::unique_ptr<GenericStructure> family = PatternFactory::create(name);
        auto* random = dynamic_cast<Random*>(family.get());
        if (random != nullptr) {
            random->long_run = longRun(config);
            // The digest of the file the stack was read from, before a long run could see it
            // change.
            totals.technology = technologyIdentity(config.ctf_path);
        }
        json family_params = params.value(name, json::object());
        solves = family->populate(config.output_path, ctf, family_params, config.extraction);
        if (random != nullptr) {
            totals.end = std::chrono::system_clock::now();
            totals.samples_written = solves;
            writeMetadata(config.output_path, runMetadata(config, *random, totals));
        }
    }
    auto end = std::chrono::steady_clock::now();
    auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(end - start).count();
    std::cout << "Total solve count: " << solves << ", elapsed time: " << ns / 1e9 << " s"
              << std::endl;
}

}  // namespace KARVEN
