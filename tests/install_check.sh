#!/usr/bin/env bash
# Installs the build into a scratch DESTDIR and uses it as a new user would:
# every file in its standard place, the menu entry valid, the program run
# from there with a fresh home keeping its files in ~/.local/share/vkstats
# (an installed bin folder is no program folder).
# Usage: install_check.sh BUILD_DIR INSTALL_PREFIX LIBDIR
set -euo pipefail
build=$1
prefix=$2
libdir=$3
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

DESTDIR="$stage/root" cmake --install "$build" >/dev/null
root="$stage/root$prefix"
for file in bin/vkstats bin/vkdbtool "$libdir/vkstats/vkstats-window.so" \
    "$libdir/vkstats/vkstats-bus.so" \
    share/man/man1/vkstats.1 share/man/man1/vkdbtool.1 \
    share/applications/vkstats.desktop \
    share/icons/hicolor/scalable/apps/vkstats.svg \
    share/doc/VKstats/vkstats.html share/doc/VKstats/vkstats.history.txt \
    share/systemd/user/vkstats.service share/systemd/user/vkstats.timer; do
    [ -f "$root/$file" ] || fail "not installed: $file"
done
desktop-file-validate "$root/share/applications/vkstats.desktop" || fail "desktop-file-validate"
grep -qx "ExecStart=$prefix/bin/vkstats --headless" "$root/share/systemd/user/vkstats.service" ||
    fail "the unit does not start the installed vkstats"

version=$("$root/bin/vkstats" --version)
[ "$version" = "VKstats 1.9b12" ] || fail "--version printed '$version'"

home="$stage/home"
mkdir -p "$home/.Mix"
chmod 700 "$home"
# A clean environment, but a sanitizer build keeps its options.
run() {
    env -i HOME="$home" PATH=/usr/bin:/bin XDG_RUNTIME_DIR="$home" LC_ALL=C.UTF-8 \
        ${ASAN_OPTIONS:+ASAN_OPTIONS="$ASAN_OPTIONS"} \
        ${LSAN_OPTIONS:+LSAN_OPTIONS="$LSAN_OPTIONS"} \
        ${UBSAN_OPTIONS:+UBSAN_OPTIONS="$UBSAN_OPTIONS"} "$@"
}
# No page named, so nothing goes online: the run makes the program folder
# and data file, then stops with "nothing to update" (status 4).
status=0
run "$root/bin/vkstats" --headless --pages= >"$stage/out" 2>"$stage/err" || status=$?
[ "$status" -eq 4 ] || { cat "$stage/err" >&2; fail "headless run ended with $status"; }
folder="$home/.local/share/vkstats"
for file in vk.dbc urls.txt; do
    [ -f "$folder/$file" ] || fail "no $file in $folder"
done
[ "$(stat -c %a "$folder")" = 700 ] || fail "$folder is not private"
[ "$(stat -c %a "$folder/vk.dbc")" = 600 ] || fail "vk.dbc is not private"
grep -q "Created an empty VK data file $folder/vk.dbc" "$stage/err" || fail "creation not said"
[ ! -e "$root/bin/vk.dbc" ] && [ ! -e "$root/bin/urls.txt" ] || fail "files beside the program"
run "$root/bin/vkdbtool" list "$folder/vk.dbc" >/dev/null || fail "vkdbtool cannot read vk.dbc"

# With a display the installed program opens its window from the installed
# module; "version" writes the version and closes without waiting for anyone.
status=0
run QT_QPA_PLATFORM=offscreen "$root/bin/vkstats" version >"$stage/out" 2>"$stage/err" ||
    status=$?
[ "$status" -eq 0 ] || { cat "$stage/err" >&2; fail "the window run ended with $status"; }
grep -qx "version=1.9b12" "$folder/vkstats.ini" || fail "the window run wrote no version"

# A file named portable beside the program makes its folder the program folder.
touch "$root/bin/portable"
status=0
run "$root/bin/vkstats" --headless --pages= >"$stage/out" 2>"$stage/err" || status=$?
[ "$status" -eq 4 ] || fail "portable run ended with $status"
[ -f "$root/bin/vk.dbc" ] || fail "a portable install keeps no files beside the program"
echo "install check passed"
