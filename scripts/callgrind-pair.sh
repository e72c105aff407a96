#!/usr/bin/env bash
# Client-side instructions per request+release pair on the bare IDolm proxy:
# builds bench/pair_cost, runs it under callgrind (collection only around the
# measured loop; the service child runs natively) and divides the instructions
# counted by the number of pairs.
#
#   scripts/callgrind-pair.sh [pairs]       default 2000 pairs
#   HOTSPOTS=25 scripts/callgrind-pair.sh   also lists the 25 costliest functions
#   PRESET=...  the build preset (default: default)
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${PRESET:-default}
pairs=${1:-2000}
hotspots=${HOTSPOTS:-0}

scripts/install-deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target dolm_pair_cost >/dev/null

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$out/callgrind.out" \
    "build/$preset/bench/pair_cost/dolm_pair_cost" "$pairs" >"$out/run.log" 2>&1 || {
    cat "$out/run.log" >&2
    exit 1
}
total=$(sed -n 's/^summary: *//p' "$out/callgrind.out")
if [ -z "$total" ] || [ "$total" -eq 0 ]; then
    echo "callgrind-pair: nothing collected" >&2
    cat "$out/run.log" >&2
    exit 1
fi
if [ "$hotspots" -gt 0 ]; then
    callgrind_annotate --inclusive=no "$out/callgrind.out" 2>/dev/null |
        sed -n '/file:function/,$p' | sed -n "3,$((hotspots + 2))p"
fi
echo "instructions per request+release pair: $((total / pairs))"
