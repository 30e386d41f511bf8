#!/usr/bin/env bash
# Installs, moves what was installed, and uses it there: zel, each header alone, and the example's
# project outside. moved.sh BUILD COMPILER
set -euo pipefail
build=$1 compiler=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset LD_LIBRARY_PATH CPLUS_INCLUDE_PATH CMAKE_PREFIX_PATH ZELInstallDir
fail() { printf 'FAILED: %s\n' "$*"; exit 1; }

cmake --install "$build" --prefix "$work/staged" >/dev/null
mv "$work/staged" "$work/moved"
root=$work/moved
documents=$root/share/doc/zelstore
! grep -rIlF -e "$build" -e "$work/staged" "$root" || fail "a file names where it was built"
for file in "$root/bin/zel" "$root"/lib*/zelstore/{ZELStore,wmSet,wmJobMgr}.so; do
  ldd "$file" | grep -F libwmLib | grep -qF "$root/" || fail "$file finds no wmLib, or another one"
done

"$root/bin/zel" --store "$work/events" ingest "$documents/examples/events.ndjson.xz" 2>/dev/null
[ "$("$root/bin/zel" --store "$work/events" query | wc -l)" = 2029 ] || fail "zel doesn't work"

export root compiler
alone() { # HEADER
  echo "#include \"$1\"" | "$compiler" -std=c++20 -Wall -Wextra -Werror -fsyntax-only -I "$root/include/ZELStore" \
    -x c++ - || { echo "FAILED: $1 does not stand alone"; return 1; }
}
export -f alone
cd "$root/include/ZELStore"
find . -name '*.h' -printf '%P\0' | xargs -0 -P 2 -n 1 bash -c 'alone "$0"' || exit 1

cmake -S "$documents/examples/outside" -B "$work/outside" -DCMAKE_PREFIX_PATH="$root" \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_INSTALL_PREFIX="$work/host" >/dev/null
cmake --build "$work/outside" --target install >/dev/null
for host in "$work/outside/minimalhost" "$work/host/bin/minimalhost"; do
  mkdir "$work/store"
  [ "$("$host" "$work/store" | grep -o '"seq_num":[12]}' | tr -d '\n')" = '"seq_num":1}"seq_num":2}' ] ||
    fail "$host doesn't give its events back"
  rm -r "$work/store"
done
