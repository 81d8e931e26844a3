#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that the example watcher notices new mounts and a new configuration, in an overlay over this system's root:
# watcher.sh WATCHER LIBRARY DIRECTORY
set -euo pipefail

root=$3/root
mount -t tmpfs tmpfs "$3"
mkdir "$3"/{root,upper,work}
mount -t overlay overlay "$root" -o "lowerdir=/,upperdir=$3/upper,workdir=$3/work"
mount --rbind /proc "$root/proc"
mount --rbind /dev "$root/dev"
mkdir -p "$root"/{watcher,ostree/pkgs,whole,shown}
cp "$1" "$2" "$root/watcher"
truncate -s 2M "$3/disk"
mkfs.ext2 -q "$3/disk"
mount -o loop "$3/disk" "$root/whole"
mkdir "$root/whole/directory"

watcher=(chroot "$root" env LD_LIBRARY_PATH=/watcher /watcher/watcher)
coproc "${watcher[@]}"
pid=$COPROC_PID
expect() { # PATH ANSWER
    local answer
    echo "$1" >&"${COPROC[1]}"
    read -r -t 60 answer <&"${COPROC[0]}"
    [ "$answer" = "$2" ] || { echo "$1: '$answer', not '$2'"; exit 1; }
}
expect /whole/directory/x /whole/directory/x
mount --bind "$root/whole/directory" "$root/shown"
expect /whole/directory/x /shown/x
printf '[General]\nMode=normal\n[Overlay]\nx=\n[o-N]\nLowerDir=/layer\nMergeDir=/merged\n' > "$root/ostree/pkgs/new"
mv "$root/ostree/pkgs/"{new,system-ovl.conf}
expect /layer/x /merged/x
umount "$root/shown"
expect /whole/directory/x /whole/directory/x
expect /tmproot/../x ''
expect /var/mnt/x /mnt/x
[ "$(printf '/layer/x\n/..\nx' | "${watcher[@]}" --batch | tr '\n' '|')" = '/merged/x||x|' ]
eval "exec ${COPROC[1]}>&-"
wait "$pid"
