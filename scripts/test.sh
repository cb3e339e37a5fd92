#!/usr/bin/env bash
# Builds VKstats and runs every test, with no display needed.
#   scripts/test.sh              normal build in build/
#   scripts/test.sh --sanitize   AddressSanitizer + UBSan build in build-asan/
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"

build="$root/build"
sanitize=OFF
if [ "${1:-}" = "--sanitize" ]; then
    build="$root/build-asan"
    sanitize=ON
    export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:strict_string_checks=1
    export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
    export LSAN_OPTIONS="suppressions=$root/tests/lsan.supp:print_suppressions=0"
fi
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)

cmake -S "$root" -B "$build" -G Ninja -DVKSTATS_SANITIZE=$sanitize -DVKSTATS_WERROR=ON \
    "${launcher[@]}" >/dev/null
cmake --build "$build" -j "$(nproc)"
export QT_QPA_PLATFORM=offscreen
ctest --test-dir "$build" --output-on-failure -j 2
