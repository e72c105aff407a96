// ZelNotifyWapper with arbitrary sources, types, values and texts, against a
// stub service in a process of its own (dolm_service_process): the text is
// parsed, rule control is called, and the wrapper always returns 0.
//
// Input: a byte choosing the source (one of the dispatched ones, or a raw
// number), a byte of type, four bytes of value, then the text.
#include <android/binder_process.h>
#include <android/log.h>
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "ServiceProcess.h"
#include "ZelWrapper.h"

namespace {

constexpr int32_t kSources[] = {1, 10, 11, 12, 16, 110, 129, 1000, 2,   3,   5,
                                6, 8,  9,  14, 15, 102, 111, 130,  131, 9000};
constexpr size_t kHeader = 6;

std::unique_ptr<zeltest::ServiceProcess> gService;

void dropLine(const struct __android_logger_data* /*data*/, const char* /*message*/) {}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    std::string dir = (std::filesystem::temp_directory_path() / "zel-fuzz-XXXXXX").string();
    if (mkdtemp(dir.data()) == nullptr) abort();
    setenv("BINDER_HOST_DIR", dir.c_str(), 1);
    __android_log_set_logger(dropLine);
    ABinderProcess_startThreadPool();
    gService = std::make_unique<zeltest::ServiceProcess>(ZEL_SERVICE_PROCESS);
    if (!gService->start(1)) abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < kHeader) return 0;
    const size_t choice = data[0] % (std::size(kSources) + 1);
    const int32_t src = choice < std::size(kSources)
                                ? kSources[choice]
                                : static_cast<int32_t>(static_cast<int8_t>(data[1])) * 9;
    const int32_t type = static_cast<int8_t>(data[1]) % 4;
    int32_t value = 0;
    std::memcpy(&value, data + 2, sizeof(value));
    const std::string text(reinterpret_cast<const char*>(data + kHeader), size - kHeader);
    if (ZelNotifyWapper("fuzz", src, type, value, 0, 0, text) != 0) abort();
    return 0;
}
