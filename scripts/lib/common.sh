# What the scripts share: where the tree is, packages, the release build. Sourced, not run.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"

say() { printf '%s\n' "== $*" >&2; }
die() {
    printf '%s\n' "$(basename "$0"): $*" >&2
    exit 2
}

# What a build needs, and what the tests need on top of it.
build_packages=(g++ cmake ninja-build openjdk-17-jdk-headless libpicocli-java libgoogle-gson-java
                libssl-dev nlohmann-json3-dev libsqlite3-dev)
test_packages=(libgtest-dev junit5 python3 binutils nats-server openssl locales pkgconf)
sanitizer_packages=(clang libclang-rt-14-dev)
lint_packages=(clang-format clang-tidy)

# Installs those of the named Debian packages that are missing; needs root or sudo only when some are.
ensure_packages() {
    local package missing=()
    for package in "$@"; do
        dpkg-query -W -f='${Status}\n' "$package" 2>/dev/null | grep -q '^install ok installed' || missing+=("$package")
    done
    ((${#missing[@]})) || return 0
    local as_root=()
    if [[ $(id -u) -ne 0 ]]; then
        command -v sudo >/dev/null || die "these packages are missing and there is no sudo: ${missing[*]}"
        as_root=(sudo)
    fi
    say "installing ${missing[*]}"
    # RUNLEVEL=1: package scripts start no service.
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive RUNLEVEL=1 sh -c '
        apt-get -qq update >/dev/null && apt-get -qq install -y --no-install-recommends "$@" >/dev/null' sh "${missing[@]}" \
        || die "could not install ${missing[*]}"
}

# A value that CMake keeps in a build folder; nothing when it keeps none.
cached() { [[ ! -f $1/CMakeCache.txt ]] || sed -n "s/^$2:[A-Z]*=//p" "$1/CMakeCache.txt"; }

# Ends with what to do when the build folder is not this tree's, or was made with a compiler that is not used any more.
require_own_build() {
    local folder=$1 home compiler wanted
    home=$(cached "$folder" CMAKE_HOME_DIRECTORY)
    [[ -z $home || $home -ef $root ]] ||
        die "$folder was made for the tree in $home; remove it: rm -r $root/$folder"
    compiler=$(cached "$folder" CMAKE_CXX_COMPILER)
    [[ -n $compiler ]] || return 0
    [[ -x $compiler ]] ||
        die "$folder was made with the compiler $compiler, which does not exist any more; remove it: rm -r $root/$folder"
    [[ -n ${CXX:-} ]] || return 0
    wanted=$(command -v "${CXX%% *}") || die "the compiler $CXX, which CXX names, does not exist"
    [[ $wanted -ef $compiler ]] ||
        die "$folder was made with the compiler $compiler, and CXX names $wanted; remove it: rm -r $root/$folder"
}

# configure_and_build with-tests|without-tests preset [target ...]: without tests nothing is looked for that only tests need.
configure_and_build() {
    local testing=OFF preset=$2 said
    [[ $1 != with-tests ]] || testing=ON
    shift 2
    require_own_build "build/$preset"
    say "building $preset"
    said=$(cmake --preset "$preset" -DBUILD_TESTING=$testing 2>&1) || {
        printf '%s\n' "$said" >&2
        die "configuring $preset failed"
    }
    local targets=()
    (($#)) && targets=(--target "$@")
    cmake --build --preset "$preset" "${targets[@]}" >&2 || die "building $preset failed"
}
