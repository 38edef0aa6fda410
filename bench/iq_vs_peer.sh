#!/usr/bin/env bash
# Whole-process wall time of the I/Q form beside an open peer generator (gps-sdr-sim, see
# ../shared/peers/README.md) on the same scenario: the bundled orbits
# (data/examples/brdc1820.10n), a static receiver at 48.1 N, 11.6 E, 520 m on 2010-07-01
# 10:00 (11 satellites above the horizon; both generators take all of them, vorel with
# ElevationMask=0), 19.9 s of signal (what the peer's -d 20 writes), 8-bit interleaved I/Q
# written to a file.
#
# Vorel is timed as a user runs it, one process: `vorel record --iq8`, which loads the
# orbits, writes the navigation files, makes a 1 ms observation record of the 21 s the
# samples need (in a temporary folder) and the samples. The peer, vorel on one thread and
# vorel on two alternate run by run, each output removed before the next run; the best of
# RUNS runs of each is kept, and the ratio peer / vorel printed. "dif alone" times the DIF
# run by itself on a record already made, to show what the preparation costs.
#
#   bench/iq_vs_peer.sh [VOREL [PEER]]     VOREL defaults to build/release/vorel, PEER to
#                                          /tmp/gps-sdr-sim (built there when missing)
#   RUNS=5 RATES="2600000 16368000" THREADS="1 2" bench/iq_vs_peer.sh
set -euo pipefail
cd "$(dirname "$0")/.."
vorel=$(realpath "${1:-build/release/vorel}")
peer=${2:-/tmp/gps-sdr-sim}
runs=${RUNS:-3}
rates=${RATES:-2600000 16368000}
threads=${THREADS:-1 2}
work=${WORK:-/tmp/vorel-iq-vs-peer}
mkdir -p "$work"

if [ ! -x "$peer" ]; then
  src=../shared/peers/gps-sdr-sim/gpssim.c
  [ -f "$src" ] || { echo "no peer: $src is missing" >&2; exit 1; }
  gcc -O3 -march=native -o "$peer" "$src" -lm
fi

scenario=(--set ReceiverLatitude=48.1 --set ReceiverLongitude=11.6 --set ReceiverAltitude=520
  --set ScenarioYear=2010 --set ScenarioMonth=7 --set ScenarioDay=1 --set ScenarioHour=10
  --set ScenarioMinute=0 --set ScenarioDuration=1 --set ObservationInterval=1
  --set RecordType=5 --set ElevationMask=0 --set atmosphereEnabled=0
  --set ObservationOutputFile="$work/iq.scn")

now() { date +%s%N; }
seconds() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", (b - a) / 1e9 }'; }

run_peer() {  # RATE
  local t0 t1
  t0=$(now)
  "$peer" -e data/examples/brdc1820.10n -l 48.1,11.6,520 -t 2010/07/01,10:00:00 -d 20 \
    -s "$1" -b 8 -o "$work/peer.bin" >/dev/null 2>&1
  t1=$(now)
  rm -f "$work/peer.bin"
  seconds "$t0" "$t1"
}

dif_settings() {  # RATE THREADS
  echo --set SampleForm=iq --set IqFormat=ci8 --set OutputPacked=Direct --set BitsPerSample=8 \
    --set FilterOn=0 --set IqSampleRate="$1" --set MaxChannels=16 --set Duration=0.3316667 \
    --set DifOutputFile="$work/vorel.bin" --set DifThreads="$2"
}

run_vorel() {  # RATE THREADS: the whole job in one process
  local t0 t1
  rm -rf "$work/data" "$work"/vorel.*
  t0=$(now)
  "$vorel" --data-dir "$work/data" --quiet --set DifThreads="$2" --set ElevationMask=0 record \
    --orbits data/examples/brdc1820.10n --lat 48.1 --lon 11.6 --alt 520 \
    --start 2010-07-01T10:00:00 --seconds 19.9 --fs "$1" --iq8 -o "$work/vorel.bin" \
    >/dev/null 2>&1 || { echo "vorel record failed" >&2; exit 1; }
  t1=$(now)
  rm -f "$work"/vorel.*
  seconds "$t0" "$t1"
}

run_dif_alone() {  # RATE THREADS: the DIF run on the record the last chain left
  local t0 t1
  rm -rf "$work/data"
  # shellcheck disable=SC2046
  "$vorel" --data-dir "$work/data" --settings data/examples/settings.txt --yes \
    "${scenario[@]}" load-orbits --type rinex data/examples/brdc1820.10n nav-all obs \
    >/dev/null 2>&1
  t0=$(now)
  # shellcheck disable=SC2046
  "$vorel" --data-dir "$work/data" --settings data/examples/settings.txt --yes \
    "${scenario[@]}" $(dif_settings "$1" "$2") dif >/dev/null 2>&1 ||
    { echo "vorel dif failed" >&2; exit 1; }
  t1=$(now)
  rm -f "$work/vorel.bin"
  seconds "$t0" "$t1"
}

best() { tr ' ' '\n' | sed '/^$/d' | sort -g | head -1; }

printf "%-10s %-8s %-9s %-9s %-7s %-14s %s\n" rate threads "peer s" "vorel s" ratio \
  "dif alone s" "ratio (dif alone)"
for rate in $rates; do
  declare -A whole=() alone=()
  peers=()
  for ((k = 0; k < runs; k++)); do
    peers+=("$(run_peer "$rate")")
    for t in $threads; do
      whole[$t]="${whole[$t]:-} $(run_vorel "$rate" "$t")"
      alone[$t]="${alone[$t]:-} $(run_dif_alone "$rate" "$t")"
    done
    echo "   rate $rate run $((k + 1)): peer ${peers[-1]} s; vorel (threads: whole, dif)" \
      "$(for t in $threads; do printf "%s: %s, %s; " "$t" "${whole[$t]##* }" \
        "${alone[$t]##* }"; done)" >&2
  done
  p=$(echo "${peers[*]}" | best)
  for t in $threads; do
    w=$(echo "${whole[$t]}" | best)
    a=$(echo "${alone[$t]}" | best)
    printf "%-10s %-8s %-9s %-9s %-7s %-14s %s\n" "$rate" "$t" "$p" "$w" \
      "$(awk -v p="$p" -v w="$w" 'BEGIN { printf "%.2f", p / w }')" "$a" \
      "$(awk -v p="$p" -v a="$a" 'BEGIN { printf "%.2f", p / a }')"
  done
  unset whole alone
done
