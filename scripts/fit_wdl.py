#!/usr/bin/env python3
"""Fits the win/draw/loss model that UCI_ShowWDL prints, from self-play
training records, and measures it on records held out of the fit.

    python3 scripts/fit_wdl.py [--holdout K] [--block N] [--limit N]
                               [--material-low M] PATH...

PATH is a file of 40-byte training records or a folder whose *.bin files
hold them (the files -mktraindata writes).  Only whole records are read, so
a file that a running generator is appending to can be read at any time.

Each record gives the search's score `sc` (centipawns, side to move, within
+-2000), the board, and the game's result for the side to move (result_logit
1919 win, 0 draw, -1919 loss).  The material on the board is

    m = pawns + 3 * (knights + bishops) + 5 * rooks + 10 * queens

over both sides (80 at the start, as the engine counts piece_points), and
the model is a logistic in the score whose offset a and scale b are cubics
in x = clamp(m, M_LOW, M_HIGH) / M_HIGH:

    a(x) = ((a3 x + a2) x + a1) x + a0      (likewise b)
    win  = 1 / (1 + exp((a - s) / b))
    loss = 1 / (1 + exp((a + s) / b))
    draw = 1 - win - loss

fitted by maximum likelihood of the three outcomes.  Records are taken in
blocks of N consecutive records (a block holds a few dozen games, each game
written in order), and every K-th block is held out, so that a held-out
position's neighbours in its game are held out too (the only leaks are the
games that straddle a block border).  Uses the standard library only.
"""

import argparse
import glob
import math
import os
import struct
import sys

RECORD = struct.Struct("<32sBBhhh")
WIN_LOGIT = 1919
M_LOW = 8
M_HIGH = 80
SCORE_CLAMP = 2000
# Points by piece type (the low three bits of a board nibble).
TYPE_POINTS = [0, 1, 3, 3, 5, 10, 0, 0]


def byte_points():
    """Material of the two squares packed in one board byte."""
    table = bytearray(256)
    for b in range(256):
        table[b] = TYPE_POINTS[b & 7] + TYPE_POINTS[(b >> 4) & 7]
    return bytes(table)


def record_files(paths):
    files = []
    for p in paths:
        if os.path.isdir(p):
            files.extend(sorted(glob.glob(os.path.join(p, "*.bin"))))
        elif os.path.isfile(p):
            files.append(p)
        else:
            sys.exit("no such file or folder: " + p)
    return files


def outcome_of(logit):
    """0 win, 1 draw, 2 loss, or None for a result that is none of them."""
    if logit == WIN_LOGIT:
        return 0
    if logit == 0:
        return 1
    if logit == -WIN_LOGIT:
        return 2
    return None


