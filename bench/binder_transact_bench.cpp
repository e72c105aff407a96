// One synchronous two-way binder transaction (about 300 bytes in, 8 bytes
// out) across processes and within one process, side by side with a raw
// Unix-socket request/reply of the same sizes between the same two
// processes. BM_BinderVersusRaw alternates the two and reports the ratio
// of their median times; BM_RawVersusRaw does the same with two identical
// raw servers, so a run shows how far apart two equal transports land.
//
// --placement=free|same|cross (default free) decides where the two
// processes run: wherever the scheduler puts them, both on one CPU, or each
// on a CPU of its own. On a virtual machine, wake-ups cost a different
// amount depending on whether the woken thread's CPU was idle, and the
// scheduler's choice may differ from one run (or thread) to the next, so
// with free placement even the control's ratio varies widely.
#include <android/binder_auto_utils.h>
#include <android/binder_host.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <benchmark/benchmark.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "dolm_bench_service.h"

namespace {

constexpr const char* kRemoteInstance = "bench.IEcho/remote";
constexpr const char* kLocalInstance = "bench.IEcho/local";
constexpr size_t kRequestSize = 300;
constexpr size_t kReplySize = 8;
// The binder request carries the interface token (16 bytes for
// "bench.IEcho") and a string (4-byte length, text, NUL, padding): 276
// characters make 300 bytes of parcel data.
const std::string kText(276, 'r');

binder_status_t onTransact(AIBinder*, transaction_code_t, const AParcel* in, AParcel* out) {
    std::string text;
    binder_status_t status = ndk::AParcel_readString(in, &text);
    return status == STATUS_OK ? AParcel_writeInt64(out, static_cast<int64_t>(text.size())) : status;
}

AIBinder_Class* benchClass() {
    static AIBinder_Class* clazz = AIBinder_Class_define(
            "bench.IEcho", [](void* args) { return args; }, [](void*) {}, onTransact);
    return clazz;
}

// The raw server: reads a whole request, answers with a whole reply.
void serveRaw(int fd) {
    char request[kRequestSize];
    char reply[kReplySize] = {};
    while (dolmbench::readFull(fd, request, sizeof(request))) {
        if (write(fd, reply, sizeof(reply)) != static_cast<ssize_t>(sizeof(reply))) return;
    }
}

struct Setup {
    pid_t child = -1;
    int rawFd = -1;
    int otherRawFd = -1;  // a second raw server: the control
    std::string placement = "free";
    ndk::SpAIBinder remote;
    ndk::SpAIBinder local;
};
Setup gSetup;

void rawRoundTrip(int fd) {
    char request[kRequestSize] = {'q'};
    char reply[kReplySize];
    if (write(fd, request, sizeof(request)) != static_cast<ssize_t>(sizeof(request)) ||
        !dolmbench::readFull(fd, reply, sizeof(reply))) {
        abort();
    }
}

void binderRoundTrip(AIBinder* binder) {
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    int64_t result = 0;
    binder_status_t status = AIBinder_prepareTransaction(binder, in.getR());
    if (status == STATUS_OK) status = ndk::AParcel_writeString(in.get(), kText);
    if (status == STATUS_OK) {
        status = AIBinder_transact(binder, FIRST_CALL_TRANSACTION, in.getR(), out.getR(), 0);
    }
    if (status == STATUS_OK) status = AParcel_readInt64(out.get(), &result);
    if (status != STATUS_OK) {
        fprintf(stderr, "binder round trip failed: %d\n", status);
        abort();
    }
    benchmark::DoNotOptimize(result);
}

void BM_RawSocketCrossProcess(benchmark::State& state) {
    for (auto _ : state) rawRoundTrip(gSetup.rawFd);
    state.SetLabel("placement=" + gSetup.placement);
}
BENCHMARK(BM_RawSocketCrossProcess);

void BM_BinderCrossProcess(benchmark::State& state) {
    for (auto _ : state) binderRoundTrip(gSetup.remote.get());
    state.SetLabel("placement=" + gSetup.placement);
}
BENCHMARK(BM_BinderCrossProcess);

void BM_BinderSameProcess(benchmark::State& state) {
    for (auto _ : state) binderRoundTrip(gSetup.local.get());
}
BENCHMARK(BM_BinderSameProcess);

// Median of \p samples (reordered).
double medianNs(std::vector<std::chrono::steady_clock::duration>& samples) {
    if (samples.empty()) return 0;
    auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end());
    return std::chrono::duration<double, std::nano>(*middle).count();
}

// Alternates two round trips so that both see the same machine load. The
// counters are medians: a round trip that another process preempts says
// nothing about either transport, and on a shared machine such outliers
// would dominate a mean.
template <typename First, typename Second>
void alternate(benchmark::State& state, const char* firstName, First first, Second second) {
    using Clock = std::chrono::steady_clock;
    std::vector<Clock::duration> firstTimes;
    std::vector<Clock::duration> secondTimes;
    for (auto _ : state) {
        auto start = Clock::now();
        first();
        auto middle = Clock::now();
        second();
        auto end = Clock::now();
        firstTimes.push_back(middle - start);
        secondTimes.push_back(end - middle);
    }
    double firstNs = medianNs(firstTimes);
    double secondNs = medianNs(secondTimes);
    state.counters[firstName] = firstNs;
    state.counters["raw_ns"] = secondNs;
    state.counters["ratio"] = secondNs > 0 ? firstNs / secondNs : 0;
    state.SetLabel("placement=" + gSetup.placement);
}

