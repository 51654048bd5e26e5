#include "patterns/journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "patterns/digest.h"
#include "runtime/failure.h"

namespace KARVEN {

namespace {

constexpr int kJournalVersion = 1;

[[noreturn]] void fail(const std::string& message) {
    throw FatalError(message);
}

[[noreturn]] void failErrno(const std::string& what, int error) {
    fail("Error: " + what + ": " + std::strerror(error));
}

bool exists(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0;
}

// Writes all of `text` to `fd`; returns 0 or the error number.
int writeFully(int fd, const std::string& text) {
    const char* p = text.data();
    size_t left = text.size();
    while (left > 0) {
        const ssize_t n = write(fd, p, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return n < 0 ? errno : ENOSPC;
        p += n;
        left -= static_cast<size_t>(n);
    }
    return 0;
}

// Returns the whole content of `path`; throws when it cannot be read.
std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) fail("Error: Unable to open file " + path);
    std::ostringstream s;
    s << in.rdbuf();
    if (in.bad()) fail("Error: Unable to read file " + path);
    return s.str();
}

// Returns the file's path and SHA-256 as a header entry.
json fileIdentity(const std::string& path) {
    if (path.empty()) return {{"path", ""}, {"sha256", ""}};
    try {
        return {{"path", path}, {"sha256", sha256File(path)}};
    } catch (const std::runtime_error& e) {
        fail(std::string("Error: ") + e.what());
    }
}

bool isHeader(const json& value) {
    return value.is_object() && value.contains("karven_journal");
}

// Returns the integer "id" of a sample line, or -1 when it has none.
int64_t lineId(const json& sample) {
    if (!sample.is_object()) return -1;
    auto id = sample.find("id");
    if (id == sample.end() || !id->is_number_integer()) return -1;
    return id->get<int64_t>();
}

}  // namespace

ShardRange shardRange(int64_t nsamples, int index, int count) {
    const int64_t n = std::max<int64_t>(nsamples, 0);
    return {n * index / count, n * (index + 1) / count};
}

bool parseShard(const std::string& text, int& index, int& count) {
    const size_t slash = text.find('/');
    if (slash == std::string::npos) return false;
    const char* first = text.data();
    const char* middle = first + slash;
    const char* last = first + text.size();
    int k = -1, n = 0;
    auto [k_end, k_error] = std::from_chars(first, middle, k);
    auto [n_end, n_error] = std::from_chars(middle + 1, last, n);
    if (k_error != std::errc() || k_end != middle || n_error != std::errc() || n_end != last)
        return false;
    if (n < 1 || k < 0 || k >= n) return false;
    index = k;
    count = n;
    return true;
}

std::string journalPath(const std::string& output_path) {
    return output_path + ".journal";
}

std::string headerPath(const std::string& output_path) {
    return output_path + ".header";
}

json runHeader(const json& params, const ExtractionConfig& config, const LongRun& run,
               int64_t nsamples, const std::string& structure_path) {
    json header = {{"karven_journal", kJournalVersion},
                   {"technology", fileIdentity(run.technology_path)},
                   {"parameters", params},
                   {"precision", config.precision},
                   {"merge_diel", config.merge_diel},
                   {"seed", config.seed},
                   {"nsamples", nsamples},
                   {"shard", {run.shard_index, run.shard_count}}};
    if (!structure_path.empty()) header["structure"] = fileIdentity(structure_path);
    return header;
}

std::string headerDifference(const json& a, const json& b, bool any_shard) {
    json keys = json::object();
    for (const auto& [key, value] : a.items()) keys[key] = true;
    for (const auto& [key, value] : b.items()) keys[key] = true;
    for (const auto& [key, unused] : keys.items()) {
        const json x = a.value(key, json()), y = b.value(key, json());
        if (key == "technology" || key == "structure") {
            // The same file may be reached by another path from another folder or node.
            if (x.value("sha256", json()) != y.value("sha256", json())) return key;
        } else if (key == "shard" && any_shard) {
            if (!x.is_array() || !y.is_array() || x.size() != 2 || y.size() != 2 || x[1] != y[1])
                return key;
        } else if (x != y) {
            return key;
        }
    }
    return "";
}

std::string describeHeaderKey(const json& header, const std::string& key) {
    const json value = header.value(key, json());
    if (key == "technology" || key == "structure") {
        if (value.is_null()) return "no " + key + " file";
        return key + " file " + value.value("path", std::string()) + " (SHA-256 " +
               value.value("sha256", std::string()) + ")";
    }
    if (key == "shard" && value.is_array() && value.size() == 2)
        return "shard " + value[0].dump() + "/" + value[1].dump();
    if (value.is_null()) return "no " + key;
    return key + " " + value.dump();
}

