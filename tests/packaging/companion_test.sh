#!/bin/sh
# A C program is compiled and run against an installed tree by what pkg-config says of quorlft, and finds its libraries there:
# companion_test.sh BUILD_DIR SOURCE_DIR C_COMPILER LIBDIR
set -eu
build=$1 source=$2 compiler=$3 libdir=$4
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
for library in quorl quorlcm quorlft; do
    pkg-config --exists --print-errors "$library"
done
# shellcheck disable=SC2046
"$compiler" -std=c11 -Wall -Wextra -Wpedantic -Werror "$source/examples/standby.c" $(pkg-config --cflags --libs quorlft) \
    -Wl,-rpath,"$(pkg-config --variable=libdir quorlft)" -o "$prefix/standby"
found=$(ldd "$prefix/standby" | sed -n 's/^.*libquorlft.so => \(.*\) (.*$/\1/p')
[ "$(realpath "$found")" = "$(realpath "$prefix/$libdir/libquorlft.so")" ]
"$prefix/standby" | diff - "$source/tests/examples/expected/standby.txt"
