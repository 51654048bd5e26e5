#include "runtime/logger.h"

#include <cstdio>
#include <iostream>

#include "runtime/ptimer.h"

namespace {
// The logger is reached only through log(), so it can be a local of this unit.
PLOG& instance() {
    struct Instance : PLOG {};
    static Instance p;
    return p;
}
}  // namespace

PLOG::~PLOG() {
    closeLog();
    std::cout.flush();
}

PLOG& PLOG::log(int lvl) {
    PLOG& p = instance();
    p.level = lvl;
    return p;
}

const std::string& PLOG::prefix() const {
    static const std::string unknown = "[?]";
    if (level < 0 || level >= static_cast<int>(level_names.size())) return unknown;
    return level_names[level];
}

template <class T>
PLOG& PLOG::write(const T& value) {
    if (std_enabled && level >= std_level) {
        if (at_line_start) {
            if (std_timestamp) std::cout << getTimeStamp();
            std::cout << prefix() << ' ';
        }
        std::cout << value;
    }
    if (file_enabled && level >= file_level) {
        for (std::fstream* f : files) {
            if (!f->good()) continue;
            if (at_line_start) {
                if (file_timestamp) *f << getTimeStamp();
                *f << prefix() << ' ';
            }
            *f << value;
        }
    }
    at_line_start = 0;
    return *this;
}

void PLOG::finishLine(bool newLine) {
    if (std_enabled && level >= std_level) {
        std::cout << '\n';
        std::cout.flush();
    }
    if (file_enabled && level >= file_level) {
        for (std::fstream* f : files) {
            if (!f->good()) continue;
            *f << '\n';
            f->flush();
        }
    }
    if (newLine) at_line_start = 1;
}

PLOG& PLOG::endl(PLOG& p) {
    p.finishLine(true);
    return p;
}

PLOG& PLOG::ends(PLOG& p) {
    p.finishLine(false);
    return p;
}

PLOG& PLOG::operator<<(int v) {
    return write(v);
}
PLOG& PLOG::operator<<(long v) {
    return write(v);
}
PLOG& PLOG::operator<<(unsigned int v) {
    return write(v);
}
PLOG& PLOG::operator<<(unsigned long v) {
    return write(v);
}
PLOG& PLOG::operator<<(double v) {
    return write(v);
}
PLOG& PLOG::operator<<(float v) {
    return write(v);
}
PLOG& PLOG::operator<<(const char* v) {
    return write(v);
}
PLOG& PLOG::operator<<(const std::string& v) {
    return write(v);
}

PLOG& PLOG::operator<<(Manipulator m) {
    if (m == &PLOG::endl || m == &PLOG::ends) return m(*this);
    return *this;
}

int PLOG::enableStdLogging(int lvl, int timestamp) {
    std_enabled = 1;
    std_timestamp = timestamp;
    std_level = lvl < 0 ? 0 : lvl;
    return 0;
}

int PLOG::enableFileLogging(int lvl, int timestamp) {
    file_enabled = 1;
    file_timestamp = timestamp;
    file_level = lvl < 0 ? 0 : lvl;
    return 0;
}

void PLOG::addLoggingFile(const char* path, int append) {
    auto mode = std::ios::out | (append ? std::ios::app : std::ios::trunc);
    files.push_back(new std::fstream(path, mode));
}

void PLOG::addLoggingFile(const std::string& path, int append) {
    addLoggingFile(path.c_str(), append);
}

void PLOG::flushLog() {
    std::cout.flush();
    for (std::fstream* f : files) f->flush();
}

void PLOG::closeLog() {
    for (std::fstream* f : files) {
        f->close();
        delete f;
    }
    files.clear();
}

const char* PLOG::getTimeStamp() {
    // The stopwatch formats the local time; an empty text means it was unavailable.
    const char* now = PTimer::getTimeString();
    snprintf(stamp, sizeof stamp, now[0] ? "[%s]" : "[]", now);
    return stamp;
}
