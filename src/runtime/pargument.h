#pragma once
// PARG: the table of named engine switches, filled by the job-file reader and read by the
// process models and the point-to-point solver. Not thread-safe: one thread at a time.

#include <string>
#include <unordered_map>

class PARG {
public:
    virtual ~PARG() = default;

    // Returns the single table instance.
    static PARG& getTable();

    // Sets the entry for `key` to `value`, replacing any earlier one.
    static void regArgument(const std::string& key, const std::string& value);

    // Returns the entry for `key`, or `def` when absent. Valid until the next get.
    static const std::string& get(const std::string& key, const std::string& def);
    static const char* get(const char* key, const char* def);
    // Returns the entry read by strtod, or `def` when absent or empty.
    static double get(const std::string& key, double def);
    static double get(const char* key, double def) { return get(std::string(key), def); }
    // Returns the entry read by strtol in base 10, or `def` when absent or empty.
    static int get(const std::string& key, int def);
    static int get(const char* key, int def) { return get(std::string(key), def); }

    // Removes every entry (for tests and for a second job in one process).
    static void clear();

    std::unordered_map<std::string, std::string> table;
    static std::string rtn_;

protected:
    PARG() = default;
};
