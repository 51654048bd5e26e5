#pragma once
// Small text helpers shared by the technology reader and the job-file readers.

#include <istream>
#include <string>
#include <vector>

class StrUtil {
public:
    // Returns 1 when a and b are equal, else 0. With case_sensitive 0 the test ignores case, and
    // both arguments are upper-cased in place.
    static int compare(std::string& a, std::string& b, int case_sensitive);
    // Reads one line of `in` into `words`, split on blanks and tabs; returns false at the end of
    // the input (with `words` empty).
    static bool splitLine2Words(std::istream& in, std::vector<std::string>& words);
    // Returns `s` in upper case.
    static std::string upper(std::string s);
};
