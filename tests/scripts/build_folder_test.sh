#!/bin/bash
# A build folder of another tree or compiler is refused with what to do. Usage: build_folder_test.sh COMMON_SH
set -u
common=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir -p "$folder/tree/scripts/lib" "$folder/tree/build/release" "$folder/other" "$folder/bin"
cp "$common" "$folder/tree/scripts/lib/common.sh"
# What only says that it was called.
printf '#!/bin/sh\necho called >&2\n' >"$folder/bin/cmake"
cp "$folder/bin/cmake" "$folder/bin/one"
cp "$folder/bin/cmake" "$folder/bin/two"
chmod +x "$folder"/bin/*
failed=0

# expect STATUS WORDS VARIABLE=VALUE ...: building with that cache.
expect() {
    local status=$1 words=$2 said code=0
    shift 2
    said=$(env -u CXX PATH="$folder/bin:$PATH" "$@" bash -c '. "$0"; configure_and_build without-tests release' \
        "$folder/tree/scripts/lib/common.sh" 2>&1) || code=$?
    if [[ $code -ne $status || $said != *"$words"* ]]; then
        printf 'expected %s and "%s", not %s and "%s"\n' "$status" "$words" "$code" "$said" >&2
        failed=1
    fi
}
cache() { printf '%s\n' "$@" >"$folder/tree/build/release/CMakeCache.txt"; }

expect 0 called A=
cache "CMAKE_HOME_DIRECTORY:INTERNAL=$folder/tree" "CMAKE_CXX_COMPILER:FILEPATH=$folder/bin/one"
expect 0 called A=
expect 0 called CXX=one
expect 2 "made with the compiler $folder/bin/one, and CXX names $folder/bin/two; remove it: rm -r" CXX=two
expect 2 "the compiler three, which CXX names, does not exist" CXX=three
cache "CMAKE_HOME_DIRECTORY:INTERNAL=$folder/other" "CMAKE_CXX_COMPILER:FILEPATH=$folder/bin/one"
expect 2 "made for the tree in $folder/other; remove it: rm -r $folder/tree/build/release" A=
cache "CMAKE_HOME_DIRECTORY:INTERNAL=$folder/tree" "CMAKE_CXX_COMPILER:STRING=$folder/bin/none"
expect 2 "made with the compiler $folder/bin/none, which does not exist any more" A=
exit $failed
