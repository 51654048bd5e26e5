// Long runs: shard ranges, the digest naming the technology file, the journal that a run keeps
// beside its output, resuming from it, and merging shard files. The family runs here use a
// stand-in field solver, so a run of a few samples takes milliseconds.
#include "pattern_test_util.h"
#include "patterns/digest.h"
#include "patterns/journal.h"

namespace fs = std::filesystem;
using KARVEN::json;

TEST(ShardRange, ShardsCoverEveryIndexOnceInOrderAndEvenly) {
    for (int64_t nsamples : {0, 1, 7, 10, 50001}) {
        for (int count : {1, 2, 3, 4, 16}) {
            SCOPED_TRACE(std::to_string(nsamples) + " in " + std::to_string(count));
            int64_t smallest = nsamples, largest = 0, next = 0;
            for (int k = 0; k < count; ++k) {
                const KARVEN::ShardRange r = KARVEN::shardRange(nsamples, k, count);
                EXPECT_EQ(r.begin, next);  // contiguous, in shard order
                next = r.end;
                smallest = std::min(smallest, r.size());
                largest = std::max(largest, r.size());
            }
            EXPECT_EQ(next, nsamples);
            EXPECT_LE(largest - smallest, 1);
        }
    }
    // 10 in 4: 0-1, 2-4, 5-6, 7-9.
    EXPECT_EQ(KARVEN::shardRange(10, 1, 4).begin, 2);
    EXPECT_EQ(KARVEN::shardRange(10, 1, 4).end, 5);
}

TEST(ShardRange, ParsesKOverN) {
    int k = -7, n = -7;
    for (const char* bad : {"4/4", "-1/4", "1/0", "1", "/4", "1/", "1x/2", "1/2x"})
        EXPECT_TRUE(!KARVEN::parseShard(bad, k, n) && k == -7) << bad;  // untouched on failure
    ASSERT_TRUE(KARVEN::parseShard("12/100", k, n));
    EXPECT_EQ(std::make_pair(k, n), std::make_pair(12, 100));
}

