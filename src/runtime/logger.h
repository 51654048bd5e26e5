#pragma once
// PLOG: the levelled logger of the engine side. One instance, reached through PLOG::log(level):
//   PLOG::log(3) << "text " << value << PLOG::endl;
// Levels: 0 "[--]", 1 "[DEBUG]", 2 "[MESSAGE]", 3 "[WARNING]", 4 "[ERROR]", 5 "[FATAL]".
// Not thread-safe: one thread at a time.

#include <fstream>
#include <string>
#include <vector>

class PLOG {
public:
    using Manipulator = PLOG& (*)(PLOG&);

    virtual ~PLOG();

    // Returns the single instance with its message level set to `level`; builds it on first use.
    static PLOG& log(int level);

    // Line end: writes a line feed, flushes, and opens a new line on every target that shows the
    // current level.
    static PLOG& endl(PLOG& p);
    // Like endl, but the next value continues the line (no new prefix).
    static PLOG& ends(PLOG& p);

    PLOG& operator<<(int v);
    PLOG& operator<<(long v);
    PLOG& operator<<(unsigned int v);
    PLOG& operator<<(unsigned long v);
    PLOG& operator<<(double v);
    PLOG& operator<<(float v);
    PLOG& operator<<(const char* v);
    PLOG& operator<<(const std::string& v);
    // Applies PLOG::endl or PLOG::ends; any other function is ignored.
    PLOG& operator<<(Manipulator m);

    // Switch standard output on with a level (negative becomes 0) and time stamps. Returns 0.
    int enableStdLogging(int level, int timestamp);
    // Switch the log files on with a level (negative becomes 0) and time stamps. Returns 0.
    int enableFileLogging(int level, int timestamp);
    // Opens a log file (appending when `append` is not zero) and adds it to the targets.
    void addLoggingFile(const char* path, int append);
    void addLoggingFile(const std::string& path, int append);
    // Flushes standard output and every log file.
    void flushLog();
    // Closes and forgets every log file.
    void closeLog();
    // Returns "[YYYY-MM-DD HH:MM:SS.mmm]" of now, or "[]" when the local time is unavailable;
    // the text lives in the instance and is valid until the next call.
    const char* getTimeStamp();

    int std_enabled = 1;
    int std_timestamp = 0;
    int file_enabled = 0;
    int file_timestamp = 0;
    std::vector<std::fstream*> files;
    int std_level = 3;
    int file_level = 0;
    int level = 2;
    int at_line_start = 1;
    char stamp[128] = {0};
    std::vector<std::string> level_names{"[--]",      "[DEBUG]", "[MESSAGE]",
                                         "[WARNING]", "[ERROR]", "[FATAL]"};

protected:
    PLOG() = default;

private:
    template <class T>
    PLOG& write(const T& value);
    void finishLine(bool newLine);
    const std::string& prefix() const;
};
