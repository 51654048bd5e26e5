// One small library per combination type, solved by the field solver at a coarse precision and
// written to disk: the layout of the file follows the combinations, skipped and solved.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <regex>

#include "pattern_test_util.h"
#include "patterns/families.h"

namespace fs = std::filesystem;

namespace {

size_t count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

}  // namespace

TEST(LibraryEndToEnd, OneSmallLibraryPerCombinationType) {
    MCTF::MiniCTF ctf;
    ptest::fillStack(ctf,
                     {{"M1", 0.5, 0.2},
                      {"M1b", 0.6, 0.2},  // overlaps M1: those combinations skip
                      {"M2", 1.0, 0.2, 0.2, 0.2},
                      {"M3", 1.5, 0.2, 0.2, 0.2}},
                     2.0, 3.9);
    fs::path dir = fs::path(testing::TempDir()) / ("lib_e2e_" + std::to_string(getpid()));
    fs::create_directories(dir);

    for (const char* name : {"AAG", "ABG", "PAAG11T", "PABG11T"}) {
        SCOPED_TRACE(name);
        auto family = KARVEN::PatternFactory::create(name);
        family->window = 20.0;
        // One point per combination keeps the solves few.
        KARVEN::json params = KARVEN::json::object();
        size_t solved = 0, skipped = 0;
        for (const KARVEN::Layers& layers : family->prepareLayerCombinations(ctf)) {
            std::string key;
            for (const auto* l : layers)
                key += (key.empty() ? "" : " ") + std::to_string(l->id + 1);
            params[key] = {{0.2}, {0.3}, {0.2}, {0.25}};
            (family->layerOverlap(layers) ? skipped : solved) += 1;
        }
        ASSERT_GT(solved, 0u);
        ASSERT_GT(skipped, 0u);
        const std::string path = (dir / (std::string(name) + ".lib")).string();
        int rows = 0;
        ptest::quiet([&] { rows = family->populate(path, ctf, params, {2, 0.05, true, 1}); });
        EXPECT_EQ(rows, static_cast<int>(solved));
        const std::string text = ptest::readFile(path);
        EXPECT_EQ(text.rfind("$ Generic structures\n" + std::string(name) + "\n", 0), 0u);
        const size_t roles = family->roles.size();
        EXPECT_EQ(count(text, "$ Actual structure\n"), solved + skipped);
        EXPECT_EQ(count(text, "covertically skipped\n"), roles * skipped);
        EXPECT_EQ(count(text, "$values\n"), roles * solved);
        // Every solved value is a finite positive capacitance in the library's number format.
        std::regex value(R"(\nValue0 (\d\.\d{6}e[+-]\d\d)\n)");
        size_t values = 0;
        for (std::sregex_iterator it(text.begin(), text.end(), value), end; it != end;
             ++it, ++values) {
            double v = std::stod((*it)[1]);
            EXPECT_TRUE(std::isfinite(v));
            EXPECT_GT(v, 0.0);
        }
        EXPECT_EQ(values, roles * solved);
    }
    fs::remove_all(dir);
}
