#include "LogCapture.h"

#include <android/log.h>

#include <algorithm>
#include <ostream>

namespace zeltest {
namespace {

// The logger is a plain function, so the lines live at namespace scope. The
// mutex makes the capture safe for lines written from binder threads.
std::mutex gMutex;
std::vector<LogLine> gLines;

void captureLine(const struct __android_logger_data* data, const char* message) {
    std::lock_guard<std::mutex> lock(gMutex);
    gLines.push_back(LogLine{data->priority, data->tag != nullptr ? data->tag : "",
                             message != nullptr ? message : ""});
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
    return static_cast<size_t>(std::count(gLines.begin(), gLines.end(), line));
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(gMutex);
    gLines.clear();
}

void silenceLog() {
    __android_log_set_logger(dropLine);
}

}  // namespace zeltest
