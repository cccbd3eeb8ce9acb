#!/bin/sh
# Self-play on a borrowed machine for a fixed time, packed to carry home.
#   scripts/selfplay_pack.sh TUNER SEED SECONDS PACK [THREADS [POSITIONS]]
# 1. TUNER (a `make ttune` build; link it with -static to run on another
#    system's libraries, see nets/README.md) plays -mktraindata into a
#    scratch folder with THREADS workers (all processors by default), 2,500
#    nodes a move, the seed SEED and the net built into TUNER, until
#    POSITIONS million (100) or SECONDS have passed;
# 2. each file is cut to its .state file's byte count, so that it holds
#    whole games only;
# 3. the folder goes into PACK.tar.xz.aa, .ab, ... of 15 MB at most each.
# At home: cat PACK.tar.xz.* | xz -dc | tar -xf - -C FOLDER.
# A run that makes no game fails, and so does a failed step.
set -e
usage="usage: scripts/selfplay_pack.sh TUNER SEED SECONDS PACK [THREADS [POSITIONS]]"
tuner=${1:?$usage}
seed=${2:?$usage}
seconds=${3:?$usage}
pack=${4:?$usage}
threads=${5:-$(nproc)}
positions=${6:-100}
[ -x "$tuner" ] || { echo "no tuner $tuner"; exit 1; }
command -v xz >/dev/null 2>&1 || { echo "xz is needed (Debian's xz-utils)"; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo "== 1. self-play: seed $seed, $threads threads, $seconds s"
status=0
timeout -s TERM "$seconds" "$tuner" -mktraindata "$work/games" "$positions" \
    -threads "$threads" -n 2500 -seed "$seed" -use_nn >"$work/log" 2>&1 ||
    status=$?
# timeout's 124 is the planned end; anything else but 0 is a failure.
[ "$status" -eq 0 ] || [ "$status" -eq 124 ] ||
    { tail -5 "$work/log"; echo "self-play failed (status $status)"; exit 1; }

echo "== 2. whole games only"
found=0
for state in "$work"/games/*.state; do
    [ -f "$state" ] || continue
    bytes=$(sed -n 's/.*bytes \([0-9][0-9]*\).*/\1/p' "$state")
    [ -n "$bytes" ] || { echo "unreadable $state"; exit 1; }
    truncate -s "$bytes" "${state%.state}.bin"
    found=1
done
[ "$found" -eq 1 ] || { tail -5 "$work/log"; echo "no games made"; exit 1; }
cat "$work"/games/*.state |
    awk '{g += $2; p += $4} END {print "games", g, "positions", p; exit p == 0}' ||
    { echo "no positions made"; exit 1; }

echo "== 3. packed into $pack.tar.xz.*"
mkdir -p "$(dirname "$pack")"
rm -f "$pack".tar.xz.*
cp "$work/log" "$work/games/selfplay-s$seed.log"
tar -C "$work/games" -cf - . | xz -6 -T0 | split -b 15M - "$pack.tar.xz."
ls -l "$pack".tar.xz.*
