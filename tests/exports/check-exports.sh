#!/usr/bin/env bash
# Compares the symbols a shared object defines in its dynamic symbol table with
# a checked-in list (mangled names, one a line, sorted). Any difference fails
# and is shown demangled, so a change of the exported surface is always seen.
set -euo pipefail
lib=$1
expected=$2

actual=$(nm -D --defined-only --format=posix "$lib" | awk '$2 != "A" {print $1}' | sed 's/@.*//' | LC_ALL=C sort -u)
wanted=$(grep -v '^#' "$expected" | sed '/^$/d' | LC_ALL=C sort -u)

if [ "$actual" == "$wanted" ]; then
    echo "exports match: $(printf '%s\n' "$actual" | wc -l) symbols"
    exit 0
fi
echo "exported symbols of $lib differ from $expected"
echo "--- unexpected exports (+) / missing exports (-):"
diff <(printf '%s\n' "$wanted") <(printf '%s\n' "$actual") | grep '^[<>]' |
    sed 's/^</-/; s/^>/+/' | while read -r sign sym; do
        printf '%s %s    %s\n' "$sign" "$sym" "$(c++filt "$sym")"
    done
exit 1
