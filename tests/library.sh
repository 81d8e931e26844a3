#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks the built library's file: it exports exactly the functions of its map and of the packages' symbols file, calls
# none of them through the program, needs only the log function from the program, and is hardened as its flags say:
# library.sh LIBRARY MAP "COMPILER FLAGS" SYMBOLS
set -euo pipefail

diff <(nm -D --defined-only "$1" | awk '{ print $3 }' | sort) \
    <(sed -n '/global:/,/local:/ s/^ *\([A-Za-z_0-9]*\);$/\1/p' "$2" | sort)
diff <(nm -D --defined-only "$1" | awk '{ print $3 }' | sort) <(sed -n 's/^ \(.*\)@Base .*/\1/p' "$4" | sort)
[ "$(nm -D --undefined-only "$1" | awk '$1 == "w" && $2 ~ /orvel/ { print $2 }')" = orvel_log_v2 ]

has() { readelf "$1" --wide "$3" | grep -E "$2" > /dev/null || { echo "$3: no $2"; exit 1; }; }
has_not() { readelf "$1" --wide "$3" | grep -E "$2" || return 0; exit 1; }
has_not --relocs '_Z4trim|pathNormalize|remove_dir' "$1"
has --dynamic 'SONAME.*\[liborvel_core\.so\.0\]' "$1"
has_not --dynamic 'TEXTREL' "$1"
has --program-headers 'GNU_RELRO' "$1"
has --program-headers 'GNU_STACK.* RW ' "$1"
[[ $3 != *-z,now* ]] || has --dynamic 'BIND_NOW' "$1"
[[ $3 != *stack-protector* ]] || has --dyn-syms '__stack_chk_fail' "$1"
[[ $3 != GNU*FORTIFY* ]] || has --dyn-syms '_chk@' "$1"
