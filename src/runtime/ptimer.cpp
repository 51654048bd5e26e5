#include "runtime/ptimer.h"

#include <cstdio>
#include <ctime>

PTimer::PTimer() {
    reset();
}

void PTimer::reset() {
    gettimeofday(&start_time, nullptr);
}

const char* PTimer::stop() {
    gettimeofday(&stop_time, nullptr);
    double secs =
        (stop_time.tv_sec - start_time.tv_sec) + (stop_time.tv_usec - start_time.tv_usec) * 1e-6;
    snprintf(buffer, sizeof buffer, "%.3f sec", secs);
    return buffer;
}

const char* PTimer::getTimeString() {
    static char text[64];
    timeval tv{};
    gettimeofday(&tv, nullptr);
    std::tm tmv{};
    time_t secs = tv.tv_sec;
    if (localtime_r(&secs, &tmv) == nullptr) {
        text[0] = '\0';
        return text;
    }
    char body[48];
    strftime(body, sizeof body, "%F %T", &tmv);
    snprintf(text, sizeof text, "%s.%03d", body, static_cast<int>(tv.tv_usec / 1000));
    return text;
}
