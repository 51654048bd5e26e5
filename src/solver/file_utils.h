#pragma once
// Small file and process helpers of the solver: path joining, running an outside program on text
// through temporary files, and the removal of registered temporary files when a signal ends the
// process.

#include <string>

namespace RW2D::FileUtils {

// Install location of the reference solver on the machines in use.
inline constexpr const char* REF_SOLVER_BINARY = "/opt/refsolver/bin/refsolver2d";

// Returns a and b joined with one "/". Never fails.
std::string join_path(const std::string& a, const std::string& b);

// Writes input to a fresh temporary file, runs `binary <in> -o <out><extra_args>` through the
// shell with its output silenced, and returns the whole text of the output file. Both temporary
// files are removed on return, on a throw, and on SIGINT or SIGTERM (which end the process with
// status 1). Throws std::runtime_error when a temporary file cannot be made, opened or read, or
// when the command's status is not 0.
std::string run_binary_with_string_io(const std::string& binary, const std::string& input,
                                      const std::string& extra_args);

// The reference solver's program: REF_SOLVER_BINARY unless a test has put a stand-in in its
// place. Never fails.
std::string ref_solver_binary();

// Returns true when the reference solver's program exists and may be executed.
bool ref_solver_available();

// Puts `path` on the list of files that a SIGINT or SIGTERM removes before ending the process;
// returns a ticket for forget_temp_file. Throws std::runtime_error when the path is longer than
// 1023 bytes or the list is full. Thread-safe.
int remember_temp_file(const std::string& path);

// Takes the file of `ticket` off the list (it is not removed). A negative ticket is ignored.
void forget_temp_file(int ticket);

// Installs, once per process, the SIGINT and SIGTERM handler that removes the listed files,
// prints "[RW2D] Cleaning up temporary files..." with their count, and ends the process with
// status 1. The handler uses only async-signal-safe calls.
void install_signal_cleanup();

}  // namespace RW2D::FileUtils
