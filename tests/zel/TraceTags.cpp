// Debian's host libcutils answers atrace_get_enabled_tags() with "not ready"
// whatever TraceCapture enabled, so no marker would ever reach
// atrace_begin_body. This definition takes its place in the test executable
// (the dynamic linker prefers it, as it does TraceCapture's bodies) and
// reports the categories TraceCapture enabled.
#include <cutils/trace.h>

extern "C" uint64_t atrace_get_enabled_tags() {
    return atrace_enabled_tags;
}
