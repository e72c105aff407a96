#include "LogCapture.h"

#include <android/log.h>

#include <algorithm>
#include <condition_variable>
#include <ostream>

namespace zeltest {
namespace {

// The logger is a plain function, so the lines live at namespace scope. The
// mutex makes the capture safe for lines written from binder threads.
std::mutex gMutex;
std::condition_variable gChanged;
std::vector<LogLine> gLines;
// The text whose writers are held (none when empty), and how many were.
std::string gGate;
int gHeld = 0;

size_t countLocked(const LogLine& line) {
    return static_cast<size_t>(std::count(gLines.begin(), gLines.end(), line));
}

void captureLine(const struct __android_logger_data* data, const char* message) {
    std::unique_lock<std::mutex> lock(gMutex);
    gLines.push_back(LogLine{data->priority, data->tag != nullptr ? data->tag : "",
                             message != nullptr ? message : ""});
    if (!gGate.empty() && gGate == gLines.back().text) {
        ++gHeld;
        gChanged.notify_all();
        gChanged.wait(lock, [] { return gGate.empty(); });
    }
    gChanged.notify_all();
}

void dropLine(const struct __android_logger_data*, const char*) {}

}  // namespace

void PrintTo(const LogLine& line, std::ostream* os) {
    *os << line.priority << "/" << line.tag << ": \"" << line.text << "\"";
}

LogCapture::LogCapture() {
    clear();
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(captureLine);
}

LogCapture::~LogCapture() {
    open();
    __android_log_set_logger(__android_log_stderr_logger);
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(gMutex);
    return gLines;
}

std::vector<LogLine> LogCapture::lines(const std::string& tag) const {
    std::lock_guard<std::mutex> lock(gMutex);
    std::vector<LogLine> tagged;
    std::copy_if(gLines.begin(), gLines.end(), std::back_inserter(tagged),
                 [&](const LogLine& line) { return line.tag == tag; });
    return tagged;
}

size_t LogCapture::count(const LogLine& line) const {
    std::lock_guard<std::mutex> lock(gMutex);
    return countLocked(line);
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(gMutex);
    gLines.clear();
}

void LogCapture::close(const std::string& text) {
    std::lock_guard<std::mutex> lock(gMutex);
    gGate = text;
    gHeld = 0;
}

void LogCapture::open() {
    {
        std::lock_guard<std::mutex> lock(gMutex);
        gGate.clear();
    }
    gChanged.notify_all();
}

bool LogCapture::waitHeld(int count, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(gMutex);
    return gChanged.wait_for(lock, timeout, [&] { return gHeld >= count; });
}

bool LogCapture::waitCount(const LogLine& line, size_t count,
                           std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(gMutex);
    return gChanged.wait_for(lock, timeout, [&] { return countLocked(line) >= count; });
}

void silenceLog() {
    __android_log_set_logger(dropLine);
}

}  // namespace zeltest
