#include "solver/file_utils.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace RW2D::FileUtils {

// Temporary files alive right now, for the SIGINT clean-up. Several pattern workers may run the
// outside program at once.
pthread_mutex_t g_temp_mutex = PTHREAD_MUTEX_INITIALIZER;
std::vector<std::string> g_temp_files;

namespace {

struct TempLock {
    TempLock() { pthread_mutex_lock(&g_temp_mutex); }
    ~TempLock() { pthread_mutex_unlock(&g_temp_mutex); }
    TempLock(const TempLock&) = delete;
    TempLock& operator=(const TempLock&) = delete;
};

void handle_sigint(int) {
    std::printf("[RW2D] Cleaning up temporary files...%zu\n", g_temp_files.size());
    std::fflush(stdout);
    pthread_mutex_lock(&g_temp_mutex);
    for (const std::string& p : g_temp_files) std::remove(p.c_str());
    g_temp_files.clear();
    pthread_mutex_unlock(&g_temp_mutex);
    std::_Exit(1);
}

// One temporary file made by mkstemp; the destructor removes it and forgets it.
class TempFile {
public:
    explicit TempFile(const char* pattern) {
        std::string buf(pattern);
        const int fd = mkstemp(buf.data());
        if (fd < 0) throw std::runtime_error("mkstemp failed");
        close(fd);
        path = buf;
        TempLock lock;
        g_temp_files.push_back(path);
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    ~TempFile() {
        if (!path.empty()) std::remove(path.c_str());
        TempLock lock;
        for (auto it = g_temp_files.begin(); it != g_temp_files.end(); ++it) {
            if (*it == path) {
                g_temp_files.erase(it);
                break;
            }
        }
    }

    std::string path;
};

std::string& stand_in_binary() {
    static std::string s;
    return s;
}
pthread_mutex_t g_binary_mutex = PTHREAD_MUTEX_INITIALIZER;

}  // namespace

std::string join_path(const std::string& a, const std::string& b) {
    return a + "/" + b;
}

std::string run_binary_with_string_io(const std::string& binary, const std::string& input,
                                      const std::string& extra_args) {
    std::signal(SIGINT, handle_sigint);
    TempFile in("/tmp/tmprw2dfdminXXXXXX");
    TempFile out("/tmp/tmprw2dfdmoutXXXXXX");
    {
        std::ofstream f(in.path);
        if (!f) throw std::runtime_error("Failed to open input temp file: " + in.path);
        f << input;
    }
    const std::string cmd =
        binary + " " + in.path + " -o " + out.path + extra_args + " >/dev/null 2>&1";
    if (std::system(cmd.c_str()) != 0) throw std::runtime_error("Command failed: " + cmd);
    std::ifstream f(out.path);
    if (!f) throw std::runtime_error("Failed to open output temp file: " + out.path);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

std::string ref_solver_binary() {
    pthread_mutex_lock(&g_binary_mutex);
    std::string s = stand_in_binary().empty() ? std::string(REF_SOLVER_BINARY) : stand_in_binary();
    pthread_mutex_unlock(&g_binary_mutex);
    return s;
}

// Test hook, declared only in the tests' support header: an empty path restores the fixed one.
void set_ref_solver_binary_for_tests(const std::string& path) {
    pthread_mutex_lock(&g_binary_mutex);
    stand_in_binary() = path;
    pthread_mutex_unlock(&g_binary_mutex);
}

}  // namespace RW2D::FileUtils
