#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Normalises paths on a made-up host by the command-line tool, in a private mount namespace:
# host.sh TOOL SCRIPTS DIRECTORY
set -euo pipefail

tool=$1 work=$3 state=/sysroot/ostree/deploy/example
"$2/make-host" "$work"
host=$work/host in=$work/in out=$work/out
deployment=$state/deploy/$(basename "$host$state"/deploy/*.0)

failed=0
expect() { # STATUS OUTPUT ERRORS ARGUMENT...: runs the tool on $in
    local status=$1 actual=0 output=$2 errors=$3
    shift 3
    "$tool" "$@" < "$in" > "$out" 2> "$work/err" || actual=$?
    [ $actual = "$status" ] && cmp "$out" <(printf '%b' "$output") &&
        cmp "$work/err" <(printf '%b' "$errors") && return
    echo "FAILED: orvel-path $*: status $actual"
    cat -A "$out" "$work/err"
    failed=1
}
judge() { # WHAT: whether each path in $in and its normalised form name one file
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
            [[ -d $b && $b = */usr/local* ]] # an overlay's directories have inode numbers of their own
        else
            cmp -s "$a" "$b"
        fi && same=$((same + 1)) || printf 'ANOTHER: %q -> %q\n' "${asked[i]}" "${given[i]}"
    done
    echo "$1: $same of ${#asked[@]} paths name the same file as their normalised forms"
    [ $same -gt 500 ] && [ $same = ${#asked[@]} ] || failed=1
}

# Every storage path and its normalised form name one file, and a second call returns that form unchanged. Skipped: the
# directories that mounts cover, and the link /tmproot, which the first rule renames.
cd "$host"
find .$state ./sysroot/boot ./tmproot/boot/ ./tmproot/ostree/deploy/ \
    -regextype posix-extended ! -regex '.*\.0/(var|sysroot|proc|dev|boot|tmproot|also.)' -print0 |
    sed -z 's|^\.||; s|//|/|' > "$in"
judge "the host"
"$tool" --root "$host" -0 < "$out" > "$work/again"
cmp "$out" "$work/again"

: > "$in"
overlay='/usr/local overlay usr/local-N'
expect 0 "$overlay $deployment/usr/local\n/usr mount /usr $deployment/usr\n/ mount / $deployment
$overlay $state/var/overlay/usr-local\n/var mount /var $state/var\n$overlay /var/overlay/usr-drive
$overlay /var/overlay/usr-local\n/boot mount /boot /sysroot/boot\n" '' --root "$host" -trn
expect 0 '/var/log\n/tmp/x\nrelative\n' '' --root "$host" $state/var/log /var/tmp/x relative
expect 0 '[a,b]\n--root=\n' '' '[a,b]' -- --root=
expect 2 '' "orvel-path: '': cannot be entered: No such file or directory\n" --root= /x
printf '%s\0' $state/var/lib $'a\nb' > "$in"
expect 0 '/var/lib\0a\nb\0' '' --root "$host" -0
printf 'a\0b\n\nc' > "$in"
expect 1 'a\0b\n\nc\n' "orvel-path: 'a\0b': refused: it contains a NUL byte
orvel-path: '': refused: it is empty\n" --root "$host"
# Two batches. The second one is refused, and has more paths than the limiter admits at once.
{ seq 1150 | sed "s|^|$state/var/|"; echo /..; } > "$in"
expect 1 "$(seq 1150 | sed 's|^|/var/|')\n/..\n" "orvel-path: '/..': refused: \
it has a component . or ..\n" --root "$host"

# All steps of a file, of one in the overlay, and of one that a mount hides.
numbers() { stat -c 'device %Hd:%Ld inode %i' "$host$1"; }
day=$state/var/tmp/scratch1 added=$state/var/overlay/usr-local/changed hidden=$deployment/var/x
tee "$host$hidden" "$host/var/x" < /dev/null
expect 1 "[\n  {\"path\":\"${day/sys/tmp}\",\"normalized\":\"/tmp/scratch1\",\"steps\":[\
{\"step\":\"temporary root\",\"path\":\"$day\",\"by\":\"/tmproot -> /sysroot\"},\
{\"step\":\"mapping\",\"path\":\"/var/tmp/scratch1\",\"by\":\"mount /var: $state/var -> /var\"},\
{\"step\":\"/var rule\",\"path\":\"/tmp/scratch1\",\"by\":\"/var is dropped\"}],\
\"same_file\":\"yes\",\"same_file_by\":\"$(numbers "$day")\"},
  {\"path\":\"$added\",\"normalized\":\"/usr/local/changed\",\"steps\":[{\"step\":\"mapping\",\"path\":\"/usr/local/changed\",\
\"by\":\"overlay usr/local-N: $state/var/overlay/usr-local -> /usr/local\"}],\"same_file\":\"likely\",\
\"same_file_by\":\"type, size and change time agree through the overlay; $(numbers "$added"), $(numbers /usr/local/changed)\"},
  {\"path\":\"$hidden\",\"normalized\":\"/var/x\",\"steps\":[{\"step\":\"mapping\",\"path\":\"/var/x\",\
\"by\":\"mount /: $deployment -> /\"}],\"same_file\":\"no\",\"same_file_by\":\"$(numbers "$hidden"), $(numbers /var/x)\"},
  {\"path\":\"\",\"refused\":\"it is empty\"}\n]\n" '' --root "$host" --why --json "${day/sys/tmp}" "$added" "$hidden" ''
for why in '/usr/x: already normal: mount /usr: '"$deployment/usr"' -> /usr' 'x: relative' '/: the root' \
    '/sysroot//boot: doubled slashes match no mapping' '/ostree/x: below the link /ostree -> sysroot/ostree' \
    '/proc/x: on the proc mount /proc, which no mapping covers' '/sysroot/x: no mapping covers it; see --check-host'; do
    "$tool" --root "$host" --why "${why%%: *}" | grep -F "unchanged: ${why#*: }" > "$out" || { echo "$why"; failed=1; }
done

# All names of a file in a layer, of one below a link, and of one that is mounted twice.
diff <("$tool" --root "$host" -rn --names "$added" "${day/sys/tmp}" /boot/loader | cut -d ' ' -f 1-3) - << END || failed=1
shown likely /usr/local/changed
asked yes $added
mount yes /also2/changed
temporary\x20root yes ${added/sys/tmp}
layer missing $deployment/usr/local/changed
layer missing /var/overlay/usr-drive/changed
layer yes /var/overlay/usr-local/changed

shown yes /tmp/scratch1
asked yes ${day/sys/tmp}
storage yes $day
/var\x20twin yes /var/tmp/scratch1

shown yes /boot/loader
mount yes /also1/loader
storage yes /sysroot/boot/loader
temporary\x20root yes /tmproot/boot/loader
END
expect 0 '[\n  {"path":"\\ufffd","path_hex":"ff","normalized":"\\ufffd","normalized_hex":"ff"}\n]\n' '' --json $'\xff'

# A configuration with all likely mistakes, one that the library does not accept, and none.
minds() { printf "orvel-path: '$work/conf': %s\n" "$@"; }
printf '%s\n' '[General]' Mode=normal '[Overlay]' StageInitrd=/i '[a-N]' 'LowerDir=<stage>' '[b-N]' \
    'LowerDir=<none>, <PathPre>/c' MergeDir=/m '[c-N]' UpperDir=/c,/tmproot/c lowerdir=/d MergeDir=/n > "$work/conf"
expect 0 "General Mode normal\nOverlay StageInitrd /i\na-N LowerDir /i\nb-N LowerDir <none>\nb-N LowerDir /c
b-N MergeDir /m\nc-N MergeDir /n\nc-N UpperDir /c\nc-N UpperDir /tmproot/c\nc-N lowerdir /d\n
/n overlay c-N /c\n/n overlay c-N /tmproot/c\n/m overlay b-N <none>\n" "$(minds \
    'in section a-N MergeDir was not found or its value is empty' "section a-N maps nothing in mode 'normal'" \
    'section c-N, key lowerdir: ignored; did you mean LowerDir?' 'section b-N, key LowerDir: unknown variable <none>' \
    '<PathPre> is empty: section Overlay has no PathPre' 'directory /c is in several sections: b-N c-N; the last one wins' \
    'directory /tmproot/c matches no path: /tmproot is replaced by /sysroot first' \
    'directory <none> does not begin with a slash')\n" --check-config "$work/conf" --stage initrd -rn
printf '\xef\xbb\xbf#\n[General]\r\n' > "$work/conf"
expect 1 '' "$(minds 'not accepted: line 1: It was found that there was no section before the key-value pair' \
    'line 1: byte-order mark' \
    'line 2: carriage return at end of line')\n" --check-config "$work/conf"
expect 1 '{\n  "accepted": false,\n  "complaint": "open file /none failed.",\n  "values": [],\n  "mappings": [],
  "remarks": [\n    {\n      "remark": "cannot be read: No such file or directory"\n    }\n  ]\n}\n' '' --json --check-config /none
printf '%s\n' '[General]' '[]' > "$in"
expect 1 '' "orvel-path: standard input: not accepted: line 2: An empty section name was found\n" --check-config -
printf '%s\n' '[General]' Mode=normal '[Overlay]' PathPre=/p pathpre=/q > "$in"
strict=()
for status in 0 1; do
    expect $status "General Mode normal\nOverlay PathPre /p\nOverlay pathpre /q\n" \
        "orvel-path: standard input: section Overlay, key pathpre: ignored; did you mean PathPre?\n" \
        --check-config - -rn "${strict[@]}"
    strict=(--strict)
done
expect 1 '/..\n' '' -q /..

# Another process, with another root and namespaces of its own.
mkfifo "$work/fifo"
for namespaces in env 'unshare --mount' 'unshare --mount --pid --fork'; do
    # shellcheck disable=SC2016,SC2086 # the inner shell expands; several words
    $namespaces bash -c 'read -r process _ < /proc/self/stat; echo "$process" > "$0/process"
        mount -t proc proc "$0/host/proc"; exec "$1" --root "$0/host"' "$work" "$tool" < "$work/fifo" > "$work/given" &
    exec 9> "$work/fifo" # the process waits for it
    for _ in $(seq 100); do
        task=$(cat "$work/process" 2> /dev/null) && [ "/proc/$task/root/usr" -ef "$host/usr" ] && break
        sleep 0.1
    done
    expect 0 '/boot/x\n' '' --task "$task" /sysroot/boot/x
    echo /sysroot/boot/y >&9 # is answered before the end of input
    for _ in $(seq 100); do [ ! -s "$work/given" ] || break; sleep 0.1; done
    [ "$(cat "$work/given")" = /boot/y ]
    exec 9>&-
    wait
    rm "$work/process"
done
expect 2 '' "orvel-path: process $task: no such process\n" -N "$task" --table

# Usage errors.
usage() { expect 2 '' "orvel-path: $1\nTry 'orvel-path --help' for more information.\n" "${@:2}"; }
usage '--verbose excludes --quiet' -q -v /x
usage "unrecognized option '--x'" --x
usage "option '--root' requires an argument" --root
usage '--task excludes --root' -N 1 --root /
usage "option '--task': '1x' is not a process number" --task 1x
usage "extra operand '/x'" --table /x
usage "--why, --names, --table, --check-config and --check-host exclude each other" -wt
"$tool" --help | grep -F 'For more details see orvel-path(1).' > "$out"
"$tool" -V | grep -x 'orvel-path [0-9.]* (libmount [0-9.]*)' > "$out"

# Output on a terminal, and completions.
printf -v command '%q ' "$tool" --names $'/\e\xff\xc3\xa4\\'
SHELL=$BASH LC_ALL=C.UTF-8 TERM=xterm NO_COLOR='' script -qec "$command" /dev/null < /dev/null > "$out"
cmp "$out" <(printf '%s\r\n' 'KIND  SAME FILE NAME           BY' \
    $'shown \e[33mmissing  \e[0m /\\x1b\\xff\xc3\xa4\\x5c /\\x1b\\xff\xc3\xa4\\x5c: No such file or' \
    '                               directory')
options=$("$tool" --help | sed -nE 's/^ (-(.),|   ) --([a-z-]+) .*/\2 --\3/p' | sort)
completed=$(bash -c '. /usr/share/bash-completion/bash_completion && . "$2" && COMP_WORDS=(orvel-path --) &&
    COMP_CWORD=1 COMP_LINE="orvel-path --" COMP_POINT=13 && _orvel_path "$1" && printf "%s\n" "${COMPREPLY[@]}"' \
    - "$tool" "$2/../tools/orvel-path.bash-completion")
diff <(grep -o -e '--.*' <<< "$options" | sort) <(sort <<< "$completed")
diff <(echo "$options") <(sed -nE "s/.*\{-(.)\+?,--([a-z-]+)=?\}.*/\1 --\2/p; s/^ *'(--[a-z-]+)=?\[.*/ \1/p" \
    "$2/../tools/_orvel-path" | sort)
diff <(echo "$options") <(sed -nE 's/^complete -c orvel-path (-s (.) )?-l ([a-z-]+) .*/\2 --\3/p' \
    "$2/../tools/orvel-path.fish" | sort)

for seed in ${ORVEL_SEEDS:-$RANDOM $((RANDOM + 32768))}; do
    echo "random layout of seed $seed"
    "$(dirname "$0")/grow-host" "$work" "$seed" > "$in"
    judge "the layout"
done

# Roots without /proc or device nodes.
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
