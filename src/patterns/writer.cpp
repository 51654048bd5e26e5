#include "patterns/writer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>

#include "patterns/derived.h"
#include "patterns/journal.h"
#include "runtime/failure.h"
#include "solver/file_utils.h"

namespace KARVEN {

std::string GenericStructure::writeSkip(const std::string& role) const {
    auto found = skips.find(role);
    if (found == skips.end()) return "";
    std::string text;
    for (const std::string& skipped : found->second) {
        text += "$ skipping " + skipped + "\n";
        text += "SSS -1.000000e+00\n";
    }
    return text;
}

namespace {

// The reader of these libraries wants a complete table even for a skipped combination: one
// point per axis and a sentinel value.
void writeSkippedRole(std::ostream& out, const std::string& role) {
    out << "$ " << role << "  covertically skipped\n";
    out << "SSS 4.000000e+00\n";
    for (int k = 0; k < 4; ++k) out << "SSS 1.000000e+00\n";
    out << "SSS 2.000000e+00\nSSS 3.000000e+00\nSSS 4.000000e+00\nSSS 5.000000e+00\n"
        << "SSS 1.100000e+00\nSSS -3.020000e+17\n";
}

}  // namespace

int GenericStructure::writeCapLibs(const std::string& path,
                                   const std::vector<std::pair<Layers, CapLib>>& libs) const {
    std::ofstream out(path, std::ios::trunc);
    if (!out) {
        std::cerr << "Error: Unable to open file " << path << " for writing." << std::endl;
        return 0;
    }
    out << std::scientific;
    out.precision(6);

    static const char* const labels[4] = {"st", "sb", "wb", "wt"};
    // Two families have always listed their axes from the last to the first.
    const bool reversed = name == "AAG" || name == "ABG";
    const bool plateFirst = combination == PlatePair || combination == PlateTriple;

    int rows = 0;
    out << "$ Generic structures\n" << name << "\n";
    for (const auto& [layers, lib] : libs) {
        out << "$ Actual structure\n$";
        for (const MCTF::ConductorLayer* l : layers) out << l->name << ' ';
        out << "\n\n" << writeSkip("");
        for (size_t i = 0; i < roles.size(); ++i) {
            const std::string& role = roles[i];
            out << "\n";
            if (lib.values.empty()) {
                writeSkippedRole(out, role);
            } else {
                out << "$ " << role << "\nSSS " << 4.0 << "\n\n$ sizes\n";
                for (int a = 0; a < 4; ++a) {
                    int k = reversed ? 3 - a : a;
                    out << "SSS " << static_cast<double>(lib.params[k].size()) << "\n";
                }
                double wmin = layers[plateFirst ? 2 : 1]->wmin;
                out << "\n$ sampling points\nSSS " << 3 * wmin << "\n\n";
                for (int a = 0; a < 4; ++a) {
                    int k = reversed ? 3 - a : a;
                    out << "$ " << labels[k] << "\n";
                    for (double v : lib.params[k]) out << "SSS " << v << "\n";
                    out << "\n";
                }
                out << "$values\n";
                for (size_t j = 0; j < lib.values.size(); ++j) {
                    out << "Value" << j << ' ' << std::fabs(lib.values[j][i]) << "\n";
                }
            }
            out << writeSkip(role);
        }
        rows += static_cast<int>(lib.values.size());
    }
    return rows;
}

void format_floats(json& value) {
    if (value.is_array() || value.is_object()) {
        for (json& element : value) format_floats(element);
    } else if (value.is_number_float()) {
        value = std::round(1e8 * value.get<double>()) / 1e8;
    }
}

SampleOutput::SampleOutput(const std::string& output_path)
    : output_(output_path), temp_(output_path + ".part") {
    struct stat st {};
    if (output_.empty() || output_.back() == '/' ||
        (stat(output_.c_str(), &st) == 0 && S_ISDIR(st.st_mode))) {
        fail("Unable to open file " + output_ + " for writing", EISDIR);
    }
    // No O_TRUNC here: the file may be another run's, and only the lock tells.
    fd_ = open(temp_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd_ < 0) fail("Unable to open file " + temp_ + " for writing", errno);
    if (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        close(fd_);
        fd_ = -1;
        if (error == EWOULDBLOCK) {
            throw FatalError("Error: another run is writing " + output_ + " (it holds " + temp_ +
                             ")");
        }
        fail("Unable to lock " + temp_, error);
    }
    try {
        ticket_ = RW2D::FileUtils::remember_temp_file(temp_);
    } catch (const std::exception& e) {
        unlink(temp_.c_str());
        close(fd_);
        throw FatalError(std::string("Error: ") + e.what());
    }
    if (ftruncate(fd_, 0) != 0) {
        const int error = errno;
        unlink(temp_.c_str());
        RW2D::FileUtils::forget_temp_file(ticket_);
        close(fd_);
        fail("Unable to write " + temp_, error);
    }
}

SampleOutput::~SampleOutput() {
    if (committed_) return;
    // Unlink before closing: the lock keeps a second run off the name until it is gone.
    unlink(temp_.c_str());
    RW2D::FileUtils::forget_temp_file(ticket_);
    if (fd_ >= 0) close(fd_);
}

void SampleOutput::fail(const std::string& what, int error) const {
    throw FatalError("Error: " + what + ": " + std::strerror(error));
}

void SampleOutput::writeLine(const std::string& line) {
    std::string text = line + '\n';
    const char* p = text.data();
    size_t left = text.size();
    while (left > 0) {
        const ssize_t n = write(fd_, p, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) fail("Unable to write " + temp_, n < 0 ? errno : ENOSPC);
        p += n;
        left -= static_cast<size_t>(n);
    }
}

void SampleOutput::commit() {
    if (fsync(fd_) != 0) fail("Unable to write " + temp_, errno);
    const int fd = fd_;
    fd_ = -1;
    if (close(fd) != 0) fail("Unable to write " + temp_, errno);
    if (rename(temp_.c_str(), output_.c_str()) != 0)
        fail("Unable to rename " + temp_ + " to " + output_, errno);
    committed_ = true;
    RW2D::FileUtils::forget_temp_file(ticket_);
}

void Random::dump_to_json(std::vector<PatternResult>& results, const std::string& path) {
    SampleOutput out(path);
    dump_to_json(results, out);
}

void Random::dump_to_json(std::vector<PatternResult>& results, SampleOutput& out) {
    for (size_t i = 0; i < results.size(); ++i)
        out.writeLine(sampleLine(results[i], static_cast<int64_t>(i)));
    out.commit();
}

}  // namespace KARVEN
