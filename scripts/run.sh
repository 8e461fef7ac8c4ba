#!/usr/bin/env bash
# The main job: sets up, builds, makes a fresh copy of the bundled simulated
# rack server (or uses $VEK_ROOT when set), starts the emulated RMC and runs
# vekd against both until Ctrl-C (or for VEK_RUN_SECONDS seconds), showing
# what the RMC receives as it arrives.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh"
# Only what the main job runs; the test suite is built by scripts/test.sh,
# into the same folder with the same configuration.
"$here/scripts/build.sh" vek_main_job
. "$here/scripts/builddir.sh"
build=$(vek_build_dir)
export VEK_BUILD_DIR=$build

# What this run makes for itself is removed when it ends; the logs and what
# the RMC received are kept in $build/last-run.
made_host=
made_spool=
spool=
disks=
cleanup() {
    set +e
    if [ -n "$disks" ]; then kill -TERM "$disks" 2>/dev/null; wait "$disks" 2>/dev/null; fi
    [ -n "$spool" ] && "$here/testtools/rmcemu/rmc-emu.sh" stop "$spool" >/dev/null 2>&1
    if [ -n "$made_host" ] || [ -n "$made_spool" ]; then
        rm -rf "$build/last-run"
        mkdir -p "$build/last-run"
        [ -n "$made_host" ] && cp -r "$VEK_ROOT/scratch/log/zolvek" "$build/last-run/log" 2>/dev/null
        [ -n "$made_spool" ] && [ -n "$spool" ] && cp -r "$spool" "$build/last-run/rmc" 2>/dev/null
        [ -n "$made_host" ] && rm -rf "$VEK_ROOT"
        [ -n "$made_spool" ] && [ -n "$spool" ] && rm -rf "$spool"
    fi
    return 0
}
trap cleanup EXIT

if [ -z "${VEK_ROOT:-}" ]; then
    VEK_ROOT=$(mktemp -d /tmp/vek-host-XXXXXX)
    made_host=1
    "$here/testtools/simhost/mkhost.sh" "$here/testtools/simhost/profiles/rack-type4" "$VEK_ROOT"
fi
export VEK_ROOT
export PATH="$VEK_ROOT/bin:$PATH"
# The fake vendor libraries of the simulated host (PL encoders, card matrix).
export LD_LIBRARY_PATH="$build/testtools/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
export VEK_TIME_SCALE=${VEK_TIME_SCALE:-60}

# The host's disks: the emulator lays out their sysfs tree and answers their
# SCSI at dev/sgN, for as long as the service runs.
if [ -f "$VEK_ROOT/sim/disks.json" ]; then
    "$build/testtools/diskemu/diskemu" serve "$VEK_ROOT" >"$VEK_ROOT/sim/diskemu.log" 2>&1 &
    disks=$!
    # Wait (bounded) for its ready line, so the service's first look finds the disks.
    for _ in $(seq 300); do
        grep -q 'ready' "$VEK_ROOT/sim/diskemu.log" 2>/dev/null && break
        kill -0 "$disks" 2>/dev/null || break
        sleep 0.1
    done
    if ! grep -q 'ready' "$VEK_ROOT/sim/diskemu.log" 2>/dev/null; then
        echo "The disk emulator did not start:" >&2
        cat "$VEK_ROOT/sim/diskemu.log" >&2
        exit 1
    fi
fi

# The emulated RMC, on a state folder of its own.
if [ -z "${VEK_RMC_SPOOL:-}" ]; then made_spool=1; fi
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
[ -n "$disks" ] && echo "Disk emulator:  $VEK_ROOT/dev/sgN (change a disk: $build/testtools/diskemu/diskemu set $VEK_ROOT d0 health=failed)"
echo "Press Ctrl-C to stop the service${VEK_RUN_SECONDS:+ (it stops by itself after ${VEK_RUN_SECONDS}s)}."
echo

"$build/src/vekd" &
pid=$!
"$build/testtools/rmcview/rmcview" ${VEK_VIEW_COMPACT:+--compact} "$spool" &
viewpid=$!
interrupted=0
stop() { interrupted=1; kill -TERM "$pid" 2>/dev/null || true; }
trap stop INT TERM
timer=
if [ -n "${VEK_RUN_SECONDS:-}" ]; then
    ( sleep "$VEK_RUN_SECONDS"; kill -TERM "$pid" 2>/dev/null || true ) &
    timer=$!
fi
# A trap that fires ends wait early with 128+signal, which is not the
# service's status: wait again until a wait returns without a trap between.
# The shell keeps the status of a child that has already ended.
while :; do
    interrupted=0
    status=0
    wait "$pid" || status=$?
    [ "$interrupted" = 1 ] || break
done
if [ -n "$timer" ]; then kill "$timer" 2>/dev/null || true; fi
sleep 0.5
kill "$viewpid" 2>/dev/null || true
wait "$viewpid" 2>/dev/null || true
echo
echo "vekd exited with status $status."
echo "Start-stop file:"
cat "$VEK_ROOT/opt/zolvek/vital/zolVEKStartStop.txt" 2>/dev/null || true
if [ -n "$made_host" ]; then
    echo "Its logs are kept in $build/last-run/log${made_spool:+, what the RMC received in $build/last-run/rmc}."
else
    echo "Its log: $log"
fi
exit "$status"
