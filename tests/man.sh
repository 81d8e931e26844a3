#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks the installed manual pages: no warnings, at most 200 lines in a page about functions, and each function of the
# header has a page of its name with its prototype: man.sh REPOSITORY BUILD
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
DESTDIR=$work/root cmake -P "$2/man/cmake_install.cmake" > "$work/log"
MANPATH=$(find "$work/root" -name man)
export MANPATH LC_ALL=C.UTF-8 MANWIDTH=80 MAN_KEEP_FORMATTING=
example() { # NUMBER: a block of system-ovl.conf(5)
    awk -v number="$1" '/^\.[BE]d/ { edges++ } edges == 2 * number - 1 && !/^\./' "$MANPATH/man5/system-ovl.conf.5"
}

[ -z "$(man --warnings orvel-path system-ovl.conf orvel_caveats 2>&1 > "$work/pages" | tee /dev/stderr)" ]
sed -nE 's/^[a-z].*[ *]([A-Za-z_]+)\(.*;$/\1.3\t&/p' "$1/include/orvel_core.h" > "$work/functions"
diff <(cut -f 1 "$work/functions" | sort) <(find "$MANPATH/man3" ! -name orvel_core.3 -name '*.3' -printf '%f\n' | sort)
while IFS=$'\t' read -r page prototype; do
    [ -z "$(man --warnings "${page%.3}" 2>&1 > "$work/page" | tee /dev/stderr)" ]
    [ "$(wc -l < "$work/page")" -le 200 ]
    tr -d '[:space:]' < "$work/page" | grep -F "${prototype// /}" > "$work/log" || { echo "no $prototype"; exit 1; }
done < "$work/functions"
diff <(example 2) <("$2/tools/orvel-path" -qrn --check-config <(example 1) | sed -n 's/.* overlay .* //p')
