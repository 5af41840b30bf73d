#!/bin/busybox sh
# The guest's first process: loads the kernel's IPMI drivers, runs the commands the host put in
# /commands, writes each one's exit status, output and error output to the second serial port (the
# first is the kernel's console), and powers the machine off. The port is raw: bytes go through
# as they are, each command's counted in its header.
/bin/busybox --install -s /bin
export PATH=/bin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mkdir -p /tmp
stty -F /dev/ttyS1 raw -echo
exec 3>/dev/ttyS1

# The system interface (KCS) is found through the ACPI tables QEMU describes it in; the device
# node /dev/ipmi0 appears once ipmi_devintf knows the interface.
for module in ipmi_msghandler ipmi_devintf ipmi_si; do
    insmod "/modules/$module.ko" || echo "@@log insmod $module failed" >&3
done
waited=0
while [ ! -e /dev/ipmi0 ] && [ "$waited" -lt 200 ]; do
    sleep 0.1
    waited=$((waited + 1))
done
echo "@@log /dev/ipmi0 $([ -e /dev/ipmi0 ] && echo present || echo missing) after $waited tenths" >&3

# The KCS interface's count of completed transactions (requests answered), kept by ipmi_si, and
# beside it the count of times the driver gave up on an interface that stopped moving ("hosed"),
# answering FFh in the BMC's place.
transactions=$(find /sys/devices -name complete_transactions | head -n 1)
hosed=${transactions%/*}/hosed_count
echo "@@log transactions counted in ${transactions:-nothing}" >&3

uptime() { cut -d ' ' -f 1 /proc/uptime; }
# The uptime in centiseconds, without a new process: /proc/uptime gives seconds with two decimals.
centiseconds() {
    read -r up _ </proc/uptime
    echo $((${up%.*}${up#*.}))
}
# seconds FROM TO: the time between two uptimes, in seconds.
seconds() { echo "$1 $2" | awk '{ printf "%.2f", $2 - $1 }'; }
echo "@@log booted in $(uptime) s" >&3

# run NAME COMMAND [ARGS...]: "@@start NAME" as it starts, "@@transactions NAME N C" every 20 ms while
# it runs (N transactions completed C centiseconds after it started), "@@log NAME hosed after S s" the first time
# the driver gives up on the interface, then "@@result NAME STATUS OUT ERR" followed by OUT bytes of
# output and ERR bytes of error output, and "@@log NAME took S s".
run() {
    name=$1
    shift
    echo "@@start $name" >&3
    started=$(uptime)
    startedCs=$(centiseconds)
    read -r before <"$transactions"
    read -r hosedBefore <"$hosed"
    saidHosed=
    # The command's end is marked by a file: its status and when it ended.
    rm -f /tmp/ended
    (
        "$@" >/tmp/out 2>/tmp/err
        status=$?
        echo "$status $(uptime)" >/tmp/ended
    ) &
    while [ ! -e /tmp/ended ]; do
        read -r now <"$transactions"
        echo "@@transactions $name $((now - before)) $(($(centiseconds) - startedCs))" >&3
        read -r hosedNow <"$hosed"
        if [ -z "$saidHosed" ] && [ "$hosedNow" != "$hosedBefore" ]; then
            saidHosed=yes
            echo "@@log $name hosed after $(seconds "$started" "$(uptime)") s" >&3
        fi
        sleep 0.02
    done
    wait
    read -r status ended </tmp/ended
    echo "@@result $name $status $(($(wc -c </tmp/out))) $(($(wc -c </tmp/err)))" >&3
    cat /tmp/out /tmp/err >&3
    # A new line first: the output may not end with one.
    printf '\n@@log %s took %s s\n' "$name" "$(seconds "$started" "$ended")" >&3
}

. /commands
echo "@@done" >&3
poweroff -f