def read_cells(files, block, holdout, limit=0):
    """Counts of (win, draw, loss) per (material, score) cell, for the fit
    and for the held-out blocks; at most `limit` records a file if not 0."""
    points = byte_points()
    fit, test = {}, {}
    totals = {"records": 0, "fit": 0, "test": 0, "skipped": 0}
    for path in files:
        with open(path, "rb") as f:
            data = f.read()
        whole = len(data) - len(data) % RECORD.size
        if limit:
            whole = min(whole, limit * RECORD.size)
        for i, (board, _, _, logit, _, sc) in enumerate(
                RECORD.iter_unpack(data[:whole])):
            totals["records"] += 1
            k = outcome_of(logit)
            if k is None:
                totals["skipped"] += 1
                continue
            m = sum(board.translate(points))
            s = max(-SCORE_CLAMP, min(SCORE_CLAMP, sc))
            held = (i // block) % holdout == holdout - 1
            cells = test if held else fit
            totals["test" if held else "fit"] += 1
            c = cells.setdefault((m, s), [0, 0, 0])
            c[k] += 1
    return fit, test, totals


def material_x(m):
    return min(max(m, M_LOW), M_HIGH) / M_HIGH


def set_material_low(m):
    global M_LOW
    M_LOW = m


def cubic(c, x):
    return ((c[3] * x + c[2]) * x + c[1]) * x + c[0]


def sigmoid(u):
    if u >= 0:
        return 1.0 / (1.0 + math.exp(-u))
    e = math.exp(u)
    return e / (1.0 + e)


TINY = 1e-12


def probabilities(params, m, s):
    """(win, draw, loss) for a score and material; None where b <= 0."""
    x = material_x(m)
    a, b = cubic(params[0:4], x), cubic(params[4:8], x)
    if b <= 0:
        return None
    w, l = sigmoid((s - a) / b), sigmoid((-s - a) / b)
    return w, max(1.0 - w - l, TINY), l


# The parameters are fitted in hundreds of centipawns, so that the eight
# of them and their gradients are of one size.
UNIT = 100.0


def loss_and_gradient(theta, cells, with_gradient=True):
    """Negative log likelihood per record, and its gradient in theta."""
    params = [t * UNIT for t in theta]
    total, count = 0.0, 0
    grad = [0.0] * 8
    for (m, s), (nw, nd, nl) in cells.items():
        x = material_x(m)
        a, b = cubic(params[0:4], x), cubic(params[4:8], x)
        if b <= 0:
            return math.inf, grad
        uw, ul = (s - a) / b, (-s - a) / b
        w, l = sigmoid(uw), sigmoid(ul)
        d = 1.0 - w - l
        if d <= TINY or w <= 0.0 or l <= 0.0:
            return math.inf, grad
        total -= nw * math.log(w) + nd * math.log(d) + nl * math.log(l)
        count += nw + nd + nl
        if not with_gradient:
            continue
        # dw/da, dw/db and dl/da, dl/db; dd = -dw - dl.
        gw, gl = w * (1.0 - w), l * (1.0 - l)
        dw_da, dl_da = -gw / b, -gl / b
        dw_db, dl_db = -gw * uw / b, -gl * ul / b
        dd_da, dd_db = -dw_da - dl_da, -dw_db - dl_db
        g_a = -(nw * dw_da / w + nd * dd_da / d + nl * dl_da / l)
        g_b = -(nw * dw_db / w + nd * dd_db / d + nl * dl_db / l)
        xp = 1.0
        for k in range(4):
            grad[k] += g_a * xp * UNIT
            grad[4 + k] += g_b * xp * UNIT
            xp *= x
    if count == 0:
        return math.inf, grad
    return total / count, [g / count for g in grad]


# The floor of a probability when held-out records are scored, so that a
# model sure of a result that did not come pays a large, finite price.
FLOOR = 1e-6


def held_out_log_loss(theta, cells):
    """Log loss per record of the model on cells it was not fitted to."""
    params = [t * UNIT for t in theta]
    total, count = 0.0, 0
    for (m, s), counts in cells.items():
        x = material_x(m)
        a, b = cubic(params[0:4], x), cubic(params[4:8], x)
        w, l = sigmoid((s - a) / b), sigmoid((-s - a) / b)
        for n, p in zip(counts, (w, 1.0 - w - l, l)):
            total -= n * math.log(max(p, FLOOR))
            count += n
    return total / count


def dot(u, v):
    return sum(p * q for p, q in zip(u, v))


def minimise(f, theta, free, iterations=400, tolerance=1e-9):
    """BFGS with a backtracking line search over the parameters whose
    indices are in `free`; the others stay as given."""
    n = len(free)
    inv = [[1.0 if i == j else 0.0 for j in range(n)] for i in range(n)]
    value, grad = f(theta)
    g = [grad[i] for i in free]
    for _ in range(iterations):
        step = [-sum(inv[i][j] * g[j] for j in range(n)) for i in range(n)]
        slope = dot(step, g)
        if slope >= 0:  # not a descent direction: start over from steepest
            inv = [[1.0 if i == j else 0.0 for j in range(n)] for i in range(n)]
            step = [-x for x in g]
            slope = dot(step, g)
        t = 1.0
        while True:
            trial = list(theta)
            for i, k in enumerate(free):
                trial[k] += t * step[i]
            new_value, new_grad = f(trial)
            if new_value <= value + 1e-4 * t * slope:
                break
            t *= 0.5
            if t < 1e-12:
                return theta, value
        new_g = [new_grad[i] for i in free]
        sk = [t * x for x in step]
        yk = [p - q for p, q in zip(new_g, g)]
        theta, g = trial, new_g
        done = value - new_value < tolerance
        value = new_value
        if done:
            break
        sy = dot(sk, yk)
        if sy <= 1e-16:
            continue
        hy = [sum(inv[i][j] * yk[j] for j in range(n)) for i in range(n)]
        yhy = dot(yk, hy)
        for i in range(n):
            for j in range(n):
                inv[i][j] += ((sy + yhy) * sk[i] * sk[j] / (sy * sy) -
                              (hy[i] * sk[j] + sk[i] * hy[j]) / sy)
    return theta, value


def constant_log_loss(fit, test):
    counts = [0, 0, 0]
    for c in fit.values():
        for k in range(3):
            counts[k] += c[k]
    n = sum(counts)
    p = [c / n for c in counts]
    total, m = 0.0, 0
    for c in test.values():
        for k in range(3):
            total -= c[k] * math.log(p[k])
            m += c[k]
    return total / m, p


def calibration(params, test):
    """Held-out records by score band: count, observed and predicted
    win and draw rates."""
    bands = [(-2000, -400), (-400, -200), (-200, -100), (-100, -30),
             (-30, 30), (30, 100), (100, 200), (200, 400), (400, 2001)]
    rows = []
    for lo, hi in bands:
        n, ow, od, pw, pd = 0, 0, 0, 0.0, 0.0
        for (m, s), (nw, nd, nl) in test.items():
            if not lo <= s < hi:
                continue
            k = nw + nd + nl
            w, d, _ = probabilities(params, m, s)
            n += k
            ow += nw
            od += nd
            pw += k * w
            pd += k * d
        if n:
            rows.append((lo, hi, n, ow / n, pw / n, od / n, pd / n))
    return rows


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("paths", nargs="+", metavar="PATH",
                    help="a file of records, or a folder of *.bin files")
    ap.add_argument("--holdout", type=int, default=5,
                    help="hold out every K-th block (default 5: 20%%)")
    ap.add_argument("--block", type=int, default=4096,
                    help="records per block (default 4096)")
    ap.add_argument("--limit", type=int, default=0,
                    help="read at most this many records of each file, so "
                    "that a fit of growing files can be repeated (default: "
                    "all)")
    ap.add_argument("--material-low", type=int, default=M_LOW,
                    help="material below which the model is flat "
                    "(default %d)" % M_LOW)
    args = ap.parse_args()
    if args.holdout < 2 or args.block < 1:
        ap.error("--holdout must be 2 or more and --block 1 or more")
    if not 0 <= args.material_low < M_HIGH:
        ap.error("--material-low must lie in 0 .. %d" % (M_HIGH - 1))
    set_material_low(args.material_low)
    files = record_files(args.paths)
    if not files:
        sys.exit("no record files in " + " ".join(args.paths))
    fit, test, totals = read_cells(files, args.block, args.holdout,
                                   args.limit)
    if not fit or not test:
        sys.exit("too few records to fit and test: %d" % totals["records"])
    print("files %d, records %d (%d fit, %d held out, %d without a result)" %
          (len(files), totals["records"], totals["fit"], totals["test"],
           totals["skipped"]))
    print("cells (material, score): %d fit, %d held out" %
          (len(fit), len(test)))

    # The score alone first (a and b constant), then with the material.
    start = [2.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0]
    fit_f = lambda th: loss_and_gradient(th, fit)
    flat, _ = minimise(fit_f, start, [0, 4])
    full, train_loss = minimise(fit_f, flat, list(range(8)))
    params = [t * UNIT for t in full]
    flat_params = [t * UNIT for t in flat]

    base, p = constant_log_loss(fit, test)
    flat_test = held_out_log_loss(flat, test)
    full_test = held_out_log_loss(full, test)
    print("outcome shares of the fit records: win %.4f draw %.4f loss %.4f" %
          tuple(p))
    print("held-out log loss: constant %.5f, score only %.5f, "
          "score and material %.5f" % (base, flat_test, full_test))
    print("fit log loss: %.5f" % train_loss)
    print("score only: a %.2f b %.2f" % (flat_params[0], flat_params[4]))
    print("a coefficients (x^0..x^3): " +
          ", ".join("%.4f" % v for v in params[0:4]))
    print("b coefficients (x^0..x^3): " +
          ", ".join("%.4f" % v for v in params[4:8]))
    print("a and b by material:")
    for m in sorted({M_LOW, 10, 20, 30, 40, 50, 60, 70, M_HIGH}):
        if m < M_LOW:
            continue
        x = material_x(m)
        print("  m %2d: a %7.2f  b %7.2f" %
              (m, cubic(params[0:4], x), cubic(params[4:8], x)))
    # A draw needs a > 0 and b > 0 at every material the model reads.
    bad = [m for m in range(M_LOW, M_HIGH + 1)
           if cubic(params[0:4], material_x(m)) <= 0 or
           cubic(params[4:8], material_x(m)) <= 0]
    if bad:
        print("warning: a or b is not positive at material %s" % bad)
    print("held-out calibration (score band: records, win observed/model, "
          "draw observed/model):")
    for lo, hi, n, ow, pw, od, pd in calibration(params, test):
        print("  [%5d, %5d): %7d  win %.3f/%.3f  draw %.3f/%.3f" %
              (lo, hi, n, ow, pw, od, pd))


if __name__ == "__main__":
    main()
