#!/bin/sh
# stop.sh VYRPTP-SIM SIGNAL STATUS: a run in real time stopped by SIGNAL exits
# with STATUS and leaves no temporary files behind.
set -u
sim=$1 signal=$2 expected=$3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
TMPDIR=$tmp "$sim" --real-time >/dev/null 2>"$tmp.err" &
pid=$!
# The ASIC time directory appears once the modules have built the switch.
while [ -z "$(ls "$tmp")" ]; do
  kill -0 $pid 2>/dev/null || { echo "vyrptp-sim ended before it was stopped"; exit 1; }
  sleep 0.1
done
kill -"$signal" $pid
wait $pid
rc=$?
[ "$rc" -eq "$expected" ] || { echo "exit status $rc, expected $expected"; cat "$tmp.err"; exit 1; }
grep -q "stopped by" "$tmp.err" || { echo "no message:"; cat "$tmp.err"; exit 1; }
rm -f "$tmp.err"
[ -z "$(ls "$tmp")" ] || { echo "left behind:"; ls -R "$tmp"; exit 1; }
