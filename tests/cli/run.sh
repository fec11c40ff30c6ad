#!/bin/sh
# Runs the JUnit classes of a folder and leaves their report as NAME.xml:
# run.sh BUILD_DIR NAME CLASS_PATH TEST_CLASSES [java option ...]
set -eu
# Java finds files whose names are not ASCII only in a locale that can spell them.
case "$0 $*" in
    *[!\ -~]*) export LC_ALL=C.UTF-8 ;;
esac
build=$1 name=$2 path=$3 classes=$4
shift 4
reports=$build/reports/$name.parts
rm -rf "$reports" "$build/reports/$name.xml"
status=0
# Tests interrupt commands with Ctrl-C, which whoever is started in the background ignores.
env --default-signal=INT java -Xmx512m -Djava.io.tmpdir="${TMPDIR:-/tmp}" -Dcom.vesma.quorl.library="$build/lib" "$@" -cp "$path:$classes" org.junit.platform.console.ConsoleLauncher \
    --disable-banner --details=tree --disable-ansi-colors --reports-dir="$reports" --scan-classpath "$classes" || status=$?
[ ! -f "$reports/TEST-junit-jupiter.xml" ] || mv "$reports/TEST-junit-jupiter.xml" "$build/reports/$name.xml"
rm -rf "$reports"
exit $status
