#pragma once
// Long runs. A run appends every finished sample to a journal beside its output, so that an
// interruption loses only the samples in flight and `--resume` finishes the rest; `--shard k/n`
// draws one contiguous share of the sample indices; shard files are merged into one sample file.
//
// Files beside an output OUT:
//   OUT.journal  first line the run's header (what the samples depend on), then one sample-file
//                line per finished sample, in the order they finished. Removed when OUT is
//                complete.
//   OUT.header   the header alone, one line, written when OUT is complete: it tells what OUT
//                was made with, and lets karven-merge check that shard files belong together.

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "patterns/generic.h"
#include "patterns/solving.h"
#include "patterns/writer.h"

namespace KARVEN {

// What a run adds to its ExtractionConfig for long runs.
struct LongRun {
    std::string technology_path;  // named, with its digest, in the journal's header
    int shard_index = 0;          // this run draws shard `shard_index` of `shard_count`
    int shard_count = 1;
    bool resume = false;  // finish the samples an earlier run left in the journal
};

// The sample indices begin, begin + 1, ..., end - 1.
struct ShardRange {
    int64_t begin = 0;
    int64_t end = 0;
    int64_t size() const { return end - begin; }
};

// Returns the indices that shard `index` of `count` draws out of 0 to nsamples - 1: shard k
// starts at floor(k nsamples / count), so the shards are contiguous, in order, and differ in size
// by at most one. Requires 0 <= index < count.
ShardRange shardRange(int64_t nsamples, int index, int count);

// Reads the "k/n" of --shard into `index` and `count`. Returns false unless both are whole
// decimal numbers with n at least 1 and k from 0 to n - 1.
bool parseShard(const std::string& text, int& index, int& count);

// Returns the journal's path for an output path, OUT.journal.
std::string journalPath(const std::string& output_path);
// Returns the header file's path for an output path, OUT.header.
std::string headerPath(const std::string& output_path);

// Returns the header of a run: the technology file (path and SHA-256), the family's parameters,
// the structure file when one is given (path and SHA-256), precision, dielectric merging, seed,
// the total sample count and the shard. Throws FatalError when a named file cannot be read.
json runHeader(const json& params, const ExtractionConfig& config, const LongRun& run,
               int64_t nsamples, const std::string& structure_path = "");

// Returns the first header key whose values make the samples of two runs differ, or "" when none
// does. File paths are not compared, their digests are; with `any_shard` the shard index may
// differ, the shard count may not.
std::string headerDifference(const json& a, const json& b, bool any_shard);

// Returns the value of `key` in `header` as a phrase, e.g. "seed 2" or "technology file
// examples/stack.ctf (SHA-256 0a1b...)".
std::string describeHeaderKey(const json& header, const std::string& key);

// Returns the sample-file line of `result` with the global index `id`; the rectangles in
// `result` become centre x, centre y, width, height.
std::string sampleLine(PatternResult& result, int64_t id);

// The journal of one run, open and locked for the run's life.
class SampleJournal {
public:
    // Opens OUT.journal for the samples of `range`. Without `resume` there must be no journal
    // holding samples; with it, an existing journal's header must match `header`, its samples
    // are kept and a torn last line is dropped. With `resume` and no journal, a finished OUT whose
    // OUT.header matches is taken whole; otherwise the run starts from the first sample. Throws
    // FatalError naming the file and the problem: another run holds it, a header differs, a line
    // is bad.
    SampleJournal(const std::string& output_path, const json& header, ShardRange range,
                  bool resume);
    // Closes the journal and leaves it on disk.
    ~SampleJournal();
    SampleJournal(const SampleJournal&) = delete;
    SampleJournal& operator=(const SampleJournal&) = delete;

    // Returns the indices of the range that the journal does not hold yet, ascending.
    std::vector<int64_t> pending() const;
    // Returns how many samples the journal held when it was opened.
    size_t resumedCount() const { return resumed_; }

    // Appends the line of sample `id` and flushes it to disk before returning. Safe to call
    // from several threads. Throws when the write fails.
    void append(int64_t id, const std::string& line);

    // Returns the lines of all samples in id order. Throws FatalError unless every index of the
    // range is held.
    std::vector<std::string> linesInOrder() const;

    // Writes the sample file in id order through `out` and commits it, then writes OUT.header
    // and removes the journal. Throws FatalError when a sample is missing or a write fails; the
    // journal then stays.
    void finish(SampleOutput& out);

private:
    void writeAll(const std::string& text);
    void load(bool resume);
    bool adoptFinishedOutput();

    std::string output_;
    std::string path_;
    json header_;
    ShardRange range_;
    int fd_ = -1;
    size_t resumed_ = 0;
    std::map<int64_t, std::string> lines_;
    mutable std::mutex mutex_;
};

// Writes `lines`, each with a line feed, to `path` through a temporary file beside it,
// "<path>.part", that is flushed and renamed when complete. Throws FatalError when any write
// fails; `path` is then untouched and the temporary file removed.
void writeLinesAtomically(const std::string& path, const std::vector<std::string>& lines);

// Checks that `files` are shard sample files of one run (each with its OUT.header, all headers
// alike but for the shard index, every index from 0 to nsamples - 1 exactly once) and returns
// their lines in id order. Throws with a message naming the file, line and id at fault.
std::vector<std::string> mergeShards(const std::vector<std::string>& files);

}  // namespace KARVEN
