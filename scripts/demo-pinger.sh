# Sourced by run.sh and screenshot.sh: starts the demo pinger on loopback
# and points the demo urls.txt at it. Needs $build, $root, $demo and
# $VKSTATS_HOME; sets $pinger (its process) and $url.
start_demo_pinger() {
    rm -f "$demo/pinger.url"
    # The sample pages are from 2001; a live pinger publishes today's, so
    # the demo stamps its statistics with the current time (older ones
    # would be reported as stale).
    rm -rf "$demo/pages"
    cp -r "$root/data/demo/pages" "$demo/pages"
    now=$(LC_ALL=C date -u '+%a %-d %b %Y %H:%M:%S GMT')
    sed -i "s/^Last update: .*/Last update: $now/" "$demo/pages/mlist.txt" "$demo/pages/rlist.txt"
    "$build/app/vkdemopinger" "$demo/pages" >"$demo/pinger.url" &
    pinger=$!
    trap 'kill $pinger 2>/dev/null || true' EXIT
    for _ in $(seq 300); do
        [ -s "$demo/pinger.url" ] && break
        sleep 0.1
    done
    url=$(cat "$demo/pinger.url")
    if [ -z "$url" ]; then
        echo "the demo pinger did not start" >&2
        exit 1
    fi
    {
        echo "velkin urls"
        echo "[demo]"
        for page in mlist.txt pubring.mix rlist.txt pubring.asc type2.list; do
            echo "$page $url$page"
        done
        echo
        echo "[velkin]"
    } >"$VKSTATS_HOME/urls.txt"
}
