#pragma once
// The one way a run fails: library code throws FatalError and the program's main turns it into a
// failing exit status, so the libraries stay usable from other programs. An exception must not
// leave an OpenMP region, so parallel loops run their bodies through a FailureRelay, which keeps
// the first exception of any worker and rethrows it on the thread that opened the region.

#include <atomic>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>

namespace KARVEN {

class FatalError : public std::runtime_error {
public:
    // `message` is the whole line for the user. `printed`: it has already been shown where the
    // failure arose (the technology reader's fatal line, the solver's red line).
    explicit FatalError(const std::string& message, bool printed = false)
        : std::runtime_error(message), printed_(printed) {}

    // Returns true when the message must not be printed a second time.
    bool printed() const noexcept { return printed_; }

private:
    bool printed_;
};

class FailureRelay {
public:
    // Runs `work` unless a failure is already kept; keeps the first exception that any thread's
    // work throws. Never throws itself.
    template <class Work>
    void run(Work&& work) noexcept {
        if (failed()) return;
        try {
            work();
        } catch (...) {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!first_) first_ = std::current_exception();
            failed_.store(true, std::memory_order_relaxed);
        }
    }

    // Returns true once some work has thrown; loops use it to skip their remaining iterations.
    bool failed() const noexcept { return failed_.load(std::memory_order_relaxed); }

    // Rethrows the kept exception, if any; call it after the parallel region has ended.
    void rethrow() {
        if (first_) std::rethrow_exception(first_);
    }

private:
    std::mutex mutex_;
    std::exception_ptr first_;
    std::atomic<bool> failed_{false};
};

}  // namespace KARVEN
