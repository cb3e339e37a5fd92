#!/bin/sh
# Builds the real Mixmaster client and the small program that prints what
# Mixmaster's own code reads from a folder, once per build folder.
#   build-mixmaster.sh OUTDIR SOURCEDIR
# SOURCEDIR holds the Mixmaster source archive and its build script. Exits
# with 77 (a skip for CTest) when SOURCEDIR is missing, so that a machine
# without it says so instead of passing.
set -e
out=${1:?usage: build-mixmaster.sh OUTDIR SOURCEDIR}
source_dir=${2:?usage: build-mixmaster.sh OUTDIR SOURCEDIR}
here=$(cd "$(dirname "$0")" && pwd)

if [ ! -f "$source_dir/build-mixmaster.sh" ]; then
    echo "Mixmaster source not found in $source_dir: interop test skipped"
    exit 77
fi

# The cache is keyed on the inputs, so a changed helper is built afresh.
stamp=$(cat "$source_dir/build-mixmaster.sh" "$source_dir"/*.tar.gz "$here/mixlists.c" |
    cksum | cut -d' ' -f1)
if [ -x "$out/bin/mixmaster" ] && [ -x "$out/bin/mixlists" ] &&
    [ "$(cat "$out/stamp" 2>/dev/null)" = "$stamp" ]; then
    echo "Mixmaster already built in $out/bin"
    exit 0
fi

rm -rf "$out"
mixmaster=$(sh "$source_dir/build-mixmaster.sh" "$out/src" | tail -n 1)
src=$(dirname "$mixmaster")
make -C "$src" dummy.o >/dev/null
objects=$(sed -n 's/^OBJ = //p' "$src/Makefile")
mkdir -p "$out/bin"
cc -O1 -fcommon -DUSE_ZLIB -DUSE_PCRE -I"$src" -c "$here/mixlists.c" -o "$out/mixlists.o"
(cd "$src" && cc $objects rndseed.o dummy.o "$out/mixlists.o" \
    -lssl -lcrypto -lz -lpcre -lncurses -o "$out/bin/mixlists")
cp "$mixmaster" "$out/bin/mixmaster"
echo "$stamp" >"$out/stamp"
echo "Mixmaster built in $out/bin"
