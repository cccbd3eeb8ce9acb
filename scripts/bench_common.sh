# Shared by the speed scripts (sourced, not run): nodes a second of one
# -bench run, and the median of numbers given one a line.
bench_nps() { "$@" 2>/dev/null | awk -F'nps= ' '/^total time=/ {print $2}'; }
median() { sort -g | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }
