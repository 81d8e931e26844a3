#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the library below an empty prefix and builds the example daemon with pkg-config, the C++ example with
# find_package, and a project that adds this one as a directory. CC, CFLAGS etc. are the build's: install.sh BUILD EXAMPLES
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --prefix "$work/usr" > /dev/null
library=$(find "$work/usr" -name liborvel_core.so)
export LD_LIBRARY_PATH=${library%/*} PKG_CONFIG_PATH=${library%/*}/pkgconfig
[ "$(readlink "$library")" = liborvel_core.so.0 ]
[ "$("$work/usr/bin/orvel-path" relative)" = relative ]

mapfile -t flags < <(echo "$CFLAGS $(pkg-config --cflags --libs orvel_core)" | xargs printf '%s\n')
"$CC" -std=c99 -Wall -Wextra -Wpedantic -Werror "$2/daemon.c" "${flags[@]}" -o "$work/daemon"
printf '/var/tmp/x\n/a\r/../b\na\0b\n\nrelative' | "$work/daemon" > "$work/out" 2> "$work/messages"
cmp "$work/out" <(printf '/tmp/x\n\n\n\nrelative\n') # a refused path has an empty line
[ "$(grep -cE '^orvel-daemon.*: (.* /a\\x0d/\.\./b|input path is invalid .*)$' "$work/messages")" = 2 ]
printf '/a\n/a\n/..\n/..\n' | "$work/daemon" > "$work/out" 2> "$work/messages"
[ "$(sort -u "$work/messages" | wc -l)" = "$(wc -l < "$work/messages")" ] # none is repeated
if command -v systemd-analyze > "$work/out"; then
    mkdir "$work/units"
    cp "$2"/orvel-daemon* "$work/units"
    sed -i "s|^ExecStart=.*|ExecStart=$work/daemon|" "$work/units/orvel-daemon@.service"
    systemd-analyze --man=no verify "$work/units"/*
fi

cmake -S "$2" -B "$work/examples" -D CMAKE_PREFIX_PATH="$work/usr" > "$work/out"
cmake --build "$work/examples" > "$work/out"
printf '[General]\nMode=normal\n[Overlay]\nPathPre=/pre\n[x-N]\nLowerDir=<PathPre>,/b\nMergeDir=/m\n' > "$work/conf"
"$work/examples/overlays" "$work/conf" | sort > "$work/out"
diff "$work/out" <(printf 'normal: /%s is shown at /m\n' b pre)
printf 'cmake_minimum_required(VERSION 3.25)\nproject(p)\nadd_subdirectory(%s orvel)\nadd_custom_target(unit_tests)' \
    "$2/.." > "$work/CMakeLists.txt"
cmake -S "$work" -B "$work/parent" > "$work/out"

cmake --build "$1" --target uninstall > "$work/out"
[ -z "$(find "$work/usr" ! -type d)" ]
