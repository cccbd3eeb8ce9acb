#!/bin/sh
# Drives Quillon through Debian's polyglot adapter in the xboard protocol:
# the engine plays 1.e4-style opening moves at one second a move.  Prints
# the adapter's "move" lines; needs the polyglot package.
# Usage: scripts/polyglot_check.sh [path/to/quillon]
set -e
exe=$(realpath "${1:-./quillon}")
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cat > "$dir/quillon.ini" <<INI
[PolyGlot]
EngineName = Quillon
EngineDir = $(dirname "$exe")
EngineCommand = $exe
Book = false

[Engine]
Hash = 16
Ponder = false
INI
cd "$dir"
(echo xboard; echo "protover 2"; sleep 1; echo new; echo "st 1"; echo go
 sleep 2.5; echo "usermove e7e5"; sleep 2.5; echo quit) |
    timeout 20 polyglot quillon.ini | grep '^move '
