#include "TraceCapture.h"

#include <cutils/trace.h>

#include <mutex>
#include <ostream>

namespace zeltest {
namespace {

std::mutex gMutex;
std::vector<TraceEvent> gEvents;
bool gCapturing = false;

}  // namespace

void PrintTo(const TraceEvent& event, std::ostream* os) {
    *os << (event.begin ? "begin \"" + event.name + "\"" : std::string("end"));
}

TraceCapture::TraceCapture(uint64_t enabledTags) {
    clear();
    {
        std::lock_guard<std::mutex> lock(gMutex);
        gCapturing = true;
    }
    atrace_enabled_tags = enabledTags;
    atomic_store_explicit(&atrace_is_ready, true, std::memory_order_release);
}

TraceCapture::~TraceCapture() {
    atrace_enabled_tags = 0;
    std::lock_guard<std::mutex> lock(gMutex);
    gCapturing = false;
}

std::vector<TraceEvent> TraceCapture::events() const {
    std::lock_guard<std::mutex> lock(gMutex);
    return gEvents;
}

void TraceCapture::clear() {
    std::lock_guard<std::mutex> lock(gMutex);
    gEvents.clear();
}

}  // namespace zeltest

// These take the place of libcutils' own functions in the test executable
// (the dynamic linker prefers the executable's definitions): the bodies would
// write to the kernel's trace marker file, and the host libcutils answers
// atrace_get_enabled_tags() with "nothing enabled" whatever is set.
extern "C" uint64_t atrace_get_enabled_tags() {
    return atrace_enabled_tags;
}

extern "C" void atrace_begin_body(const char* name) {
    std::lock_guard<std::mutex> lock(zeltest::gMutex);
    if (zeltest::gCapturing) zeltest::gEvents.push_back({true, name != nullptr ? name : ""});
}

extern "C" void atrace_end_body() {
    std::lock_guard<std::mutex> lock(zeltest::gMutex);
    if (zeltest::gCapturing) zeltest::gEvents.push_back({false, ""});
}
