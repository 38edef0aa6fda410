#!/usr/bin/env bash
# The demo scenario on the bundled data: navigation messages of all 32 satellites, a ten
# minute RINEX observation file at 1 s, the one-minute .scn record at 1 ms, and the 40 s
# DIF recording made from that record and the navigation files; then the bubble example:
# the ionosphere along each ray from Singapore with a drifting plasma bubble, a ten-minute
# RINEX file and a navigation file of the re-dated almanac for positioning tools; then
# scintillation: a bubble over one satellite's ray, the table of scint-table, and a 4 s DIF
# recording in which that satellite's power follows the table.
# Everything lands in out/demo (the data directory of the demo).
set -euo pipefail
cd "$(dirname "$0")/.."
vorel=${VOREL:-build/default/vorel}
data=out/demo
mkdir -p "$data"

echo "== navigation messages and the RINEX observation file"
"$vorel" --data-dir "$data" --settings data/examples/settings.txt \
  --scenario data/examples/demo.toml --yes \
  load-orbits --type rinex data/examples/brdc1820.10n nav-all obs

echo "== the .scn record at 1 ms and the DIF recording"
"$vorel" --data-dir "$data" --settings data/examples/settings.txt \
  --scenario data/examples/demo-scn.toml \
  load-orbits --type rinex data/examples/brdc1820.10n obs dif

echo
echo "== the ionosphere along the ray and a drifting plasma bubble (Singapore, March, 20:00)"
"$vorel" --data-dir "$data" --scenario data/examples/bubble.toml \
  load-orbits data/examples/yuma147.txt bubble-rays obs nav-rinex "$data/bubble.10n" |
  awk '/^ *PRN/ || /through the bubble/ || ($9 != "" && $9 != "-" && $1 ~ /^[0-9]+$/) { print }
       /^wrote/ { print }'
echo "   the rays above whose entry and exit points are shown crossed the bubble: their delay"
echo "   dropped by the 'bubble m' column; $data/bubble-record.txt follows the drift second by"
echo "   second (AtmosphereUpdateInterval 1000)"

echo
echo "== scintillation: the bubble over PRN 12's ray, the table of scint-table, 4 s of signal"
# A data directory of its own: its navigation files are of another day than the demo's.
"$vorel" --data-dir "$data/scint" --scenario data/examples/scint.toml --yes \
  load-orbits data/examples/yuma147.txt nav-all obs \
  scint-table C:/VLD/scint-table.txt 0.2 0.5 0.8 --channels 4 dif |
  grep -E '^class 2|^wrote .*scint'
echo "   PRN 12 has bubble class 2 in $data/scint/scint.scn; in $data/scint/scint.bin its power"
echo "   follows the table's class 2 amplitude: over these 4 s the table's S4 is 0.27 and a"
echo "   correlator measures 0.25 every 10 ms, and 0.02 to 0.03 on the three other satellites"

echo
echo "== demo output in $data:"
ls -l "$data"/demo.10o "$data"/demo.scn "$data"/demo.bin "$data"/bubble.10o "$data"/bubble.10n
echo "   $(ls "$data"/NAV/navbin* | wc -l) navigation bit files in $data/NAV (navbin<prn>, navascii<prn>)"
