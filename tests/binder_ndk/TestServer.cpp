// Helper server process for the runtime's tests: registers an echo service
// under the instance name given as argv[1] (in the BINDER_HOST_DIR it
// inherits), prints "ready", then serves on its binder threads. What the
// service reports ("blocked", "waiting", "called <status>", "held died") is
// printed on stdout, one line each, so a test knows where a call is; kWaitGo
// returns once the test writes a line to the server's stdin.
//
// Options after the instance:
//   --one-thread  serve on a single binder thread: the main thread joins a
//                 pool that may not grow (setThreadPoolMaxThreadCount(0)).
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <cstdio>
#include <cstring>
#include <mutex>

#include "TestBinders.h"

int main(int argc, char** argv) {
    bool oneThread = argc == 3 && std::strcmp(argv[2], "--one-thread") == 0;
    if (argc != 2 && !oneThread) {
        fprintf(stderr, "usage: %s <instance> [--one-thread]\n", argv[0]);
        return 2;
    }
    bindertest::gReport = [](const std::string& line) {
        static std::mutex mutex;
        std::lock_guard<std::mutex> lock(mutex);
        printf("%s\n", line.c_str());
        fflush(stdout);
    };
    static bindertest::Observed observed;
    ndk::SpAIBinder echo = bindertest::newEcho(&observed);
    if (AServiceManager_addService(echo.get(), argv[1]) != STATUS_OK) {
        return 1;
    }
    if (oneThread) {
        ABinderProcess_setThreadPoolMaxThreadCount(0);
    } else {
        ABinderProcess_startThreadPool();
    }
    printf("ready\n");
    fflush(stdout);
    ABinderProcess_joinThreadPool();
}
