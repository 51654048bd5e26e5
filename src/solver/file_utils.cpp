#include "solver/file_utils.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <stdexcept>

namespace RW2D::FileUtils {

namespace {

// One entry of the temporary-file list. A signal handler may read it at any moment, so the list
// is a fixed table of plain buffers whose state word says when the text is complete, rather than
// a container behind a lock: a handler that waited for a lock held by the interrupted thread
// would never return.
struct TempSlot {
    enum : int { FREE = 0, FILLING = 1, READY = 2 };
    std::atomic<int> state{FREE};
    char path[1024];
};

// Room for the two files of every concurrent external run and the run's own output.
constexpr std::size_t kTempSlots = 4096;

}  // namespace

// Temporary files alive right now, for the signal clean-up. Several pattern workers may run the
// outside program at once.
std::array<TempSlot, kTempSlots> g_temp_files;

namespace {

void write_all(int fd, const char* text, std::size_t n) {
    while (n > 0) {
        const ssize_t k = write(fd, text, n);
        if (k <= 0) return;
        text += k;
        n -= static_cast<std::size_t>(k);
    }
}

void handle_signal(int) {
    // Only async-signal-safe calls from here on: no stdio, no locks, no allocation.
    std::size_t count = 0;
    for (TempSlot& slot : g_temp_files)
        if (slot.state.load() == TempSlot::READY) ++count;
    char digits[24];
    std::size_t n = 0;
    do {
        digits[sizeof digits - 1 - n++] = static_cast<char>('0' + count % 10);
        count /= 10;
    } while (count > 0);
    static const char kHead[] = "[RW2D] Cleaning up temporary files...";
    write_all(STDOUT_FILENO, kHead, sizeof kHead - 1);
    write_all(STDOUT_FILENO, digits + sizeof digits - n, n);
    write_all(STDOUT_FILENO, "\n", 1);
    for (TempSlot& slot : g_temp_files) {
        int ready = TempSlot::READY;
        // Claim the slot so that a thread that is still running cannot reuse it meanwhile.
        if (slot.state.compare_exchange_strong(ready, TempSlot::FILLING)) unlink(slot.path);
    }
    _exit(1);
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
        try {
            ticket = remember_temp_file(path);
        } catch (...) {
            std::remove(path.c_str());
            throw;
        }
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    ~TempFile() {
        std::remove(path.c_str());
        forget_temp_file(ticket);
    }

    std::string path;
    int ticket = -1;
};

std::string& stand_in_binary() {
    static std::string s;
    return s;
}
pthread_mutex_t g_binary_mutex = PTHREAD_MUTEX_INITIALIZER;

}  // namespace

int remember_temp_file(const std::string& path) {
    if (path.size() >= sizeof(TempSlot::path))
        throw std::runtime_error("temporary file path too long: " + path);
    for (std::size_t i = 0; i < g_temp_files.size(); ++i) {
        TempSlot& slot = g_temp_files[i];
        int free = TempSlot::FREE;
        if (!slot.state.compare_exchange_strong(free, TempSlot::FILLING)) continue;
        std::memcpy(slot.path, path.c_str(), path.size() + 1);
        slot.state.store(TempSlot::READY);
        return static_cast<int>(i);
    }
    throw std::runtime_error("too many temporary files at once");
}

void forget_temp_file(int ticket) {
    if (ticket < 0 || static_cast<std::size_t>(ticket) >= g_temp_files.size()) return;
    g_temp_files[static_cast<std::size_t>(ticket)].state.store(TempSlot::FREE);
}

void install_signal_cleanup() {
    static std::once_flag once;
    std::call_once(once, [] {
        struct sigaction action {};
        action.sa_handler = handle_signal;
        sigemptyset(&action.sa_mask);
        // While one signal cleans up, a second one waits rather than interrupting the handler.
        sigaddset(&action.sa_mask, SIGINT);
        sigaddset(&action.sa_mask, SIGTERM);
        sigaction(SIGINT, &action, nullptr);
        sigaction(SIGTERM, &action, nullptr);
    });
}

std::string join_path(const std::string& a, const std::string& b) {
    return a + "/" + b;
}

std::string run_binary_with_string_io(const std::string& binary, const std::string& input,
                                      const std::string& extra_args) {
    install_signal_cleanup();
    TempFile in("/tmp/tmprw2dfdminXXXXXX");
    TempFile out("/tmp/tmprw2dfdmoutXXXXXX");
    {
        std::ofstream f(in.path);
        if (!f) throw std::runtime_error("Failed to open input temp file: " + in.path);
        f << input;
        f.close();
        if (!f) throw std::runtime_error("Failed to write input temp file: " + in.path);
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

bool ref_solver_available() {
    return access(ref_solver_binary().c_str(), X_OK) == 0;
}

// Test hook, declared only in the tests' support header: an empty path restores the fixed one.
void set_ref_solver_binary_for_tests(const std::string& path) {
    pthread_mutex_lock(&g_binary_mutex);
    stand_in_binary() = path;
    pthread_mutex_unlock(&g_binary_mutex);
}

}  // namespace RW2D::FileUtils
