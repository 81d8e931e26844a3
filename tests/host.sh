#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The main job on a made-up host, through the command-line tool, in a private mount namespace:
# host.sh TOOL MAKE-HOST DIRECTORY
set -euo pipefail

tool=$1 work=$3 state=/sysroot/ostree/deploy/example
"$2" "$work"
host=$work/host in=$work/in out=$work/out
deployment=$state/deploy/$(basename "$host$state"/deploy/*.0)

failed=0
expect() { # STATUS OUTPUT ERRORS ARGUMENT...: what the tool makes of $in
    local status=$1 actual=0 output=$2 errors=$3
    shift 3
    "$tool" "$@" < "$in" > "$out" 2> "$work/err" || actual=$?
    [ $actual = "$status" ] && cmp "$out" <(printf '%b' "$output") &&
        cmp "$work/err" <(printf '%b' "$errors") && return
    echo "FAILED: orvel-path $*: status $actual"
    cat -A "$out" "$work/err"
    failed=1
}
identities() { # of the host's paths in a file: device and inode, or the marker in an overlay's file
    sed -z "s|^|$host|" "$1" | while IFS= read -r -d '' path; do
        case $path in
            */usr[/-]local*) if [ -d "$path" ]; then echo directory; else cat "$path"; fi ;;
            *) stat -c %d:%i "$path" ;;
        esac
    done
}

# Every storage path names the file that its normalised form names, which is final. Left out: the
# directories that the host mounts over, and the link whose own name the first rule renames.
cd "$host"
find .$state ./sysroot/boot ./tmproot/boot/ ./tmproot/ostree/deploy/ \
    -regextype posix-extended ! -regex '.*\.0/(var|sysroot|proc|dev|boot|tmproot|also.)' -print0 |
    sed -z 's|^\.||; s|//|/|' > "$in"
"$tool" --root "$host" -0 < "$in" > "$out"
"$tool" --root "$host" -0 < "$out" > "$work/again"
cmp "$out" "$work/again"
diff <(identities "$in") <(identities "$out")
[ "$(tr -cd '\0' < "$in" | wc -c)" -gt 500 ]

: > "$in"
expect 0 "$deployment/usr/local\t/usr/local\n$deployment/usr\t/usr\n$deployment\t/
$state/var/overlay/usr-local\t/usr/local\n$state/var\t/var\n/var/overlay/usr-drive\t/usr/local
/var/overlay/usr-local\t/usr/local\n/sysroot/boot\t/boot\n" '' --root "$host" --table
expect 0 '/var/log\n/tmp/x\nrelative\n' '' --root "$host" $state/var/log /var/tmp/x relative
expect 0 '[a,b]\n--root=\n' '' '[a,b]' -- --root=
expect 2 '' "orvel-path: '': cannot be entered: No such file or directory\n" --root= /x
printf '%s\0' $state/var/lib $'a\nb' > "$in"
expect 0 '/var/lib\0a\nb\0' '' --root "$host" -0
printf 'a\0b\n\nc' > "$in"
expect 1 'a\0b\n\nc\n' "orvel-path: 'a': contains a NUL byte
orvel-path: '': input path is invalid (null or empty)\n" --root "$host"
# Two batches, the second one refused, and its paths more than the limiter admits at once.
{ seq 1150 | sed "s|^|$state/var/|"; echo /..; } > "$in"
expect 1 "$(seq 1150 | sed 's|^|/var/|')\n/..\n" "orvel-path: '/..': input path contains dot \
components (. or ..), returning original path: /..\n" --root "$host"

# Roots that lack what the library reads.
ASAN_OPTIONS=detect_leaks=0 \
    expect 2 '' "orvel-path: '$work/tree': has no mounted /proc\n" --root "$work/tree" /x
mount -t proc proc "$work/tree/proc"
mount -o loop "$work/disk.img" "$work/tree/boot"
device=$(findmnt -no SOURCE "$work/tree/boot")
expect 2 '' "orvel-path: '$work/tree': has no $device, which is mounted at /boot there; \
mount the device nodes at its /dev first\n" --root "$work/tree" /x
{ ! "$tool" < / && ! "$tool" x > /dev/full; } 2> /dev/null || failed=1
exit $failed
