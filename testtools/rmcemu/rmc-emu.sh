#!/usr/bin/env bash
# The emulated RMC: OpenIPMI's ipmi_sim with the project's RMC module.
#
#   rmc-emu.sh start  [STATEDIR]   start it; prints where it listens
#   rmc-emu.sh stop   [STATEDIR]   stop it
#   rmc-emu.sh status [STATEDIR]   exit 0 when it runs
#
# STATEDIR (the state or spool folder) is the argument, else $VEK_RMC_SPOOL,
# else for start a fresh temporary folder (printed), for stop and status the
# folder of the last start. Ports: $VEK_RMC_PORT (serial, TCP) and
# $VEK_RMC_LAN_PORT (IPMI LAN, UDP), else free ones are picked.
# The module: $VEK_RMC_MODULE, else vekrmc_module.so under $VEK_BUILD_DIR,
# else under the repository's build*/ folders (newest first). The SDR
# repository: $VEK_RMC_SDRS (sdrcomp source), else rmc.sdrs beside this script.
# See README.md beside this script.
set -euo pipefail

HERE="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
REPO="$(cd "$HERE/../.." && pwd)"
SIM_NAME="vekrmc"
LAST_STARTED="${TMPDIR:-/tmp}/vek-rmc-emu.$(id -u).last"
START_ATTEMPTS=5
READY_WAIT_TENTHS=100

die() {
    echo "rmc-emu: $*" >&2
    exit 1
}

usage() {
    echo "usage: $0 start|stop|status [STATEDIR]" >&2
    exit 2
}

find_module() {
    if [ -n "${VEK_RMC_MODULE:-}" ]; then
        [ -f "$VEK_RMC_MODULE" ] || die "VEK_RMC_MODULE=$VEK_RMC_MODULE does not exist"
        echo "$(cd "$(dirname "$VEK_RMC_MODULE")" && pwd)/$(basename "$VEK_RMC_MODULE")"
        return
    fi
    local candidates=()
    if [ -n "${VEK_BUILD_DIR:-}" ]; then
        candidates+=("$VEK_BUILD_DIR/testtools/rmcemu/vekrmc_module.so")
    fi
    local found
    found="$(ls -t "$REPO"/build*/testtools/rmcemu/vekrmc_module.so 2>/dev/null || true)"
    while IFS= read -r line; do
        [ -n "$line" ] && candidates+=("$line")
    done <<<"$found"
    local c
    for c in "${candidates[@]+"${candidates[@]}"}"; do
        if [ -f "$c" ]; then
            echo "$(cd "$(dirname "$c")" && pwd)/$(basename "$c")"
            return
        fi
    done
    die "vekrmc_module.so not found: build the project (target vekrmc_module) or set VEK_RMC_MODULE"
}

# True when a local TCP or UDP socket uses the port.
port_in_use() {
    local hex
    hex="$(printf '%04X' "$1")"
    awk -v p=":$hex" 'FNR > 1 && substr($2, length($2) - 4) == p { found = 1 } END { exit !found }' \
        /proc/net/tcp /proc/net/tcp6 /proc/net/udp /proc/net/udp6 2>/dev/null
}

pick_port() {
    local avoid="${1:-0}" port
    while :; do
        port=$((20000 + (RANDOM * 32768 + RANDOM) % 40000))
        if [ "$port" != "$avoid" ] && ! port_in_use "$port"; then
            echo "$port"
            return
        fi
    done
}

# A process that has not ended (a zombie nobody reaped has).
alive() {
    local state
    state="$(awk '{ print $3 }' "/proc/$1/stat" 2>/dev/null)" || return 1
    [ -n "$state" ] && [ "$state" != "Z" ]
}

running_pid() {
    local dir="$1" pid
    [ -f "$dir/rmc-emu.pid" ] || return 1
    pid="$(cat "$dir/rmc-emu.pid")"
    [ -n "$pid" ] && alive "$pid" || return 1
    [ "$(cat "/proc/$pid/comm" 2>/dev/null)" = "ipmi_sim" ] || return 1
    echo "$pid"
}

print_endpoints() {
    local dir="$1" serial lan
    read -r serial lan <"$dir/rmc-emu.ports"
    echo "VEK_RMC_SPOOL=$dir"
    echo "VEK_IPMI_EXTERNAL=127.0.0.1:$serial"
    echo "VEK_RMC_LAN_PORT=$lan"
}

write_config() {
    local dir="$1" module="$2" serial="$3" lan="$4"
    cat >"$dir/lan.conf" <<EOF
# Written by rmc-emu.sh; rewritten at every start.
name "$SIM_NAME"

set_working_mc 0x20
  startlan 1
    addr 127.0.0.1 $lan
    priv_limit admin
    allowed_auths_callback none md2 md5 straight
    allowed_auths_user none md2 md5 straight
    allowed_auths_operator none md2 md5 straight
    allowed_auths_admin none md2 md5 straight
    guid a123456789abcdefa123456789abcdef
  endlan

  # The system interface of the host, as QEMU's external BMC device speaks it.
  serial 15 127.0.0.1 $serial codec VM

  # For ipmitool over LAN: -U admin -P admin
  user 1 true  ""      ""      user  10 none md2 md5 straight
  user 2 true  "admin" "admin" admin 10 none md2 md5 straight

  loadlib "$module" "$dir"
EOF
    cat >"$dir/cmds.emu" <<'EOF'
# Written by rmc-emu.sh. The RMC as the BMC at 0x20: device id 0x20,
# revision 1, firmware 1.05, support: sensor, SDR repository, SEL, FRU
# inventory; SDRs kept in the state folder.
mc_setbmc 0x20
mc_add 0x20 0x20 no-device-sdrs 0x01 0x01 0x05 0x0f 0x1291 0x5652 persist_sdr
mc_enable 0x20
EOF
}

