#!/usr/bin/env bash
# The demo scenario on the bundled data: navigation messages of all 32 satellites, a ten
# minute RINEX observation file at 1 s, the one-minute .scn record at 1 ms, and the 40 s
# DIF recording made from that record and the navigation files. Everything lands in
# out/demo (the data directory of the demo).
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
echo "== demo output in $data:"
ls -l "$data"/demo.10o "$data"/demo.scn "$data"/demo.bin
echo "   $(ls "$data"/NAV/navbin* | wc -l) navigation bit files in $data/NAV (navbin<prn>, navascii<prn>)"
