#!/usr/bin/env bash
# Boots a small Linux virtual machine whose BMC is an ipmi_sim on this machine, and runs commands
# in it through the kernel's IPMI driver (in band):
#   guest.sh WORKDIR VM_PORT COMMANDS BINARY...
# VM_PORT is the simulator's VM interface (lan.conf: "serial kcs 127.0.0.1 PORT codec VM"); QEMU
# connects its external BMC device to it, behind a KCS system interface. COMMANDS is a shell file
# the guest sources, with lines like `run NAME ipmi-event-log raw` (see init.sh). Each BINARY is
# copied to the guest's /bin with the libraries ldd finds for it. WORKDIR receives the initramfs,
# the kernel's console (console.log) and the commands' results (results). The script becomes
# QEMU (its PID stays), so whoever started it bounds the guest's time and stops it by that PID.
# GUEST_ACCEL: kvm, tcg, or unset for KVM where /dev/kvm is usable and plain emulation otherwise.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
workdir=$1 vm_port=$2 commands=$3
shift 3

die() {
    echo "guest.sh: $*" >&2
    exit 1
}

# The newest Debian kernel whose IPMI modules are installed beside it (linux-image-amd64).
kernel_version=""
for image in /boot/vmlinuz-*; do
    version=${image#/boot/vmlinuz-}
    [ -e "/lib/modules/$version/kernel/drivers/char/ipmi/ipmi_si.ko" ] || continue
    if [ -z "$kernel_version" ] ||
        [ "$(printf '%s\n%s\n' "$kernel_version" "$version" | sort -V | tail -n1)" = "$version" ]; then
        kernel_version=$version
    fi
done
[ -n "$kernel_version" ] ||
    die "no kernel with IPMI modules in /boot and /lib/modules: apt-get install linux-image-amd64"
[ -r "/boot/vmlinuz-$kernel_version" ] || die "/boot/vmlinuz-$kernel_version is not readable"
qemu=$(command -v qemu-system-x86_64) || die "qemu-system-x86_64 not found: apt-get install qemu-system-x86"
busybox=$(command -v busybox || true)
[ -n "$busybox" ] || [ -x /bin/busybox ] || die "busybox not found: apt-get install busybox-static"
busybox=${busybox:-/bin/busybox}

# The guest's root file system: busybox, the IPMI modules, the binaries and their libraries.
root=$workdir/root
rm -rf "$root"
mkdir -p "$root"/{bin,modules,proc,sys,dev,tmp}
copy_with_libraries() {
    local file=$1 target=$2
    cp -L "$file" "$target"
    # ldd prints "name => /path (address)" or "/path (address)"; the vDSO has no path, and a
    # static binary (busybox-static) nothing.
    { ldd "$file" 2>/dev/null || true; } | { grep -o '/[^ ]*' || true; } | while read -r library; do
        [ -e "$root$library" ] && continue
        mkdir -p "$root$(dirname "$library")"
        cp -L "$library" "$root$library"
    done
}
copy_with_libraries "$busybox" "$root/bin/busybox"
for binary in "$@"; do
    copy_with_libraries "$binary" "$root/bin/$(basename "$binary")"
done
for module in ipmi_msghandler ipmi_devintf ipmi_si; do
    cp "/lib/modules/$kernel_version/kernel/drivers/char/ipmi/$module.ko" "$root/modules/"
done
cp "$here/init.sh" "$root/init"
cp "$commands" "$root/commands"
(cd "$root" && find . | "$busybox" cpio -o -H newc 2>/dev/null | gzip -1) >"$workdir/initramfs.gz"

# KVM needs /dev/kvm and a processor that offers virtualisation to this machine: inside a virtual
# machine without nested virtualisation, /dev/kvm may exist while its guests never run.
accel=${GUEST_ACCEL:-}
if [ -z "$accel" ]; then
    accel=tcg
    if [ -r /dev/kvm ] && [ -w /dev/kvm ] && grep -qw -e vmx -e svm /proc/cpuinfo; then
        accel=kvm
    fi
fi
cpu=max
[ "$accel" = kvm ] && cpu=host
: >"$workdir/results"
exec "$qemu" \
    -nodefaults -no-user-config -display none -no-reboot \
    -machine pc -accel "$accel" -cpu "$cpu" -m 384 -smp 1 \
    -kernel "/boot/vmlinuz-$kernel_version" -initrd "$workdir/initramfs.gz" \
    -append "console=ttyS0 panic=-1" \
    -serial "file:$workdir/console.log" -serial "file:$workdir/results" \
    -chardev "socket,id=bmc,host=127.0.0.1,port=$vm_port,reconnect=1" \
    -device ipmi-bmc-extern,id=bmc0,chardev=bmc \
    -device isa-ipmi-kcs,bmc=bmc0
