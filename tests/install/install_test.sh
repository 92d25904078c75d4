#!/usr/bin/env bash
# install_test.sh SOURCE BUILD_TREE: installs the tree, moves what was installed elsewhere, and uses it as others do, by
# pkg-config and by CMake; then takes the source into another project, and installs it for a platform of others.
set -euo pipefail

source=$1
build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
prefix=$work/moved

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# Runs a command, whose output is shown only when it fails.
quietly() { "$@" >log 2>&1 || { cat log && fail "$*"; }; }

# try IN_C IN_CXX: one program makes a store, the other one adds to it, and the installed tool reads both records.
try() {
    rm -f store.dat
    "$1" store.dat
    "$2" store.dat
    [ "$("$prefix/bin/tavcfg" get store.dat --vs 0 --class 13 14=2 --field 15)" = 7 ] || fail "$2: no record"
    [ "$("$prefix/bin/tavcfg" count store.dat)" = 2 ] || fail "$1: no record"
}

quietly cmake --install "$build" --prefix "$work/first"
mv first moved

! grep -rlF -e "$build" -e "$source" -e "$work/first" moved || fail "files name the folder where they were made"
for file in moved/bin/* moved/lib/*.so; do
    path=$(readelf -d "$file" | sed -n 's/.*R.*PATH.*\[\(.*\)\]/\1/p')
    [[ -z $path || $path = '$ORIGIN' || $path = '$ORIGIN/../lib' ]] || fail "$file looks for libraries in '$path'"
done

[[ $(moved/bin/tavcfg publish store.dat --url nats://127.0.0.1:1 --bucket b 2>&1) = *'there is no such file'* ]] ||
    fail "the tool does not find libtav_fleet.so"

export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
stranger=$source/tests/install/stranger
[ "tavcfg $(pkg-config --modversion tav_fleet)" = "$(moved/bin/tavcfg --version)" ] || fail "versions differ"
cc "$stranger/program.c" -o in_c $(pkg-config --cflags --libs tav_adapt tav_posix) "-Wl,-rpath,$prefix/lib"
c++ -std=c++20 "$stranger/program.cpp" -o in_cxx $(pkg-config --cflags --libs tav_session) "-Wl,-rpath,$prefix/lib"
try ./in_c ./in_cxx

cp -r "$source/python/tests" tests # where no package lies beside them
PYTHONPATH=$prefix/lib/python3/dist-packages quietly python3 -B -m unittest tests.test_stores

quietly cmake -S "$stranger" -B stranger -DCMAKE_PREFIX_PATH="$prefix"
quietly cmake --build stranger --target in_c in_cxx
try stranger/in_c stranger/in_cxx
quietly cmake -S moved/share/doc/tav_adapt/examples -B examples -DCMAKE_PREFIX_PATH="$prefix"
quietly cmake --build examples --target store_tour
quietly examples/store_tour "$work"

quietly cmake -G Ninja -S "$stranger" -B whole -DTAV_SOURCE="$source"
quietly cmake --build whole --target in_c
try whole/in_c stranger/in_cxx

quietly cmake -G Ninja -S "$source" -B external -DTAV_PLATFORM=external
quietly cmake --build external
quietly cmake --install external --prefix "$work/bare"
! find bare -path bare/share -prune -o -print | grep -E 'posix|session|/bin' ||
    fail "without the hosted platform, this stays behind"
for header in bare/include/tav_adapt/*.h; do
    quietly cc -I bare/include/tav_adapt -fsyntax-only "$header"
done
echo "installed, moved and used"
