// karven: draws wire cross-sections on a technology's metal stack and writes their capacitance
// matrices, one JSON object per line.
#include <omp.h>

#include <CLI/CLI.hpp>

#include "driver/karven.h"
#include "runtime/failure.h"
#include "solver/file_utils.h"

int main(int argc, char** argv) {
    KarvenConfig config;
    config.command_line.assign(argv, argv + argc);
    CLI::App app{"KARVEN: Pattern Generator", ""};
    config.extraction.nthreads = omp_get_max_threads();

    app.add_option("-i,--input", config.ctf_path, "Input CTF file path");
    app.add_option("-o,--output", config.output_path, "Output file path");
    app.add_option("-n,--nthreads", config.extraction.nthreads,
                   "Number of threads (default: max available)");
    app.add_option("-p,--precision", config.extraction.precision, "Precsion (default: 0.005)")
        ->type_name("FLOAT")
        ->expected(1)
        ->type_size(1);
    app.add_option("--merge-diel", config.extraction.merge_diel,
                   "Merge dielectrics (default: true)")
        ->type_name("BOOLEAN")
        ->expected(1)
        ->type_size(1);
    app.add_option("--tmp-folder", config.tmp_folder,
                   "Temporary folder for output (default: tmp/)");
    app.add_option("--param-json", config.param_json_path,
                   "Parameter JSON file path (default: none)");
    app.add_option("--seed", config.extraction.seed, "Random seed (default: 1)");
    app.add_flag("--resume", config.resume,
                 "Finish an interrupted run from the journal beside its output");
    app.add_option("--shard", config.shard,
                   "Draw only part k of n of the sample indices, k from 0 to n-1 (default: 0/1)")
        ->type_name("K/N");
    app.add_option("--table-cache", config.table_cache,
                   "Folder that keeps solved tables between runs, or off (default: "
                   "$XDG_CACHE_HOME/karven, else ~/.cache/karven)")
        ->type_name("DIR|off");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e, std::cout, std::cerr);
    }
    // SIGINT and SIGTERM remove the unfinished sample file and the solver's temporary files.
    RW2D::FileUtils::install_signal_cleanup();
    try {
        KARVEN::Karven::generate(config);
    } catch (const KARVEN::FatalError& e) {
        if (!e.printed()) std::cerr << e.what() << std::endl;
        return 1;
    } catch (const std::exception& e) {
        std::cerr << "Error: " << e.what() << std::endl;
        return 1;
    }
    return 0;
}
