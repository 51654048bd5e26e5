#pragma once
// Formatting helpers for the network and DSPF writers: the printf forms "%ld", "%d", "%s" and
// "%.Nf" written through std::to_chars into the stream's buffer, with the same text as printf.

#include <charconv>
#include <cstdio>
#include <string_view>

namespace RNIO {

inline void put(std::FILE* f, std::string_view s) {
    fwrite_unlocked(s.data(), 1, s.size(), f);
}

inline void put(std::FILE* f, char c) {
    putc_unlocked(c, f);
}

inline void put(std::FILE* f, long v) {
    char b[24];
    auto r = std::to_chars(b, b + sizeof b, v);
    fwrite_unlocked(b, 1, r.ptr - b, f);
}

// `v` in fixed notation with `precision` decimals, as "%.*f" prints it.
inline void putFixed(std::FILE* f, double v, int precision) {
    char b[352];  // the longest fixed form of a double
    auto r = std::to_chars(b, b + sizeof b, v, std::chars_format::fixed, precision);
    fwrite_unlocked(b, 1, r.ptr - b, f);
}

}  // namespace RNIO
