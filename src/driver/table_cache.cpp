#include "driver/table_cache.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "patterns/digest.h"
#include "patterns/solving.h"
#include "solver/online_table.h"

namespace KARVEN {

std::string defaultTableCacheFolder() {
    if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg != nullptr && *xdg != '\0')
        return std::string(xdg) + "/karven";
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0')
        return std::string(home) + "/.cache/karven";
    return "";
}

std::string tableCachePath(const KarvenConfig& config, const MCTF::MiniCTF& ctf) {
    const std::string folder =
        config.table_cache.empty() ? defaultTableCacheFolder() : config.table_cache;
    if (folder.empty() || folder == "off") return "";
    std::string stack;
    char line[64];
    for (const auto& [z, er] : solverLayers(ctf)) {
        std::snprintf(line, sizeof line, "%.17g %.17g\n", z, er);
        stack += line;
    }
    return folder + "/stack-" + sha256Hex(stack).substr(0, 16) + ".rw2dtables";
}

TableCacheSession::TableCacheSession(std::string path) : path_(std::move(path)) {
    if (path_.empty()) return;
    RW2D::table_stores& stores = RW2D::table_stores::process();
    loaded_ = stores.load_cache(path_);
    held_at_start_ = stores.size();
    if (loaded_ > 0) std::cout << "Loaded " << loaded_ << " tables from " << path_ << std::endl;
}

TableCacheSession::~TableCacheSession() {
    if (path_.empty()) return;
    const RW2D::table_stores& stores = RW2D::table_stores::process();
    const std::size_t held = stores.size();
    if (held > held_at_start_ && stores.save_cache(path_))
        std::cout << "Saved " << held << " tables (" << held - held_at_start_ << " new) to "
                  << path_ << std::endl;
}

}  // namespace KARVEN
