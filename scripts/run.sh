#!/usr/bin/env bash
# Builds VKstats and starts it on a fresh demo program folder and Mixmaster
# folder below build/demo.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
build="$root/build"
cmake -S "$root" -B "$build" -G Ninja >/dev/null
cmake --build "$build" -j "$(nproc)" --target vkstats vkdbtool

demo="$build/demo"
export VKSTATS_HOME="$demo/program"
export MIXPATH="$demo/Mix"
mkdir -p "$VKSTATS_HOME" "$MIXPATH"
[ -f "$VKSTATS_HOME/vk.dbc" ] || "$build/app/vkdbtool" create "$VKSTATS_HOME/vk.dbc"

if [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    echo "No display: VKstats needs one for its window." >&2
    exit 1
fi
exec "$build/app/vkstats" "$@"