# A fresh ipmi_sim state each run; the spool files (commands received,
# doorbells, inject) are the caller's and stay.
fresh_state() {
    local dir="$1"
    local source="${VEK_RMC_SDRS:-$HERE/rmc.sdrs}"
    [ -f "$source" ] || die "SDR source $source does not exist"
    rm -rf "$dir/ipmi_sim"
    mkdir -p "$dir/ipmi_sim/$SIM_NAME"
    if grep -Eq '^[[:space:]]*sdr[[:space:]]' "$source"; then
        sdrcomp -8 -o "$dir/ipmi_sim/$SIM_NAME/sdr.20.main" "$source" >"$dir/sdrcomp.out" 2>&1 ||
            die "sdrcomp failed: $(cat "$dir/sdrcomp.out")"
    else
        # No record at all: an empty repository (sdrcomp wants at least one).
        : >"$dir/sdrcomp.out"
    fi
}

# Waits until ipmi_sim accepts connections on its serial port: 0 ready,
# 1 ipmi_sim ended, 2 still not ready.
wait_ready() {
    local pid="$1" serial="$2" i
    for ((i = 0; i < READY_WAIT_TENTHS; i++)); do
        alive "$pid" || return 1
        # Connected and greeted with the version frame (ending in 0xA1).
        if (exec 3<>"/dev/tcp/127.0.0.1/$serial" && LC_ALL=C read -r -t 2 -d $'\xa1' -u 3 _) 2>/dev/null; then
            sleep 0.05
            alive "$pid" || return 1
            return 0
        fi
        sleep 0.1
    done
    return 2
}

start() {
    local dir="$1"
    command -v ipmi_sim >/dev/null || die "ipmi_sim not found (Debian package openipmi)"
    command -v sdrcomp >/dev/null || die "sdrcomp not found (Debian package openipmi)"
    local module
    module="$(find_module)"

    if [ -z "$dir" ]; then
        dir="$(mktemp -d "${TMPDIR:-/tmp}/vek-rmc.XXXXXX")"
    fi
    mkdir -p "$dir"
    dir="$(cd "$dir" && pwd)"
    if running_pid "$dir" >/dev/null; then
        echo "rmc-emu: already running in $dir" >&2
        print_endpoints "$dir"
        return 0
    fi

    local attempt serial lan pid rc
    for ((attempt = 1; attempt <= START_ATTEMPTS; attempt++)); do
        serial="${VEK_RMC_PORT:-$(pick_port)}"
        lan="${VEK_RMC_LAN_PORT:-$(pick_port "$serial")}"
        fresh_state "$dir"
        write_config "$dir" "$module" "$serial" "$lan"
        # SIGPIPE ignored: ipmi_sim greets every client and must survive one
        # that hangs up before the greeting is written.
        (
            trap '' PIPE
            exec nohup ipmi_sim -c "$dir/lan.conf" -f "$dir/cmds.emu" -s "$dir" -n
        ) </dev/null >"$dir/ipmi_sim.out" 2>&1 &
        pid=$!
        rc=0
        wait_ready "$pid" "$serial" || rc=$?
        if [ "$rc" -eq 0 ]; then
            echo "$pid" >"$dir/rmc-emu.pid"
            echo "$serial $lan" >"$dir/rmc-emu.ports"
            echo "$dir" >"$LAST_STARTED"
            print_endpoints "$dir"
            return 0
        fi
        kill -9 "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
        # Fixed ports leave nothing to try again with.
        if [ -n "${VEK_RMC_PORT:-}" ] && [ -n "${VEK_RMC_LAN_PORT:-}" ]; then
            break
        fi
    done
    die "ipmi_sim did not come up (ports $serial/$lan); its output: $(tail -5 "$dir/ipmi_sim.out" 2>/dev/null)"
}

# The note of the last start is only for a later stop without a folder:
# once that emulator is stopped, it goes.
forget_last() {
    if [ -f "$LAST_STARTED" ] && [ "$(cat "$LAST_STARTED")" = "$1" ]; then
        rm -f "$LAST_STARTED"
    fi
}

stop() {
    local dir="$1" pid i
    [ -n "$dir" ] || die "no state folder: give one, set VEK_RMC_SPOOL, or start first"
    if ! pid="$(running_pid "$dir")"; then
        rm -f "$dir/rmc-emu.pid"
        forget_last "$dir"
        echo "rmc-emu: not running in $dir"
        return 0
    fi
    kill "$pid" 2>/dev/null || true
    for ((i = 0; i < 50; i++)); do
        alive "$pid" || break
        sleep 0.05
    done
    kill -9 "$pid" 2>/dev/null || true
    rm -f "$dir/rmc-emu.pid"
    forget_last "$dir"
    echo "rmc-emu: stopped (pid $pid) in $dir"
}

status() {
    local dir="$1" pid
    [ -n "$dir" ] || die "no state folder: give one, set VEK_RMC_SPOOL, or start first"
    if pid="$(running_pid "$dir")"; then
        echo "rmc-emu: running (pid $pid) in $dir"
        print_endpoints "$dir"
        return 0
    fi
    echo "rmc-emu: not running in $dir"
    return 1
}

[ $# -ge 1 ] && [ $# -le 2 ] || usage
action="$1"
dir="${2:-${VEK_RMC_SPOOL:-}}"
case "$action" in
start) start "$dir" ;;
stop | status)
    if [ -z "$dir" ] && [ -f "$LAST_STARTED" ]; then
        dir="$(cat "$LAST_STARTED")"
    fi
    "$action" "$dir"
    ;;
*) usage ;;
esac
