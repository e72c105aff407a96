// Throughput of one IDolm service process under load: 1, 2, 4 and 8 client
// processes with 4 threads each call request (two resources) and release as
// fast as they can for a fixed time; the table gives the calls (transactions)
// per second of all clients together. The service is the minimal one of the
// pair-cost measurement, in its own process.
//
// Usage: dolm_scale_bench [milliseconds per row]   (default 1000)
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "dolm_bench_service.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kThreadsPerClient = 4;
constexpr int kClientCounts[] = {1, 2, 4, 8};
constexpr int kWarmupPairs = 20;

bool writeFull(int fd, const void* data, size_t size) {
    return write(fd, data, size) == static_cast<ssize_t>(size);
}

// Pipes between the bench and its client processes.
struct Pipes {
    int ready[2];   // client -> bench: one byte once connected and warmed up
    int go[2];      // bench -> clients: one byte each to start
    int result[2];  // client -> bench: int64 calls made (-1: failure)
};

// A client process: connects, warms one connection per thread, waits for the
// start, then calls from kThreadsPerClient threads until the time is up.
[[noreturn]] void runClient(const Pipes& pipes, Clock::duration duration) {
    int64_t total = -1;
    auto dolm = dolmbench::waitForDolm();
    const auto parcel = dolmbench::twoResourceRequest();
    if (dolm != nullptr) {
        // Concurrent warm-up calls leave one pooled connection per thread.
        std::atomic<bool> ok{true};
        std::vector<std::thread> warmers;
        warmers.reserve(kThreadsPerClient);
        for (int t = 0; t < kThreadsPerClient; ++t) {
            warmers.emplace_back([&] {
                for (int i = 0; i < kWarmupPairs; ++i) {
                    if (!dolmbench::requestAndRelease(*dolm, parcel)) ok = false;
                }
            });
        }
        for (std::thread& thread : warmers) thread.join();
        char byte = 'r';
        if (ok && writeFull(pipes.ready[1], &byte, 1) &&
            dolmbench::readFull(pipes.go[0], &byte, 1)) {
            std::atomic<int64_t> calls{0};
            std::atomic<bool> failed{false};
            const Clock::time_point deadline = Clock::now() + duration;
            std::vector<std::thread> callers;
            callers.reserve(kThreadsPerClient);
            for (int t = 0; t < kThreadsPerClient; ++t) {
                callers.emplace_back([&] {
                    int64_t mine = 0;
                    while (Clock::now() < deadline) {
                        if (!dolmbench::requestAndRelease(*dolm, parcel)) {
                            failed = true;
                            break;
                        }
                        mine += 2;
                    }
                    calls += mine;
                });
            }
            for (std::thread& thread : callers) thread.join();
            total = failed ? -1 : calls.load();
        }
    }
    if (total < 0) {
        char byte = 'f';  // never leave the bench waiting for readiness
        writeFull(pipes.ready[1], &byte, 1);
    }
    writeFull(pipes.result[1], &total, sizeof(total));
    _exit(total < 0 ? 1 : 0);
}

// One row: \p clients processes for \p duration. Returns calls per second, or -1.
double runRow(int clients, Clock::duration duration) {
    Pipes pipes{};
    if (pipe(pipes.ready) != 0 || pipe(pipes.go) != 0 || pipe(pipes.result) != 0) return -1;
    std::vector<pid_t> children;
    for (int c = 0; c < clients; ++c) {
        // This process never uses the binder runtime and has no threads: forking is safe.
        pid_t child = fork();
        if (child == 0) runClient(pipes, duration);
        if (child > 0) children.push_back(child);
    }
    bool ok = static_cast<int>(children.size()) == clients;
    for (int c = 0; c < clients && ok; ++c) {
        char byte = 0;
        ok = dolmbench::readFull(pipes.ready[0], &byte, 1) && byte == 'r';
    }
    std::vector<char> start(static_cast<size_t>(clients), 'g');
    ok = ok && writeFull(pipes.go[1], start.data(), start.size());
    int64_t total = 0;
    for (int c = 0; c < clients && ok; ++c) {
        int64_t calls = -1;
        ok = dolmbench::readFull(pipes.result[0], &calls, sizeof(calls)) && calls >= 0;
        total += calls;
    }
    for (pid_t child : children) {
        if (!ok) kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    for (int* ends : {pipes.ready, pipes.go, pipes.result}) {
        close(ends[0]);
        close(ends[1]);
    }
    return ok ? static_cast<double>(total) / std::chrono::duration<double>(duration).count() : -1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--serve") == 0) {
        dolmbench::serveDolm();
    }
    long millis = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1000;
    if (millis <= 0) {
        fprintf(stderr, "usage: %s [milliseconds per row]\n", argv[0]);
        return 2;
    }
    dolmbench::PrivateRegistry registry;
    if (!registry.ok()) return 2;
    pid_t service = dolmbench::spawnSelf({"--serve"});
    if (service < 0) return 2;

    printf("IDolm request+release against one service process, %d threads per client process,"
           " %ld ms per row\n",
           kThreadsPerClient, millis);
    printf("%9s %9s %12s %16s %9s\n", "processes", "threads", "calls/s", "calls/s/thread",
           "scaling");
    double single = 0;
    int status = 0;
    for (int clients : kClientCounts) {
        double rate = runRow(clients, std::chrono::milliseconds(millis));
        if (rate < 0) {
            fprintf(stderr, "the row with %d client processes failed\n", clients);
            status = 1;
            break;
        }
        if (single == 0) single = rate;
        int threads = clients * kThreadsPerClient;
        printf("%9d %9d %12.0f %16.0f %8.2fx\n", clients, threads, rate, rate / threads,
               rate / single);
        fflush(stdout);
    }
    dolmbench::stopChild(service);
    return status;
}
