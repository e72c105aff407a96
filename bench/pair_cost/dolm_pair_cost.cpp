// Client-side cost of one request (two resources) plus the release of its
// handle on the bare IDolm proxy, against the minimal service in a child
// process. Run under callgrind with --collect-atstart=no (see
// scripts/callgrind-pair.sh): collection is switched on around the measured
// loop only, so the instructions counted, divided by the number of pairs, are
// the cost per pair in this process. The child runs natively (valgrind does not
// follow the exec). Run on its own it prints the wall time per pair.
//
// Usage: dolm_pair_cost [pairs]   (default 2000)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dolm_bench_service.h"

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#define PAIR_COST_TOGGLE_COLLECT() CALLGRIND_TOGGLE_COLLECT
#else
#define PAIR_COST_TOGGLE_COLLECT() \
    do {                           \
    } while (0)
#endif

namespace {

constexpr int kWarmupPairs = 200;

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--serve") == 0) {
        dolmbench::serveDolm();
    }
    long pairs = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 2000;
    if (pairs <= 0) {
        fprintf(stderr, "usage: %s [pairs]\n", argv[0]);
        return 2;
    }
    dolmbench::PrivateRegistry registry;
    if (!registry.ok()) {
        return 2;
    }
    pid_t child = dolmbench::spawnSelf({"--serve"});
    auto dolm = dolmbench::waitForDolm();
    if (dolm == nullptr) {
        fprintf(stderr, "the service did not come up\n");
        dolmbench::stopChild(child);
        return 1;
    }
    const auto parcel = dolmbench::twoResourceRequest();
    bool ok = true;
    for (int i = 0; i < kWarmupPairs; ++i) {
        ok = dolmbench::requestAndRelease(*dolm, parcel) && ok;
    }
    auto start = std::chrono::steady_clock::now();
    PAIR_COST_TOGGLE_COLLECT();
    for (long i = 0; i < pairs; ++i) {
        ok = dolmbench::requestAndRelease(*dolm, parcel) && ok;
    }
    PAIR_COST_TOGGLE_COLLECT();
    auto elapsed = std::chrono::steady_clock::now() - start;
    dolmbench::stopChild(child);
    if (!ok) {
        fprintf(stderr, "a request or release failed\n");
        return 1;
    }
    printf("pairs: %ld, wall time per pair: %.0f ns\n", pairs,
           std::chrono::duration<double, std::nano>(elapsed).count() / static_cast<double>(pairs));
    return 0;
}
