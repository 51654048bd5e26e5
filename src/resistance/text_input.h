#pragma once
// Buffered line input and whole-word number conversion for the network and DSPF readers. Lines
// are views into one reusable buffer, so reading a large file allocates nothing per line.

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace RNIO {

class LineReader {
public:
    LineReader() = default;
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // Opens `path` for reading; returns false when it does not open.
    bool open(const std::string& path);
    // Returns the next line without its line end (LF or CR LF), or false at the end of the file.
    // The view stays valid until the next call.
    bool next(std::string_view& line);
    // Makes the next call return the line just read again.
    void unread() { replay_ = true; }
    // Line number of the line last returned, from 1.
    long lineNumber() const { return line_no_; }
    // Size of the file in bytes, known after open.
    long fileSize() const { return file_size_; }

private:
    bool refill();

    std::FILE* file_ = nullptr;
    std::vector<char> buf_;
    size_t begin_ = 0;  // start of unread data in buf_
    size_t end_ = 0;    // end of valid data in buf_
    bool eof_ = false;
    bool replay_ = false;
    std::string_view last_;
    long line_no_ = 0;
    long file_size_ = 0;
};

// Splits `line` at blanks and tabs into at most `max` views; returns the number of words found,
// which may exceed `max` (the extra words are not stored).
size_t splitWords(std::string_view line, std::string_view* words, size_t max);

// Whole-word conversions: return false unless all of `w` is the number (a leading '+' allowed).
bool toLong(std::string_view w, long& out);
bool toInt(std::string_view w, int& out);
// Also rejects infinities and NaN.
bool toDouble(std::string_view w, double& out);

}  // namespace RNIO
