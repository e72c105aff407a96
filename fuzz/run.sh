#!/usr/bin/env bash
# Runs every fuzz target for a bounded time: fuzz/run.sh <build dir> <seconds per target>
# New inputs go to a work corpus in the build directory (the seed corpora in
# fuzz/corpus/ stay as they are); a crashing input is written to
# <build dir>/artifacts/ and ends the run with an error. Prints per target the
# executions and libFuzzer's coverage (cov: edges, ft: features).
set -euo pipefail
build=${1:?build directory}
seconds=${2:?seconds per target}
here=$(cd "$(dirname "$0")" && pwd)
targets=(binder_frame_fuzz binder_parcel_fuzz dolm_records_fuzz list_builders_fuzz
         notify_text_fuzz string_utils_fuzz)

mkdir -p "$build/artifacts"
failed=0
for target in "${targets[@]}"; do
    work="$build/corpus/$target"
    mkdir -p "$work"
    log="$build/artifacts/$target.log"
    # The library keeps some objects for the life of the process on purpose
    # (death recipients, callback clients of failed requests): no leak checks.
    if ! ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
        "$build/fuzz/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$build/artifacts/$target-" \
        "$work" "$here/corpus/$target" >"$log" 2>&1; then
        echo "$target: FAILED (see $log)"
        grep -E "ERROR|SUMMARY|Test unit written" "$log" | head -5 || true
        failed=1
        continue
    fi
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    last=$(grep -E '^#[0-9]+' "$log" | tail -1)
    cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")
    ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")
    echo "$target: $execs executions, cov $cov, ft $ft, corpus $(ls "$work" | wc -l) inputs"
done
exit $failed
