#!/usr/bin/env bash
# make demo: installs what is missing, builds the tools and runs a short
# scripted session of zelctl against a private dolm-sim (its own process and
# registry, gone when the session ends). Lines from the simulator start with
# "[dolm-sim]".
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
log=$(mktemp)
trap 'rm -f "$log"' EXIT
echo "== building zelctl and dolm-sim (build/default/bin)"
if ! { cmake --preset default && cmake --build --preset default --target zelctl dolm-sim; } >"$log" 2>&1; then
    cat "$log"
    exit 1
fi

echo "== zelctl --sim shell"
build/default/bin/zelctl --sim shell <<'SESSION'
# Record requests, so that the history at the end has them.
record on
# Acquire the event "TALVEN_ACTION_LAUNCH" for 1.5 seconds.
acquire ACTION_LAUNCH --pkg com.example.app --identity cold-start --timeout 1500
# Read the boosted values back.
state 0x01010010 0x01010020
# Listen: the change arrives when the timeout expires and the values return.
listen 0x01010010 0x01010020 --count 1 --for 5
state 0x01010010 0x01010020
# A notify from source 130 switches rule 130 with per-cluster target loads.
notify --src 130 --type 1 --text 1200,1500,1800
dump RunMap
# The service's history of requests.
history
SESSION
