#!/usr/bin/env bash
# Takes docs/screenshot.png: the main window after an update from the demo
# pinger, on a virtual X server. Run scripts/run.sh first (it builds and
# makes the demo folders). Needs xvfb, xdotool, x11-apps and netpbm.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="${VKSTATS_BUILD:-$root/build}"
demo="$build/demo"
export VKSTATS_HOME="$demo/program/"
export MIXPATH="$demo/Mix/"
[ -f "$VKSTATS_HOME/vk.dbc" ] || { echo "run scripts/run.sh first" >&2; exit 1; }
# Older pages again, so that the update has remailers to report.
cp "$root/data/demo/stored/"* "$MIXPATH"

# shellcheck source=scripts/demo-pinger.sh
. "$root/scripts/demo-pinger.sh"
start_demo_pinger

# shellcheck disable=SC2016 # expanded by the inner shell
xvfb-run -a -s "-screen 0 760x600x24" bash -c '
    "$0/app/vkstats" &
    app=$!
    window=$(xdotool search --sync --name "VKstats" | head -1)
    sleep 1
    xdotool mousemove --window "$window" 16 40 click 1 # the Update button
    sleep 4
    xwd -root -silent | xwdtopnm 2>/dev/null | pnmcut -left 0 -top 0 -width 686 -height 516 | pnmtopng >"$1"
    kill "$app"' "$build" "$root/docs/screenshot.png"
echo "docs/screenshot.png written"
