/*
 * Captures the trace markers the code under test emits through libcutils'
 * atrace_begin/atrace_end. Linking this into a test executable defines
 * atrace_get_enabled_tags, atrace_begin_body and atrace_end_body there, which
 * the dynamic linker prefers to libcutils' own; an instance enables the trace
 * categories of its choice.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zeltest {

/** One marker: a section begin with its name, or an end (empty name). */
struct TraceEvent {
    bool begin = false;
    std::string name;

    bool operator==(const TraceEvent& other) const {
        return begin == other.begin && name == other.name;
    }
};

void PrintTo(const TraceEvent& event, std::ostream* os);

/** While an instance lives, markers are recorded. One instance at a time. */
class TraceCapture {
  public:
    /** `enabledTags`: the trace categories to enable (ATRACE_TAG_ALWAYS by default). */
    explicit TraceCapture(uint64_t enabledTags = 1);
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    std::vector<TraceEvent> events() const;
    void clear();
};

}  // namespace zeltest