std::string sampleLine(PatternResult& result, int64_t id) {
    auto& [rects, matrix] = result;
    json conductors = json::array();
    for (Rect& r : rects) {
        // The rectangle becomes centre x, centre y, width, height.
        r = Rect{(r[0] + r[2]) * 0.5, (r[1] + r[3]) * 0.5, r[2] - r[0], r[3] - r[1]};
        conductors.push_back({r[0], r[1], r[2], r[3]});
    }
    json sample;
    sample["capacitances"] = matrix;
    sample["conductors"] = std::move(conductors);
    sample["id"] = id;
    sample["size"] = static_cast<uint64_t>(rects.size());
    format_floats(sample);
    return sample.dump();
}

SampleJournal::SampleJournal(const std::string& output_path, const json& header, ShardRange range,
                             bool resume)
    : output_(output_path), path_(journalPath(output_path)), header_(header), range_(range) {
    fd_ = open(path_.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (fd_ < 0) failErrno("Unable to open file " + path_ + " for writing", errno);
    if (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        close(fd_);
        fd_ = -1;
        if (error == EWOULDBLOCK)
            fail("Error: another run is writing " + output_ + " (it holds " + path_ + ")");
        failErrno("Unable to lock " + path_, error);
    }
    try {
        load(resume);
    } catch (...) {
        close(fd_);
        fd_ = -1;
        throw;
    }
}

SampleJournal::~SampleJournal() {
    if (fd_ >= 0) close(fd_);
}

void SampleJournal::load(bool resume) {
    const std::string text = readAll(path_);
    if (text.empty()) {
        // A new journal, or one cut off before its header reached the disk.
        writeAll(header_.dump() + "\n");
        if (resume && !adoptFinishedOutput()) {
            std::cout << "[INFO] no journal " << path_
                      << " to resume; starting from the first sample" << std::endl;
        }
        return;
    }
    if (!resume) {
        fail("Error: " + path_ + " holds an unfinished run; add --resume to finish it, or remove " +
             "the file to start again");
    }
    size_t complete = text.rfind('\n');
    complete = complete == std::string::npos ? 0 : complete + 1;
    if (complete < text.size()) {
        // A line cut off by a crash in the middle of its write: that sample is drawn again.
        std::cout << "[WARN]: dropping the incomplete last line of " << path_ << std::endl;
        if (ftruncate(fd_, static_cast<off_t>(complete)) != 0)
            failErrno("Unable to write " + path_, errno);
        if (complete == 0) {
            writeAll(header_.dump() + "\n");
            return;
        }
    }
    std::istringstream in(text.substr(0, complete));
    std::string line;
    std::getline(in, line);
    json found = json::parse(line, nullptr, false);
    if (!isHeader(found)) fail("Error: " + path_ + " is not a sample journal: no header line");
    const std::string key = headerDifference(header_, found, false);
    if (!key.empty()) {
        fail("Error: cannot resume from " + path_ + ": it was made with " +
             describeHeaderKey(found, key) + ", this run has " + describeHeaderKey(header_, key));
    }
    for (int number = 2; std::getline(in, line); ++number) {
        const std::string where = "Error: " + path_ + " line " + std::to_string(number) + ": ";
        const json sample = json::parse(line, nullptr, false);
        const int64_t id = lineId(sample);
        if (id < 0) fail(where + "not a sample line with an \"id\"");
        if (id < range_.begin || id >= range_.end) {
            fail(where + "id " + std::to_string(id) + " is outside this run's indices " +
                 std::to_string(range_.begin) + " to " + std::to_string(range_.end - 1));
        }
        if (!lines_.emplace(id, line).second)
            fail(where + "id " + std::to_string(id) + " appears a second time");
    }
    resumed_ = lines_.size();
    std::cout << "[INFO] resuming from " << path_ << ": " << resumed_ << " of " << range_.size()
              << " samples done" << std::endl;
}

bool SampleJournal::adoptFinishedOutput() {
    // A finished run leaves its output and header and no journal; resuming it (a resubmitted
    // cluster job) takes its samples instead of drawing them again.
    const std::string header_file = headerPath(output_);
    if (!exists(output_) || !exists(header_file)) return false;
    std::istringstream header_text(readAll(header_file));
    std::string line;
    std::getline(header_text, line);
    const json found = json::parse(line, nullptr, false);
    if (!isHeader(found) || !headerDifference(header_, found, false).empty()) return false;
    std::map<int64_t, std::string> held;
    std::istringstream in(readAll(output_));
    while (std::getline(in, line)) {
        const int64_t id = lineId(json::parse(line, nullptr, false));
        if (id < range_.begin || id >= range_.end || !held.emplace(id, line).second) return false;
    }
    if (static_cast<int64_t>(held.size()) != range_.size()) return false;
    lines_ = std::move(held);
    resumed_ = lines_.size();
    std::cout << "[INFO] " << output_ << " is already complete (" << resumed_
              << " samples); nothing to draw" << std::endl;
    return true;
}

void SampleJournal::writeAll(const std::string& text) {
    if (int error = writeFully(fd_, text)) failErrno("Unable to write " + path_, error);
    // On disk before the sample counts as done: a crash of the machine keeps it too.
    if (fdatasync(fd_) != 0) failErrno("Unable to write " + path_, errno);
}

std::vector<int64_t> SampleJournal::pending() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<int64_t> out;
    for (int64_t id = range_.begin; id < range_.end; ++id)
        if (!lines_.count(id)) out.push_back(id);
    return out;
}

