// Helper server process for the runtime's tests: registers an echo service
// under the instance name given as argv[1] (in the BINDER_HOST_DIR it
// inherits), prints "ready", then serves on its binder threads. kBlock
// prints "blocked" before blocking, so a test knows a call is in flight.
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <cstdio>

#include "TestBinders.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s <instance>\n", argv[0]);
        return 2;
    }
    bindertest::gOnBlock = [] {
        printf("blocked\n");
        fflush(stdout);
    };
    static bindertest::Observed observed;
    ndk::SpAIBinder echo = bindertest::newEcho(&observed);
    if (AServiceManager_addService(echo.get(), argv[1]) != STATUS_OK) {
        return 1;
    }
    ABinderProcess_startThreadPool();
    printf("ready\n");
    fflush(stdout);
    ABinderProcess_joinThreadPool();
}
