#!/usr/bin/env bash
# Compares the symbols a shared object defines in its dynamic symbol table with
# the reviewed list of the exported surface. Names are compared demangled and
# with the C++ runtime's inline namespaces and ABI tags taken out
# (std::__cxx11:: of libstdc++, std::__1:: of libc++), so one list holds for
# either runtime. A build without RTTI has no typeinfo objects to export.
#
# usage: check-exports.sh LIB LIST NM rtti|no-rtti
set -euo pipefail
lib=$1
expected=$2
nm=$3
rtti=$4

normalise() {
    c++filt | sed -e 's/std::__cxx11::/std::/g' -e 's/std::__1::/std::/g' -e 's/\[abi:[^]]*\]//g' |
        LC_ALL=C sort -u
}

actual=$("$nm" -D --defined-only --format=posix "$lib" | awk '$2 != "A" {print $1}' | sed 's/@.*//' | normalise)
wanted=$(grep -v '^#' "$expected" | sed '/^$/d' | normalise)
if [ "$rtti" = no-rtti ]; then
    wanted=$(printf '%s\n' "$wanted" | grep -v '^typeinfo for ' || true)
fi

if [ "$actual" == "$wanted" ]; then
    echo "exports match: $(printf '%s\n' "$actual" | wc -l) symbols"
    exit 0
fi
echo "exported symbols of $lib differ from $expected"
echo "--- unexpected exports (+) / missing exports (-):"
diff <(printf '%s\n' "$wanted") <(printf '%s\n' "$actual") | grep '^[<>]' | sed 's/^</-/; s/^>/+/'
exit 1