TEST(Digest, Sha256OfTheStandardTestMessages) {
    // The test vectors published with the SHA-256 standard; the last spans many blocks.
    EXPECT_EQ(KARVEN::sha256Hex("abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(KARVEN::sha256Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    fs::path file = fs::path(testing::TempDir()) / ("digest_" + std::to_string(getpid()));
    std::ofstream(file) << std::string(1000000, 'a');
    EXPECT_EQ(KARVEN::sha256File(file.string()),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
    fs::remove(file);
    EXPECT_THROW(KARVEN::sha256File(file.string()), std::runtime_error);
}

TEST(JournalHeader, DifferencesThatChangeSamplesAreFoundAndPathsAreNot) {
    const KARVEN::ExtractionConfig config{2, 0.05, true, 7};
    const json params = {{"nsamples", 6}, {"window", 30.0}};
    const json base = KARVEN::runHeader(params, config, KARVEN::LongRun{}, 6);
    auto changed = [&](auto edit, bool any_shard = false, const json& from = json()) {
        KARVEN::ExtractionConfig c = config;
        KARVEN::LongRun r;
        json p = params;
        edit(c, r, p);
        return KARVEN::headerDifference(from.is_null() ? base : from, KARVEN::runHeader(p, c, r, 6),
                                        any_shard);
    };
    EXPECT_EQ(changed([](auto& c, auto&, auto&) { c.seed = 8; }), "seed");
    EXPECT_EQ(changed([](auto& c, auto&, auto&) { c.precision = 0.04; }), "precision");
    EXPECT_EQ(changed([](auto& c, auto&, auto&) { c.merge_diel = false; }), "merge_diel");
    EXPECT_EQ(changed([](auto&, auto&, auto& p) { p["window"] = 31.0; }), "parameters");
    // Neither the thread count nor resuming changes a sample.
    EXPECT_EQ(changed([](auto& c, auto& r, auto&) { c.nthreads = 5, r.resume = true; }), "");
    // Shards of one run differ only in the shard index.
    KARVEN::LongRun s0;
    s0.shard_count = 3;
    const json h0 = KARVEN::runHeader(params, config, s0, 6);
    auto shard1 = [](auto&, auto& r, auto&) { r.shard_index = 1, r.shard_count = 3; };
    EXPECT_EQ(changed(shard1, true, h0), "");
    EXPECT_EQ(changed(shard1, false, h0), "shard");
    EXPECT_EQ(changed([](auto&, auto& r, auto&) { r.shard_count = 2; }, true, h0), "shard");

    // Two paths to one technology file are the same file; other content is another.
    const fs::path dir = fs::path(testing::TempDir()) / ("hdr_" + std::to_string(getpid()));
    fs::create_directories(dir);
    std::ofstream(dir / "a.ctf") << "stack A";
    std::ofstream(dir / "b.ctf") << "stack B";
    auto withTechnology = [&](const fs::path& p) {
        KARVEN::LongRun r;
        r.technology_path = p.string();
        return KARVEN::runHeader(params, config, r, 6);
    };
    const json a = withTechnology(dir / "a.ctf");
    EXPECT_EQ(a["technology"]["sha256"], KARVEN::sha256Hex("stack A"));
    EXPECT_EQ(KARVEN::headerDifference(a, withTechnology(dir / "." / "a.ctf"), false), "");
    EXPECT_EQ(KARVEN::headerDifference(a, withTechnology(dir / "b.ctf"), false), "technology");
    fs::remove_all(dir);
}

namespace {

using ptest::errorOf;
using ptest::lines;
using ptest::writeLines;

// One whole run of nine samples with several wires each, so that the normal law of the positions
// is used, to compare shards and resumed runs with.
class LongRuns : public ptest::SampleRuns {
protected:
    void SetUp() override {
        SampleRuns::SetUp();
        run(params, "all.jsonl");
        all = lines(dir / "all.jsonl");
    }
    std::string header(const KARVEN::LongRun& r = {}) {
        return KARVEN::runHeader(params, {1, 0.005, true, 7}, r, 9).dump();
    }

    json params = {
        {"nsamples", 9}, {"poisson_lambda", 3}, {"window", 30.0}, {"conductor_window", 10.0}};
    std::vector<std::string> all;
};

}  // namespace

TEST_F(LongRuns, ShardsNeverOverlapAndTogetherEqualOneRun) {
    ASSERT_EQ(all.size(), 9u);
    for (size_t i = 0; i < all.size(); ++i) EXPECT_EQ(json::parse(all[i])["id"], i);
    EXPECT_FALSE(fs::exists(dir / "all.jsonl.journal"));
    EXPECT_EQ(lines(dir / "all.jsonl.header"), std::vector<std::string>{header()});
    // With one sample per shard no law can carry anything from one sample into the next.
    for (int shards : {2, 3, 9}) {
        SCOPED_TRACE(shards);
        std::vector<std::string> files, joined;
        for (int k = 0; k < shards; ++k) {
            // Shards of one run run on different threads and machines; the count may differ.
            files.push_back((dir / ("s" + std::to_string(k) + ".jsonl")).string());
            run(params, files.back(), k, shards, false, 1 + k % 3);
            EXPECT_EQ(count, KARVEN::shardRange(9, k, shards).size());
            const auto part = lines(files.back());
            joined.insert(joined.end(), part.begin(), part.end());
        }
        EXPECT_EQ(joined, all);
        // Any order of the files gives the same merge.
        std::reverse(files.begin(), files.end());
        EXPECT_EQ(KARVEN::mergeShards(files), all);
    }
}

TEST_F(LongRuns, StructureFileShardsTakeTheirLinesWithGlobalIds) {
    std::vector<std::string> structures;
    for (int i = 0; i < 9; ++i)
        structures.push_back(R"({"conductors": [[)" + std::to_string(0.1 * i) +
                             R"(, 0.6, 0.1, 0.2]], "layers": ["M1"]})");
    writeLines(dir / "structures.jsonl", structures);
    params = {{"structure_input", (dir / "structures.jsonl").string()}, {"window", 30.0}};
    run(params, "whole.jsonl");
    const auto whole = lines(dir / "whole.jsonl");
    ASSERT_EQ(whole.size(), 9u);
    run(params, "second.jsonl", 1, 2);
    EXPECT_EQ(count, 5);  // 9 lines in 2: 0-3 and 4-8
    EXPECT_EQ(lines(dir / "second.jsonl"),
              std::vector<std::string>(whole.begin() + 4, whole.end()));
    // The structure file's digest is part of the header: another file cannot be resumed.
    EXPECT_NE(ptest::readFile(dir / "whole.jsonl.header")
                  .find(KARVEN::sha256File((dir / "structures.jsonl").string())),
              std::string::npos);
}

TEST_F(LongRuns, ResumeKeepsJournalSamplesAndDrawsOnlyTheRest) {
    // An interrupted run: header, five samples in the order workers finished them, and a line
    // cut off in the middle of its write. Sample 4's line carries a mark that a redraw would lose.
    json marked = json::parse(all[4]);
    marked["capacitances"][0] = 123.25;
    writeLines(dir / "r.jsonl.journal", {header(), all[3], all[0], marked.dump(), all[8], all[1]});
    std::ofstream(dir / "r.jsonl.journal", std::ios::app) << all[2].substr(0, all[2].size() / 2);
    const std::string printed = run(params, "r.jsonl", 0, 1, true);
    EXPECT_NE(printed.find("[WARN]: dropping the incomplete last line of "), std::string::npos);
    EXPECT_NE(printed.find(": 5 of 9 samples done"), std::string::npos) << printed;
    // The bar goes on from the journal's five.
    EXPECT_NE(printed.find("(6/9)"), std::string::npos) << printed;
    EXPECT_EQ(printed.find("(5/9)"), std::string::npos) << printed;
    auto resumed = lines(dir / "r.jsonl");
    ASSERT_EQ(resumed.size(), 9u);
    EXPECT_EQ(resumed[4], marked.dump());  // kept, not drawn again
    resumed[4] = all[4];
    EXPECT_EQ(resumed, all);
    EXPECT_FALSE(fs::exists(dir / "r.jsonl.journal"));

    // A journal that holds everything just writes the file.
    std::vector<std::string> reversed(all.rbegin(), all.rend());
    reversed.insert(reversed.begin(), header());
    writeLines(dir / "done.jsonl.journal", reversed);
    run(params, "done.jsonl", 0, 1, true);
    EXPECT_EQ(lines(dir / "done.jsonl"), all);

    // Resuming a finished run (a resubmitted cluster job) keeps its file and draws nothing: a
    // marked line survives. With another seed the header differs and all is drawn again.
    run(params, "half.jsonl", 0, 2);  // ids 0 to 3
    auto half = lines(dir / "half.jsonl");
    ASSERT_EQ(half.size(), 4u);
    marked = json::parse(half[2]);
    marked["capacitances"][0] = 321.5;
    half[2] = marked.dump();
    writeLines(dir / "half.jsonl", half);
    const std::string again = run(params, "half.jsonl", 0, 2, true);
    EXPECT_NE(again.find("half.jsonl is already complete (4 samples)"), std::string::npos) << again;
    EXPECT_EQ(lines(dir / "half.jsonl"), half);
    run(params, "half.jsonl", 0, 2, true, 1, 8);
    EXPECT_NE(lines(dir / "half.jsonl")[2], half[2]);
}

TEST_F(LongRuns, ASolverErrorOnAWorkerReachesTheCallerAndNoFileIsWritten) {
    writeLines(dir / "one.jsonl", {R"({"conductors": [[0, 0.6, 0.1, 0.2]], "layers": ["M1"]})"});
    const json structure = {{"structure_input", (dir / "one.jsonl").string()}, {"window", 30.0}};
    solver = [](auto&&...) -> std::vector<double> {
        throw KARVEN::FatalError("Error: the solve failed");
    };
    for (const json& p : {params, structure}) {
        EXPECT_EQ(errorOf([&] { run(p, "f.jsonl", 0, 1, false, 2); }), "Error: the solve failed");
        EXPECT_FALSE(fs::exists(dir / "f.jsonl"));
        fs::remove(dir / "f.jsonl.journal");
    }
}

TEST_F(LongRuns, JournalThatDoesNotFitIsRefusedAndKept) {
    KARVEN::LongRun shard1;
    shard1.shard_index = 1;
    shard1.shard_count = 3;
    struct Case {
        std::string journal;
        bool resume;
        int seed, shard;  // shard 1 is that of three
        std::string message;
    };
    const std::string h = header() + "\n";
    const std::vector<Case> cases = {
        {h + all[0] + "\n", false, 7, 0, "holds an unfinished run; add --resume to finish it"},
        {h + all[0] + "\n", true, 8, 0, "it was made with seed 7, this run has seed 8"},
        {all[0] + "\n", true, 7, 0, "is not a sample journal"},
        {h + "not json\n", true, 7, 0, "line 2: not a sample line"},
        {h + all[1] + "\n" + all[1] + "\n", true, 7, 0, "line 3: id 1 appears a second time"},
        {header(shard1) + "\n" + all[0] + "\n", true, 7, 1, "id 0 is outside this run's indices 3"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        const fs::path journal = dir / "x.jsonl.journal";
        std::ofstream(journal) << c.journal;
        const std::string error =
            errorOf([&] { run(params, "x.jsonl", c.shard, c.shard ? 3 : 1, c.resume, 1, c.seed); });
        EXPECT_NE(error.find(c.message), std::string::npos) << error;
        EXPECT_EQ(ptest::readFile(journal), c.journal);  // the journal stays as it was
        EXPECT_FALSE(fs::exists(dir / "x.jsonl"));
    }
}

TEST_F(LongRuns, MergeRejectsMissingDuplicateAndForeignShards) {
    std::vector<std::string> f;
    for (int k = 0; k < 3; ++k) {
        f.push_back((dir / ("s" + std::to_string(k) + ".jsonl")).string());
        run(params, f.back(), k, 3);
    }
    run(params, "seed8.jsonl", 1, 3, false, 1, 8);
    run(params, "four.jsonl", 1, 4);
    fs::copy_file(f[0], dir / "bare.jsonl");
    std::ofstream(dir / "s3.jsonl.journal") << "x\n";
    fs::copy_file(f[2], dir / "s3.jsonl");
    fs::copy_file(f[2] + ".header", dir / "s3.jsonl.header");
    fs::copy_file(f[2], dir / "noid.jsonl");
    fs::copy_file(f[2] + ".header", dir / "noid.jsonl.header");
    std::ofstream(dir / "noid.jsonl", std::ios::app) << "{\"size\":2}\n";
    const std::string foreign = (dir / "seed8.jsonl").string(),
                      four = (dir / "four.jsonl").string(), noid = (dir / "noid.jsonl").string();

    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{f[0], f[2]}, "missing id 3 (3 of 9 ids missing in all); shard 1/3"},
        {{f[0], f[1], f[1], f[2]}, "duplicate id 3: in " + f[1] + " line 1"},
        {{f[0], foreign, f[2]}, "was made with seed 7, " + foreign + " with seed 8"},
        {{f[0], four}, "with shard 0/3, " + four + " with shard 1/4"},
        {{f[0], (dir / "bare.jsonl").string()}, "has no header file"},
        {{f[0], f[1], (dir / "s3.jsonl").string()}, "s3.jsonl is unfinished: its journal "},
        {{f[0], f[1], noid}, noid + " line 4: not a sample line"},
        {{}, "no shard files given"},
    };
    for (const auto& [files, message] : cases) {
        SCOPED_TRACE(message);
        const std::string error = errorOf([&] { KARVEN::mergeShards(files); });
        EXPECT_NE(error.find(message), std::string::npos) << error;
    }
}
