#include "runtime/pargument.h"

#include <cstdlib>

std::string PARG::rtn_;

PARG& PARG::getTable() {
    struct Instance : PARG {};
    static Instance t;
    return t;
}

void PARG::regArgument(const std::string& key, const std::string& value) {
    getTable().table[key] = value;
}

void PARG::clear() {
    getTable().table.clear();
}

const std::string& PARG::get(const std::string& key, const std::string& def) {
    auto& t = getTable().table;
    auto it = t.find(key);
    rtn_ = it == t.end() ? def : it->second;
    return rtn_;
}

const char* PARG::get(const char* key, const char* def) {
    return get(std::string(key), std::string(def)).c_str();
}

double PARG::get(const std::string& key, double def) {
    const std::string& v = get(key, std::string());
    return v.empty() ? def : std::strtod(v.c_str(), nullptr);
}

int PARG::get(const std::string& key, int def) {
    const std::string& v = get(key, std::string());
    return v.empty() ? def : static_cast<int>(std::strtol(v.c_str(), nullptr, 10));
}
