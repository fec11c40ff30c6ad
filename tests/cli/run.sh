#!/bin/sh
# Runs the JUnit classes of a folder and leaves their report as cli.xml: run.sh BUILD_DIR CLASS_PATH TEST_CLASSES
set -eu
build=$1 path=$2 classes=$3
reports=$build/reports/cli.parts
rm -rf "$reports"
status=0
java -Xmx512m -Dcom.vesma.quorl.library="$build/lib" -cp "$path:$classes" org.junit.platform.console.ConsoleLauncher \
    --disable-banner --details=tree --disable-ansi-colors --reports-dir="$reports" --scan-classpath "$classes" || status=$?
[ ! -f "$reports/TEST-junit-jupiter.xml" ] || mv "$reports/TEST-junit-jupiter.xml" "$build/reports/cli.xml"
rm -rf "$reports"
exit $status
