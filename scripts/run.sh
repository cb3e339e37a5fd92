#!/usr/bin/env bash
# The main job on a built-in default: builds VKstats, makes a fresh demo
# program folder and Mixmaster folder below build/demo, starts a demo pinger
# on loopback that serves the sample pages in data/demo/pages, and runs an
# unattended update and save against it: in the window when there is a
# display, headless when there is none. Then shows where the pages went and
# what the run reported.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
build="${VKSTATS_BUILD:-$root/build}"
cmake -S "$root" -B "$build" -G Ninja >/dev/null
cmake --build "$build" -j "$(nproc)" --target vkstats vkdbtool vkdemopinger

demo="$build/demo"
rm -rf "$demo"
export VKSTATS_HOME="$demo/program/"
export MIXPATH="$demo/Mix/"
mkdir -p "$VKSTATS_HOME" "$MIXPATH"
"$build/app/vkdbtool" create "$VKSTATS_HOME/vk.dbc" >/dev/null
# Older pages already in the Mixmaster folder, so the run has new and
# deceased remailers to report.
cp "$root/data/demo/stored/"* "$MIXPATH"

# shellcheck source=scripts/demo-pinger.sh
. "$root/scripts/demo-pinger.sh"
start_demo_pinger
printf '[stats]\npages=mlist.txt,pubring.mix,rlist.txt,pubring.asc\n' >"$VKSTATS_HOME/vkstats.ini"

echo "== VKstats: unattended update from the demo pinger at $url"
status=0
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    "$build/app/vkstats" auto || status=$?
else
    "$build/app/vkstats" auto --headless || status=$?
fi
echo "== exit status $status (vkstats --help explains it)"
echo "== Mixmaster folder $MIXPATH"
ls -l "$MIXPATH"
echo "== program folder $VKSTATS_HOME"
ls -l "$VKSTATS_HOME"
if [ -f "$VKSTATS_HOME/report.txt" ]; then
    echo "== report.txt"
    cat "$VKSTATS_HOME/report.txt"
fi
exit "$status"
