// Long runs: shard ranges, the digest naming the technology file, the journal that a run keeps
// beside its output, resuming from it, and merging shard files. The family runs here use a
// stand-in field solver, so a run of a few samples takes milliseconds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>

#include "pattern_test_util.h"
#include "patterns/derived.h"
#include "patterns/digest.h"
#include "patterns/journal.h"

namespace fs = std::filesystem;
using KARVEN::json;

TEST(ShardRange, ShardsCoverEveryIndexOnceInOrderAndEvenly) {
    for (int64_t nsamples : {0, 1, 3, 7, 10, 1000, 50001}) {
        for (int count : {1, 2, 3, 4, 7, 16}) {
            SCOPED_TRACE(std::to_string(nsamples) + " in " + std::to_string(count));
            std::vector<int> seen(nsamples, 0);
            int64_t smallest = nsamples, largest = 0, next = 0;
            for (int k = 0; k < count; ++k) {
                const KARVEN::ShardRange r = KARVEN::shardRange(nsamples, k, count);
                EXPECT_EQ(r.begin, next);  // contiguous, in shard order
                next = r.end;
                for (int64_t i = r.begin; i < r.end; ++i) ++seen[i];
                smallest = std::min(smallest, r.size());
                largest = std::max(largest, r.size());
            }
            EXPECT_EQ(next, nsamples);
            EXPECT_TRUE(std::all_of(seen.begin(), seen.end(), [](int c) { return c == 1; }));
            EXPECT_LE(largest - smallest, 1);
        }
    }
    // 10 in 4: 0-1, 2-4, 5-6, 7-9.
    EXPECT_EQ(KARVEN::shardRange(10, 1, 4).begin, 2);
    EXPECT_EQ(KARVEN::shardRange(10, 1, 4).end, 5);
}

TEST(ShardRange, ParsesKOverN) {
    struct Case {
        const char* text;
        bool ok;
        int k = -7, n = -7;
    };
    for (const Case& c : std::vector<Case>{{"0/1", true, 0, 1},
                                           {"3/4", true, 3, 4},
                                           {"12/100", true, 12, 100},
                                           {"4/4", false},
                                           {"-1/4", false},
                                           {"1/0", false},
                                           {"0/-2", false},
                                           {"1", false},
                                           {"/4", false},
                                           {"1/", false},
                                           {"a/b", false},
                                           {"1/2x", false},
                                           {" 1/2", false},
                                           {"1/2/3", false},
                                           {"", false}}) {
        SCOPED_TRACE(c.text);
        int k = -7, n = -7;
        EXPECT_EQ(KARVEN::parseShard(c.text, k, n), c.ok);
        if (c.ok) {
            EXPECT_EQ(k, c.k);
            EXPECT_EQ(n, c.n);
        } else {
            EXPECT_EQ(k, -7);  // untouched on failure
        }
    }
}

