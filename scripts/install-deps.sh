#!/usr/bin/env bash
# Installs the Debian 12 packages that building, testing and the demo need,
# only those that are missing.
set -euo pipefail

# dbus-daemon holds dbus-run-session, which gives tst_suitebus its own bus.
# faketime fixes "today" for the scenarios and the Mixmaster interop test;
# the last group builds the real Mixmaster client for that test.
packages=(
    cmake ninja-build g++ pkg-config
    qt6-base-dev libqt6sql6-sqlite libgl-dev
    tinyproxy microsocks
    dbus dbus-daemon xvfb xauth
    faketime
    gcc make bison libpcre3-dev libssl-dev zlib1g-dev libncurses-dev
)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
