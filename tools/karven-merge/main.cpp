// karven-merge: joins the sample files of the shards of one run (karven --shard k/n) into the
// sample file that one run over all indices writes, after checking that they belong together
// and hold every index exactly once.
#include <CLI/CLI.hpp>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "patterns/journal.h"

int main(int argc, char** argv) {
    CLI::App app{"karven-merge: joins the sample files of the shards of one run", ""};
    std::string output;
    std::vector<std::string> shards;
    app.add_option("-o,--output", output, "Merged sample file")->required();
    app.add_option("shards", shards, "Sample files of the shards, each with its .header beside it")
        ->required();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e, std::cout, std::cerr);
    }
    try {
        const std::vector<std::string> lines = KARVEN::mergeShards(shards);
        KARVEN::SampleOutput out(output);
        for (const std::string& line : lines) out.writeLine(line);
        out.commit();
        std::cout << "Merged " << lines.size() << " samples from " << shards.size()
                  << " shard files into " << output << std::endl;
    } catch (const std::exception& e) {
        std::cerr << e.what() << std::endl;
        return 1;
    }
    return 0;
}
