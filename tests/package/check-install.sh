#!/usr/bin/env bash
# Installs a build into a scratch prefix, builds a consumer against it with find_package and with
# pkg-config, runs both against the sample BMC, then builds the Debian package, checks its files,
# and installs and removes it with dpkg.
#   check-install.sh BUILD_DIR SOURCE_DIR SAMPLE_BMC
set -euo pipefail
build=$1
source=$2
sample_bmc=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(dirname "$(find "$work/prefix" -name 'libipmi_event_log.so' | head -n 1)")
# A prefix outside the loader's paths, as for any library installed there.
export LD_LIBRARY_PATH="$libdir"

echo "== find_package"
cmake -S "$source/tests/package/consumer" -B "$work/consumer" -G Ninja \
    -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
"$sample_bmc" "$work/consumer/consumer"

echo "== pkg-config"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046
g++ -std=c++17 "$source/tests/package/consumer/consumer.cpp" -o "$work/consumer-pc" \
    $(pkg-config --cflags --libs ipmi_event_log)
"$sample_bmc" "$work/consumer-pc"

echo "== Debian package"
(cd "$build" && cpack -G DEB -B "$work/deb" >/dev/null)
package=$(find "$work/deb" -maxdepth 1 -name '*.deb' | head -n 1)
dpkg-deb --info "$package" | grep -E '^ (Package|Version|Depends):'
dpkg-deb --contents "$package" | awk '{print $6 ($7 ? " " $7 " " $8 : "")}' > "$work/files"
failed=0
for file in lib/libipmi_event_log.so.0.1.0 "lib/libipmi_event_log.so.0 -> libipmi_event_log.so.0.1.0" \
            lib/libtolmar_framework.so.0.1.0 include/ipmi_event_log/IpmiEventLog.h \
            include/tolmar_framework/IpmiClient.h lib/cmake/IpmiEventLog/IpmiEventLogConfig.cmake \
            lib/pkgconfig/ipmi_event_log.pc bin/ipmi-event-log share/man/man1/ipmi-event-log.1; do
    if ! grep -q "^\./usr/.*$file\$" "$work/files"; then
        echo "missing from the package: $file"
        failed=1
    fi
done
# dpkg installs the package into a scratch root, checking its dependencies against a copy of this
# machine's package database; the library loads and the tool runs from there; removal leaves no file.
# The maintainer scripts only run ldconfig, harmless outside the root.
mkdir -p "$work/root" "$work/dpkg/info" "$work/dpkg/updates" "$work/dpkg/triggers"
cp /var/lib/dpkg/status "$work/dpkg/status"
scratch_dpkg() {
    # The copied database has no file lists: dpkg warns once per package, so keep its output for a
    # failure only.
    dpkg --admindir="$work/dpkg" --instdir="$work/root" --force-script-chrootless --force-not-root \
        "$@" > "$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log"; return 1; }
}
scratch_dpkg --install "$package"
dpkg --admindir="$work/dpkg" --status ipmi-event-log | grep -q '^Status: install ok installed$'
installed=$(find "$work/root" -name 'libipmi_event_log.so.0' | head -n 1)
LD_LIBRARY_PATH=$(dirname "$installed") ldd "$installed" | grep -q 'libtolmar_framework.so.0 =>'
tool=$(find "$work/root" -name ipmi-event-log -type f | head -n 1)
LD_LIBRARY_PATH=$(dirname "$installed") "$tool" --help | grep -q '^usage: ipmi-event-log'
scratch_dpkg --remove ipmi-event-log
if [ -n "$(find "$work/root" -type f)" ]; then
    echo "files left after removing the package:"
    find "$work/root" -type f
    failed=1
fi
exit $failed
