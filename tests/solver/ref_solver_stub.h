#pragma once
// Test support: puts a stand-in program in the place of the reference solver. The library keeps
// the fixed install path for every user; only tests declare and call this hook.

#include <string>

namespace RW2D::FileUtils {
// An empty path restores the fixed install path.
void set_ref_solver_binary_for_tests(const std::string& path);
}  // namespace RW2D::FileUtils