void BM_BinderVersusRaw(benchmark::State& state) {
    alternate(
            state, "binder_ns", [] { binderRoundTrip(gSetup.remote.get()); },
            [] { rawRoundTrip(gSetup.rawFd); });
}
BENCHMARK(BM_BinderVersusRaw)->MinTime(2.0);

// The control: the same raw round trip on two sockets to two threads.
void BM_RawVersusRaw(benchmark::State& state) {
    alternate(
            state, "other_raw_ns", [] { rawRoundTrip(gSetup.otherRawFd); },
            [] { rawRoundTrip(gSetup.rawFd); });
}
BENCHMARK(BM_RawVersusRaw)->MinTime(2.0);

/** The first \p count CPUs this process may run on. */
std::vector<int> allowedCpus(size_t count) {
    std::vector<int> cpus;
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof(set), &set) != 0) return cpus;
    for (int cpu = 0; cpu < CPU_SETSIZE && cpus.size() < count; ++cpu) {
        if (CPU_ISSET(cpu, &set)) cpus.push_back(cpu);
    }
    return cpus;
}

bool pinTo(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    return sched_setaffinity(0, sizeof(set), &set) == 0;
}

/** Takes --placement=... out of the arguments; false when its value is unknown. */
bool takePlacement(int* argc, char** argv) {
    constexpr const char* kFlag = "--placement=";
    int kept = 1;
    for (int i = 1; i < *argc; ++i) {
        if (std::strncmp(argv[i], kFlag, std::strlen(kFlag)) == 0) {
            gSetup.placement = argv[i] + std::strlen(kFlag);
        } else {
            argv[kept++] = argv[i];
        }
    }
    *argc = kept;
    const std::string& placement = gSetup.placement;
    return placement == "free" || placement == "same" || placement == "cross";
}

}  // namespace

int main(int argc, char** argv) {
    if (!takePlacement(&argc, argv)) {
        fprintf(stderr, "--placement must be free, same or cross\n");
        return 2;
    }
    std::vector<int> cpus = allowedCpus(2);
    if (gSetup.placement == "cross" && cpus.size() < 2) {
        fprintf(stderr, "--placement=cross needs two CPUs\n");
        return 2;
    }
    // Pinned before the fork: the child and every thread inherit it.
    if (gSetup.placement != "free" && (cpus.empty() || !pinTo(cpus[0]))) return 2;

    std::string dir = (std::filesystem::temp_directory_path() / "binder-bench-XXXXXX").string();
    if (mkdtemp(dir.data()) == nullptr) return 2;
    setenv("BINDER_HOST_DIR", dir.c_str(), 1);

    int sockets[2];
    int otherSockets[2];
    int ready[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0 ||
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, otherSockets) != 0 || pipe(ready) != 0) {
        return 2;
    }
    // The child serves both the binder service and the raw socket. The
    // fork comes before either process uses the runtime or starts threads.
    gSetup.child = fork();
    if (gSetup.child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlive the benchmark
        if (gSetup.placement == "cross" && !pinTo(cpus[1])) _exit(1);
        close(sockets[0]);
        close(otherSockets[0]);
        close(ready[0]);
        std::thread(serveRaw, sockets[1]).detach();
        std::thread(serveRaw, otherSockets[1]).detach();
        ndk::SpAIBinder service(AIBinder_new(benchClass(), nullptr));
        if (AServiceManager_addService(service.get(), kRemoteInstance) != STATUS_OK) _exit(1);
        ABinderProcess_startThreadPool();
        if (write(ready[1], "r", 1) != 1) _exit(1);
        ABinderProcess_joinThreadPool();
    }
    close(sockets[1]);
    close(otherSockets[1]);
    close(ready[1]);
    char byte = 0;
    if (read(ready[0], &byte, 1) != 1) return 1;
    gSetup.rawFd = sockets[0];
    gSetup.otherRawFd = otherSockets[0];
    gSetup.remote.set(AServiceManager_checkService(kRemoteInstance));
    ndk::SpAIBinder localService(AIBinder_new(benchClass(), nullptr));
    AServiceManager_addService(localService.get(), kLocalInstance);
    ABinderProcess_startThreadPool();
    // A lookup of a service of this process would return the local object
    // (a plain function call); the same-process case measures a proxy whose
    // calls go through the runtime and are served on this process's pool.
    ABinderHost_setInProcessProxies(true);
    gSetup.local.set(AServiceManager_checkService(kLocalInstance));
    ABinderHost_setInProcessProxies(false);
    if (!AIBinder_isRemote(gSetup.local.get())) return 1;
    if (!AIBinder_associateClass(gSetup.remote.get(), benchClass()) ||
        !AIBinder_associateClass(gSetup.local.get(), benchClass())) {
        return 1;
    }

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    kill(gSetup.child, SIGKILL);
    waitpid(gSetup.child, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    return 0;
}
