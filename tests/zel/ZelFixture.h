// Common fixture of the event API suites: a fake service registered under the
// library's instance name, and capture of the event layer's log lines.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FakeDolmService.h"
#include "LogCapture.h"
#include "RequestMatchers.h"

namespace zeltest {

inline constexpr const char* kZelTag = "[ZEL_CLIENT]";

inline LogLine zelInfo(std::string text) {
    return LogLine{4, kZelTag, std::move(text)};
}
inline LogLine zelError(std::string text) {
    return LogLine{6, kZelTag, std::move(text)};
}
inline LogLine zelDebug(std::string text) {
    return LogLine{3, kZelTag, std::move(text)};
}

/** The two lines every event function logs when the service is not registered. */
inline std::vector<LogLine> notFoundLines() {
    return {zelError("Dolm HAL Service not found"),
            zelError("zel_get_dolm_hal_and_link_to_death error:-1")};
}

/** The line of a failed service call, with its function label. */
inline LogLine failedLine(const std::string& label) {
    return zelError(label + "() failed : dolm HAL service not available");
}

class ZelServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mService = FakeDolmService::start();
        ASSERT_NE(mService, nullptr);
    }

    /** The event layer's lines captured so far. */
    std::vector<LogLine> zelLines() const { return mLog.lines(kZelTag); }

    /** The single request the fake received; fails the test if there is not exactly one. */
    DolmRequestParcel onlyRequest() const {
        std::vector<Call> requests = mService->calls(Op::kRequest);
        EXPECT_EQ(requests.size(), 1u);
        return requests.empty() ? DolmRequestParcel{} : requests.front().parcel;
    }

    LogCapture mLog;
    std::shared_ptr<FakeDolmService> mService;
};

}  // namespace zeltest
