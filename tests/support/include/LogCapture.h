/*
 * Captures what the code under test writes to the Android log, through
 * liblog's __android_log_set_logger, so that tests can assert exact lines.
 */
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

namespace zeltest {

/** One log line as written: priority (3 DEBUG ... 6 ERROR), tag and text. */
struct LogLine {
    int priority = 0;
    std::string tag;
    std::string text;

    bool operator==(const LogLine& other) const {
        return priority == other.priority && tag == other.tag && text == other.text;
    }
};

/** Prints a line as "P/tag: text" in test failure messages. */
void PrintTo(const LogLine& line, std::ostream* os);

/**
 * While an instance lives, every log line of the process goes to it (and not
 * to stderr); lines of all priorities are kept. One instance at a time.
 */
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /** Every line captured so far, in order. */
    std::vector<LogLine> lines() const;
    /** The captured lines with this tag. */
    std::vector<LogLine> lines(const std::string& tag) const;
    /** How many captured lines equal `line`. */
    size_t count(const LogLine& line) const;
    /** Forgets the lines captured so far. */
    void clear();

    /**
     * Holds every later writer of a line with text `text` in its log call
     * until open(), so that a test can stop a thread at a chosen line. The
     * held lines are captured. Destruction opens too.
     */
    void close(const std::string& text);
    void open();
    /** Waits until `count` writers have been held since close(); false on timeout. */
    bool waitHeld(int count, std::chrono::milliseconds timeout) const;
    /** Waits until `count` lines equal `line`; false on timeout. */
    bool waitCount(const LogLine& line, size_t count, std::chrono::milliseconds timeout) const;
};

/** Routes log lines nowhere, e.g. for benchmarks. */
void silenceLog();

}  // namespace zeltest
