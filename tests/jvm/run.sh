#!/bin/sh
# Runs JUnit under -Xcheck:jni and fails when the machine warns: run.sh BUILD_DIR JUNIT_PATH [console options]
set -eu
build=$1 junit=$2
shift 2
out=$(mktemp)
trap 'rm -f "$out"' EXIT
reports=$build/reports/junit
mkdir -p "$reports"
status=0
java -Xcheck:jni -Xmx512m -Dcom.vesma.quorl.library="$build/lib" -cp "$build/java/classes:$build/java/test-classes:$junit" \
    org.junit.platform.console.ConsoleLauncher --disable-banner --details=tree --disable-ansi-colors \
    --reports-dir="$reports" "$@" >"$out" 2>&1 || status=$?
cat "$out"
if [ -f "$reports/TEST-junit-jupiter.xml" ]; then
    mv "$reports/TEST-junit-jupiter.xml" "$build/reports/jvm.xml"
fi
if grep -E '(WARNING|FATAL ERROR) in native method|JNI local refs' "$out"; then
    echo "the virtual machine warned about the bridge" >&2
    exit 1
fi
exit $status
