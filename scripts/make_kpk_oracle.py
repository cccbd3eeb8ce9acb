#!/usr/bin/env python3
"""Writes tests/data/kpk_oracle.txt: random legal king-and-pawn-against-king
positions with their result from the 3-man Syzygy tables, probed through
Debian's stockfish (SyzygyPath set; a tablebase win prints a score far
above any evaluation).  Usage: scripts/make_kpk_oracle.py [count] [seed]."""
import random
import subprocess
import sys

SYZYGY = "tests/data/syzygy"
ENGINE = "/usr/games/stockfish"


def dist(a, b):
    return max(abs(a % 8 - b % 8), abs(a // 8 - b // 8))


def pawn_attacks(pawn, white, sq):
    step = 8 if white else -8
    return any(sq == pawn + step + d and abs((pawn + d) % 8 - pawn % 8) == 1
               for d in (-1, 1))


def fen_of(pieces, stm):
    rows = []
    for rank in range(7, -1, -1):
        row, empty = "", 0
        for file in range(8):
            p = pieces.get(file + 8 * rank)
            if p:
                row += (str(empty) if empty else "") + p
                empty = 0
            else:
                empty += 1
        rows.append(row + (str(empty) if empty else ""))
    return "/".join(rows) + (" w" if stm == 0 else " b") + " - - 0 1"


def random_position(rng):
    while True:
        white_pawn = rng.random() < 0.5
        pawn = rng.randrange(8, 56)
        strong_k, weak_k = rng.randrange(64), rng.randrange(64)
        stm = rng.randrange(2)
        if len({pawn, strong_k, weak_k}) < 3 or dist(strong_k, weak_k) < 2:
            continue
        # The pawn's side to move must not be giving check already.
        pawn_side = 0 if white_pawn else 1
        if stm == pawn_side and pawn_attacks(pawn, white_pawn, weak_k):
            continue
        pieces = {pawn: "P" if white_pawn else "p",
                  strong_k: "K" if white_pawn else "k",
                  weak_k: "k" if white_pawn else "K"}
        return fen_of(pieces, stm), pawn_side, stm


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 400
    rng = random.Random(int(sys.argv[2]) if len(sys.argv) > 2 else 1)
    seen, positions = set(), []
    while len(positions) < count:
        fen, pawn_side, stm = random_position(rng)
        if fen not in seen:
            seen.add(fen)
            positions.append((fen, pawn_side, stm))
    engine = subprocess.Popen([ENGINE], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, text=True)
    engine.stdin.write(f"setoption name SyzygyPath value {SYZYGY}\n")
    out = open("tests/data/kpk_oracle.txt", "w")
    out.write("# FEN;result for the side with the pawn: 2 win, 1 draw.\n")
    out.write("# Made by scripts/make_kpk_oracle.py from the 3-man Syzygy\n")
    out.write("# tables probed with Debian's stockfish at depth 1.\n")
    for fen, pawn_side, stm in positions:
        engine.stdin.write(f"position fen {fen}\ngo depth 1\n")
        engine.stdin.flush()
        score = None
        for line in engine.stdout:
            if " score cp " in line:
                score = int(line.split(" score cp ")[1].split()[0])
            elif " score mate " in line:
                score = 30000 if int(line.split(" score mate ")[1].split()[0]) > 0 else -30000
            if line.startswith("bestmove"):
                break
        if score is None:
            continue
        if stm != pawn_side:
            score = -score
        out.write(f"{fen};{2 if score > 5000 else 1}\n")
    engine.stdin.write("quit\n")
    engine.stdin.close()
    engine.wait()


if __name__ == "__main__":
    main()
