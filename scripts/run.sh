#!/usr/bin/env bash
# The main job: sets up, builds, makes a fresh copy of the bundled simulated
# rack server (or uses $VEK_ROOT when set), starts the emulated RMC and runs
# vekd against both until Ctrl-C (or for VEK_RUN_SECONDS seconds), showing
# what the RMC receives as it arrives.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh"
"$here/scripts/build.sh"
build=${VEK_BUILD_DIR:-$here/build}
export VEK_BUILD_DIR=$build

if [ -z "${VEK_ROOT:-}" ]; then
    VEK_ROOT=$(mktemp -d /tmp/vek-host-XXXXXX)
    "$here/testtools/simhost/mkhost.sh" "$here/testtools/simhost/profiles/rack-type4" "$VEK_ROOT"
fi
export VEK_ROOT
export PATH="$VEK_ROOT/bin:$PATH"
# The fake vendor libraries of the simulated host (PL encoders, card matrix).
export LD_LIBRARY_PATH="$build/testtools/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
export VEK_TIME_SCALE=${VEK_TIME_SCALE:-60}

# The emulated RMC, on a state folder of its own.
rmc=$("$here/testtools/rmcemu/rmc-emu.sh" start)
spool=$(printf '%s\n' "$rmc" | sed -n 's/^VEK_RMC_SPOOL=//p')
export VEK_IPMI_EXTERNAL=$(printf '%s\n' "$rmc" | sed -n 's/^VEK_IPMI_EXTERNAL=//p')
lanport=$(printf '%s\n' "$rmc" | sed -n 's/^VEK_RMC_LAN_PORT=//p')

log="$VEK_ROOT/scratch/log/zolvek/vek.log"
debug="$VEK_ROOT/scratch/log/zolvek/vek-debug.log"
echo "Simulated host: $VEK_ROOT (time runs ${VEK_TIME_SCALE}x faster)"
echo "Service log:    $log"
echo "Debug log:      $debug"
echo "Emulated RMC:   $VEK_IPMI_EXTERNAL, received commands in $spool"
echo "                (ipmitool -I lan -H 127.0.0.1 -p $lanport -U admin -P admin ...)"
echo "Press Ctrl-C to stop the service${VEK_RUN_SECONDS:+ (it stops by itself after ${VEK_RUN_SECONDS}s)}."
echo

"$build/src/vekd" &
pid=$!
"$build/testtools/rmcview/rmcview" ${VEK_VIEW_COMPACT:+--compact} "$spool" &
viewpid=$!
stop() { kill -TERM "$pid" 2>/dev/null || true; }
trap stop INT TERM
if [ -n "${VEK_RUN_SECONDS:-}" ]; then
    ( sleep "$VEK_RUN_SECONDS"; kill -TERM "$pid" 2>/dev/null || true ) &
fi
status=0
wait "$pid" || status=$?
# wait returns early when the trap fires; wait again for the real exit.
while kill -0 "$pid" 2>/dev/null; do wait "$pid" || status=$?; done
sleep 0.5
kill "$viewpid" 2>/dev/null || true
wait "$viewpid" 2>/dev/null || true
"$here/testtools/rmcemu/rmc-emu.sh" stop "$spool" >/dev/null || true
echo
echo "vekd exited with status $status. Its log: $log"
echo "Start-stop file:"
cat "$VEK_ROOT/opt/zolvek/vital/zolVEKStartStop.txt" 2>/dev/null || true
exit "$status"
