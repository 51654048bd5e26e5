#include "driver/provenance.h"

#include <unistd.h>

#include <ctime>
#include <stdexcept>

#include "patterns/digest.h"
#include "patterns/journal.h"
#include "runtime/failure.h"

#ifndef KARVEN_VERSION
#define KARVEN_VERSION "unknown"
#endif
#ifndef KARVEN_BUILD
#define KARVEN_BUILD "unknown"
#endif

namespace KARVEN {

namespace {

json fileIdentity(const std::string& path) {
    if (path.empty()) return {{"path", ""}, {"sha256", ""}};
    try {
        return {{"path", path}, {"sha256", sha256File(path)}};
    } catch (const std::runtime_error& e) {
        throw FatalError(std::string("Error: ") + e.what());
    }
}

// Returns the current folder, against which relative paths of the command line are read; "" when
// it cannot be found.
std::string currentFolder() {
    std::string buffer(4096, '\0');
    if (getcwd(buffer.data(), buffer.size()) == nullptr) return "";
    return buffer.c_str();
}

json layersJson(const Layers& layers) {
    json out = json::array();
    for (const MCTF::ConductorLayer* l : layers) {
        out.push_back({{"name", l->name},
                       {"z_bottom", l->z_bottom},
                       {"z_top", l->z_top},
                       {"wmin", l->wmin},
                       {"smin", l->smin}});
    }
    return out;
}

}  // namespace

json technologyIdentity(const std::string& path) {
    return fileIdentity(path);
}

std::string metaPath(const std::string& output_path) {
    return output_path + ".meta.json";
}

std::string toolVersion() {
    return KARVEN_VERSION;
}

std::string toolBuild() {
    const std::string build = KARVEN_BUILD;
    return build.empty() ? "unknown" : build;
}

std::string isoUtc(std::chrono::system_clock::time_point t) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(t);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

json runMetadata(const KarvenConfig& config, const Random& family, const RunTotals& totals) {
    const ExtractionConfig& x = config.extraction;
    json meta = {{"karven_meta", kMetaVersion},
                 {"version", toolVersion()},
                 {"build", toolBuild()},
                 {"command_line", config.command_line},
                 {"working_directory", currentFolder()},
                 {"output", config.output_path},
                 {"technology", totals.technology},
                 {"parameter_file", config.param_json_path},
                 {"parameters", family.effective_parameters},
                 {"layers", layersJson(family.usable_layers)},
                 {"precision", x.precision},
                 {"seed", x.seed},
                 {"merge_diel", x.merge_diel},
                 {"nthreads", x.nthreads},
                 {"shard", {family.long_run.shard_index, family.long_run.shard_count}},
                 {"resume", family.long_run.resume},
                 {"start_time", isoUtc(totals.start)},
                 {"end_time", isoUtc(totals.end)},
                 {"samples_written", totals.samples_written},
                 {"solves", family.tally.solves.load()},
                 {"walks", family.tally.walks.load()},
                 {"hops", family.tally.hops.load()},
                 {"table_queries", family.tally.table_queries.load()},
                 {"table_solves", family.tally.table_solves.load()},
                 {"table_seconds", family.tally.table_seconds.load()},
                 {"table_cache", totals.table_cache},
                 {"tables_loaded", totals.tables_loaded}};
    const std::string structure = family.effective_parameters.value("structure_input", "");
    if (!structure.empty()) meta["structure"] = fileIdentity(structure);
    return meta;
}

void writeMetadata(const std::string& output_path, const json& meta) {
    writeLinesAtomically(metaPath(output_path), {meta.dump(2)});
}

}  // namespace KARVEN
