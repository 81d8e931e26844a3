#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs the README's shell blocks on a made-up host, compares the answers that they show, and compiles its C example:
# readme.sh REPOSITORY DIRECTORY
set -euo pipefail
cd "$1"
work=$2 build=$1/build/release
block() { # LANGUAGE: all its blocks, at least one
    awk -v fence="\`\`\`$1" '/^```/ { inside = $0 == fence; next } inside { print; n++ } END { exit !n }' README.md
}

scripts/make-host "$work"
printf '#!/bin/sh\nexec %q --root %q "$@"\n' "$build/tools/orvel-path" "$work/host" > "$work/orvel-path"
chmod +x "$work/orvel-path"
export LC_ALL=C.UTF-8 PATH=$work:$PATH CPATH=$1/include LIBRARY_PATH=$build LD_LIBRARY_PATH=$build
block sh | sed '/^scripts\/test/d' > "$work/commands"
bash -e "$work/commands"
block c > "$work/caller.c"
block console > "$work/transcript"
cd "$work"
bash -ev <(sed -n 's/^\$ //p' transcript) 2>&1 | diff <(sed 's/^\$ //' transcript) -
