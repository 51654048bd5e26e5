#include "runtime/strutil.h"

#include <algorithm>
#include <cctype>

std::string StrUtil::upper(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return s;
}

int StrUtil::compare(std::string& a, std::string& b, int case_sensitive) {
    if (a.size() != b.size()) return 0;
    if (!case_sensitive) {
        a = upper(a);
        b = upper(b);
    }
    return a == b ? 1 : 0;
}

bool StrUtil::splitLine2Words(std::istream& in, std::vector<std::string>& words) {
    words.clear();
    std::string line;
    if (!std::getline(in, line)) return false;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
        size_t start = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t') ++i;
        if (i > start) words.push_back(line.substr(start, i - start));
    }
    return true;
}
