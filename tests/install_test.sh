#!/bin/sh
# "make install" into a scratch prefix, as cmake --install does it for the
# build folder: the program lands in bin/ and starts from there with its
# built-in net, searching exactly as the build's own program; the manual
# page lands in share/man/man6/ and renders without a warning.
# Usage: install_test.sh CMAKE BUILD_DIR BUILT_QUILLON EVALFILE
# EVALFILE is the net built in, empty for a build that carries none.
set -u
cmake=$1
build=$2
built=$(cd "$(dirname "$3")" && pwd)/$(basename "$3")
evalfile=$4
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

"$cmake" --install "$build" --prefix "$prefix" || fail "cmake --install"
exe=$prefix/bin/quillon
page=$prefix/share/man/man6/quillon.6
[ -x "$exe" ] || fail "no executable $exe"
[ -f "$page" ] || fail "no manual page $page"

# It starts from any folder, speaks UCI and loads its net.
cd "$prefix"
out=$(printf 'uci\nisready\nquit\n' | "$exe" 2>&1) || fail "exit status $?"
echo "$out" | grep -qx "uciok" || fail "no uciok: $out"
echo "$out" | grep -qx "readyok" || fail "no readyok: $out"
if [ -n "$evalfile" ]; then
    echo "$out" | grep -qx "info string loaded embedded network" ||
        fail "the built-in net did not load: $out"
fi
# The same engine as the build's: the same benchmark nodes.
installed=$("$exe" bench -d 5 | tail -n 1)
reference=$("$built" bench -d 5 | tail -n 1)
echo "$installed" | grep -Eq '^[0-9]+ nodes [0-9]+ nps$' ||
    fail "installed bench: $installed"
[ "${installed%% *}" = "${reference%% *}" ] ||
    fail "installed bench $installed, build's $reference"

if ! command -v man >/dev/null 2>&1; then
    echo "SKIPPED the manual page: man is not installed (apt-get install man-db)"
    exit 77
fi
rendered=$(MANWIDTH=80 man --warnings -l "$page" 2>"$prefix/warnings") ||
    fail "man exit status $?"
[ -s "$prefix/warnings" ] && fail "man warned: $(cat "$prefix/warnings")"
for word in NAME SYNOPSIS SWITCHES "UCI OPTIONS" CONSOLE UCI_ShowWDL; do
    echo "$rendered" | grep -q "$word" || fail "the page lacks $word"
done
echo "install ok: $exe ($installed), $page"
