#!/usr/bin/env bash
# Installs what the project needs from Debian's packages (root or sudo).
set -euo pipefail

PACKAGES=(build-essential cmake ninja-build pkg-config libjsoncpp-dev libgtest-dev googletest openipmi libopenipmi-dev ipmitool dmidecode freeipmi-tools pci.ids sg3-utils hdparm libhbaapi-dev libhbalinux2 libhbaapi2)

missing=()
for p in "${PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "Installing: ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
