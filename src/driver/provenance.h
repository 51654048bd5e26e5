#pragma once
// The record of how a sample file was made, OUT.meta.json beside the output OUT: the tool's
// version and build, the command line, the parameters as the run used them, the technology file
// with its digest, the usable layers, the solver settings, the times and the work done. Written
// once, when the run has committed its output; the sample lines do not change.

#include <chrono>
#include <cstdint>
#include <string>

#include "driver/karven.h"
#include "patterns/derived.h"

namespace KARVEN {

// Version of the metadata file's layout, its key "karven_meta".
inline constexpr int kMetaVersion = 1;

// Returns the metadata file's path for an output path, OUT.meta.json.
std::string metaPath(const std::string& output_path);

// Returns the tool's version, as set in the build, e.g. "0.3.0".
std::string toolVersion();
// Returns the source revision the build was configured from (git describe --always --dirty), or
// "unknown" when it could not be found.
std::string toolBuild();

// Returns `t` in ISO 8601 UTC to the second, e.g. "2026-11-22T20:46:55Z".
std::string isoUtc(std::chrono::system_clock::time_point t);

// What a run did, as the driver saw it.
struct RunTotals {
    std::chrono::system_clock::time_point start;
    std::chrono::system_clock::time_point end;
    int64_t samples_written = 0;
    json technology;  // the technology file's identity when the run began: technologyIdentity
    std::string table_cache;        // the cache file, empty when the run kept none
    std::size_t tables_loaded = 0;  // tables read from it at the start
};

// Returns the technology file's path and SHA-256 as {"path", "sha256"}; both are "" when no path
// is given (a stack built in memory). Throws FatalError when the file cannot be read.
json technologyIdentity(const std::string& path);

// Returns the metadata of a finished run of `family`: the command line and extraction settings
// of `config`, the family's effective parameters, usable layers and solve tally, and `totals`.
// Throws FatalError when the structure file cannot be read for its digest.
json runMetadata(const KarvenConfig& config, const Random& family, const RunTotals& totals);

// Writes `meta` to OUT.meta.json, indented, through a temporary file beside it that is renamed
// when complete. Throws FatalError when a write fails; an older file then stays as it was.
void writeMetadata(const std::string& output_path, const json& meta);

}  // namespace KARVEN
