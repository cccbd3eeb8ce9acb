#!/bin/sh
# scripts/selfplay_pack.sh: six seconds of self-play on one thread come
# back as a pack that unpacks to whole games, each file as long as its
# state says; a missing or failing tuner is refused.
# Usage: selfplay_pack_test.sh QUILLON_TTUNE SOURCE_DIR
set -e
tuner=$1
root=$2
# xz-utils is not in every minimal system: skipped (77) without it.
command -v xz >/dev/null 2>&1 || { echo "no xz: skipped"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

sh "$root/scripts/selfplay_pack.sh" "$tuner" 9 6 "$work/out/pack" 1 >"$work/log" 2>&1 ||
    { cat "$work/log"; echo "the run failed"; exit 1; }
ls "$work"/out/pack.tar.xz.aa >/dev/null ||
    { cat "$work/log"; echo "no pack"; exit 1; }
mkdir "$work/home"
cat "$work"/out/pack.tar.xz.* | xz -dc | tar -xf - -C "$work/home"
state=$(ls "$work"/home/selfplay-s9-n2500-t1-*-w0.state)
bin=${state%.state}.bin
bytes=$(sed -n 's/.*bytes \([0-9][0-9]*\).*/\1/p' "$state")
positions=$(sed -n 's/.*positions \([0-9][0-9]*\).*/\1/p' "$state")
[ "$positions" -gt 0 ] || { echo "no positions: $(cat "$state")"; exit 1; }
[ "$(wc -c <"$bin")" -eq "$bytes" ] ||
    { echo "$bin is not the $bytes bytes its state gives"; exit 1; }
[ "$bytes" -eq $((positions * 40)) ] ||
    { echo "$bytes bytes for $positions records of 40 bytes"; exit 1; }
grep -q "^games [0-9]* positions $positions$" "$work/log" ||
    { cat "$work/log"; echo "no count of the games"; exit 1; }

if sh "$root/scripts/selfplay_pack.sh" "$work/none" 9 1 "$work/x" 1 >"$work/log" 2>&1; then
    echo "a missing tuner was accepted"; exit 1
fi
grep -q "^no tuner" "$work/log" || { cat "$work/log"; exit 1; }
printf '#!/bin/sh\nexit 3\n' >"$work/failing"
chmod +x "$work/failing"
if sh "$root/scripts/selfplay_pack.sh" "$work/failing" 9 1 "$work/x" 1 >"$work/log" 2>&1; then
    echo "a failing tuner was accepted"; exit 1
fi
grep -q "self-play failed (status 3)" "$work/log" || { cat "$work/log"; exit 1; }
printf '#!/bin/sh\nexit 0\n' >"$work/idle"
chmod +x "$work/idle"
if sh "$root/scripts/selfplay_pack.sh" "$work/idle" 9 1 "$work/x" 1 >"$work/log" 2>&1; then
    echo "a run without games was accepted"; exit 1
fi
grep -q "no games made" "$work/log" || { cat "$work/log"; exit 1; }
echo "selfplay_pack.sh: whole games packed, failures refused"
