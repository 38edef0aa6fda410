#!/usr/bin/env bash
# Writes a fixed set of outputs into OUT: records of every type, RINEX, navigation
# files, station runs, DIF recordings in several forms and the printed output of the
# quick commands. The golden test hashes them; any byte that moves shows up there.
# usage: make_outputs.sh VOREL SOURCE_DIR OUT
set -uo pipefail
vorel=$(realpath "$1")
src=$(realpath "$2")
out=$3
mkdir -p "$out"
cd "$out"
mkdir -p ex
cp "$src"/data/examples/* ex/
ex=ex  # relative, so that printed paths do not depend on where the project lies
run() {  # run NAME ARGS...: stdout to NAME.out, the status to NAME.status
  local name=$1
  shift
  "$vorel" --data-dir VLD --settings "$ex/settings.txt" "$@" >"$name.out" 2>/dev/null </dev/null
  echo $? >"$name.status"
}

# RINEX at 1 s and the navigation messages of all satellites (the demo's first step).
run rinex --scenario "$ex/demo.toml" --yes --set ScenarioDuration=2 \
  --set ObservationOutputFile=C:/VLD/a.10o load-orbits --type rinex "$ex/brdc1820.10n" nav-all obs
# The standard layout, and one satellite's message with a consistent IODC.
run rinexstd --scenario "$ex/demo.toml" --yes --set ScenarioDuration=1 --set RinexStandardLayout=1 \
  --set ObservationOutputFile=C:/VLD/std.10o --set IodcFollowsIode=1 \
  load-orbits --type rinex "$ex/brdc1820.10n" obs nav --prn 7
# A YUMA almanac re-dated to the scenario, with troposphere and broadcast ionosphere,
# into each of the text records.
atm=(--set atmosphereEnabled=1 --set klobucharSelected=1 --set tropoModel=2
     --set "ionoTruthTable=1.1176e-08,7.4506e-09,-5.9605e-08,-5.9605e-08,90112,0,-196610,-65536"
     --set ScenarioDuration=1 --set ObservationInterval=2000)
for t in 0 1 4; do
  run "yuma$t" "${atm[@]}" --set RecordType=$t --set "ObservationOutputFile=C:/VLD/yuma.$t" \
    load-orbits --type yuma "$ex/yuma147.txt" obs
done
for m in 1 3; do
  run "tropo$m" --scenario "$ex/demo.toml" "${atm[@]}" --set tropoModel=$m --set RecordType=2 \
    --set "ObservationOutputFile=C:/VLD/tropo$m.10o" load-orbits --type rinex "$ex/brdc1820.10n" obs
done
# A receiver on a trajectory.
awk 'BEGIN { for (i = 0; i <= 120; i++) printf "%d,%.6f,%.6f,%.1f,x\n", 18000000 + i * 1000, -30.25 + i * 0.0001, 149.75, 250 }' >traj.txt
run traj --scenario "$ex/demo.toml" --set TrajectoryMode=0 --set TrajectoryFile=traj.txt \
  --set RecordType=4 --set ObservationOutputFile=C:/VLD/traj.srv \
  load-orbits --type rinex "$ex/brdc1820.10n" obs
# The four reference stations and their event skeletons.
run stations --scenario "$ex/demo.toml" --set ScenarioDuration=1 --set ObservationInterval=10000 \
  --set StationRecordType=4 \
  --set "StationOutputFile=C:/VLD/LAAS/s1.srv,C:/VLD/LAAS/s2.srv,C:/VLD/LAAS/s3.srv,C:/VLD/LAAS/s4.srv" \
  load-orbits --type rinex "$ex/brdc1820.10n" raw events
# The .scn record at 1 ms and recordings from it.
run scn --scenario "$ex/demo-scn.toml" --set ObservationOutputFile=C:/VLD/g.scn \
  load-orbits --type rinex "$ex/brdc1820.10n" obs
dif=(--scenario "$ex/demo-scn.toml" --set ObservationOutputFile=C:/VLD/g.scn --set Duration=0.05)
run dif1 "${dif[@]}" --set DifOutputFile=C:/VLD/d1.bin --set DifThreads=1 dif
run dif2 "${dif[@]}" --set DifOutputFile=C:/VLD/d2.bin --set DifThreads=2 dif
run difmp "${dif[@]}" --set DifOutputFile=C:/VLD/d3.bin --set FilterOn=1 --set MultipathOn=1 \
  --set "MultipathTable=y,,5,0.5,30,0;y,,12,0.3,10,0" --set Decimation=2 --set DifThreads=2 dif
run difdirect "${dif[@]}" --set DifOutputFile=C:/VLD/d4.dat --set DifFileType=0 \
  --set OutputPacked=Direct --set BitsPerSample=8 --set SamplingFrequency=40920 --set Duration=0.005 dif
run difbit1 "${dif[@]}" --set DifOutputFile=C:/VLD/d5.bin --set BitsPerSample=1 \
  --set SamplingFrequency=54560 --set Decimation=3 --set Duration=0.02 dif
# The complex form: ci8 at 2.6 MHz on two threads; ci16 at 4 MHz with noise and the centre
# 1.2 MHz off L1; ci8 at 1 MHz, where a sample spans more than a chip.
iq=(--set SampleForm=iq --set OutputPacked=Direct --set BitsPerSample=8 --set FilterOn=0
    --set Duration=0.002)
run iq8 "${dif[@]}" "${iq[@]}" --set IqFormat=ci8 --set IqSampleRate=2600000 --set DifThreads=2 \
  --set DifOutputFile=C:/VLD/q1.bin dif
run iq16 "${dif[@]}" "${iq[@]}" --set BitsPerSample=16 --set IqFormat=ci16 --set IqSampleRate=4000000 \
  --set IqIfOffset=1200000 --set IqNoise=1 --set DifOutputFile=C:/VLD/q2.bin dif
run iq8slow "${dif[@]}" "${iq[@]}" --set IqFormat=ci8 --set IqSampleRate=1000000 \
  --set DifOutputFile=C:/VLD/q3.bin dif
run diftest --set ScenarioDriven=0 --set TestPrn=9 --set TestDataOn=1 --set TestDopplerOn=1 \
  --set TestDoppler=1250 --set Duration=0.02 --set DifOutputFile=C:/VLD/d6.bin \
  load-orbits --type rinex "$ex/brdc1820.10n" dif
# Quick commands and their printed output.
run quick load-orbits --type rinex "$ex/brdc1820.10n" set-time show-orbit 5 show-orbit 12 1 \
  convert-flux 150 convert-sunspot 80 about
run galileo galileo show-orbit 3
run profile profile --lat 45 --lon 15 --month 4 --ut 12 --flux 120
run tec tec --lat1 46 --lon1 14.5 --h1 0.3 --lat2 20 --lon2 40 --h2 20200 --month 4 --ut 12 --flux 120
run settings --scenario "$ex/demo-scn.toml" show-settings
rm -rf traj.txt ex
