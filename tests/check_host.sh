#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The findings of --check-host on a made-up host, and the new ones after each of a series of mounts, in private mount
# namespaces: check_host.sh TOOL SCRIPTS DIRECTORY
set -euo pipefail

tool=$1 work=$3 failed=0 S=/sysroot/ostree/deploy/example
"$2/make-host" "$work"
host=$work/host
D=$S/deploy/$(basename "$host$S"/deploy/*.0)
chattr -i "$host"
export tool work S D

findings() { # ROOT: severity, name and path of each error and warning, and the exit status
    local status=0
    "$tool" --root "$1" --check-host --raw --noheadings > "$work/out" || status=$?
    awk '$1 != "ok" { print $1, $2, $NF }' "$work/out"
    echo "status $status"
}
after() { # COMMANDS EXPECTED [ROOT]: compares the new findings after COMMANDS, except for covered directories
    unshare --mount bash -euc "cd '$host'; $1; $(declare -f findings); findings '${3-.}'" |
        grep -vxFf "$work/plain" | grep -v covered > "$work/anew" || true
    diff <(printf '%s\n' "$2") "$work/anew" && return
    echo "FAILED: after $1"
    failed=1
}

findings "$host" > "$work/plain"
diff - "$work/plain" <<END || failed=1
warning covered-directory $D/sysroot
warning covered-directory $D/var
warning covered-directory $D/boot
warning covered-directory $D/also1
warning covered-directory $D/also2
warning covered-directory $D/proc
warning covered-directory $D/dev
warning replaced-file $D/usr/local
warning mapping /var/overlay/usr-drive
warning ostree-link /ostree
warning configuration /ostree/pkgs/system-ovl.conf
status 0
END
mkdir -p "$host"/var/{a,up,work,new,'end '} "$host"/sysroot/data/{a,ab,x} "$host"/sysroot/{proc,dev,srv} "$host/var$work"
device=$(findmnt -no SOURCE "$host/sysroot")
for place in "$work" "$host/var$work"; do ln -s "$device" "$place/link"; ln -s "$device" "$place/linked"; done

# Devices.
after 'umount -l sysroot' 'error whole-mount /
status 1'
after 'mount --bind sysroot var/new' 'error several-whole-mounts /sysroot
status 1'
after 'mount --bind sysroot/ostree var/new' 'error several-whole-mounts /var/new
status 1'
after 'mount -t tmpfs x dev' 'error device-node /sysroot
status 1'
after 'mount -t proc x sysroot/proc; mount --bind /dev sysroot/dev; mount --bind sysroot/boot sysroot/srv' \
    "error whole-mount-at-root /boot
warning mapping $D/usr/local
warning mapping $S/var/overlay/usr-local
warning mapping /var/overlay/usr-local
status 1" sysroot
after "mount -c $work/link var/new" "warning device-link $device"
after "mount -c $work/link var/new; mount -c $work/linked var/a; mount --bind var/a/data var/up; umount var/a" \
    "warning whole-mount /var/up
warning device-link $device
warning device-name /var/newed/data"
# Sources and mount points.
after 'mount -t tmpfs /other var/new' 'warning mount-source /other'
after 'mount --bind sysroot/data "var/end "' 'warning blank-mount-point /var/end\x20
error moved-mount /sysroot/data
status 1'
after 'mount --bind sysroot/data var/new; mount -t tmpfs x var/new' 'warning hidden-mount /var/new
error mapping /sysroot/data
status 1'
after 'mount --bind sysroot/data/a var/new; mount --bind sysroot/data/x sysroot/data/ab' \
    'error moved-mount /sysroot/data/x
status 1'
# Overlays.
layers=upperdir=var/up,workdir=var/work
after "mount -t overlay x usr -o lowerdir=usr,$layers" "warning undescribed-overlay /usr"
after "mount -t overlay x etc -o lowerdir=etc,$layers" "warning undescribed-overlay /etc"
after "mount -t overlay x var/new -o lowerdir=$host,$layers
    for i in var proc dev; do mount --bind \$i var/new/\$i; done; mount --move sysroot var/new/sysroot" \
    "error undescribed-overlay /
warning mapping $D/usr/local
warning mapping $S/var/overlay/usr-local
warning mapping /var/overlay/usr-local
status 1" var/new
# The configuration, and the fixed rules.
after 'mount -t tmpfs x sysroot/ostree/pkgs' "warning undescribed-overlay /usr/local"
after "rm tmp tmproot; mkdir tmp tmproot var/tmp/m; mount --bind sysroot/data var/tmp/m" "error temporary-root /tmproot
error var-twin /var/tmp
error var-twin $S/var/tmp
error var-twin /sysroot/data
status 1"
exit $failed
