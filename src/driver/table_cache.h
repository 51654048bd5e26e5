// Solved box tables kept on disk between runs, one file per dielectric stack.
#pragma once

#include <cstddef>
#include <string>

#include "driver/karven.h"
#include "technology/minictf.h"

namespace KARVEN {

// The folder the cache lives in when --table-cache is not given: $XDG_CACHE_HOME/karven, else
// $HOME/.cache/karven; empty (no cache) when neither variable is set.
std::string defaultTableCacheFolder();

// The cache file of this run's stack: FOLDER/stack-<digest>.rw2dtables, the digest taken over the
// layers the solver sees; empty when the run keeps no cache (--table-cache off).
std::string tableCachePath(const KarvenConfig& config, const MCTF::MiniCTF& ctf);

// Loads the stack's cache into the process-wide table stores on construction, and writes them
// back on destruction when the run solved new tables, also when the run fails: a table is valid
// whatever became of the run that solved it. A damaged file is warned about and ignored.
class TableCacheSession {
public:
    explicit TableCacheSession(std::string path);
    ~TableCacheSession();
    TableCacheSession(const TableCacheSession&) = delete;
    TableCacheSession& operator=(const TableCacheSession&) = delete;

    const std::string& path() const { return path_; }
    std::size_t loaded() const { return loaded_; }

private:
    std::string path_;
    std::size_t loaded_ = 0;
    std::size_t held_at_start_ = 0;
};

}  // namespace KARVEN
