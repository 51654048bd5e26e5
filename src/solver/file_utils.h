#pragma once
// Small file and process helpers of the solver: path joining and running an outside program on
// text through temporary files.

#include <string>

namespace RW2D::FileUtils {

// Install location of the reference solver on the machines in use.
inline constexpr const char* REF_SOLVER_BINARY = "/opt/refsolver/bin/refsolver2d";

// Returns a and b joined with one "/". Never fails.
std::string join_path(const std::string& a, const std::string& b);

// Writes input to a fresh temporary file, runs `binary <in> -o <out><extra_args>` through the
// shell with its output silenced, and returns the whole text of the output file. Both temporary
// files are removed on return, on a throw, and on SIGINT (which ends the process with status 1).
// Throws std::runtime_error when a temporary file cannot be made, opened or read, or when the
// command's status is not 0.
std::string run_binary_with_string_io(const std::string& binary, const std::string& input,
                                      const std::string& extra_args);

// The reference solver's program: REF_SOLVER_BINARY unless a test has put a stand-in in its
// place. Never fails.
std::string ref_solver_binary();

}  // namespace RW2D::FileUtils