TEST(Digest, Sha256OfTheStandardTestMessages) {
    // The test vectors published with the SHA-256 standard; the last spans many blocks.
    EXPECT_EQ(KARVEN::sha256Hex(""),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(KARVEN::sha256Hex("abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(KARVEN::sha256Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(KARVEN::sha256Hex(std::string(1000000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");

    fs::path file = fs::path(testing::TempDir()) / ("digest_" + std::to_string(getpid()));
    std::ofstream(file) << std::string(1000000, 'a');
    EXPECT_EQ(KARVEN::sha256File(file.string()), KARVEN::sha256Hex(std::string(1000000, 'a')));
    fs::remove(file);
    EXPECT_THROW(KARVEN::sha256File(file.string()), std::runtime_error);
}

TEST(JournalHeader, DifferencesThatChangeSamplesAreFoundAndPathsAreNot) {
    const KARVEN::ExtractionConfig config{2, 0.05, true, 7};
    const KARVEN::LongRun whole;
    const json params = {{"nsamples", 6}, {"window", 30.0}};
    const json base = KARVEN::runHeader(params, config, whole, 6);
    EXPECT_EQ(KARVEN::headerDifference(base, base, false), "");

    auto changed = [&](auto edit) {
        KARVEN::ExtractionConfig c = config;
        KARVEN::LongRun r;
        json p = params;
        edit(c, r, p);
        return KARVEN::headerDifference(base, KARVEN::runHeader(p, c, r, 6), false);
    };
    EXPECT_EQ(changed([](auto& c, auto&, auto&) { c.seed = 8; }), "seed");
    EXPECT_EQ(changed([](auto& c, auto&, auto&) { c.precision = 0.04; }), "precision");
    EXPECT_EQ(changed([](auto& c, auto&, auto&) { c.merge_diel = false; }), "merge_diel");
    EXPECT_EQ(changed([](auto&, auto&, auto& p) { p["window"] = 31.0; }), "parameters");
    EXPECT_EQ(changed([](auto&, auto& r, auto&) { r.shard_count = 2; }), "shard");
    // Neither the thread count nor resuming changes a sample.
    EXPECT_EQ(changed([](auto& c, auto& r, auto&) {
                  c.nthreads = 5;
                  r.resume = true;
              }),
              "");

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

    // Shards of one run differ only in the shard index.
    KARVEN::LongRun s0, s1, t1;
    s0.shard_count = s1.shard_count = 3;
    s1.shard_index = 1;
    t1.shard_count = 4;
    t1.shard_index = 1;
    const json h0 = KARVEN::runHeader(params, config, s0, 6);
    const json h1 = KARVEN::runHeader(params, config, s1, 6);
    EXPECT_EQ(KARVEN::headerDifference(h0, h1, true), "");
    EXPECT_EQ(KARVEN::headerDifference(h0, h1, false), "shard");
    EXPECT_EQ(KARVEN::headerDifference(h0, KARVEN::runHeader(params, config, t1, 6), true),
              "shard");
    EXPECT_EQ(KARVEN::describeHeaderKey(h1, "shard"), "shard 1/3");
    EXPECT_EQ(KARVEN::describeHeaderKey(h1, "seed"), "seed 7");
    fs::remove_all(dir);
}

TEST(SampleLine, SameBytesAsTheSampleFileWithTheGlobalId) {
    KARVEN::PatternResult r{{{0.0, 0.1, 0.2, 0.3}, {-50.0, -0.1, 50.0, 0.0}},
                            {0.12345678949, -0.000000001, -0.1, 0.1}};
    std::string golden = ptest::readFile("golden/sample_line.jsonl");
    ASSERT_FALSE(golden.empty());
    EXPECT_EQ(KARVEN::sampleLine(r, 0) + "\n", golden);
    KARVEN::PatternResult again{{{0.0, 0.1, 0.2, 0.3}, {-50.0, -0.1, 50.0, 0.0}},
                                {0.12345678949, -0.000000001, -0.1, 0.1}};
    std::string far = KARVEN::sampleLine(again, 40123);
    EXPECT_NE(far.find(",\"id\":40123,"), std::string::npos) << far;
}

namespace {

double gap(const KARVEN::Rect& a, const KARVEN::Rect& b) {
    double dx = std::max({0.0, b[0] - a[2], a[0] - b[2]});
    double dy = std::max({0.0, b[1] - a[3], a[1] - b[3]});
    return std::hypot(dx, dy);
}

// Coupling falls off with the gap to the master; symmetric and zero-sum after the constraint.
std::vector<double> falloffSolver(const std::vector<KARVEN::Rect>& wires,
                                  const std::vector<std::array<double, 2>>&,
                                  const std::vector<KARVEN::ConformalRect>&, const KARVEN::Rect&,
                                  double, int) {
    const size_t n = wires.size();
    std::vector<double> r(2 * n, 1e-8);
    r[0] = 0.0;
    for (size_t j = 1; j < n; ++j) {
        r[j] = -std::exp(-gap(wires[0], wires[j]));
        r[0] -= r[j];
    }
    return r;
}

std::vector<std::string> lines(const fs::path& p) {
    std::vector<std::string> out;
    std::ifstream in(p);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

class LongRuns : public testing::Test {
protected:
    void SetUp() override {
        for (int k = 0; k < 6; ++k) {
            double w = 0.1 * (k + 1);
            ctf.appendConductor("M" + std::to_string(k + 1), 0.5 * (k + 1), 0.2, w, w);
        }
        ctf.appendDielectric("D", 0.0, 4.0, 3.9);
        ctf.finishStack();
        dir = fs::path(testing::TempDir()) / ("longrun_" + std::to_string(getpid()));
        fs::create_directories(dir);
        config = {1, 0.005, true, 7};
    }
    void TearDown() override { fs::remove_all(dir); }

    // Runs the family quietly; returns what it printed, or passes on what it threw.
    std::string run(const std::string& file, int shard = 0, int shards = 1, bool resume = false,
                    int threads = 1, int seed = 7) {
        KARVEN::ExtractionConfig c = config;
        c.nthreads = threads;
        c.seed = seed;
        KARVEN::Random family;
        family.long_run.shard_index = shard;
        family.long_run.shard_count = shards;
        family.long_run.resume = resume;
        testing::internal::CaptureStdout();
        try {
            count = family.populate((dir / file).string(), ctf, params, c, falloffSolver);
        } catch (...) {
            testing::internal::GetCapturedStdout();
            throw;
        }
        return testing::internal::GetCapturedStdout();
    }

    MCTF::MiniCTF ctf;
    fs::path dir;
    KARVEN::ExtractionConfig config;
    int count = 0;  // what the last run returned
    // Several wires per sample, so that the normal law of the positions is used.
    json params = {
        {"nsamples", 9}, {"poisson_lambda", 3}, {"window", 30.0}, {"conductor_window", 10.0}};
};

}  // namespace

TEST_F(LongRuns, FinishedRunLeavesSampleFileAndHeaderButNoJournal) {
    run("all.jsonl");
    auto all = lines(dir / "all.jsonl");
    ASSERT_EQ(all.size(), 9u);
    for (size_t i = 0; i < all.size(); ++i) EXPECT_EQ(json::parse(all[i])["id"], i);
    EXPECT_FALSE(fs::exists(dir / "all.jsonl.journal"));
    auto header = lines(dir / "all.jsonl.header");
    ASSERT_EQ(header.size(), 1u);
    EXPECT_EQ(json::parse(header[0]), KARVEN::runHeader(params, config, KARVEN::LongRun{}, 9));
}

TEST_F(LongRuns, SampleDependsOnlyOnIndexAndSeedWhateverRanBefore) {
    params["nsamples"] = 20;
    run("one.jsonl");
    const auto all = lines(dir / "one.jsonl");
    ASSERT_EQ(all.size(), 20u);
    // Each sample drawn alone, as the only sample of its shard, is the sample of the whole run:
    // no law carries anything from one sample into the next.
    for (int i = 0; i < 20; ++i) {
        run("alone.jsonl", i, 20);
        EXPECT_EQ(lines(dir / "alone.jsonl"), std::vector<std::string>{all[i]}) << i;
    }
    // So the thread count does not matter either.
    run("three.jsonl", 0, 1, false, 3);
    EXPECT_EQ(lines(dir / "three.jsonl"), all);
}

TEST_F(LongRuns, ShardsNeverOverlapAndTogetherEqualOneRun) {
    run("all.jsonl");
    const auto all = lines(dir / "all.jsonl");
    for (int shards : {2, 3, 4}) {
        SCOPED_TRACE(shards);
        std::vector<std::string> files, joined;
        std::set<int64_t> ids;
        for (int k = 0; k < shards; ++k) {
            // Shards of one run run on different threads and machines; the count may differ.
            const std::string file = "s" + std::to_string(k) + ".jsonl";
            run(file, k, shards, false, 1 + k % 2);
            const KARVEN::ShardRange r = KARVEN::shardRange(9, k, shards);
            EXPECT_EQ(count, r.size());  // the samples in its file
            auto part = lines(dir / file);
            ASSERT_EQ(static_cast<int64_t>(part.size()), r.size());
            for (const auto& l : part) {
                const int64_t id = json::parse(l)["id"].get<int64_t>();
                EXPECT_TRUE(id >= r.begin && id < r.end) << id;
                EXPECT_TRUE(ids.insert(id).second) << "id " << id << " drawn twice";
            }
            joined.insert(joined.end(), part.begin(), part.end());
            files.push_back((dir / file).string());
        }
        EXPECT_EQ(joined, all);
        EXPECT_EQ(KARVEN::mergeShards(files), all);
        // Any order of the files gives the same merge.
        std::reverse(files.begin(), files.end());
        EXPECT_EQ(KARVEN::mergeShards(files), all);
    }
}

TEST_F(LongRuns, StructureFileShardsTakeTheirLinesWithGlobalIds) {
    run("drawn.jsonl");
    // Name each wire's layer from its height, so that the samples can be read back.
    std::ofstream structures(dir / "structures.jsonl");
    for (const auto& l : lines(dir / "drawn.jsonl")) {
        json s = json::parse(l), names = json::array();
        for (const json& c : s["conductors"]) {
            std::string name = "substrate";
            for (const auto* layer : ctf.conductors)
                if (std::fabs((layer->z_bottom + layer->z_top) / 2 - c[1].get<double>()) < 1e-9)
                    name = layer->name;
            names.push_back(name);
        }
        s["conductors"].erase(s["conductors"].size() - 1);  // the plate comes back by itself
        names.erase(names.size() - 1);
        s["layers"] = names;
        structures << s.dump() << "\n";
    }
    structures.close();
    params = {{"structure_input", (dir / "structures.jsonl").string()}, {"window", 30.0}};
    run("whole.jsonl");
    const auto whole = lines(dir / "whole.jsonl");
    ASSERT_EQ(whole.size(), 9u);
    run("second.jsonl", 1, 2);
    EXPECT_EQ(count, 5);  // 9 lines in 2: 0-3 and 4-8
    EXPECT_EQ(lines(dir / "second.jsonl"),
              std::vector<std::string>(whole.begin() + 4, whole.end()));
    // The structure file's digest is part of the header: another file cannot be resumed.
    const std::string header = ptest::readFile(dir / "whole.jsonl.header");
    EXPECT_NE(header.find(KARVEN::sha256File((dir / "structures.jsonl").string())),
              std::string::npos);
}

TEST_F(LongRuns, ResumeKeepsJournalSamplesAndDrawsOnlyTheRest) {
    run("all.jsonl");
    const auto all = lines(dir / "all.jsonl");
    ASSERT_EQ(all.size(), 9u);

    // An interrupted run: header, five samples in the order workers finished them, and a line
    // cut off in the middle of its write. Sample 4's line carries a mark that a redraw would lose.
    json marked = json::parse(all[4]);
    marked["capacitances"][0] = 123.25;
    {
        std::ofstream journal(dir / "r.jsonl.journal");
        journal << KARVEN::runHeader(params, config, KARVEN::LongRun{}, 9).dump() << "\n";
        for (int i : {3, 0, 4, 8, 1}) journal << (i == 4 ? marked.dump() : all[i]) << "\n";
        journal << all[2].substr(0, all[2].size() / 2);
    }
    const std::string printed = run("r.jsonl", 0, 1, true);
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
    {
        std::ofstream journal(dir / "done.jsonl.journal");
        journal << KARVEN::runHeader(params, config, KARVEN::LongRun{}, 9).dump() << "\n";
        for (int i = 8; i >= 0; --i) journal << all[i] << "\n";
    }
    run("done.jsonl", 0, 1, true);
    EXPECT_EQ(lines(dir / "done.jsonl"), all);

    // Resuming a finished run (a resubmitted cluster job) keeps its file and draws nothing: a
    // marked line survives. With another seed the header differs and all is drawn again.
    run("half.jsonl", 0, 2);  // ids 0 to 3
    auto half = lines(dir / "half.jsonl");
    ASSERT_EQ(half.size(), 4u);
    json marked2 = json::parse(half[2]);
    marked2["capacitances"][0] = 321.5;
    half[2] = marked2.dump();
    {
        std::ofstream out(dir / "half.jsonl");
        for (const auto& l : half) out << l << "\n";
    }
    const std::string again = run("half.jsonl", 0, 2, true);
    EXPECT_NE(again.find("half.jsonl is already complete (4 samples)"), std::string::npos) << again;
    EXPECT_EQ(lines(dir / "half.jsonl"), half);
    run("half.jsonl", 0, 2, true, 1, 8);
    EXPECT_NE(lines(dir / "half.jsonl")[2], half[2]);
}

TEST_F(LongRuns, JournalThatDoesNotFitIsRefusedAndKept) {
    run("all.jsonl");
    const auto all = lines(dir / "all.jsonl");
    const std::string header = KARVEN::runHeader(params, config, KARVEN::LongRun{}, 9).dump();
    struct Case {
        std::string name, journal;
        bool resume;
        int seed;
        std::string message;
    };
    const std::vector<Case> cases = {
        {"no resume", header + "\n" + all[0] + "\n", false, 7,
         "holds an unfinished run; add --resume to finish it"},
        {"other seed", header + "\n" + all[0] + "\n", true, 8,
         "it was made with seed 7, this run has seed 8"},
        {"not a journal", all[0] + "\n", true, 7, "is not a sample journal"},
        {"bad line", header + "\nnot json\n", true, 7, "line 2: not a sample line"},
        {"repeated id", header + "\n" + all[1] + "\n" + all[1] + "\n", true, 7,
         "line 3: id 1 appears a second time"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const fs::path journal = dir / "x.jsonl.journal";
        std::ofstream(journal) << c.journal;
        try {
            run("x.jsonl", 0, 1, c.resume, 1, c.seed);
            ADD_FAILURE() << "no error";
        } catch (const std::exception& e) {
            EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
        }
        EXPECT_EQ(ptest::readFile(journal), c.journal);  // the journal stays as it was
        EXPECT_FALSE(fs::exists(dir / "x.jsonl"));
    }
    // A journal of another shard's indices.
    KARVEN::LongRun shard1;
    shard1.shard_index = 1;
    shard1.shard_count = 3;
    std::ofstream(dir / "y.jsonl.journal")
        << KARVEN::runHeader(params, config, shard1, 9).dump() << "\n"
        << all[0] << "\n";
    try {
        run("y.jsonl", 1, 3, true);
        ADD_FAILURE() << "no error";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("id 0 is outside this run's indices 3 to 5"),
                  std::string::npos)
            << e.what();
    }
}

TEST_F(LongRuns, MergeRejectsMissingDuplicateAndForeignShards) {
    std::vector<std::string> f;
    for (int k = 0; k < 3; ++k) {
        run("s" + std::to_string(k) + ".jsonl", k, 3);
        f.push_back((dir / ("s" + std::to_string(k) + ".jsonl")).string());
    }
    run("seed8.jsonl", 1, 3, false, 1, 8);
    run("four.jsonl", 1, 4);
    fs::copy_file(f[0], dir / "bare.jsonl");
    const std::string foreign = (dir / "seed8.jsonl").string(),
                      four = (dir / "four.jsonl").string();

    struct Case {
        std::string name;
        std::vector<std::string> files;
        std::string message;
    };
    const std::vector<Case> cases = {
        {"missing shard", {f[0], f[2]}, "missing id 3 (3 of 9 ids missing in all); shard 1/3"},
        {"duplicate shard", {f[0], f[1], f[1], f[2]}, "duplicate id 3: in " + f[1] + " line 1"},
        {"other seed", {f[0], foreign, f[2]}, "was made with seed 7, " + foreign + " with seed 8"},
        {"other split", {f[0], four}, "with shard 0/3, " + four + " with shard 1/4"},
        {"no header", {f[0], (dir / "bare.jsonl").string()}, "has no header file"},
        {"no files", {}, "no shard files given"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        try {
            KARVEN::mergeShards(c.files);
            ADD_FAILURE() << "no error";
        } catch (const std::exception& e) {
            EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
        }
    }

    // A shard whose run is unfinished; and a line that lost its id.
    std::ofstream(f[1] + ".journal") << "x\n";
    EXPECT_THROW(KARVEN::mergeShards(f), std::runtime_error);
    fs::remove(f[1] + ".journal");
    std::ofstream(f[2], std::ios::app) << "{\"size\":2}\n";
    try {
        KARVEN::mergeShards(f);
        ADD_FAILURE() << "no error";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find(f[2] + " line 4: not a sample line"),
                  std::string::npos)
            << e.what();
    }
}
