#!/usr/bin/env bash
# The main job: sets up, builds, makes a fresh copy of the bundled simulated
# rack server (or uses $VEK_ROOT when set) and runs vekd against it until
# Ctrl-C (or for VEK_RUN_SECONDS seconds), following the service's log as it goes.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh"
"$here/scripts/build.sh"
build=${VEK_BUILD_DIR:-$here/build}

if [ -z "${VEK_ROOT:-}" ]; then
    VEK_ROOT=$(mktemp -d /tmp/vek-host-XXXXXX)
    "$here/testtools/simhost/mkhost.sh" "$here/testtools/simhost/profiles/rack-type4" "$VEK_ROOT"
fi
export VEK_ROOT
export PATH="$VEK_ROOT/bin:$PATH"
export VEK_TIME_SCALE=${VEK_TIME_SCALE:-60}

log="$VEK_ROOT/scratch/log/zolvek/vek.log"
debug="$VEK_ROOT/scratch/log/zolvek/vek-debug.log"
echo "Simulated host: $VEK_ROOT (time runs ${VEK_TIME_SCALE}x faster)"
echo "Service log:    $log"
echo "Debug log:      $debug"
echo "Press Ctrl-C to stop the service${VEK_RUN_SECONDS:+ (it stops by itself after ${VEK_RUN_SECONDS}s)}."
echo

"$build/src/vekd" &
pid=$!
stop() { kill -TERM "$pid" 2>/dev/null || true; }
trap stop INT TERM
touch "$log" "$debug"
tail -n +1 -F "$log" "$debug" 2>/dev/null &
tailpid=$!
if [ -n "${VEK_RUN_SECONDS:-}" ]; then
    ( sleep "$VEK_RUN_SECONDS"; kill -TERM "$pid" 2>/dev/null || true ) &
fi
status=0
wait "$pid" || status=$?
# wait returns early when the trap fires; wait again for the real exit.
while kill -0 "$pid" 2>/dev/null; do wait "$pid" || status=$?; done
sleep 0.2
kill "$tailpid" 2>/dev/null || true
echo
echo "vekd exited with status $status. Start-stop file:"
cat "$VEK_ROOT/opt/zolvek/vital/zolVEKStartStop.txt" 2>/dev/null || true
exit "$status"
