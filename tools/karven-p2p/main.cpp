// karven-p2p: the point-to-point resistance run on one input file. Every pair of a source and a
// destination pin of each selected net is solved and written to the report; tuning switches
// (P2P_*) come from an optional job file. Exit status 0 when the report was written, 1 when the
// input, a pattern, the job file or the report failed, and CLI11's codes for a bad command line.
#include <CLI/CLI.hpp>
#include <iostream>
#include <string>

#include "jobs/text_parser.h"
#include "resistance/rp2p_main.h"
#include "runtime/logger.h"

int main(int argc, char** argv) {
    CLI::App app{"karven-p2p: point-to-point resistance between the pins of each net"};
    RP2Pmain job;
    std::string job_file;
    auto* input = app.add_option_group("input", "the networks, from one of three files");
    input->add_option("--dspf", job.dspf_file, "DSPF file")->type_name("FILE");
    input->add_option("--rnetwork", job.rnetwork_file, "resistance network file")
        ->type_name("FILE");
    input->add_option("--rmatrix", job.rmatrix_file, "resistance matrix file (one net)")
        ->type_name("FILE");
    input->require_option(1);
    app.add_option("--src", job.src_pin, "source pin names: a name, or a pattern with ? and *")
        ->required()
        ->type_name("PATTERN");
    app.add_option("--dst", job.dst_pin, "destination pin names, as --src")
        ->required()
        ->type_name("PATTERN");
    app.add_option("--nets", job.nets, "nets to solve (default: all)")->type_name("NAME");
    app.add_option("--cmd", job_file, "job file with P2P_* switches")->type_name("JOBFILE");
    app.add_option("-o,--report", job.report_file, "report file")->required()->type_name("REPORT");
    app.add_flag("-v,--verbose", job.verbose, "progress messages and solver timings");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
    }
    if (job.verbose) PLOG::log(2).enableStdLogging(2, 0);
    if (!job_file.empty()) {
        Task task;  // only the argument table matters here: unknown keywords land in it
        if (!TextParser::parseDravixCmd(job_file.c_str(), task)) return 1;
    }
    return job.run() == 1 ? 0 : 1;
}
