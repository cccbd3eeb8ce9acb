#!/bin/sh
# A real GUI plays Quillon: Debian's xboard, on a virtual display, runs a
# two-game match of Quillon against itself at 1 minute a game, reaching the
# UCI engine through Debian's polyglot adapter.  Leaves in OUTDIR:
#   games.pgn      the two games as xboard saved them
#   board.png      a screenshot of the display late in the second game
#   xboard.debug   xboard's log of everything said between it and the engines
# and exits 0 only if both games ended with a result and neither xboard nor
# polyglot reported an error or an illegal move.
#
# Usage: scripts/gui_check.sh OUTDIR [QUILLON]
# QUILLON is the engine to play (default ./quillon, else build/quillon).
# Missing packages (xboard, polyglot, xvfb, xauth, imagemagick, xdotool) are
# installed with apt-get when run as root.
set -u

usage() { echo "usage: $0 OUTDIR [QUILLON]" >&2; exit 2; }
fail() { echo "gui_check: FAIL: $*" >&2; exit 1; }

# The part that runs inside the virtual display: xboard in the background,
# a screenshot every few seconds while it plays; the last one taken while
# it still ran is kept.
if [ "${1:-}" = "--inside-display" ]; then
    out=$2
    engine=$3
    work=$4
    # No window manager places the windows: the board with its clocks
    # stays at the top left, and the engine output is moved beside it as
    # soon as it shows.  No sounds: the display has no speaker.
    HOME=$work xboard \
        -fcp "$engine" -fUCI -fd "$work" -fn "Quillon" \
        -scp "$engine" -sUCI -sd "$work" -sn "Quillon 2" \
        -matchGames 2 -tc 1 -inc 0 -autoCallFlag true \
        -saveGameFile "$out/games.pgn" \
        -debugMode true -nameOfDebugFile "$out/xboard.debug" \
        -engineOutputUp true -popupExitMessage false -popupMoveErrors false \
        -saveSettingsOnExit false -size medium -soundProgram true \
        >"$out/xboard.out" 2>&1 &
    pid=$!
    shot=0
    while kill -0 "$pid" 2>/dev/null; do
        sleep 3
        for w in $(xdotool search --name "Engine Output" 2>/dev/null); do
            xdotool windowmove "$w" 530 0 windowsize "$w" 740 620 2>/dev/null
        done
        if import -window root "$work/shot.png" 2>/dev/null &&
            kill -0 "$pid" 2>/dev/null; then
            mv "$work/shot.png" "$out/board.png"
            shot=$((shot + 1))
        fi
    done
    wait "$pid"
    status=$?
    echo "xboard exit status $status, $shot screenshots" >>"$out/xboard.out"
    exit "$status"
fi

[ $# -ge 1 ] && [ $# -le 2 ] || usage
mkdir -p "$1" || fail "cannot make $1"
out=$(cd "$1" && pwd)
root=$(cd "$(dirname "$0")/.." && pwd)
engine=${2:-}
if [ -z "$engine" ]; then
    if [ -x "$root/quillon" ]; then engine=$root/quillon
    else engine=$root/build/quillon
    fi
fi
[ -x "$engine" ] || fail "no engine at $engine (build it with make)"
engine=$(cd "$(dirname "$engine")" && pwd)/$(basename "$engine")

PATH=$PATH:/usr/games
export PATH
need=""
command -v xboard >/dev/null 2>&1 || need="$need xboard"
command -v polyglot >/dev/null 2>&1 || need="$need polyglot"
command -v xvfb-run >/dev/null 2>&1 || need="$need xvfb"
command -v xauth >/dev/null 2>&1 || need="$need xauth"
command -v import >/dev/null 2>&1 || need="$need imagemagick"
command -v xdotool >/dev/null 2>&1 || need="$need xdotool"
if [ -n "$need" ]; then
    if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null 2>&1; then
        echo "installing:$need"
        apt-get update -q >/dev/null &&
            DEBIAN_FRONTEND=noninteractive apt-get install -y -q \
                --no-install-recommends $need >/dev/null ||
            fail "could not install:$need"
    else
        fail "missing:$need -- install with: sudo apt-get install$need"
    fi
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rm -f "$out/games.pgn" "$out/board.png" "$out/xboard.debug" "$out/xboard.out"
echo "gui_check: xboard plays $engine against itself, 2 games at 1 minute"
# Two games of at most 2 minutes each, with start-up and slack.
timeout 900 xvfb-run -a -s "-screen 0 1280x800x24" \
    sh "$0" --inside-display "$out" "$engine" "$work"
status=$?
[ "$status" = 0 ] || fail "xboard ended with status $status (see $out/xboard.out)"

# xboard and polyglot name an illegal move, a false claim or an error in
# their log, on their error stream and in the games' closing comments.
bad=$(grep -a -i -h -e 'illegal' -e 'error' -e 'false draw' -e 'false win' \
    -e 'crash' -e 'disconnect' -e 'exited' -e 'killed' \
    "$out/xboard.debug" "$out/xboard.out" "$out/games.pgn" 2>/dev/null |
    head -n 5)
[ -z "$bad" ] || fail "xboard reported: $bad"
[ -s "$out/games.pgn" ] || fail "no games saved"
[ -s "$out/board.png" ] || fail "no screenshot taken"
games=$(grep -c '^\[Event ' "$out/games.pgn")
results=$(grep -Ec '^\[Result "(1-0|0-1|1/2-1/2)"\]' "$out/games.pgn")
[ "$games" = 2 ] || fail "$games games saved, not 2"
[ "$results" = 2 ] || fail "only $results of 2 games ended with a result"
echo "gui_check: 2 games ended:"
grep -E '^\[(White|Black|Result|PlyCount|Termination) ' "$out/games.pgn"
grep -E '\} (1-0|0-1|1/2-1/2)$' "$out/games.pgn"
echo "gui_check: ok; $out/games.pgn, $out/board.png"
