#!/bin/sh
# mkhost.sh PROFILE_DIR DEST_DIR
#
# Makes a fresh, runnable simulated host from a profile: a copy of the profile
# in DEST_DIR (which must not exist or be empty), with
#   bin/                      links to the command fakes (localcli, esxcli,
#                             esxtop, vim-cmd, mdadm), so that $VEK_ROOT/bin/vim-cmd
#                             runs and bin/ can go first on PATH, and modprobe and
#                             mknod, which only record their calls;
#   opt/zolvek/tmp, opt/zolvek/vital, scratch/log/zolvek/backup_log, tmp
#                             the folders the service writes to.
# Then:  VEK_ROOT=DEST_DIR PATH=DEST_DIR/bin:$PATH <program>
set -eu

if [ $# -ne 2 ]; then
    echo "usage: $0 PROFILE_DIR DEST_DIR" >&2
    exit 2
fi
profile=$1
dest=$2
here=$(cd "$(dirname "$0")" && pwd)
fakes="$here/bin"

if [ ! -d "$profile" ] || [ ! -d "$profile/sim/cli" ]; then
    echo "mkhost: '$profile' is not a profile (no sim/cli folder)" >&2
    exit 2
fi
if [ -e "$dest" ] && [ -n "$(ls -A "$dest" 2>/dev/null)" ]; then
    echo "mkhost: '$dest' exists and is not empty" >&2
    exit 2
fi

mkdir -p "$dest"
cp -R "$profile"/. "$dest"/

mkdir -p "$dest/bin"
for tool in localcli esxcli esxtop vim-cmd mdadm; do
    ln -sf "$fakes/simcli" "$dest/bin/$tool"
done

# The driver reload of the IPMI device (modprobe, mknod) finds no driver on a
# simulated host: recorded in sim/driver-calls.log, and failing.
for tool in modprobe mknod; do
    printf '#!/bin/sh\necho "%s $*" >> "${VEK_ROOT:-%s}/sim/driver-calls.log"\nexit 1\n' "$tool" "$dest" > "$dest/bin/$tool"
    chmod 755 "$dest/bin/$tool"
done

for dir in opt/zolvek/tmp opt/zolvek/vital opt/zolvek/data scratch/log/zolvek/backup_log tmp; do
    mkdir -p "$dest/$dir"
done
