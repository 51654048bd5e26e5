#pragma once
// PTimer: a wall-clock stopwatch for the engine side's progress lines.

#include <sys/time.h>

class PTimer {
public:
    // Starts the watch now.
    PTimer();
    virtual ~PTimer() = default;

    // Restarts the watch now.
    void reset();
    // Notes the stop time; returns the elapsed time as "%.3f sec", valid until the next stop().
    const char* stop();
    // Returns now as "%F %T.mmm" local time in a static buffer (one thread at a time).
    static const char* getTimeString();

    timeval start_time{};
    timeval stop_time{};
    char buffer[64] = {0};
};
