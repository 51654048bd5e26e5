#pragma once
// The sample file's number format, and the sample file while a run writes it.

#include <string>

#include "patterns/generic.h"

namespace KARVEN {

// Rounds every floating-point number inside `value` to the 1e-8 grid, halves away from zero;
// integers, strings and the rest stay.
void format_floats(json& value);

// The sample file of one run. Lines go to a temporary file beside the output, "<output>.part",
// which replaces the output only when commit() has written, flushed and closed it; until then an
// older output stays as it was. The temporary file is locked, so that a second run on the same
// output fails instead of mixing its lines in, and is removed when the object dies uncommitted or
// when SIGINT or SIGTERM ends the process. The output's folder must exist.
class SampleOutput {
public:
    // Opens and locks the temporary file. Throws FatalError when the output is a folder, when the
    // temporary file cannot be made, or when another run holds it.
    explicit SampleOutput(const std::string& output_path);
    // Removes the temporary file unless commit() succeeded. Never throws.
    ~SampleOutput();
    SampleOutput(const SampleOutput&) = delete;
    SampleOutput& operator=(const SampleOutput&) = delete;

    // Appends `line` and a line feed. Throws FatalError when the write fails (a full disk).
    void writeLine(const std::string& line);
    // Flushes the file to disk, closes it and renames it to the output. Throws FatalError when
    // any step fails; the output is then untouched.
    void commit();

    const std::string& outputPath() const { return output_; }
    const std::string& tempPath() const { return temp_; }

private:
    [[noreturn]] void fail(const std::string& what, int error) const;

    std::string output_;
    std::string temp_;
    int fd_ = -1;
    int ticket_ = -1;
    bool committed_ = false;
};

}  // namespace KARVEN
