#!/usr/bin/env python3
"""Random legal positions of every table in a Syzygy folder, with the WDL
and DTZ that Debian's stockfish reports for them (its `d` command prints
both when the tables are loaded).

usage: make_tb_oracle.py SYZYGY_DIR PER_TABLE OUT [SEED]
Output lines: FEN;wdl;dtz  (wdl -2..2, dtz as stockfish prints it).
"""
import os
import random
import subprocess
import sys

WDL_WORDS = {"Loss": -2, "Blessed": -1, "Draw": 0, "Cursed": 1, "Win": 2}


def sq_xy(s):
    return s & 7, s >> 3


def attacks(kind, s, occ, white):
    x, y = sq_xy(s)
    out = set()
    if kind == "K" or kind == "N":
        steps = ([(1, 0), (-1, 0), (0, 1), (0, -1), (1, 1), (1, -1), (-1, 1), (-1, -1)]
                 if kind == "K" else
                 [(1, 2), (2, 1), (-1, 2), (-2, 1), (1, -2), (2, -1), (-1, -2), (-2, -1)])
        for dx, dy in steps:
            if 0 <= x + dx < 8 and 0 <= y + dy < 8:
                out.add((y + dy) * 8 + x + dx)
        return out
    if kind == "P":
        dy = 1 if white else -1
        for dx in (-1, 1):
            if 0 <= x + dx < 8 and 0 <= y + dy < 8:
                out.add((y + dy) * 8 + x + dx)
        return out
    dirs = []
    if kind in "RQ":
        dirs += [(1, 0), (-1, 0), (0, 1), (0, -1)]
    if kind in "BQ":
        dirs += [(1, 1), (1, -1), (-1, 1), (-1, -1)]
    for dx, dy in dirs:
        cx, cy = x + dx, y + dy
        while 0 <= cx < 8 and 0 <= cy < 8:
            t = cy * 8 + cx
            out.add(t)
            if t in occ:
                break
            cx, cy = cx + dx, cy + dy
    return out


def attacked(board, target, by_white):
    occ = set(board)
    for s, (kind, white) in board.items():
        if white == by_white and target in attacks(kind, s, occ, white):
            return True
    return False


def fen_of(board, white_to_move, ep="-"):
    rows = []
    for y in range(7, -1, -1):
        row, empty = "", 0
        for x in range(8):
            p = board.get(y * 8 + x)
            if p is None:
                empty += 1
                continue
            if empty:
                row += str(empty)
                empty = 0
            row += p[0] if p[1] else p[0].lower()
        rows.append(row + (str(empty) if empty else ""))
    return "/".join(rows) + (" w " if white_to_move else " b ") + "- " + ep + " 0 1"


def legal(board, white_to_move):
    kings = {w: s for s, (k, w) in board.items() if k == "K"}
    # The side that just moved must not be in check.
    return not attacked(board, kings[not white_to_move], white_to_move)


def random_position(name, rng):
    white, black = name.split("v")
    while True:
        board = {}
        ok = True
        for letters, is_white in ((white, True), (black, False)):
            for k in letters:
                while True:
                    s = rng.randrange(64)
                    if s in board or (k == "P" and (s < 8 or s >= 56)):
                        continue
                    board[s] = (k, is_white)
                    break
        stm = rng.random() < 0.5
        if ok and legal(board, stm):
            return fen_of(board, stm)


def en_passant_position(rng):
    """KPvKP with a pawn that has just stepped two squares beside an enemy
    pawn, so that the capture en passant is possible."""
    while True:
        white_moved = rng.random() < 0.5
        f = rng.randrange(8)
        side = rng.choice([-1, 1])
        if not 0 <= f + side < 8:
            continue
        board = {}
        if white_moved:
            board[24 + f] = ("P", True)          # pawn on rank 4
            board[24 + f + side] = ("P", False)  # black pawn beside it
            ep = chr(97 + f) + "3"
            passed = (16 + f, 8 + f)
        else:
            board[32 + f] = ("P", False)
            board[32 + f + side] = ("P", True)
            ep = chr(97 + f) + "6"
            passed = (40 + f, 48 + f)
        for is_white in (True, False):
            while True:
                s = rng.randrange(64)
                if s in board or s in passed:
                    continue
                board[s] = ("K", is_white)
                break
        stm = not white_moved
        kings = [s for s, p in board.items() if p[0] == "K"]
        kx, ky = sq_xy(kings[0])
        lx, ly = sq_xy(kings[1])
        if max(abs(kx - lx), abs(ky - ly)) < 2 or not legal(board, stm):
            continue
        # The pawn could not have stepped past a check on the mover's side.
        return fen_of(board, stm, ep)


def main():
    folder, per_table, out = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    rng = random.Random(int(sys.argv[4]) if len(sys.argv) > 4 else 12)
    names = sorted(f[:-5] for f in os.listdir(folder) if f.endswith(".rtbw"))
    fens = []
    for name in names:
        fens += [random_position(name, rng) for _ in range(per_table)]
    fens += [en_passant_position(rng) for _ in range(per_table)]
    commands = "setoption name SyzygyPath value %s\n" % folder
    commands += "".join("position fen %s\nd\n" % fen for fen in fens)
    commands += "quit\n"
    answer = subprocess.run(["/usr/games/stockfish"], input=commands,
                            capture_output=True, text=True).stdout
    wdl = []
    dtz = []
    for line in answer.splitlines():
        if line.startswith("Tablebases WDL:"):
            wdl.append(WDL_WORDS[line.split()[2]])
        elif line.startswith("Tablebases DTZ:"):
            dtz.append(int(line.split()[2]))
    assert len(wdl) == len(fens) == len(dtz), (len(wdl), len(fens))
    with open(out, "w") as f:
        f.write("# FEN;wdl;dtz of random positions, from Debian's stockfish probing\n")
        f.write("# the Syzygy tables in %s (scripts/make_tb_oracle.py).\n" % folder)
        for fen, w, d in zip(fens, wdl, dtz):
            f.write("%s;%d;%d\n" % (fen, w, d))


if __name__ == "__main__":
    main()
