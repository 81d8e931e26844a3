#!/usr/bin/env bash
# The library exports exactly what its map lists, calls none of it through its host, and leaves only the
# log function for that to supply: exports.sh LIBRARY MAP
set -euo pipefail

diff <(nm -D --defined-only "$1" | awk '{ print $3 }' | sort) \
    <(sed -n '/global:/,/local:/ s/^ *\([A-Za-z_0-9]*\);$/\1/p' "$2" | sort)
[ "$(nm -D --undefined-only "$1" | awk '$1 == "w" && $2 ~ /orvel/ { print $2 }')" = orvel_log_v2 ]
! readelf --relocs --wide "$1" | grep -E '_Z4trim|pathNormalize|remove_dir'
readelf -d "$1" | grep -q 'SONAME.*\[liborvel_core\.so\.0\]'
