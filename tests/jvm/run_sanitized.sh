#!/bin/sh
# Runs JUnit in a machine whose bridge and library are built with AddressSanitizer, and fails when that reports something:
# run_sanitized.sh NAME BUILD_DIR COMPILER JUNIT_PATH [console options]
# The machine handles faults of its own, exits with threads running, and frees little as it ends.
set -eu
# Java finds files whose names are not ASCII only in a locale that can spell them.
case "$0 $*" in
    *[!\ -~]*) export LC_ALL=C.UTF-8 ;;
esac
name=$1 build=$2 compiler=$3 junit=$4
shift 4
source=$(cd "$(dirname "$0")/../.." && pwd)
out=$(mktemp)
reports=$(mktemp -d)
trap 'rm -rf "$out" "$reports"' EXIT
status=0
LD_PRELOAD="$("$compiler" -print-file-name=libasan.so) $("$compiler" -print-file-name=libstdc++.so)" \
ASAN_OPTIONS=handle_segv=0:handle_sigbus=0:handle_sigfpe=0:detect_leaks=0:malloc_context_size=8:abort_on_error=0 \
    java -Xmx256m -XX:+UseSerialGC -Djava.io.tmpdir="${TMPDIR:-/tmp}" -Dcom.vesma.quorl.library="$build/lib" -Dquorl.jar="$build/java/quorl.jar" \
    -Dquorl.source="$source" -cp "$build/java/classes:$build/java/test-classes:$junit" \
    org.junit.platform.console.ConsoleLauncher --disable-banner --details=tree --disable-ansi-colors --fail-if-no-tests \
    --reports-dir="$reports" "$@" >"$out" 2>&1 || status=$?
cat "$out"
mkdir -p "$build/reports"
[ ! -f "$reports/TEST-junit-jupiter.xml" ] || mv "$reports/TEST-junit-jupiter.xml" "$build/reports/$name.xml"
if grep -E 'AddressSanitizer|runtime error:' "$out"; then
    echo "the sanitizer reported" >&2
    exit 1
fi
exit $status
