#!/bin/sh
# The one-minute 1 ms run with and without the web display, alternating so that a busy
# machine weighs on both alike; prints the best wall-clock and CPU time of each and their
# ratios (on a shared machine the CPU time is the steadier figure).
#   bench/web_display_ratio.sh build/default/vorel_bench [rounds, default 5]
set -eu
bench=${1:?usage: $0 path/to/vorel_bench [rounds]}
rounds=${2:-5}
best() { awk -v c="$1" 'NR == 1 || $c < m { m = $c } END { print m }'; }
without=$(mktemp) with=$(mktemp)
trap 'rm -f "$without" "$with"' EXIT
i=0
while [ "$i" -lt "$rounds" ]; do
  for case in Without With; do
    out=$([ "$case" = With ] && echo "$with" || echo "$without")
    "$bench" --benchmark_filter="BM_ScnRun60sAt1ms${case}WebDisplay" --benchmark_format=csv \
      2>/dev/null | awk -F, '/^"BM_/ { print $3, $4 }' >>"$out"
  done
  i=$((i + 1))
done
for column in 1 2; do
  what=$([ "$column" = 1 ] && echo wall || echo CPU)
  a=$(best "$column" <"$without") b=$(best "$column" <"$with")
  awk -v a="$a" -v b="$b" -v r="$rounds" -v w="$what" 'BEGIN {
    printf "%s, best of %d: without %.1f ms, with %.1f ms, ratio %.4f (%+.2f %%)\n",
           w, r, a, b, b / a, (b / a - 1) * 100 }'
done
