#include "resistance/text_input.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace RNIO {

namespace {
constexpr size_t kChunk = 1 << 20;
}

LineReader::~LineReader() {
    if (file_) std::fclose(file_);
}

bool LineReader::open(const std::string& path) {
    file_ = std::fopen(path.c_str(), "rb");
    if (!file_) return false;
    if (std::fseek(file_, 0, SEEK_END) == 0) {
        file_size_ = std::ftell(file_);
        std::fseek(file_, 0, SEEK_SET);
    }
    buf_.resize(kChunk);
    return true;
}

bool LineReader::refill() {
    if (eof_ || !file_) return false;
    // Keep the unread tail, move it to the front, and grow only for a line longer than the buffer.
    const size_t tail = end_ - begin_;
    if (begin_ > 0) {
        std::memmove(buf_.data(), buf_.data() + begin_, tail);
        begin_ = 0;
        end_ = tail;
    }
    if (end_ == buf_.size()) buf_.resize(buf_.size() * 2);
    const size_t got = std::fread(buf_.data() + end_, 1, buf_.size() - end_, file_);
    if (got == 0) eof_ = true;
    end_ += got;
    return got > 0;
}

bool LineReader::next(std::string_view& line) {
    if (replay_) {
        replay_ = false;
        line = last_;
        return true;
    }
    size_t scanned = begin_;
    for (;;) {
        const void* nl = std::memchr(buf_.data() + scanned, '\n', end_ - scanned);
        if (nl) {
            const size_t at = static_cast<const char*>(nl) - buf_.data();
            size_t len = at - begin_;
            if (len > 0 && buf_[begin_ + len - 1] == '\r') --len;
            last_ = std::string_view(buf_.data() + begin_, len);
            begin_ = at + 1;
            break;
        }
        const size_t scanned_len = end_ - begin_;  // all of it holds no line end
        if (!refill()) {
            if (begin_ == end_) return false;  // nothing left
            size_t len = end_ - begin_;
            if (buf_[begin_ + len - 1] == '\r') --len;
            last_ = std::string_view(buf_.data() + begin_, len);
            begin_ = end_;
            break;
        }
        scanned = begin_ + scanned_len;
    }
    ++line_no_;
    line = last_;
    return true;
}

size_t splitWords(std::string_view line, std::string_view* words, size_t max) {
    size_t n = 0, i = 0;
    const size_t len = line.size();
    while (i < len) {
        while (i < len && (line[i] == ' ' || line[i] == '\t')) ++i;
        const size_t start = i;
        while (i < len && line[i] != ' ' && line[i] != '\t') ++i;
        if (i > start) {
            if (n < max) words[n] = line.substr(start, i - start);
            ++n;
        }
    }
    return n;
}

bool toLong(std::string_view w, long& out) {
    if (!w.empty() && w[0] == '+') w.remove_prefix(1);
    if (w.empty()) return false;
    auto r = std::from_chars(w.data(), w.data() + w.size(), out);
    return r.ec == std::errc() && r.ptr == w.data() + w.size();
}

bool toInt(std::string_view w, int& out) {
    long v;
    if (!toLong(w, v) || v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max())
        return false;
    out = static_cast<int>(v);
    return true;
}

bool toDouble(std::string_view w, double& out) {
    if (!w.empty() && w[0] == '+') w.remove_prefix(1);
    if (w.empty()) return false;
    auto r = std::from_chars(w.data(), w.data() + w.size(), out);
    return r.ec == std::errc() && r.ptr == w.data() + w.size() && std::isfinite(out);
}

}  // namespace RNIO