void SampleJournal::append(int64_t id, const std::string& line) {
    std::lock_guard<std::mutex> lock(mutex_);
    // One write per line: a crash leaves whole lines and at most a torn last one.
    writeAll(line + "\n");
    lines_.emplace(id, line);
}

std::vector<std::string> SampleJournal::linesInOrder() const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (static_cast<int64_t>(lines_.size()) != range_.size()) {
        fail("Error: " + path_ + " holds " + std::to_string(lines_.size()) + " of " +
             std::to_string(range_.size()) + " samples");
    }
    std::vector<std::string> out;
    out.reserve(lines_.size());
    for (const auto& [id, line] : lines_) out.push_back(line);
    return out;
}

void SampleJournal::finish(SampleOutput& out) {
    for (const std::string& line : linesInOrder()) out.writeLine(line);
    out.commit();
    writeLinesAtomically(headerPath(output_), {header_.dump()});
    if (unlink(path_.c_str()) != 0) failErrno("Unable to remove " + path_, errno);
}

void writeLinesAtomically(const std::string& path, const std::vector<std::string>& lines) {
    const std::string temp = path + ".part";
    const int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) failErrno("Unable to open file " + temp + " for writing", errno);
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    int error = writeFully(fd, text);
    if (error == 0 && fsync(fd) != 0) error = errno;
    if (close(fd) != 0 && error == 0) error = errno;
    if (error == 0 && rename(temp.c_str(), path.c_str()) != 0) error = errno;
    if (error != 0) {
        unlink(temp.c_str());
        failErrno("Unable to write " + path, error);
    }
}

std::vector<std::string> mergeShards(const std::vector<std::string>& files) {
    if (files.empty()) fail("Error: no shard files given");
    std::vector<json> headers;
    for (const std::string& file : files) {
        const std::string path = headerPath(file);
        if (exists(journalPath(file))) {
            fail("Error: " + file + " is unfinished: its journal " + journalPath(file) +
                 " is still there (finish the shard with --resume)");
        }
        if (!exists(path)) {
            fail("Error: " + file + " has no header file " + path +
                 " (a finished run writes one beside its output)");
        }
        std::istringstream in(readAll(path));
        std::string line;
        std::getline(in, line);
        json header = json::parse(line, nullptr, false);
        if (!isHeader(header)) fail("Error: " + path + " is not a shard header");
        const std::string key =
            headerDifference(headers.empty() ? header : headers.front(), header, true);
        if (!key.empty()) {
            fail("Error: " + file + " does not belong with " + files.front() + ": " +
                 files.front() + " was made with " + describeHeaderKey(headers.front(), key) +
                 ", " + file + " with " + describeHeaderKey(header, key));
        }
        headers.push_back(std::move(header));
    }
    const json total = headers.front().value("nsamples", json());
    const json shard = headers.front().value("shard", json());
    if (!total.is_number_integer() || !shard.is_array() || shard.size() != 2 ||
        !shard[1].is_number_integer() || shard[1].get<int>() < 1)
        fail("Error: " + headerPath(files.front()) + " lacks the sample count or the shard");
    const int64_t nsamples = total.get<int64_t>();
    const int count = shard[1].get<int>();

    struct Source {
        size_t file;
        int line;
    };
    std::map<int64_t, std::pair<Source, std::string>> lines;
    for (size_t f = 0; f < files.size(); ++f) {
        std::istringstream in(readAll(files[f]));
        std::string line;
        for (int number = 1; std::getline(in, line); ++number) {
            const std::string where = files[f] + " line " + std::to_string(number);
            const int64_t id = lineId(json::parse(line, nullptr, false));
            if (id < 0) fail("Error: " + where + ": not a sample line with an \"id\"");
            if (id >= nsamples) {
                fail("Error: " + where + ": id " + std::to_string(id) + " is beyond the run's " +
                     std::to_string(nsamples) + " samples");
            }
            auto [it, added] = lines.emplace(id, std::make_pair(Source{f, number}, line));
            if (!added) {
                const Source& first = it->second.first;
                fail("Error: duplicate id " + std::to_string(id) + ": in " + files[first.file] +
                     " line " + std::to_string(first.line) + " and in " + where);
            }
        }
    }
    if (static_cast<int64_t>(lines.size()) != nsamples) {
        int64_t missing = 0;
        while (lines.count(missing)) ++missing;
        int k = 0;
        while (shardRange(nsamples, k, count).end <= missing) ++k;
        fail("Error: missing id " + std::to_string(missing) + " (" +
             std::to_string(nsamples - static_cast<int64_t>(lines.size())) + " of " +
             std::to_string(nsamples) + " ids missing in all); shard " + std::to_string(k) + "/" +
             std::to_string(count) + " draws it: is its file among those given, and complete?");
    }
    std::vector<std::string> out;
    out.reserve(lines.size());
    for (auto& [id, entry] : lines) out.push_back(std::move(entry.second));
    return out;
}

}  // namespace KARVEN
