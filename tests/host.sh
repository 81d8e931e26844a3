#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The main job on a made-up host, through the command-line tool, in a private mount namespace:
# host.sh TOOL SCRIPTS DIRECTORY
set -euo pipefail

tool=$1 work=$3 state=/sysroot/ostree/deploy/example
"$2/make-host" "$work"
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
judge() { # WHAT: whether the kernel finds one file under each of the paths in $in and its normalised form
    "$tool" --root "$host" -0 < "$in" > "$out"
    mapfile -d '' -t asked < "$in"
    mapfile -d '' -t given < "$out"
    local i a b same=0
    for i in "${!asked[@]}"; do
        a=$host${asked[i]} b=$host${given[i]}
        if [ -L "$a" ]; then
            [ "$(stat -c %d:%i "$a")" = "$(stat -c %d:%i "$b")" ]
        elif [ "$a" -ef "$b" ]; then
            true
        elif [ -d "$a" ]; then
            [[ -d $b && $b = */usr/local* ]] # an overlay's directories have numbers of their own
        else
            cmp -s "$a" "$b"
        fi && same=$((same + 1)) || printf 'ANOTHER: %q -> %q\n' "${asked[i]}" "${given[i]}"
    done
    echo "$1: $same of ${#asked[@]} paths name the same file as their normalised forms"
    [ $same -gt 500 ] && [ $same = ${#asked[@]} ] || failed=1
}

# Every storage path names the file that its normalised form names, which is final. Left out: the
# directories that the host mounts over, and the link whose own name the first rule renames.
cd "$host"
find .$state ./sysroot/boot ./tmproot/boot/ ./tmproot/ostree/deploy/ \
    -regextype posix-extended ! -regex '.*\.0/(var|sysroot|proc|dev|boot|tmproot|also.)' -print0 |
    sed -z 's|^\.||; s|//|/|' > "$in"
judge "the host"
"$tool" --root "$host" -0 < "$out" > "$work/again"
cmp "$out" "$work/again"

: > "$in"
overlay='/usr/local\toverlay\tusr/local-N\n'
expect 0 "$deployment/usr/local\t$overlay$deployment/usr\t/usr\tmount\t/usr\n$deployment\t/\tmount\t/
$state/var/overlay/usr-local\t$overlay$state/var\t/var\tmount\t/var\n/var/overlay/usr-drive\t$overlay\
/var/overlay/usr-local\t$overlay/sysroot/boot\t/boot\tmount\t/boot\n" '' --root "$host" --table
expect 0 '/var/log\n/tmp/x\nrelative\n' '' --root "$host" $state/var/log /var/tmp/x relative
expect 0 '[a,b]\n--root=\n' '' '[a,b]' -- --root=
expect 2 '' "orvel-path: '': cannot be entered: No such file or directory\n" --root= /x
printf '%s\0' $state/var/lib $'a\nb' > "$in"
expect 0 '/var/lib\0a\nb\0' '' --root "$host" -0
printf 'a\0b\n\nc' > "$in"
expect 1 'a\0b\n\nc\n' "orvel-path: 'a\0b': contains a NUL byte
orvel-path: '': input path is invalid (null or empty)\n" --root "$host"
# Two batches, the second one refused, and its paths more than the limiter admits at once.
{ seq 1150 | sed "s|^|$state/var/|"; echo /..; } > "$in"
expect 1 "$(seq 1150 | sed 's|^|/var/|')\n/..\n" "orvel-path: '/..': input path contains dot \
components (. or ..), returning original path: /..\n" --root "$host"

# Every step, and what the kernel says: one file, one through the overlay, and one that a mount hides.
numbers() { stat -c 'device %Hd:%Ld inode %i' "$host$1"; }
day=$state/var/tmp/scratch1 added=$state/var/overlay/usr-local/changed hidden=$deployment/var/x
tee "$host$hidden" "$host/var/x" < /dev/null
expect 1 "asked\t${day/sys/tmp}\t\ntemporary root\t$day\t/tmproot -> /sysroot\nmapping\t/var/tmp/scratch1\t\
mount /var: $state/var -> /var\n/var rule\t/tmp/scratch1\t/var is dropped\ngiven\t/tmp/scratch1\t
same file\tyes\t$(numbers "$day")\nasked\t$added\t\nmapping\t/usr/local/changed\t\
overlay usr/local-N: $state/var/overlay/usr-local -> /usr/local\ngiven\t/usr/local/changed\t
same file\tlikely\ttype, size and change time agree through the overlay; $(numbers "$added"), \
$(numbers /usr/local/changed)\nasked\t$hidden\t\nmapping\t/var/x\tmount /: $deployment -> /\ngiven\t/var/x\t
same file\tno\t$(numbers "$hidden"), $(numbers /var/x)\nasked\t\t\nrefused\t\tinput path is invalid (null or empty)\n" \
    '' --root "$host" --why "${day/sys/tmp}" "$added" "$hidden" ''
expect 1 "[\n  {\"path\":\"/sysroot/boot\",\"normalized\":\"/boot\",\"steps\":[{\"step\":\"mapping\",\"path\":\"/boot\",\
\"by\":\"mount /boot: /sysroot/boot -> /boot\"}],\"same_file\":\"yes\",\"same_file_by\":\"$(numbers /boot)\"},
  {\"path\":\"\",\"refused\":\"input path is invalid (null or empty)\"}\n]\n" '' --root "$host" --why --json /sysroot/boot ''
expect 0 '[\n  {"path":"\\ufffd","path_hex":"ff","normalized":"\\ufffd","normalized_hex":"ff"}\n]\n' '' --json $'\xff'

# A configuration with all that a human would mind; one that the library does not take; and none.
minds() { printf "orvel-path: '$work/conf': %s\n" "$@"; }
printf '%s\n' '[General]' Mode=normal '[Overlay]' StageInitrd=/i '[a-N]' 'LowerDir=<stage>' '[b-N]' \
    'LowerDir=<none>, <PathPre>/c' MergeDir=/m '[c-N]' UpperDir=/c,/tmproot/c lowerdir=/d MergeDir=/n > "$work/conf"
expect 0 "General\tMode\tnormal\nOverlay\tStageInitrd\t/i\na-N\tLowerDir\t/i\nb-N\tLowerDir\t<none>\nb-N\tLowerDir\t/c
b-N\tMergeDir\t/m\nc-N\tMergeDir\t/n\nc-N\tUpperDir\t/c\nc-N\tUpperDir\t/tmproot/c\nc-N\tlowerdir\t/d\n
/c\t/n\toverlay\tc-N\n/tmproot/c\t/n\toverlay\tc-N\n<none>\t/m\toverlay\tb-N\n" "$(minds \
    'in section a-N MergeDir was not found or its value is empty' "section a-N maps nothing in mode 'normal'" \
    'section c-N, key lowerdir: not read; it is to be LowerDir' 'section b-N, key LowerDir: nothing replaces <none>' \
    '<PathPre> is replaced by nothing: section Overlay has no PathPre' 'directory /c is in several sections: b-N c-N; the last one counts' \
    'directory /tmproot/c matches no path: /tmproot is read as /sysroot first' \
    'directory <none> should begin, but not end, with a slash')\n" --check-config "$work/conf" --stage initrd
printf '\xef\xbb\xbf#\n[General]\r\n' > "$work/conf"
expect 1 '' "$(minds 'not accepted: It was found that there was no section before the key-value pair' \
    'line 1 begins with a byte-order mark, which belongs to its text' \
    'line 2 is the first with a carriage return at its end, which belongs to its text')\n" --check-config "$work/conf"
expect 1 '{\n  "accepted": false,\n  "complaint": "open file /none failed.",\n  "values": [],\n  "mappings": [],
  "remarks": [\n    {\n      "remark": "cannot be read: No such file or directory"\n    }\n  ]\n}\n' '' --json --check-config /none
expect 1 '/..\n' '' -q /..
expect 2 '' 'orvel-path: --verbose excludes --quiet\n' -q -v /x

# A terminal, and the completion.
printf -v command '%q ' "$tool" --why $'/\e\xff\xc3\xa4\\'
SHELL=$BASH LC_ALL=C.UTF-8 TERM=xterm NO_COLOR='' script -qec "$command" /dev/null < /dev/null > "$out"
cmp "$out" <(printf '%s\r\n' $'\e[1mSTEP       PATH            BY\e[0m' 'asked      /\x1b\xffä\x5c' \
    'given      /\x1b\xffä\x5c  unchanged' 'same file  unknown         /\x1b\xffä\x5c: No such file or directory')
completed=$(bash -c '. /usr/share/bash-completion/bash_completion && . "$2" && COMP_WORDS=(orvel-path --st) &&
    COMP_CWORD=1 COMP_LINE="orvel-path --st" COMP_POINT=15 && _orvel_path "$1" && echo "${COMPREPLY[*]}"' \
    - "$tool" "$2/../tools/orvel-path.bash-completion")
[ "$completed" = --stage ]

for seed in ${ORVEL_SEEDS:-$RANDOM $((RANDOM + 32768))}; do
    echo "random layout of seed $seed"
    "$2/grow-host" "$work" "$seed" > "$in"
    judge "the layout"
done

# Roots that lack what the library reads.
ASAN_OPTIONS=detect_leaks=0 \
    expect 2 '' "orvel-path: '$work/tree': has no mounted /proc\n" --root "$work/tree" /x
mount -t proc proc "$work/tree/proc"
mount -o loop "$work/disk.img" "$work/tree/boot"
device=$(findmnt -no SOURCE "$work/tree/boot")
expect 2 '' "orvel-path: '$work/tree': has no $device, which is mounted at /boot there; \
mount the device nodes at its /dev first\n" --root "$work/tree" /x
{ ! "$tool" < / && ! "$tool" x > /dev/full && ! unshare --mount sh -c "mount -t tmpfs x /proc && '$tool' x"; } \
    2> /dev/null || failed=1
exit $failed
