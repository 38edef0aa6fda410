#!/usr/bin/env bash
# Whole-process timing of the DIF run: `vorel ... dif` on a 12-channel .scn record, 20 s of
# signal at 16.368 MHz, 2 bits, Packed, written to /dev/null (OUT=... for a file), with
# DifThreads=1 against two threads (a quiet machine) and against the default, one thread per
# core (beside BUSY processes that spin, `yes >/dev/null`). The two forms alternate run by
# run, so that a drift of the machine touches both; the medians are compared.
#
#   bench/dif_threads.sh [VOREL]          VOREL defaults to build/release/vorel
#   RUNS=5 BUSY=6 FILTERS="0 1" PARTS="quiet loaded" bench/dif_threads.sh
#   NICE=-20 bench/dif_threads.sh          on a machine others are using (needs root)
#
# Linux shares the cores between sessions first (autogroups, when
# /proc/sys/kernel/sched_autogroup_enabled is 1) and by niceness only within a session: a
# benchmark in a session beside three busy ones gets half a core, whatever its threads. With
# NICE the script starts itself in a session of its own and gives that session the niceness
# NICE, so that the other sessions' jobs take about 1 % of the cores; inside it, vorel and the
# busy processes have equal weight, so "quiet" and "six busy processes" mean what they say.
#
# Prints one line per measurement and the ratios the goals are stated in:
#   quiet   filter F: speed-up of two threads over one (goal: at least 1.8)
#   loaded  filter F: default's wall time over one thread's (goal: at most 1.3)
# The record is made once, in WORK (default /tmp/vorel-dif-threads), with the demo's
# scenario (data/examples/demo-scn.toml: 13 satellites above 10 degrees, one minute at 1 ms).
set -euo pipefail
cd "$(dirname "$0")/.."
vorel=$(realpath "${1:-build/release/vorel}")
runs=${RUNS:-3}
busy=${BUSY:-6}
filters=${FILTERS:-0 1}
parts=${PARTS:-quiet loaded}
work=${WORK:-/tmp/vorel-dif-threads}
out=${OUT:-/dev/null}
channels=${CHANNELS:-12}
duration=${DURATION:-0.3333334}  # minutes: 20 s
cores=$(nproc)
nice=${NICE:-0}
if [ "$nice" != 0 ] && [ -z "${DIF_THREADS_SESSION:-}" ]; then
  export DIF_THREADS_SESSION=1
  exec setsid --wait "$0" "$@"
fi
if [ "$nice" != 0 ]; then
  echo "$nice" >/proc/self/autogroup
fi

if [ ! -s "$work/demo.scn" ]; then
  echo "== making the record in $work (once)"
  mkdir -p "$work"
  "$vorel" --data-dir "$work" --settings data/examples/settings.txt \
    --scenario data/examples/demo-scn.toml --yes \
    load-orbits --type rinex data/examples/brdc1820.10n nav-all obs >/dev/null
fi

# One run; prints its wall time in seconds.
one_run() {  # THREADS FILTER
  local start end
  start=$(date +%s%N)
  timeout 900 "$vorel" --data-dir "$work" --settings data/examples/settings.txt \
    --scenario data/examples/demo-scn.toml \
    --set MaxChannels="$channels" --set Duration="$duration" --set DifOutputFile="$out" \
    --set FilterOn="$2" --set DifThreads="$1" dif >/dev/null 2>&1 ||
    { echo "DifThreads=$1 FilterOn=$2: vorel failed or took over 900 s" >&2; exit 1; }
  end=$(date +%s%N)
  awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", (b - a) / 1e9 }'
}

median() { tr ' ' '\n' | sed '/^$/d' | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# Alternating runs of two thread counts; prints "median-a median-b".
compare() {  # LABEL THREADS-A THREADS-B FILTER
  local a=() b=() k ta tb
  for ((k = 0; k < runs; k++)); do
    ta=$(one_run "$2" "$4")
    tb=$(one_run "$3" "$4")
    a+=("$ta")
    b+=("$tb")
    echo "   $1 filter $4 run $((k + 1)): DifThreads=$2 ${ta} s, DifThreads=$3 ${tb} s" >&2
  done
  echo "$(echo "${a[*]}" | median) $(echo "${b[*]}" | median)"
}

echo "== $vorel, $cores cores, $channels channels, $duration min, $runs runs each"
[ "$nice" != 0 ] && echo "   session of its own: $(cat /proc/self/autogroup)"
echo "   load average before the quiet runs: $(cut -d' ' -f1-3 /proc/loadavg)"
declare -A quiet loaded
[[ " $parts " == *" quiet "* ]] && for f in $filters; do
  read -r one two < <(compare quiet 1 2 "$f")
  quiet[$f]=$(awk -v a="$one" -v b="$two" 'BEGIN { printf "%.2f", a / b }')
  echo "quiet   filter $f: one thread ${one} s, two threads ${two} s: speed-up ${quiet[$f]} (goal >= 1.8)"
done

[[ " $parts " == *" loaded "* ]] || exit 0
pids=()
stop_busy() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; }
trap stop_busy EXIT
for ((k = 0; k < busy; k++)); do
  yes >/dev/null &
  pids+=($!)
done
sleep 1
echo "   $busy busy processes started; load average $(cut -d' ' -f1-3 /proc/loadavg)"
for f in $filters; do
  read -r one dflt < <(compare loaded 1 0 "$f")
  loaded[$f]=$(awk -v a="$one" -v b="$dflt" 'BEGIN { printf "%.2f", b / a }')
  echo "loaded  filter $f: one thread ${one} s, default (DifThreads=0, $cores threads) ${dflt} s: ratio ${loaded[$f]} (goal <= 1.3)"
done
stop_busy
trap - EXIT
