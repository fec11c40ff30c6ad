#!/bin/sh
# Runs JUnit under -Xcheck:jni and fails when the machine warns: run.sh NAME BUILD_DIR JUNIT_PATH [console options]
# QUORL_UNCHECKED=1: a machine that does not check, as programs have it.
# The report is BUILD_DIR/reports/NAME.xml.
set -eu
# Java finds files whose names are not ASCII only in a locale that can spell them.
case "$0 $*" in
    *[!\ -~]*) export LC_ALL=C.UTF-8 ;;
esac
name=$1 build=$2 junit=$3
shift 3
source=$(cd "$(dirname "$0")/../.." && pwd)
out=$(mktemp)
reports=$(mktemp -d)
trap 'rm -rf "$out" "$reports"' EXIT
status=0
# The machine keeps references to its compiler threads; their number is held still, since tests count references.
check=-Xcheck:jni
[ "${QUORL_UNCHECKED:-}" = "" ] || check=-Xshare:auto
env --default-signal=INT java $check -XX:-UseDynamicNumberOfCompilerThreads -Xmx512m \
    -Djava.io.tmpdir="${TMPDIR:-/tmp}" -Dcom.vesma.quorl.library="$build/lib" -Dquorl.jar="$build/java/quorl.jar" \
    -Dquorl.other.release="$build/tests/companion/libquorlft.so" -Dquorl.source="$source" \
    -cp "$build/java/classes:$build/java/test-classes:$junit" \
    org.junit.platform.console.ConsoleLauncher --disable-banner --details=tree --disable-ansi-colors \
    --reports-dir="$reports" "$@" >"$out" 2>&1 || status=$?
cat "$out"
mkdir -p "$build/reports"
mv "$reports/TEST-junit-jupiter.xml" "$build/reports/$name.xml"
if grep -E '(WARNING|FATAL ERROR) in native method|Warning: Calling other JNI functions|JNI local refs' "$out"; then
    echo "the virtual machine warned about the bridge" >&2
    exit 1
fi
exit $status
