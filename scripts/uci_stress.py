#!/usr/bin/env python3
"""Random UCI sessions against a Quillon binary, for sanitizer builds.

Each session sends 5 to 60 random commands (positions, good and broken,
every kind of go, stop, ponderhit, options, junk) with short pauses, then
stop, isready and quit.  A session fails when the engine exits with a
non-zero status, prints a sanitizer report, misses the readyok, or does
not end within 30 seconds.  Stops at the first failure; the engine's
stderr goes to stress_fail_SEED.txt in the working folder.

Usage: scripts/uci_stress.py ENGINE SECONDS SEED
e.g.   scripts/uci_stress.py build-tsan/quillon 300 1
"""
import random, subprocess, sys, tempfile, threading, time
exe=sys.argv[1]; seconds=float(sys.argv[2]); seed=int(sys.argv[3])
rng=random.Random(seed)
workdir=tempfile.mkdtemp(prefix="quillon_stress_")
fens=["startpos","fen 8/8/8/8/8/8/8/K6k w - -","fen 7k/5Q2/6K1/8/8/8/8/8 b - -",
 "fen 6k1/5ppp/8/8/8/8/5PPP/3R2K1 w - -","fen r3k2r/8/8/8/8/8/8/R3K2R w KQkq -",
 "fen 4k3/1P6/8/8/8/8/6p1/4K3 w - -","fen rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1 junk",
 "fen 8/8/8/8", "fen kkkkkkkk/8/8/8/8/8/8/KKKKKKKK w - -","fen 8/PPPPPPPP/8/8/8/8/pppppppp/8 b - -"]
moves=["e2e4","e7e5","g1f3","b8c6","e1g1","e1h1","e8c8","b7b8q","a1a8","z9z9","e2e4e5","0000","h7h8n"]
opts=["Hash value 1","Hash value 8","Threads value 3","Threads value 1","MultiPV value 3","MultiPV value 1",
 "Contempt value 50","Selectivity value 0","Selectivity value 150","UCI_Chess960 value true","UCI_Chess960 value false",
 "Clear Hash","Ponder value true","UCI_LimitStrength value true","UCI_Elo value 1600","UCI_LimitStrength value false","Log value true","Log value false"]
def cmd():
    r=rng.random()
    if r<0.2:
        return "position "+rng.choice(fens)+(" moves "+" ".join(rng.choice(moves) for _ in range(rng.randint(0,6))) if rng.random()<0.6 else "")
    if r<0.4:
        return rng.choice(["go depth %d"%rng.randint(-3,12),"go movetime %d"%rng.randint(0,200),"go infinite","go ponder wtime 500 btime 500",
          "go wtime %d btime %d winc 10 binc 10"%(rng.randint(0,2000),rng.randint(0,2000)),"go nodes %d"%rng.randint(0,50000),
          "go wtime 1000 btime 1000 movestogo %d"%rng.randint(0,5)])
    if r<0.55: return rng.choice(["stop","ponderhit","isready","ucinewgame","uci","debug on","_show"])
    if r<0.7: return "setoption name "+rng.choice(opts)
    if r<0.8: return "".join(chr(rng.randint(32,126)) for _ in range(rng.randint(0,80)))
    return rng.choice(["isready","stop"])
end=time.time()+seconds; runs=0
while time.time()<end:
    p=subprocess.Popen([exe],stdin=subprocess.PIPE,stdout=subprocess.PIPE,stderr=subprocess.PIPE,cwd=workdir)
    ok=True
    bufs={'o':b'','e':b''}
    def drain(f,k):
        while True:
            d=f.read1(65536) if hasattr(f,'read1') else f.read(65536)
            if not d: break
            bufs[k]+=d
    ts=[threading.Thread(target=drain,args=(p.stdout,'o')),threading.Thread(target=drain,args=(p.stderr,'e'))]
    for t in ts: t.start()
    try:
        for i in range(rng.randint(5,60)):
            c=cmd()
            p.stdin.write((c+"\n").encode()); p.stdin.flush()
            time.sleep(rng.choice([0,0,0.001,0.01,0.05]))
        p.stdin.write(b"stop\nisready\nquit\n"); p.stdin.flush(); p.stdin.close()
        p.wait(timeout=30)
        for t in ts: t.join()
        out,err=bufs['o'],bufs['e']
        if p.returncode!=0 or b"ERROR" in err or b"runtime error" in err:
            open("stress_fail_%d.txt"%seed,"w").write(err.decode()); print("FAIL rc",p.returncode,flush=True); ok=False
        if b"readyok" not in out: print("NO READYOK",flush=True); ok=False
        for l in out.decode(errors='replace').splitlines():
            if l.startswith("bestmove null") : pass
    except subprocess.TimeoutExpired:
        print("HANG seed",seed,"run",runs,flush=True); p.kill(); ok=False
    runs+=1
    if not ok: break
print("runs",runs)
