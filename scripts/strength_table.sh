#!/bin/sh
# What UCI_Elo is worth: Quillon with UCI_LimitStrength on at a few UCI_Elo
# settings, each against Stockfish limited to a nominal Elo (its UCI_Elo is
# calibrated to the CCRL 40/4 rating list), 60 games a setting (30 game
# pairs) at 10+0.1, one thread and 16 MB of hash each, two games at once,
# openings from tests/data/openings.epd shuffled with a fixed seed.  No
# adjudication: every game is played out.  Each match's log and games go to
# OUTDIR (the games are appended to its PGN file); the summary lines are
# printed at the end.  docs/strength.md holds the table made from one run
# and how to read it.
# Usage: scripts/strength_table.sh QUILLON OUTDIR [POINT ...]
#   POINT is SETTING or SETTING:ANCHOR: Quillon at UCI_Elo SETTING against
#   Stockfish at UCI_Elo ANCHOR (SETTING when not given), both 1500 .. 2850
#   (Stockfish's range ends at 2850).  SETTING full plays Quillon without
#   the limit, against Stockfish at 2850 unless an ANCHOR is given.
#   The default points are 1600 2000 2400 2800.
# Environment: STRENGTH_ROUNDS game pairs a point (30), STRENGTH_TC (10+0.1),
#   STRENGTH_CONCURRENCY (2), STRENGTH_SEED (34), STOCKFISH
#   (/usr/games/stockfish).
# It needs node and the match runner match.mjs, which is not part of the
# repository: QUILLON_MATCH_TOOL names it (../shared/tools/match.mjs when
# unset).  Without them it says so and fails.
set -e
usage="usage: scripts/strength_table.sh QUILLON OUTDIR [SETTING[:ANCHOR] ...]"
engine=${1:?$usage}
out=${2:?$usage}
shift 2
[ $# -gt 0 ] || set -- 1600 2000 2400 2800
rounds=${STRENGTH_ROUNDS:-30}
tc=${STRENGTH_TC:-10+0.1}
concurrency=${STRENGTH_CONCURRENCY:-2}
seed=${STRENGTH_SEED:-34}
stockfish=${STOCKFISH:-$(command -v stockfish || echo /usr/games/stockfish)}
match=${QUILLON_MATCH_TOOL-../shared/tools/match.mjs}
openings=$(dirname "$0")/../tests/data/openings.epd

# An Elo that both engines take: Stockfish 1350 .. 2850, Quillon 1500 up.
check_elo() {
    case "$1" in
        *[!0-9]* | "") echo "not an Elo: $1"; exit 1 ;;
    esac
    [ "$1" -ge 1500 ] && [ "$1" -le 2850 ] ||
        { echo "Elo $1 is outside 1500 .. 2850"; exit 1; }
}
setting_of() { echo "${1%%:*}"; }
anchor_of() {
    case "$1" in
        *:*) echo "${1#*:}" ;;
        full) echo 2850 ;;
        *) echo "$1" ;;
    esac
}
# The log's and the games' file name, without the suffix.
file_of() {
    case "$1" in
        *:*) echo "$out/elo-$(setting_of "$1")-vs-$(anchor_of "$1")" ;;
        *) echo "$out/elo-$1" ;;
    esac
}

[ -x "$engine" ] || { echo "no engine $engine"; exit 1; }
[ -x "$stockfish" ] || { echo "no stockfish: apt-get install stockfish"; exit 1; }
command -v node >/dev/null 2>&1 || { echo "node is needed"; exit 1; }
[ -n "$match" ] && [ -f "$match" ] ||
    { echo "no match runner ${match:-given}: set QUILLON_MATCH_TOOL to match.mjs"; exit 1; }
for point in "$@"; do
    setting=$(setting_of "$point")
    [ "$setting" = full ] || check_elo "$setting"
    check_elo "$(anchor_of "$point")"
done
mkdir -p "$out"
engine=$(realpath "$engine")
openings=$(realpath "$openings")

for point in "$@"; do
    setting=$(setting_of "$point")
    anchor=$(anchor_of "$point")
    file=$(file_of "$point")
    if [ "$setting" = full ]; then
        limit=false quillon_elo=$anchor
    else
        limit=true quillon_elo=$setting
    fi
    echo "UCI_Elo $setting: $rounds pairs at $tc against Stockfish at UCI_Elo $anchor; log $file.log"
    node "$match" \
        --engine cmd="$engine" name="quillon-$setting" dir="$out" \
        "option.UCI_LimitStrength=$limit" "option.UCI_Elo=$quillon_elo" \
        --engine cmd="$stockfish" name="stockfish-$anchor" \
        "option.UCI_LimitStrength=true" "option.UCI_Elo=$anchor" \
        --each option.Threads=1 option.Hash=16 \
        --tc "$tc" --rounds "$rounds" --concurrency "$concurrency" \
        --openings "$openings" --seed "$seed" \
        --event "UCI_Elo $setting against $anchor" --pgn "$file.pgn" \
        >"$file.log" 2>&1 || {
        status=$?
        tail -20 "$file.log"
        echo "the match at UCI_Elo $setting failed (status $status): see $file.log"
        exit 1
    }
    grep -q "^Final results" "$file.log" ||
        { echo "the match at UCI_Elo $setting gave no result: see $file.log"; exit 1; }
done

for point in "$@"; do
    echo "== UCI_Elo $(setting_of "$point") against Stockfish at $(anchor_of "$point")"
    sed -n '/^Final results/,$p' "$(file_of "$point").log" |
        grep -E "Score of|Elo difference|Losses"
done
